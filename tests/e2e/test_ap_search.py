"""The searches of the access points, held against plain questions to the database, whose answers
are filtered, sorted and cut into pages here."""

import re
import time
import xml.etree.ElementTree as ElementTree

import pytest

import harness

HEAD = "<qorin>\n<status>OK</status>\n"
NONE_COUNTED = "<start>0</start>\n<length>0</length>\n<total>0</total>\n</qorin>\n"
NO_TERM = 'syntax error at or near "OFFSET"'
TOO_LONG = HEAD + harness.XML_HEAD.decode() + harness.ERROR_DOCUMENT % "Search text is too long"
AP_TAGS = ("name fqln apgroup aradiotype ahttype amac ach acl bgradiotype bghttype bgmac gch gcl type "
           "lms role wired_mac status ip outerip ipsec mesh pppoe sensor").split()
AM_TAGS = "loc name ip st ap_type lms strap wired-mac apgroup mt mac phy oui".split()

# Of each access point and role: the radio that was heard last, in each band.
AP_QUESTION = """
    WITH role AS (SELECT DISTINCT wired_mac, type
                  FROM global_ap_table LEFT JOIN global_radio_table USING (wired_mac)),
         heard AS (SELECT *, phy_type = '80211a' AS upper_band, row_number() OVER (
                          PARTITION BY wired_mac, type, phy_type = '80211a'
                          ORDER BY last_update DESC NULLS LAST) AS age FROM global_radio_table)
    SELECT g.name, left(g.fqln, 1023), g.ap_group, a.type, a.ht_type, a.bssid, a.channel, a.clients,
           b.type, b.ht_type, b.bssid, b.channel, b.clients, g.ap_type, g.lms_ip,
           coalesce(role.type, 'soft-ap'), g.wired_mac,
           CASE g.cpsec_denied WHEN '1' THEN 'down(denied)' ELSE g.status END, g.ip, g.outer_ip,
           g.strap, g.mesh, g.pppoe, g.sensor, g.location, g.status, coalesce(role.type, '')
    FROM role JOIN global_ap_table g USING (wired_mac)
    LEFT JOIN heard a ON (a.wired_mac, a.type, a.upper_band, a.age) = (role.*, true, 1)
    LEFT JOIN heard b ON (b.wired_mac, b.type, b.upper_band, b.age) = (role.*, false, 1)"""
AM_QUESTION = """
    SELECT location, name, ip, status, ap_type, lms_ip, strap, wired_mac, ap_group,
           extract(epoch FROM last_update), bssid, phy_type, '' FROM global_radio_table
    JOIN global_ap_table USING (wired_mac) WHERE type LIKE '%monitor' ORDER BY wired_mac"""
MODELS = dict(line.split("\t") for line in
              (harness.CHECKOUT / "deploy/platform/ap_models.tsv").read_text().splitlines())
ROLES = {"soft-ap", "disabled", "mesh-portal", "mesh-point", ""}
CLASSES = {
    "probes": lambda row: row["radio"] in ROLES or row["status"] == "down(denied)",
    "straps": lambda row: CLASSES["probes"](row) and row["ipsec"] == "1",
    "allmesh": lambda row: row["radio"].startswith("mesh"),
}


pytestmark = pytest.mark.usefixtures("access_points")


@pytest.fixture
def search(admin):
    return lambda **fields: harness.post_form(
        "/wlm-search", {key.replace("_", "-"): value for key, value in fields.items()},
        harness.as_session(admin)).text


def plain(text):
    """What an element's text means: it is escaped byte by byte, inside the CDATA section."""
    for reference, character in (("&lt;", "<"), ("&gt;", ">"), ("&quot;", '"'), ("&amp;", "&#38;")):
        text = text.replace(reference, character)
    text = re.sub("&#([0-9]+);", lambda found: chr(int(found[1])), text)
    return text.encode("latin-1").decode()


def found(text, element, tags):
    """(start, length, total), and each row as a dictionary."""
    document = ElementTree.fromstring(text)
    counts = tuple(int(document.find(tag).text) for tag in ("start", "length", "total"))
    rows = [{part.tag: plain(part.text or "") for part in row} for row in document.iter(element)]
    assert all(list(row) == tags for row in rows)
    assert len(rows) == counts[1]
    return counts, rows


def questioned(question, tags):
    rows = [dict(zip(tags, row)) for row in harness.sql(question, "gapdb")]
    for row in rows:
        model = "ap_type" if "ap_type" in row else "type"
        row[model] = MODELS.get(row[model], row[model])
    return rows


def aps(wanted):
    rows = questioned(AP_QUESTION, AP_TAGS + ["location", "state", "radio"])
    return [row for row in rows if CLASSES[wanted](row)]


def shown(rows, tags):
    return sorted([row[tag] for tag in tags] for row in rows)


def matches(value, text, flags=0):
    return re.search(re.escape(value).replace("_", "."), text, flags)


FILTERS = [
    {}, {"name": "LOBBY"}, {"name": "watch"}, {"name": "küche"}, {"name": "KÜ"}, {"name": "ap_1"},
    {"name": "%"}, {"name": "50% \"o"}, {"name": "\\"}, {"name": "back\\s"}, {"name": "\\%"},
    {"name": "'"}, {"name": "o'b"}, {"name": "O'Watch"}, {"ip": "10.1.0."}, {"ip": "10_1"},
    {"status": "UP"}, {"status": "down(denied)"}, {"apgroup": "DEFAULT"}, {"apgroup": "it's"},
    {"apgroup": "&amp;</"}, {"apgroup": "本"}, {"role": "MESH-POINT"}, {"role": "e"},
    {"name": "", "ip": "10.2", "status": "up", "role": "mesh", "apgroup": "YARD"},
    {"location": "0"}, {"type": "strams"}, {"type": "Strams"}, {"name": "' OR true) --"},
    {"name": "\\' OR true) --"}, {"name": "\\\\' OR true) --"}, {"name": "') OR true --"},
    {"name": "\\", "ip": " OR true) --"}, {"name": "'", "ip": "\\", "status": " OR true) --"},
    {"name": "'; DELETE FROM global_ap_table; --"}, {"name": "\\'; DELETE FROM global_ap_table; --"},
    {"name": "$$' OR true) --"}, {"name": "\u02bc OR true) --"}, {"name": "x" * 511},
]


@pytest.mark.parametrize("wanted", CLASSES)
@pytest.mark.parametrize("fields", FILTERS, ids=str)
def test_access_points_are_found_in_any_case_of_letters(search, wanted, fields):
    tags = {"name": "name", "role": "radio", "apgroup": "apgroup", "ip": "ip", "status": "state"}
    rows = [row for row in aps(wanted) if all(
        matches(fields.get(word, ""), row[tag], re.IGNORECASE) for word, tag in tags.items())]
    text = search(**{"class": wanted, "page_size": "100", **fields})
    assert text.startswith(HEAD + "<status>OK</status>\n")
    counts, answer = found(text, "ap", AP_TAGS)
    assert shown(answer, AP_TAGS) == shown(rows, AP_TAGS)
    assert counts == (0, len(rows), len({row["wired_mac"] for row in rows}))


@pytest.mark.parametrize("fields", FILTERS, ids=str)
def test_air_monitors_are_found_as_written(search, fields):
    columns = {"name": "name", "apgroup": "apgroup", "ip": "ip", "status": "st"}
    rows = [row for row in questioned(AM_QUESTION, AM_TAGS) if all(
        matches(fields.get(word, ""), row[tag]) for word, tag in columns.items())]
    if fields.get("type") == "strams":
        rows = [row for row in rows if row["strap"] == "1"]
    text = search(**{"class": "amii", **fields})
    counts, answer = found(text, "am", AM_TAGS)
    assert [row.pop("oui") for row in answer] == [
        "Cisco Systems, Inc" if row["name"] == "Watch-1" else "" for row in answer]
    assert shown(answer, AM_TAGS[:-1]) == shown(rows, AM_TAGS[:-1])
    assert counts == (0, len(rows), 0)


def test_beside_an_apostrophe_a_percent_sign_is_a_wildcard(search):
    answer = found(search(**{"class": "probes", "name": "O'%n"}), "ap", AP_TAGS)[1]
    assert [row["name"] for row in answer] == ["O'Brien"]


SORT_TAGS = {"name": "name", "fqln": "fqln", "apgroup": "apgroup", "amac": "amac", "bgmac": "bgmac",
             "wired_mac": "wired_mac", "loc": "location", "status": "status", "apip": "ip",
             "type": "type", "lmsip": "lms", "bgcpow": "gch", "acpow": "ach", "strap": "ipsec"}


def in_order(rows, *keys):
    """The keys of rows as they come, and as they should; a key is (tag, downward)."""
    known = {(row["wired_mac"], row["role"]): row for row in aps("probes")}
    values = [[known[row["wired_mac"], row["role"]][tag] for tag, _ in keys] for row in rows]
    ordered = values[:]
    for place, (tag, downward) in reversed(list(enumerate(keys))):
        ordered.sort(key=lambda value: int(value[place]) if tag == "location" else value[place],
                     reverse=downward)
    return values, ordered


@pytest.mark.parametrize("direction", ["asc", "desc"])
@pytest.mark.parametrize("word, tag", SORT_TAGS.items())
def test_each_word_sorts_each_way(search, word, tag, direction):
    _, everything = in_order(aps("probes"), (tag, direction == "desc"))
    counts, answer = found(search(**{"class": "probes", "sort_criteria": "%s,%s" % (word, direction),
                                     "start": "7", "page_size": "4"}), "ap", AP_TAGS)
    assert counts[0] == 4
    assert in_order(answer, (tag, False))[0] == everything[4:8]


@pytest.mark.parametrize("criteria, keys", [
    ("name,desc,bogus,asc,ip", [("name", True)]), ("bogus,asc,name,DESC", [("name", False)]),
    ("status,desc,name,asc", [("status", True), ("name", False)]),
    (",strap,,desc,apip,x", [("ipsec", True), ("ip", False)]),
    ("bogus,asc," * 24 + "name,desc", [("name", True)]),
])
def test_criteria_are_pairs(search, criteria, keys):
    text = search(**{"class": "probes", "sort_criteria": criteria, "page_size": "99"})
    values, ordered = in_order(found(text, "ap", AP_TAGS)[1], *keys)
    assert values == ordered


@pytest.mark.parametrize("start, size, offset, limit", [
    ("25", "10", 20, 10), ("11", "3", 9, 3), ("-5", "1", 0, 1), ("abc", "0", 0, 10),
    ("12", "-1", 10, 10), ("12", "text", 10, 10), ("13", "2147483647", 0, 2147483647),
    ("2147483647", "2", 2147483646, 2), ("99999999999", "99999999999", 0, 10),
])
def test_a_page_begins_at_a_multiple_of_its_size(search, start, size, offset, limit):
    for wanted, element, tags in (("probes", "ap", AP_TAGS), ("amii", "am", AM_TAGS)):
        fields = {"class": wanted, "sort_criteria": "name,asc"}
        everything = found(search(**fields, page_size="99"), element, tags)[1]
        page = everything[offset:offset + limit]
        counts, answer = found(search(**fields, start=start, page_size=size), element, tags)
        assert answer == page
        assert counts[0] == (offset if page else 0)


@pytest.mark.parametrize("word", [
    "modified-time", "apgroup", "name", "ip", "type", "ap_type", "status", "lmsip", "strap"])
def test_air_monitors_are_sorted_by_their_address_first(search, word):
    answer = found(search(**{"class": "amii", "sort_criteria": word + ",desc"}), "am", AM_TAGS)[1]
    assert [row["wired-mac"] for row in answer] == ["aa:03", "bb:01", "bb:02", "bb:03"]


@pytest.mark.parametrize("fields, reason", [
    ({"class": "probes", "sort_criteria": ""}, NO_TERM),
    ({"class": "probes", "sort_criteria": "name"}, NO_TERM),
    ({"class": "probes", "sort_criteria": "bogus,asc," * 25 + "name,desc"}, NO_TERM),
    ({"class": "amii", "sort_criteria": "bogus,asc"}, NO_TERM),
    ({"class": "amii", "sort_criteria": "mac,asc"}, "column r.mac does not exist"),
    ({"class": "amii", "location": "1"}, "LINE 1: .*p.location &gt;&gt; 0. &amp; 0xFFFF. = "),
    ({"class": "amii", "location": str(7 << 24 | 9 << 16)},
     "LINE 1: .*p.location &gt;&gt; 24. &amp; 0xFF. = "),
])
def test_what_the_server_refuses_is_answered_behind_what_was_written(search, fields, reason):
    pattern = re.escape(harness.ERROR_DOCUMENT).replace("%s", "ERROR:  [^<>]*%s[^<>]*")
    assert re.fullmatch(HEAD + harness.XML_HEAD.decode() + pattern % reason, search(**fields))


@pytest.mark.parametrize("fields, answer", [
    ({}, "</qorin>\n"), ({"class": "Probes"}, "</qorin>\n"),
    ({"class": "probes", "location": "1"}, "<status>OK</status>\n" + NONE_COUNTED),
    ({"class": "allmesh", "name": b"\xff"}, "<status>OK</status>\n" + NONE_COUNTED),
    ({"class": "straps", "start": "99"}, "<status>OK</status>\n" + NONE_COUNTED),
    ({"class": "amii", "start": "99"}, NONE_COUNTED),
])
def test_answers_without_a_row(search, fields, answer):
    assert search(**fields) == HEAD + answer


@pytest.mark.parametrize("fields", [
    {"class": "probes", "name": "x" * 512}, {"class": "straps", "role": "%" * 256},
    {"class": "allmesh", "ip": "x\0"}, {"class": "amii", "status": "x" * 512},
    {"class": "amii", "name": "x" * 300, "ip": "x" * 300},
    {"class": "amii", "apgroup": "monitors", "name": "atch-1", "ip": "10.4.0.1", "status": "up",
     "sort_criteria": "ip,a," * 51},
])
def test_a_text_that_does_not_fit_is_refused(search, fields):
    assert search(**fields) == TOO_LONG


def test_no_setting_of_the_database_lets_a_character_take_a_backslash(search):
    harness.sql("ALTER DATABASE gapdb SET client_encoding = gbk")
    try:
        answer = search(**{"class": "amii", "name": b"\xbf' OR true) --"})
        assert 'invalid byte sequence for encoding "UTF8": 0xbf' in answer
    finally:
        harness.sql("ALTER DATABASE gapdb RESET client_encoding")


def test_without_a_connection_nothing_is_written(search):
    """Only the request's first connection is taken, once those of earlier requests are gone."""
    harness.sql("ALTER DATABASE gapdb CONNECTION LIMIT 1")
    try:
        deadline = time.monotonic() + 30
        while (text := search(**{"class": "probes"})) != harness.ERROR_DOCUMENT % "Internal error":
            assert "too many connections" in text and time.monotonic() < deadline, text
    finally:
        harness.sql("ALTER DATABASE gapdb CONNECTION LIMIT -1")
    harness.assert_logged("wlmng_search(): can't connect to GAP db:")

"""Outputs that are too large or too wrong to be typed: what the key "generate" of a plan makes.

  {"kind": "nested", "count": 5000}   so many elements, one in the other

The kinds stand at the end; each reads the count in its own way.
"""


def _table(columns, inside):
    return b'<re><t tn="Hostile" nc="%d"><th><h>Name</h><h>Type</h></th>%s</t></re>\n' % (
        columns, inside)


def nested(count):
    return b"<re>%sdeep%s</re>\n" % (b"<r>" * count, b"</r>" * count)


def attributes(count):
    many = b"".join(b' a%d="%d"' % (number, number) for number in range(count))
    return b'<re><t tn="Hostile"%s nc="1"><r%s><c%s>wide</c></r></t></re>\n' % (many, many, many)


def table(mebibytes):
    # Names that fit no command, so that who asks for each row's details has nothing to ask for.
    row = b"<r><c>R&amp;D lab %s</c><c>&lt;3&gt;</c></r>\n" % (b"x" * 4056)
    return _table(2, row * ((mebibytes << 20) // len(row) + 1))


def wrong_nesting(_count):
    return _table(2, b"<r><c>crossed</r></c></re><r><c>late</c></r>")


def wrong_columns(claimed):
    return _table(claimed, b"<r><c>a</c><c>b</c></r><r><c>c</c></r>")


def control_bytes(_count):
    return _table(1, b"<r><c>%s</c></r>" % bytes([*range(32), 127]))


def unclosed_cdata(_count):
    return _table(1, b"<r><c><![CDATA[to the end")


def cdata_end(_count):
    return b"<re><data name='x'>]]></data></re>]]></result></cli><cli><![CDATA[\n"


KINDS = {
    "nested": nested,                  # elements
    "attributes": attributes,          # of one tag, and of the two inside it
    "table": table,                    # MiB
    "wrong-nesting": wrong_nesting,
    "wrong-columns": wrong_columns,    # what `nc` claims
    "control-bytes": control_bytes,
    "unclosed-cdata": unclosed_cdata,
    "cdata-end": cdata_end,            # an escape from a CDATA section around the reply
}


def generate(kind, count=1):
    """The output, as bytes; KeyError for a kind that does not exist."""
    return KINDS[kind](count)

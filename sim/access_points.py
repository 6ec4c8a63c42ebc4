#!/usr/bin/python3
"""Writes the access points of an imaginary enterprise as SQL for the database gapdb, the same ones
at every run: of COUNT access points twice as many radios (COUNT in fifties).

    access_points.py COUNT | psql gapdb

Of each fifty, one is denied by control-plane security and has no radio; two have a third one, an
older row for the 5 GHz band, which the search must not take for the present one.
"""

import random
import sys
from datetime import datetime, timedelta

AP_COLUMNS = ("wired_mac", "name", "fqln", "location", "ip", "outer_ip", "status", "ap_type", "lms_ip",
              "strap", "ap_group", "cpsec_denied", "mesh", "pppoe", "sensor")
RADIO_COLUMNS = ("wired_mac", "bssid", "phy_type", "type", "ht_type", "channel", "clients", "last_update")

# Campus (its number is the top byte of a location), and its buildings.
CAMPUSES = (
    ("Zürich", ("Haupthaus", "Labor \"Nord\"", "Café 100%")),
    ("Dublin", ("O'Connell House", "Depot")),
    ("Austin", ("Tower 1", "Tower 2", "Plant\\Yard", "Garage")),
    ("Malmö", ("Kontor", "Lager Süd")),
)
FLOORS = 6
NOTES = (" \"spare\"", " (100%)", " O'Hara", " back\\up", " Müller")  # behind the names of a few
GROUPS = ("default", "office", "Büro Süd", "O'Connell guests", "warehouse", "lab \"A\"", "50% power", "a_b")

# A kind: its share of a thousand, model codes, and the radios' roles at 5 and at 2.4 GHz. One model
# is too new for the table of names.
KINDS = (
    ("office", 640, ("1100", "1100H", "2100", "2200D", "3300", "5100", "7700"), "soft-ap", "soft-ap"),
    ("quiet", 60, ("2100D", "3100"), "soft-ap", "disabled"),
    ("remote", 150, ("9010R", "9030R", "1100H"), "soft-ap", "soft-ap"),
    ("portal", 30, ("4200X",), "mesh-portal", "soft-ap"),
    ("point", 50, ("4200X", "4250X"), "mesh-point", "soft-ap"),
    ("monitor", 50, ("2150", "3150"), "air-monitor", "air-monitor"),
    ("hybrid", 20, ("3300D",), "soft-ap", "sap-monitor"),
)
CHANNELS = {"80211a": (36, 44, 52, 60, 100, 116, 132, 149, 161), "80211g": (1, 6, 11)}
WIDTHS = {"80211a": ("ht-40", "vht-80", "he-80"), "80211g": ("ht-20", "he-20")}
SEEN_FIRST = datetime(2026, 2, 1)


def mac(maker, number):
    return ":".join("%02x" % byte for byte in (*maker, *number.to_bytes(3, "big")))


def access_point(i, dice):
    """One row of global_ap_table and its rows of global_radio_table."""
    kind, _, models, high, low = dice.choices(KINDS, [row[1] for row in KINDS])[0]
    denied = i % 50 == 49
    campus = dice.randrange(len(CAMPUSES))
    town, buildings = CAMPUSES[campus]
    building = dice.randrange(len(buildings))
    floor = dice.randint(1, FLOORS)
    remote = kind == "remote"
    maker = (0x00, 0xE0, 0x4C) if remote else (0x00, 0x1B, 0x21)
    first = 0x100000 + 16 * i  # an access point has sixteen addresses
    wired = mac(maker, first)
    note = NOTES[i // 40 % len(NOTES)] if i % 40 == 7 else ""
    ap = (
        wired, "%s-%s-%04d%s" % (kind, town.lower()[:3], i, note),
        ".".join((town, buildings[building], "Floor %d" % floor, "AP %d" % i)),
        (campus + 1) << 24 | (building + 1) << 16 | floor,
        "10.%d.%d.%d" % (64 + (i >> 16), i >> 8 & 0xFF, i & 0xFF),
        "203.0.113.%d" % dice.randint(1, 254) if remote else "",
        "down" if denied or dice.random() < 0.04 else "up", dice.choice(models),
        "10.0.0.%d" % (campus + 2), int(remote), "home" if remote else dice.choice(GROUPS), int(denied),
        int(kind in ("portal", "point")), int(remote and dice.random() < 0.2), int(kind == "monitor"))
    seen = SEEN_FIRST + timedelta(seconds=dice.randrange(28 * 86400))
    radios = []
    for offset, (band, role, age) in enumerate(
            (("80211a", high, 0), ("80211g", low, 0), ("80211a", high, 1))):
        clients = dice.randrange(40) if role in ("soft-ap", "mesh-portal") else 0
        radios.append((wired, mac(maker, first + 1 + offset), band, role, dice.choice(WIDTHS[band]),
                       dice.choice(CHANNELS[band]), clients, seen - timedelta(days=age)))
    return ap, [] if denied else radios if i % 25 == 0 else radios[:2]


def copy_rows(table, columns, rows):
    print("COPY %s (%s) FROM stdin;" % (table, ", ".join(columns)))
    for row in rows:
        print("\t".join(str(value).replace("\\", "\\\\") for value in row))
    print("\\.")


def main():
    dice = random.Random(6)
    made = [access_point(i, dice) for i in range(int(sys.argv[1]))]
    sys.stdout.reconfigure(encoding="utf-8")
    copy_rows("global_ap_table", AP_COLUMNS, (ap for ap, _ in made))
    copy_rows("global_radio_table", RADIO_COLUMNS, (radio for _, radios in made for radio in radios))
    print("ANALYZE global_ap_table, global_radio_table;")


if __name__ == "__main__":
    main()

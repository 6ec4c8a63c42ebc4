#!/usr/bin/python3
"""Makes the table of MAC address vendors from the IEEE's registries.

    vendor_table.py REGISTRIES TABLE

REGISTRIES is the folder with their CSV files, /usr/share/ieee-data of Debian's package ieee-data.
src/platform/vendor_names.h has the table's format.
"""

import csv
import os
import struct
import sys
from pathlib import Path

FILES = ("oui.csv", "mam.csv", "oui36.csv", "iab.csv")
ADDRESSES = 1 << 48


def read_blocks(folder):
    """{(first address, end): vendor}; of a block that is listed twice, the first one's."""
    blocks = {}
    for name in FILES:
        with open(folder / name, encoding="utf-8", newline="") as file:
            for row in csv.DictReader(file):
                size = ADDRESSES >> 4 * len(row["Assignment"])
                first = int(row["Assignment"], 16) * size
                blocks.setdefault((first, first + size), row["Organization Name"].strip())
    return blocks


def changes(blocks):
    """(address, vendor from there on), ascending; of several at an address, the last one counts.
    Blocks lie within each other: the innermost one's vendor is told."""
    around = [(ADDRESSES, "")]
    for (first, end), vendor in sorted(blocks.items(), key=lambda item: (item[0][0], -item[0][1])):
        while around[-1][0] <= first:
            left, _ = around.pop()
            yield left, around[-1][1]
        yield first, vendor
        around.append((end, vendor))
    while len(around) > 1:
        left, _ = around.pop()
        yield left, around[-1][1]


def table(blocks):
    ranges, names, places = [], b"", {}
    last = ""
    for first, vendor in dict(changes(blocks)).items():
        if vendor == last or first == ADDRESSES:
            continue
        last = vendor
        name = vendor.encode()
        if name not in places:
            places[name] = len(names)
            names += name
        ranges.append(first.to_bytes(6, "big") + struct.pack(">HI", len(name), places[name]))
    return b"WMSVEND1" + struct.pack(">I", len(ranges)) + b"".join(ranges) + names


def main():
    registries, target = map(Path, sys.argv[1:])
    target.parent.mkdir(parents=True, exist_ok=True)
    # A request may have the old table mapped, so that is replaced, not written to.
    fresh = target.with_name(target.name + ".new")
    fresh.write_bytes(table(read_blocks(registries)))
    os.replace(fresh, target)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Writes the pixel format list as rows of a C++ initialiser: {value, "name"}, ordered by value."""

import csv
import pathlib
import sys


def main(source: str, target: str) -> None:
    with open(source, newline="") as file:
        rows = sorted((int(row["value"], 16), row["name"]) for row in csv.DictReader(file))
    path = pathlib.Path(target)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("".join(f'{{0x{value:08X}u, "{name}"}},\n' for value, name in rows))


if __name__ == "__main__":
    main(*sys.argv[1:])

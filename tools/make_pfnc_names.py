#!/usr/bin/env python3
"""Writes the pixel format list as macro calls, ordered by value.

One line each: TARN_PFNC(value, name, components, family), the last three bare words or numbers. Who includes
the file defines the macro and takes the columns that he needs. Bits per pixel are part of the value.
"""

import csv
import pathlib
import sys


def main(source: str, target: str) -> None:
    """Reads the list at `source`, writes the file `target` and the folders above it."""
    with open(source, newline="") as file:
        rows = sorted(csv.DictReader(file), key=lambda row: int(row["value"], 16))
    path = pathlib.Path(target)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(
        "".join("TARN_PFNC({value}u, {name}, {components}, {family})\n".format(**row) for row in rows)
    )


if __name__ == "__main__":
    main(*sys.argv[1:])

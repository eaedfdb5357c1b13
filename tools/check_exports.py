#!/usr/bin/env python3
"""Compares what a library exports with what its header declares.

Usage: check_exports.py HEADER LIBRARY
"""

import pathlib
import re
import subprocess
import sys

DECLARATION = re.compile(r"^TR_API\b[^;(]*?(\w+)\s*\(", re.MULTILINE)


def exports(library: str) -> set[str]:
    """The symbols that the dynamic linker sees, functions and data."""
    listing = subprocess.run(
        ["nm", "-D", "--defined-only", "--format=posix", library], check=True, capture_output=True, text=True
    )
    return {line.split()[0] for line in listing.stdout.splitlines()}


def main(header: str, library: str) -> int:
    declared = set(DECLARATION.findall(pathlib.Path(header).read_text()))
    if not declared:
        print(f"{header}: no declarations found")
        return 1
    exported = exports(library)
    for name in sorted(declared - exported):
        print(f"{library}: {name} is declared in {header} and not exported")
    for name in sorted(exported - declared):
        print(f"{library}: {name} is exported and not declared in {header}")
    return int(declared != exported)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))

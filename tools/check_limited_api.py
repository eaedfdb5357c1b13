#!/usr/bin/env python3
"""Checks that a module needs nothing from the interpreter beyond the limited API of Python 3.11.

Usage: check_limited_api.py COMPILER MODULE INCLUDE_DIR...

The list to compare with is what the interpreter's own headers declare at that level: a module that was
compiled without the level set, or that declares an interpreter function by itself, is found here.
"""

import re
import subprocess
import sys

LEVEL = "-DPy_LIMITED_API=0x030B0000"
NAME = re.compile(r"\b_?Py\w+")


def run(*command: str, text: str = "") -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True, input=text).stdout


def declared(compiler: str, folders: list[str]) -> set[str]:
    """All interpreter names in the preprocessed headers."""
    includes = [f"-I{folder}" for folder in folders]
    source = "#include <Python.h>\n"
    return set(NAME.findall(run(compiler, "-E", "-P", LEVEL, *includes, "-x", "c", "-", text=source)))


def needed(module: str) -> set[str]:
    """The interpreter symbols that the module leaves undefined."""
    listed = run("nm", "-D", "--undefined-only", "--format=posix", module).splitlines()
    names = (line.split()[0] for line in listed)
    return {name for name in names if NAME.fullmatch(name)}


def main(compiler: str, module: str, *folders: str) -> int:
    wanted = needed(module)
    outside = wanted - declared(compiler, list(folders))
    if not wanted:
        print(f"{module}: no interpreter symbols, this is no Python module")
    for name in sorted(outside):
        print(f"{module}: {name} is not in the limited API of Python 3.11")
    return int(bool(outside) or not wanted)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))

#!/usr/bin/env python3
"""Reads every include and reports those that point against the layer table."""

import pathlib
import re
import sys

# Who may include whom; a folder may always include itself.
BELOW = {
    "base": "",
    "wire": "base",
    "engine": "base wire",
    "net": "base",
    "image": "base",
    "device": "base wire engine net image",
    "capi": "base wire engine net image device gevserver/library",
    "gevserver/library": "",
    "core": "base gevserver/library",
    "gevserver": "base core gevserver/library",
    "binding": "base core gevserver",
    "core/module": "base core binding",
    "module": "base core gevserver binding core/module",
}
INTERPRETER = {"binding", "core/module", "module"}
INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]', re.MULTILINE)


def layer_of(path: str) -> str | None:
    """The longest layer name that `path` lies in; None outside the table."""
    fitting = [layer for layer in BELOW if path.startswith(layer + "/")]
    return max(fitting, key=len, default=None)


def faults(root: pathlib.Path) -> list[str]:
    """One line for each include that breaks the table."""
    found = []
    for file in sorted([*root.rglob("*.h"), *root.rglob("*.cpp"), *root.rglob("*.c")]):
        name = file.relative_to(root).as_posix()
        layer = layer_of(name)
        if layer is None:
            continue
        for quote, target in INCLUDE.findall(file.read_text()):
            if target == "Python.h":
                if layer not in INTERPRETER:
                    found.append(f"{name}: {layer} must not include Python.h")
                continue
            below = layer_of(target) if quote == '"' else None
            if quote == '"' and below is None and not target.startswith("tests/"):
                found.append(f"{name}: include {target} from the root of the tree")
            if below and below != layer and below not in BELOW[layer].split():
                found.append(f"{name}: {layer} must not include {target}")
    return found


if __name__ == "__main__":
    lines = faults(pathlib.Path(__file__).resolve().parent.parent)
    print("\n".join(lines))
    sys.exit(1 if lines else 0)

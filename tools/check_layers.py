#!/usr/bin/env python3
"""Reads every include and reports those that point against the layer table."""

import pathlib
import re
import sys

# Who may include whom; a folder may always include itself.
BELOW = {
    # The camera: everything below the C line.
    "camera/base": "",
    "camera/wire": "camera/base",
    "camera/engine/memory": "camera/base",
    "camera/engine/nodes": "camera/base camera/wire camera/engine/memory",
    "camera/engine/stream": "camera/base camera/wire",
    "camera/engine/registers": "camera/base camera/wire camera/engine/memory camera/engine/nodes",
    "camera/engine/xml": "camera/base camera/wire camera/engine/memory camera/engine/nodes",
    "camera/engine/features": "camera/base camera/wire "
    "camera/engine/memory camera/engine/nodes camera/engine/stream camera/engine/registers",
    "camera/engine/control": "camera/base camera/wire "
    "camera/engine/memory camera/engine/nodes camera/engine/stream "
    "camera/engine/registers camera/engine/features camera/engine/xml",
    "camera/net": "camera/base",
    "camera/image": "camera/base camera/wire",
    "camera/device": "camera/base camera/wire ENGINE camera/net camera/image",
    "camera/capi": "camera/base camera/wire ENGINE camera/net camera/image camera/device gevserver/library",
    # The line itself, and the object model with its Python face above it. Of the camera they see its base.
    "gevserver/library": "",
    "core": "camera/base gevserver/library",
    "gevserver": "camera/base core gevserver/library",
    "binding": "camera/base core gevserver",
    "core/module": "camera/base core gevserver/library binding",
    "module": "camera/base core gevserver gevserver/library binding core/module",
}
# Who may see one part of the engine sees all.
ENGINE = " ".join(layer for layer in BELOW if layer.startswith("camera/engine/"))
BELOW = {layer: below.replace("ENGINE", ENGINE) for layer, below in BELOW.items()}
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
            # Unit tests of the engine use all of it to set their stage.
            if name.endswith("_test.cpp") and layer in ENGINE.split() and below in ENGINE.split():
                continue
            if below and below != layer and below not in BELOW[layer].split():
                found.append(f"{name}: {layer} must not include {target}")
    return found


if __name__ == "__main__":
    lines = faults(pathlib.Path(__file__).resolve().parent.parent)
    print("\n".join(lines))
    sys.exit(1 if lines else 0)

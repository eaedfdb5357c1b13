"""Reads and writes a device's features through the Aravis library, as it is asked to line by line.

A program of its own, so that the client shares nothing with the device's process.

usage: aravis_features.py address

Requests come on standard input, one JSON list a line, each answered with a line of JSON: ["facts", name],
["set", name, value], ["execute", name].
"""

import json
import sys

import gi

gi.require_version("Aravis", "0.8")
from gi.repository import Aravis  # noqa: E402


def facts(device: Aravis.Device, name: str) -> dict[str, object]:
    """What the library says of one feature; what does not apply to its kind is left out."""
    node = device.get_feature(name)
    said = {"visibility": node.get_visibility().value_nick}
    if not node.is_implemented() or not node.is_available():
        return said | {"access": "NA"}
    mode = node.get_actual_access_mode().value_nick.upper()
    said["access"] = "RO" if mode == "RW" and node.is_locked() else mode
    if isinstance(node, Aravis.GcEnumeration):
        entries = sorted((entry.get_name(), entry.get_value()) for entry in node.get_entries())
        return said | {"value": node.get_string_value(), "entries": entries}
    if isinstance(node, Aravis.GcBoolean):
        return said | {"value": node.get_value()}
    if isinstance(node, Aravis.GcString):
        return said | {"value": device.get_string_feature_value(name)}
    if isinstance(node, Aravis.GcInteger | Aravis.GcFloat):
        said |= {"value": node.get_value(), "min": node.get_min(), "max": node.get_max()}
        return said | {"unit": node.get_unit() or ""}
    return said


def main(address: str) -> None:
    camera = Aravis.Camera.new(address)
    device = camera.get_device()
    for line in sys.stdin:
        action, name, *values = json.loads(line)
        answer = None
        if action == "facts":
            answer = facts(device, name)
        elif action == "execute":
            device.execute_command(name)
        else:
            (value,) = values
            kinds = {bool: "boolean", int: "integer", float: "float", str: "string"}
            getattr(device, f"set_{kinds[type(value)]}_feature_value")(name, value)
        print(json.dumps(answer), flush=True)


main(*sys.argv[1:])

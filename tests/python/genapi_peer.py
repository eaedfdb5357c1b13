"""The reference GenApi library as a client of a camera, and what it and the Python side say of each node.

Test modules that import it are skipped where the library is not installed.
"""

import contextlib
import pathlib
import subprocess
from collections.abc import Iterator
from typing import Any

import pytest

import tarn
from conftest import Camera, need_tool
from features import description
from gvcp_client import ControlClient
from tarn.gevserver import (
    CategoryNode,
    EnumEntryNode,
    EnumerationNode,
    IntegerBaseNode,
    NameSpace,
    Node,
    NodeMap,
    SelectorNode,
)

genapi: Any = pytest.importorskip("genicam.genapi", reason="the Python package genicam is not installed")

SCHEMA = pathlib.Path(__file__).resolve().parents[1] / "data" / "GenApiSchema_Version_1_1.xsd"

# What is compared beyond what all nodes have, by the names of the Python side's properties.
_VALUES = (
    *("value", "min", "max", "increment", "representation", "unit"),
    *("display_precision", "numeric_value", "is_done"),
)
_MODES = ("NI", "NA", "RO", "WO", "RW")  # each at the place of its code


class Port(genapi.AbstractPort):  # type: ignore[misc]
    """Lets the library's node map reach the camera's registers."""

    def __init__(self, client: ControlClient) -> None:
        super().__init__()
        self._client = client

    def read(self, address: int, length: int) -> bytes:
        return self._client.read_memory(address, length)

    def write(self, address: int, data: bytes) -> None:
        self._client.write_memory(address, bytes(data))

    def get_access_mode(self) -> Any:
        return genapi.EAccessMode.RW


def node_map(client: ControlClient) -> tuple[Any, Port]:
    """The library's node map over the camera; keep the port as long as the map is in use."""
    nodes = genapi.NodeMap()
    nodes.load_xml_from_string(description(client).decode("utf-8"))
    port = Port(client)
    nodes.connect(port, "Device")
    return nodes, port


@contextlib.contextmanager
def in_control(camera: Camera) -> Iterator[Any]:
    """The library's node map, for a client that has the control privilege."""
    with camera.client() as client:
        client.connect()
        nodes, port = node_map(client)
        yield nodes
        del nodes, port


def check_schema(xml: bytes, folder: pathlib.Path) -> None:
    need_tool("xmllint")
    file = folder / "camera.xml"
    file.write_bytes(xml)
    command: list[str | pathlib.Path] = ["xmllint", "--noout", "--nonet", "--schema", SCHEMA, file]
    result = subprocess.run(command, capture_output=True, text=True, timeout=60)
    assert result.returncode == 0, result.stderr


def check_agreement(nodes: Any, tree: NodeMap) -> None:
    """Expect that the client sees of every node but entries what the Python side tells."""
    differences = []
    for node in tree.nodes.values():
        if isinstance(node, EnumEntryNode):
            continue
        seen = seen_by_client(nodes.get_node(node.name_only))  # first: its listeners may set another value
        told = told_by_python(node)
        seen["selected"] &= told["selected"]  # clients add what depends on the selected
        if stands_on_a_port(nodes.get_node(node.name_only)):
            assert seen["access"] in ("NI", "NA")  # until an image or an event brings data
            told = {fact: told[fact] for fact in told if fact not in ("access", *_VALUES)}
        differences += [
            f"{node.name}: {fact} is {seen.get(fact)!r} for the client, {told[fact]!r} in Python"
            for fact in told
            if fact not in seen or seen[fact] != told[fact]
        ]
    assert not differences, "\n".join(differences)


def seen_by_client(peer: Any) -> dict[str, Any]:
    node = peer.node
    facts = {
        "access": genapi.EAccessMode(peer.get_access_mode()).name,
        "visibility": int(node.visibility),
        "standard": node.name_space == genapi.ENameSpace.Standard,
        "texts": (node.display_name, node.tooltip, node.description),
        "feature": node.is_feature(),
        "deprecated": node.is_deprecated(),
        "event": int(node.event_id or "0", 16),
        "streamable": node.is_streamable(),
        "polling": max(node.polling_time, 0),
        "cache": int(node.caching_mode),
        "selected": {selected.node.name for selected in node.selected_features},
    }
    if isinstance(peer, genapi.ICategory):
        facts["members"] = [member.node.name for member in peer.features]
    if isinstance(peer, genapi.IEnumeration):
        facts["entries"] = sorted((entry.symbolic, entry.value) for entry in peer.entries)
    if facts["access"] in ("RO", "RW"):
        facts |= {name: value for name in _VALUES if (value := _client_value(peer, name)) is not None}
    return facts


def _client_value(peer: Any, name: str) -> object:
    """One property by the Python side's name; None when the node's kind has none."""
    if name == "increment" and hasattr(type(peer), "inc"):
        without = isinstance(peer, genapi.IFloat) and not peer.has_inc()
        return 0.0 if without else peer.inc
    if name == "numeric_value" and isinstance(peer, genapi.IEnumeration):
        return peer.get_int_value()
    if name == "is_done":
        return peer.is_done() if isinstance(peer, genapi.ICommand) else None
    return getattr(peer, name) if hasattr(type(peer), name) else None


def stands_on_a_port(peer: Any) -> bool:
    """Whether the value comes with an image or an event, and not from the camera's registers."""
    node = getattr(peer, "node", peer)
    if "pPort" in node.property_names:
        return str(node.get_property("pPort")[0]) != "Device"
    return not isinstance(peer, genapi.ICategory) and any(map(stands_on_a_port, node.children))


def told_by_python(node: Any) -> dict[str, Any]:
    hidden = node.name_space == NameSpace.Private
    facts = {
        "access": expected_access(node),
        "visibility": tarn.Visibility.Invisible if hidden else node.visibility,
        "standard": node.name_space == NameSpace.Standard,
        "texts": (node.display_name, node.tool_tip, node.description),
        "feature": node.is_feature,
        "deprecated": node.is_deprecated,
        "event": node.event_id,
        "streamable": node.is_streamable,
        "selected": set(),
    }
    if isinstance(node, SelectorNode):
        facts["selected"] = {selected.name_only for selected in node.selected_nodes}
    if hasattr(node, "address"):  # for other nodes the client's library combines what it depends on
        facts |= {"cache": node.cache_mode, "polling": node.polling_time}
    if isinstance(node, CategoryNode):
        facts["members"] = [member.name_only for member in node.nodes]
    if isinstance(node, EnumerationNode):
        facts["entries"] = sorted((entry.symbolic_value, entry.numeric_value) for entry in node.entries)
    if facts["access"] in ("RO", "RW"):
        facts |= {name: getattr(node, name) for name in _VALUES if hasattr(type(node), name)}
    if isinstance(node, IntegerBaseNode):
        facts.pop("unit", None)  # always empty in Python, although the standard features publish theirs
    return facts


def expected_access(node: Node) -> str:
    """The access mode that clients compute, from the properties that the Python side shows."""
    if not _holds(node.is_implemented_config, True):
        return "NI"
    if isinstance(node, CategoryNode):  # clients count one without members as not there
        return "RO" if any(expected_access(member) != "NI" for member in node.nodes) else "NI"
    source = getattr(node, "value_config_as_node", None)
    base = _MODES.index(expected_access(source)) if source else node.access_mode
    if base == tarn.AccessMode.NotImplemented:
        return "NI"
    if base == tarn.AccessMode.NotAvailable or not _holds(node.is_available_config, True):
        return "NA"
    imposed = node.imposed_access_mode
    readable = base != tarn.AccessMode.WriteOnly and imposed != tarn.AccessMode.WriteOnly
    writable = base != tarn.AccessMode.ReadOnly and imposed != tarn.AccessMode.ReadOnly
    writable = writable and not _holds(node.is_locked_config, False)
    if readable:
        return "RW" if writable else "RO"
    return "WO" if writable else "NA"


def _holds(condition: Any, without: bool) -> bool:
    return without if condition is None else bool(condition.value)

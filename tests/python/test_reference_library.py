"""Devices as the reference GenApi library and Aravis see them: the same as the Python side does."""

import functools
import importlib.util
import json
import pathlib
import re
import signal
import subprocess
import sys
from collections.abc import Callable, Iterator
from typing import Any

import pytest

import tarn
from conftest import ROOT, Camera, run_python, wait_until
from features import description
from genapi_peer import check_agreement, check_schema, genapi, node_map, told_by_python
from gvcp_client import ControlClient
from node_trees import constant, publish, put
from tarn.gevserver import (
    CategoryNode,
    EnumEntryNode,
    EnumerationNode,
    Float64RegNode,
    FloatNode,
    Int32RegNode,
    IntegerNode,
    IntSwissKnifeNode,
    NodeList,
    NodeMap,
    Server,
    State,
    StringRegNode,
)

EXAMPLE = ROOT / "examples" / "lighting_controller.py"
FEATURES = pathlib.Path(__file__).with_name("aravis_features.py")
_SIZE = tarn.Size2D(640, 480)
ILLEGAL_NAMES = (
    "1st",
    "a b",
    "Lamp-1",
    "Lamp.On",
    "_lamp",
    "Lam\N{LATIN SMALL LETTER E WITH ACUTE}",
    "<Lamp>",
)


def example_features(server: Server) -> Any:
    """The example's features on a server."""
    spec = importlib.util.spec_from_file_location("lighting_controller", EXAMPLE)
    assert spec and spec.loader
    example = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(example)
    return example.Lights(server)


@pytest.fixture
def device(make_camera: Callable[..., Camera]) -> Camera:
    """A server without stream and without more than the standard features, not started."""
    camera = make_camera(start=False)
    camera.server = Server.create_non_streaming()
    return camera


@pytest.fixture
def lighting(device: Camera) -> Iterator[Camera]:
    """The example's device, started."""
    features = example_features(device.server)
    device.server.start(device.address)
    yield device
    features.close()


@pytest.fixture
def peer(lighting: Camera) -> Iterator[genapi.NodeMap]:
    """The reference library in control of the example's device."""
    with lighting.client() as client:
        client.connect()
        nodes, port = node_map(client)
        yield nodes
        del nodes, port


class Written:
    """What listeners heard of: full name and value at that moment."""

    def __init__(self, tree: NodeMap, *names: str) -> None:
        self.calls: list[tuple[str, object]] = []
        for name in names:
            getattr(tree, name).register_event_written_updated(self._note)

    def _note(self, node: Any) -> None:
        self.calls.append((node.name_only, node.value))


@pytest.mark.parametrize(
    "create",
    [
        lambda: Server.create_with_const_size_pfnc(_SIZE, tarn.PfncFormat.Mono8),
        lambda: Server.create_with_variable_size_pfnc(_SIZE, tarn.PfncFormat.BayerRG8),
    ],
    ids=["fixed size", "variable size"],
)
def test_standard_features_agree(device: Camera, create: Callable[[], Server]) -> None:
    device.server = create()
    device.server.start(device.address)
    with device.client() as client:
        client.connect()
        nodes, port = node_map(client)
        check_agreement(nodes, device.server.node_map)
        nodes.get_node("TLParamsLocked").value = 1  # is of the client alone
        device.server.node_map.TLParamsLocked.value = 1
        check_agreement(nodes, device.server.node_map)
        del nodes, port


def test_example_agrees(lighting: Camera, tmp_path: pathlib.Path) -> None:
    tree = lighting.server.node_map
    with lighting.client() as client:
        client.connect()
        check_schema(description(client), tmp_path)
        nodes, port = node_map(client)
        check_agreement(nodes, tree)
        for name, value in (
            *(("Brightness", 35), ("PulseLength", 2.5), ("Label", "roof"), ("LampOn", True)),
            *(("Lamp", 3), ("Brightness", 70), ("Preset", "Night"), ("Brightness", 5)),
        ):
            nodes.get_node(name).value = value
            check_agreement(nodes, tree)
        for lamp, preset, brightness in ((0, "Day", 35), (3, "Day", 70), (0, "Night", 0), (3, "Night", 5)):
            tree.Lamp.value, tree.Preset.value = lamp, preset
            nodes._invalidate_nodes()
            assert tree.Brightness.value == nodes.get_node("Brightness").value == brightness
            check_agreement(nodes, tree)
        del nodes, port


def test_written_by_the_reference_library(lighting: Camera, peer: genapi.NodeMap) -> None:
    tree = lighting.server.node_map
    written = Written(tree, "Lamp", "Preset", "LampOn", "Brightness", "PulseLength", "Label")
    values = [("Lamp", 2), ("Preset", "Night"), ("Brightness", 45), ("PulseLength", 0.5), ("Label", "x" * 32)]
    for name, value in [*values, ("LampOn", True)]:
        peer.get_node(name).value = value
    assert written.calls == [*values, ("LampOn", True)]
    for name, value in (("Brightness", 44), ("Brightness", 105), ("PulseLength", 9.0), ("Preset", "Noon")):
        with pytest.raises(genapi.GenericException):
            peer.get_node(name).value = value
    assert len(written.calls) == len(values) + 1
    peer.get_node("Flash").execute()
    assert peer.get_node("Flash").is_done()
    assert peer.get_node("FlashCount").value == tree.FlashCount.value == 1
    assert 30 <= peer.get_node("Temperature").value <= 50


def test_written_by_python(lighting: Camera, peer: genapi.NodeMap) -> None:
    tree = lighting.server.node_map
    values = {
        "Lamp": 1,
        "Brightness": 95,
        "PulseLength": 7.25,
        "Label": "sill",
        "LampOn": True,
        "FlashCount": 9,
    }
    for name, value in values.items():
        getattr(tree, name).value = value
    assert {name: peer.get_node(name).value for name in values} == values
    assert not genapi.is_writable(peer.get_node("PulseLength"))
    assert genapi.is_writable(peer.get_node("Flash"))


def test_how_a_value_is_shown_follows_the_chain(device: Camera) -> None:
    """Clients take representation, unit and precision from the node that supplies the value."""
    tree = device.server.node_map
    number, register = put(tree, IntegerNode.create("Mask"), Int32RegNode.create("MaskValue"))
    outer, inner, last = put(
        tree, FloatNode.create("Outer"), FloatNode.create("Inner"), Float64RegNode.create("OuterValue")
    )
    number.value_config_as_node, register.representation = register, tarn.NumberRepresentation.HexNumber
    outer.value_config_as_node, inner.value_config_as_node = inner, last
    inner.unit, inner.display_precision = "mm", 3
    last.representation = tarn.NumberRepresentation.Logarithmic
    publish(tree, number, outer, inner)
    publish(tree, *put(tree, FloatNode.create("Plain"), IntegerNode.create("PlainNumber")))
    device.server.start(device.address)
    with device.client() as client:
        nodes, port = node_map(client)
        check_agreement(nodes, tree)
        del nodes, port
    assert (outer.unit, outer.display_precision) == ("mm", 3)
    assert outer.representation == tarn.NumberRepresentation.Logarithmic


def test_features_are_what_is_reached_from_the_root(device: Camera) -> None:
    tree = device.server.node_map
    shown, loose = put(tree, CategoryNode.create("Shown"), CategoryNode.create("Loose"))
    shown.add(constant(tree, "Inside", 1), NodeList.Child)
    loose.add(constant(tree, "Outside", 1), NodeList.Child)
    publish(tree, shown)
    device.server.start(device.address)
    with device.client() as client:
        nodes, port = node_map(client)
        check_agreement(nodes, tree)
        del nodes, port
    assert (shown.is_feature, tree.Inside.is_feature, loose.is_feature, tree.Outside.is_feature) == (
        *(True, True),
        *(False, False),
    )


class Aravis:
    """Another process that reads and writes the device's features through Aravis."""

    def __init__(self, address: str) -> None:
        pipe = subprocess.PIPE
        command = [sys.executable, str(FEATURES), address]
        self.process = subprocess.Popen(command, stdin=pipe, stdout=pipe, text=True)

    def __call__(self, *request: object) -> Any:
        self.process.stdin.write(json.dumps(request) + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        assert answer, f"Aravis gave up on {request}"
        return json.loads(answer)

    def __enter__(self) -> "Aravis":
        return self

    def __exit__(self, *exception: object) -> None:
        self.process.stdin.close()
        self.process.wait(30)
        self.process.stdout.close()


def check_aravis(aravis: Aravis, tree: NodeMap) -> None:
    words = {getattr(tarn.Visibility, word): word.lower() for word in ("Beginner", "Expert", "Guru")}
    words[tarn.Visibility.Invisible] = "invisible"
    for node in tree.Lights.nodes:
        seen = aravis("facts", node.name_only)
        told = told_by_python(node) | {"visibility": words[node.visibility]}
        told["entries"] = [list(entry) for entry in told.get("entries", [])]
        told = {fact: told[fact] for fact in seen if fact in told}
        assert {fact: seen[fact] for fact in told} == told, node.name
        assert seen["access"] == "NA" or "value" in told or node.name_only == "Flash"


def test_aravis_agrees(lighting: Camera) -> None:
    pytest.importorskip("gi", reason="the Aravis binding (gir1.2-aravis-0.8) is not installed")
    tree = lighting.server.node_map
    written = Written(tree, "Lamp", "Preset", "Brightness", "PulseLength", "Label", "LampOn")
    with Aravis(lighting.address) as aravis:
        check_aravis(aravis, tree)
        values = [
            ("Lamp", 3),
            ("Preset", "Night"),
            ("Brightness", 60),
            ("PulseLength", 8.5),
            ("Label", "attic"),
        ]
        values += [("Label", "attic"), ("LampOn", True)]
        for name, value in values:
            aravis("set", name, value)
        assert written.calls == values
        check_aravis(aravis, tree)
        aravis("execute", "Flash")
        assert tree.FlashCount.value == 1
        tree.Lamp.value, tree.Label.value = 0, "cellar"
        check_aravis(aravis, tree)


@pytest.mark.parametrize("way", ["by itself", "by Ctrl+C"])
def test_example_as_a_program(device: Camera, way: str) -> None:
    address = device.address
    arguments = [address, "--seconds", "1"] if way == "by itself" else [address]
    program = run_python(EXAMPLE.read_text(), *arguments)
    try:
        client = ControlClient(address, timeout=0.1)
        wait_until(lambda: client.exchange(bytes.fromhex("42010002 00000001")), "an answer")
        client.close()
        if way == "by Ctrl+C":
            program.send_signal(signal.SIGINT)
        out, error = program.communicate(timeout=20)
    finally:
        program.kill()
    assert (program.returncode, out, error) == (0, "", "")


def dangling_value(tree: NodeMap) -> Callable[[], object]:
    node, register = put(tree, IntegerNode.create("Feature"), Int32RegNode.create("Target"))
    node.value_config_as_node = register
    tree.remove_node(register.name)
    return lambda: tree.add_node(register)


def dangling_address(tree: NodeMap) -> Callable[[], object]:
    register, offset = put(tree, Int32RegNode.create("Feature"), IntSwissKnifeNode.create("Target"))
    offset.formula = "8"
    register.add(offset, NodeList.Addresses)
    tree.remove_node(offset.name)
    return lambda: register.remove(offset, NodeList.Addresses)


def no_entries(tree: NodeMap) -> Callable[[], object]:
    (enumeration,) = put(tree, EnumerationNode.create("Feature"))
    return lambda: enumeration.add(EnumEntryNode.create("Only"), NodeList.Child)


def twin_entries(tree: NodeMap) -> Callable[[], object]:
    (enumeration,) = put(tree, EnumerationNode.create("Feature"))
    for name in ("Left", "Right"):
        enumeration.add(EnumEntryNode.create(name), NodeList.Child)
    return lambda: setattr(tree.Right, "numeric_value", 1)


def min_above_max(tree: NodeMap) -> Callable[[], object]:
    (number,) = put(tree, IntegerNode.create("Feature"))
    number.max_config_as_node, number.min_config_as_int = constant(tree, "Target", 4), 5
    return lambda: setattr(tree.Target, "value_config_as_int", 5)


def float_min_above_max(tree: NodeMap) -> Callable[[], object]:
    (number,) = put(tree, FloatNode.create("Feature"))
    number.max_config_as_float, number.min_config_as_float = 0.5, 0.75
    return lambda: setattr(number, "min_config_as_float", -0.75)


def no_formula(tree: NodeMap) -> Callable[[], object]:
    (knife,) = put(tree, IntSwissKnifeNode.create("Feature"))
    return lambda: setattr(knife, "formula", "1")


def late_dependence(tree: NodeMap) -> Callable[[], object]:
    selector, selected = constant(tree, "Feature", 1), constant(tree, "Target", 1)
    selector.add(selected, NodeList.Selected)
    selector.is_locked_config = selected
    return lambda: selector.remove(selected, NodeList.Selected)


@pytest.mark.parametrize(
    ("spoil", "names"),
    [
        (dangling_value, "Feature .*Target"),
        (dangling_address, "Feature .*Target"),
        (no_entries, "Feature"),
        (twin_entries, "Feature .*0"),
        (min_above_max, "5 of Feature .*4"),
        (float_min_above_max, "0.75 of Feature .*0.5"),
        (no_formula, "Feature"),
        (late_dependence, "Feature .*Target"),
    ],
)
def test_faults_refused_at_start(
    device: Camera, spoil: Callable[[NodeMap], Callable[[], object]], names: str
) -> None:
    tree = device.server.node_map
    mend = spoil(tree)
    publish(tree, tree.Feature)
    for _ in range(2):
        with pytest.raises((RuntimeError, ValueError), match=names):
            device.server.start(device.address)
        assert device.server.state == State.Configuration
    mend()
    device.server.start(device.address)
    with device.client() as client:
        nodes, port = node_map(client)
        check_agreement(nodes, tree)
        del nodes, port


def test_faults_refused_at_once(device: Camera, tmp_path: pathlib.Path) -> None:
    tree = device.server.node_map
    first, second, third = (constant(tree, name, 1) for name in ("First", "Second", "Third"))
    groups = put(tree, CategoryNode.create("Outer"), CategoryNode.create("Inner"))
    groups[0].add(groups[1], NodeList.Child)
    register, offset = put(tree, Int32RegNode.create("Moving", address=0xB000), IntegerNode.create("Offset"))
    offset.value_config_as_node = register
    second.value_config_as_node = first
    chain = put(tree, *(Int32RegNode.create(f"Selector{number}") for number in range(3)))
    chain[0].add(chain[1], NodeList.Selected)
    chain[1].add(chain[2], NodeList.Selected)
    third.is_available_config = first
    faults: tuple[tuple[str, Callable[[], object]], ...] = (
        ("First.*Second", lambda: setattr(first, "value_config_as_node", second)),
        ("First.*Third", lambda: setattr(first, "is_locked_config", third)),
        ("First.*First", lambda: setattr(first, "max_config_as_node", first)),
        ("Inner.*Outer", lambda: groups[1].add(groups[0], NodeList.Child)),
        ("Moving.*Offset", lambda: register.add(offset, NodeList.Addresses)),
        ("Second.*First", lambda: second.add(first, NodeList.Selected)),
        ("Third.*First", lambda: third.add(first, NodeList.Selected)),
        ("Selector0.*Selector0", lambda: chain[0].add(chain[0], NodeList.Selected)),
        ("Selector1.*Selector0", lambda: chain[1].add(chain[0], NodeList.Selected)),
        ("Selector2.*Selector0", lambda: chain[2].add(chain[0], NodeList.Selected)),
        ("Copy.*Moving", lambda: tree.add_node(Int32RegNode.create("Copy", address=0xB000))),
        ("Text.*Moving", lambda: tree.add_node(StringRegNode.create("Text", address=0xAFFC, length=8))),
        ("Low.*reserved", lambda: tree.add_node(Int32RegNode.create("Low", address=0x938))),
        ("First", lambda: tree.add_node(IntegerNode.create("Std::First"))),
        ("Device", lambda: tree.add_node(IntegerNode.create("Device"))),
        *((re.escape(name), functools.partial(IntegerNode.create, name)) for name in ILLEGAL_NAMES),
    )
    for names, act in faults:
        with pytest.raises((RuntimeError, ValueError, IndexError, KeyError), match=names):
            pytest.fail(f"not refused: {names}: {act()}")
    publish(tree, first, second, third, groups[0], register, offset, *chain)
    device.server.start(device.address)
    with device.client() as client:
        check_schema(description(client), tmp_path)
        nodes, port = node_map(client)
        check_agreement(nodes, tree)
        del nodes, port

"""The description file: valid by the schema, and loaded and worked with by the reference GenApi library."""

import pathlib
from collections.abc import Callable

import pytest

import tarn
from conftest import Camera
from features import description
from genapi_peer import check_schema, genapi, node_map
from node_trees import constant, publish, put
from tarn.gevserver import (
    BooleanNode,
    CategoryNode,
    CommandNode,
    EnumEntryNode,
    EnumerationNode,
    Float64RegNode,
    FloatNode,
    Int32RegNode,
    Int64RegNode,
    IntegerNode,
    IntSwissKnifeNode,
    NodeList,
    Server,
    StringNode,
    StringRegNode,
)


def create_variable() -> Server:
    return Server.create_with_variable_size_pfnc(tarn.Size2D(640, 480), tarn.PfncFormat.BayerRG8)


@pytest.mark.parametrize(
    "create",
    [
        Server.create_non_streaming,
        lambda: Server.create_with_const_size_pfnc(tarn.Size2D(640, 480), tarn.PfncFormat.Mono8),
        create_variable,
    ],
    ids=["without stream", "fixed size", "variable size"],
)
def test_standard_description_is_valid(
    create: Callable[[], Server], run: Callable[[Server], Camera], tmp_path: pathlib.Path
) -> None:
    with run(create()).client() as client:
        check_schema(description(client), tmp_path)
        nodes, port = node_map(client)
        values = {}
        for name in (node.node.name for node in nodes.nodes):
            node = nodes.get_node(name)
            if hasattr(type(node), "value") and genapi.is_readable(node):
                values[name] = node.value  # none may fail
        assert values["DeviceVendorName"]
        assert values["GevCurrentIPAddress"] == int.from_bytes(
            bytes(map(int, client.device[0].split("."))), "big"
        )
        assert "PayloadSize" not in values or values["PayloadSize"] == 640 * 480
        del nodes, port


def every_kind(server: Server) -> None:
    """Give the server a node of each kind, with what is easily written in the wrong place."""
    nodes = server.node_map
    reg, wide = Int32RegNode.create("LampReg"), Int64RegNode.create("LampWide")
    ratio, text = Float64RegNode.create("LampRatioReg"), StringRegNode.create("LampTextReg", 16)
    lock, lamp = IntegerNode.create("LampLock"), IntegerNode.create("LampLevel")
    on, fire = BooleanNode.create("LampOn"), CommandNode.create("LampFire")
    power, label = FloatNode.create("LampPower"), StringNode.create("LampLabel")
    mode, group = EnumerationNode.create("LampMode"), CategoryNode.create("LampControl")
    knife = IntSwissKnifeNode.create("LAMP")
    put(nodes, reg, wide, ratio, text, lock, lamp, on, fire, power, label, mode, group, knife)
    lamp.is_locked_config = lock
    for node, source in ((lamp, reg), (on, wide), (fire, reg), (power, ratio), (label, text)):
        node.value_config_as_node = source
    mode.value_config_as_int = 1
    for number, name in enumerate(("Dark", "Lit")):
        entry = EnumEntryNode.create(name)
        entry.numeric_value = number
        mode.add(entry, NodeList.Child)
    knife.add(constant(nodes, "A", 7), NodeList.Child)
    knife.formula = "A=7&&A-1>>1"
    for feature in (lamp, on, fire, power, label, mode, knife):
        feature.tool_tip = 'a<b & "c" \N{DEGREE SIGN}'
        feature.description = "\x01"  # nothing that may stand in a description
        feature.add(lock, NodeList.Invalidator)
        group.add(feature, NodeList.Child)
    lock.add(on, NodeList.Selected)
    publish(nodes, group)


def test_every_kind_is_described(run: Callable[[Server], Camera], tmp_path: pathlib.Path) -> None:
    server = Server.create_non_streaming()
    every_kind(server)
    with run(server).client() as client:
        check_schema(description(client), tmp_path)
        client.connect()
        nodes, port = node_map(client)
        for name, value in (
            ("LampLevel", -5),
            ("LampOn", True),
            ("LampPower", 2.5),
            ("LampLabel", "Lumi\N{LATIN SMALL LETTER E WITH GRAVE}re"),
        ):
            nodes.get_node(name).value = value
            assert getattr(server.node_map, name).value == value
        assert nodes.get_node("LampMode").value == "Lit"
        assert nodes.get_node("LampMode").node.tooltip == 'a<b & "c" \N{DEGREE SIGN}'
        assert nodes.get_node("LAMP").value == server.node_map.LAMP.value
        nodes.get_node("LampLock").value = 1
        assert not genapi.is_writable(nodes.get_node("LampLevel"))
        del nodes, port


def test_reference_library_sees_and_sets_the_image_format(run: Callable[[Server], Camera]) -> None:
    with run(create_variable()).client() as client:
        client.connect()
        nodes, port = node_map(client)
        width, offset = nodes.get_node("Width"), nodes.get_node("OffsetX")
        assert (width.value, nodes.get_node("Height").value) == (640, 480)
        assert nodes.get_node("PixelFormat").value == "BayerRG8"
        assert (offset.min, offset.max) == (0, 0)
        width.value = 320
        offset.value = 100
        assert (width.max, offset.max) == (540, 320)
        assert nodes.get_node("PayloadSize").value == 320 * 480
        with pytest.raises(genapi.GenericException):
            width.value = 541
        nodes.get_node("TLParamsLocked").value = 1
        assert not genapi.is_writable(width)
        assert not genapi.is_writable(nodes.get_node("PixelFormat"))
        start = nodes.get_node("AcquisitionStart")
        start.execute()
        assert start.is_done()
        nodes.get_node("AcquisitionStop").execute()
        del nodes, port


@pytest.fixture
def run(make_camera: Callable[..., Camera]) -> Callable[[Server], Camera]:
    """Starts a server in place of the camera that the factory would make."""

    def started(server: Server) -> Camera:
        camera = make_camera(start=False)
        camera.server = server
        server.start(camera.address)
        return camera

    return started

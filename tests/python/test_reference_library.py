"""Devices as the reference GenApi library sees them: valid, and as the Python side does."""

import contextlib
import pathlib
from collections.abc import Callable, Iterator
from typing import Any

import pytest

import tarn
from conftest import Camera, MakeCamera
from features import description
from genapi_peer import check_agreement, check_schema, genapi, in_control
from node_trees import constant, new, publish
from tarn import gevserver as gev
from tarn.gevserver import NodeList, Server

SIZE = tarn.Size2D(640, 480)
FACTORIES: dict[str, Callable[[], Server]] = {
    "without stream": Server.create_non_streaming,
    "fixed size": lambda: Server.create_with_const_size_pfnc(SIZE, tarn.PfncFormat.Mono8),
    "variable size": lambda: Server.create_with_variable_size_pfnc(SIZE, tarn.PfncFormat.BayerRG8),
}


@pytest.fixture
def device(make_camera: MakeCamera) -> Camera:
    """A server without stream and without more than the standard features, not started."""
    camera = make_camera(start=False)
    camera.server = Server.create_non_streaming()
    return camera


@contextlib.contextmanager
def started(device: Camera, folder: pathlib.Path) -> Iterator[Any]:
    """The library in control of the device, which is started, valid, and seen alike from both sides."""
    device.server.start(device.address)
    with in_control(device) as nodes:
        with device.client() as client:
            check_schema(description(client), folder)
        check_agreement(nodes, device.server.node_map)
        yield nodes
        check_agreement(nodes, device.server.node_map)


@pytest.mark.parametrize("kind", FACTORIES)
def test_standard_features_agree(device: Camera, kind: str, tmp_path: pathlib.Path) -> None:
    device.server = FACTORIES[kind]()
    with started(device, tmp_path) as nodes:
        for name in (node.node.name for node in nodes.nodes):
            node = nodes.get_node(name)
            if hasattr(type(node), "value") and genapi.is_readable(node):
                _ = node.value  # none may fail, of those that Python does not show either
        if kind == "without stream":
            return
        assert nodes.get_node("PayloadSize").value == 640 * 480
        nodes.get_node("TLParamsLocked").value = 1  # is of the client alone
        device.server.node_map.TLParamsLocked.value = 1


def test_image_format_is_set_by_the_library(device: Camera, tmp_path: pathlib.Path) -> None:
    device.server = FACTORIES["variable size"]()
    with started(device, tmp_path) as nodes:
        width, offset = nodes.get_node("Width"), nodes.get_node("OffsetX")
        assert (width.value, nodes.get_node("PixelFormat").value) == (640, "BayerRG8")
        assert (offset.min, offset.max) == (0, 0)
        width.value, offset.value = 320, 100
        assert (width.max, offset.max, nodes.get_node("PayloadSize").value) == (540, 320, 320 * 480)
        with pytest.raises(genapi.GenericException):
            width.value = 541
        nodes.get_node("TLParamsLocked").value = device.server.node_map.TLParamsLocked.value = 1
        assert not genapi.is_writable(width)
        nodes.get_node("AcquisitionStart").execute()
        assert nodes.get_node("AcquisitionStart").is_done()
        nodes.get_node("AcquisitionStop").execute()
        nodes.get_node("TLParamsLocked").value = 0  # as the camera has done on its side


def test_texts_chains_and_features_are_described(device: Camera, tmp_path: pathlib.Path) -> None:
    tree = device.server.node_map
    lock, number, register = new(tree, Lock=gev.IntegerNode, Mask=gev.IntegerNode, MaskValue=gev.Int32RegNode)
    outer, inner, last = new(tree, Outer=gev.FloatNode, Inner=gev.FloatNode, Last=gev.Float64RegNode)
    for node, source in ((number, register), (outer, inner), (inner, last)):
        node.value_config_as_node = source
    register.representation = tarn.NumberRepresentation.HexNumber
    last.representation = tarn.NumberRepresentation.Logarithmic
    inner.unit, inner.display_precision = "mm", 3
    shown, loose = new(tree, Shown=gev.CategoryNode, Loose=gev.CategoryNode)
    number.tool_tip = shown.display_name = 'a<b & "c" \N{DEGREE SIGN}'
    number.is_locked_config = lock
    for node in (number, outer):
        shown.add(node, NodeList.Child)
    loose.add(constant(tree, "Outside", 1), NodeList.Child)
    publish(tree, shown)
    assert [node.is_feature for node in (shown, outer, inner, tree.Outside)] == [True, True, False, False]
    assert (outer.unit, outer.display_precision) == ("mm", 3)
    assert outer.representation == tarn.NumberRepresentation.Logarithmic
    with started(device, tmp_path) as nodes:
        assert nodes.get_node("Mask").node.tooltip == 'a<b & "c" \N{DEGREE SIGN}'
        nodes.get_node("Mask").value, nodes.get_node("Outer").value = -5, 2.5
        assert (number.value, outer.value) == (-5, 2.5)
        nodes.get_node("Lock").value = lock.value = 1
        assert not genapi.is_writable(nodes.get_node("Mask"))


def test_a_fault_is_refused_at_start_and_can_be_mended(device: Camera, tmp_path: pathlib.Path) -> None:
    tree = device.server.node_map
    (number,) = new(tree, Feature=gev.FloatNode)
    number.max_config_as_float, number.min_config_as_float = 0.5, 0.75
    publish(tree, number)
    for _ in range(2):
        with pytest.raises(ValueError, match=r"0\.75 of Feature .*0\.5"):
            device.server.start(device.address)
        assert device.server.state == gev.State.Configuration
    number.min_config_as_float = -0.75
    with started(device, tmp_path) as nodes:
        assert nodes.get_node("Feature").min == -0.75

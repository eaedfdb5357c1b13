"""Factories, arguments, node map and ownership of a server, without a client."""

import contextlib
import gc
import sys
import weakref
from typing import Any

import pytest

import tarn
from conftest import free_address
from node_trees import GONE, MISMATCH, NO_MATCH, refused
from tarn import gevserver
from tarn.gevserver import DriverType, ImageBufferDescription, IntegerNode, Server, State

MONO8 = tarn.PfncFormat.Mono8
SIZE = tarn.Size2D(8, 4)
constant, variable = Server.create_with_const_size, Server.create_with_variable_size_pfnc


def new_server() -> Any:
    return Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), MONO8)


def listener(node: Any) -> None:
    pass


def test_factories_make_the_camera_that_was_asked_for() -> None:
    unsigned16, bayer = tarn.DataType.Int16BppUnsigned, tarn.PfncFormat.BayerRG8
    for server, size, pixel_format in (
        (constant(tarn.Size2D(639.5, 479.4), 1, tarn.DataType.Int8BppUnsigned), (640, 479), MONO8),
        (constant(SIZE, -1), (8, 4), tarn.PfncFormat.Mono8s),
        (Server.create_with_variable_size(SIZE, 2, unsigned16), (8, 4), tarn.PfncFormat.RGB16),
        (variable(pixel_format=bayer, max_size=SIZE, driver_type=DriverType.Socket), (8, 4), bayer),
    ):
        features = server.node_map
        assert (features.Width.value, features.Height.value) == size
        assert features.PixelFormatValue.value == pixel_format
        assert server.state == State.Configuration and server.stream is server.stream is not None
    assert Server.create_non_streaming().stream is None


@pytest.mark.parametrize(
    ("call", "error", "text"),
    [
        (lambda: constant(tarn.Size2D(-5, 0), 9), RuntimeError, "Width must be larger or equal to 1"),
        (lambda: constant(tarn.Size2D(640, 0.4), 9), RuntimeError, "Height must be larger or equal to 1"),
        (lambda: constant(SIZE, 2), RuntimeError, "Invalid pixel format"),
        (lambda: constant(SIZE, 1, tarn.DataType(0x10C)), RuntimeError, "Invalid pixel format"),
        (lambda: constant(SIZE, 1, tarn.DataType(0x011)), RuntimeError, "Invalid pixel format"),
        (lambda: constant(SIZE, 2**40), RuntimeError, "Invalid pixel format"),
        (lambda: variable(SIZE, 0), RuntimeError, "Invalid pixel format"),
        (lambda: variable((8, 4), MONO8), ValueError, MISMATCH + "tarn.Size2D"),
        (lambda: variable(SIZE, "x"), ValueError, MISMATCH + "int"),
        (lambda: variable(SIZE, MONO8, None), ValueError, MISMATCH + "int"),
        (lambda: constant(SIZE, 1, 8), ValueError, MISMATCH + "tarn.DataType"),
        (lambda: variable(SIZE), ValueError, NO_MATCH),
        (lambda: variable(SIZE, MONO8, -1, 0), ValueError, NO_MATCH),
        (lambda: variable(size=SIZE, pixel_format=MONO8), ValueError, NO_MATCH),
        (lambda: Server.create_non_streaming(1), ValueError, NO_MATCH),
        (lambda: new_server().start(), ValueError, NO_MATCH),
        (lambda: new_server().start(2**80), OverflowError, "int too big to convert"),
        (lambda: gevserver.Server().state, RuntimeError, GONE),
        (lambda: gevserver.NodeMap()["Width"], RuntimeError, GONE),
        (lambda: gevserver.Node().name, RuntimeError, GONE),
        (lambda: ImageBufferDescription().size, RuntimeError, "failed to extract type - pointer is null"),
    ],
)
def test_what_is_no_camera_is_refused(call: Any, error: Any, text: str) -> None:
    refused(error, text, call)


def test_start_takes_text_or_number_by_exact_type() -> None:
    server, address = new_server(), free_address()
    server.start(1.5)  # neither: starts nothing
    assert server.state == State.Configuration
    server.start(address)
    assert (server.state, tuple(server.local_endpoint)) == (State.Disconnected, (address, 3956))
    assert server.remote_endpoint.address == "0.0.0.0" and server.node_map.is_read_only
    with pytest.raises(RuntimeError):
        server.stream.resend_buffers_count = 1
    server.stop()
    server.stop()
    server.start(int.from_bytes(map(int, address.split(".")), "big") - 2**32)  # the low 32 bits count
    assert server.local_endpoint.address == address
    server.stop()
    for address, what in (
        ("0.0.0.0", "every address of the host"),
        ("255.255.255.255", "a broadcast address"),
        ("127.255.255.255", "a broadcast address"),
        ("239.1.2.3", "a multicast group"),
        ("241.1.2.3", "a reserved address"),
    ):
        text = f"ServerBase {address} is {what}: a server is started on the address of one interface"
        refused(ValueError, text, server.start, address)
    server.stream.resend_buffers_count = 1
    assert server.state == State.Configuration and not server.node_map.is_read_only
    for given, kept in ((7, "7"), ("x" * 40, "x" * 31), ("ä" * 20, "ä" * 15), (None, "None")):
        server.user_version = given
        assert server.user_version == kept
    with pytest.raises(AttributeError):
        del server.user_version


def test_node_map_finds_nodes_and_tells_about_itself() -> None:
    server = new_server()
    features = server.node_map
    assert features is server.node_map
    assert (features.module_name, features.transport_layer_namespace) == ("Device", "GEV")
    assert features.vendor_name == features.DeviceVendorName.value
    assert features.model_name == features.DeviceModelName.value
    assert features.xml_file_schema_version == tarn.GenApiVersion(1, 1, 0)
    features.xml_file_version = tarn.GenApiVersion(3, 2, 1)
    refused(ValueError, MISMATCH + "tarn.GenApiVersion", setattr, features, "xml_file_version", "1.2.3")
    with pytest.raises(IndexError):
        features.xml_file_version = tarn.GenApiVersion(4, 5, 2**40)  # whole or not at all
    assert features.xml_file_version == tarn.GenApiVersion(3, 2, 1)
    width = features.Width
    assert width is features["Width"] is features["Std::Width"] is features.try_get_node("Width")
    assert width is features.nodes["Std::Width"] and width.node_map is features
    with pytest.raises(AttributeError):
        _ = features.NoSuchNode
    refused(IndexError, "no node for name", lambda: features["NoSuchNode"])
    refused(ValueError, MISMATCH + "str", lambda: features[1])
    assert features.try_get_node("NoSuchNode") is features.try_get_node("") is None


def test_adding_and_removing_nodes() -> None:
    server = new_server()
    features, node = server.node_map, IntegerNode.create("Gain")
    for arguments, text in (
        (("", node, 0), "key must not be empty"),
        (("Offset", node, 0), "key and value->NameOnly() must be equal"),
        (("Cust::Gain", node), "key and value->NameOnly() must be equal"),
        (("Gain", None), "node must not be null"),
        ((None,), "node must not be null"),
    ):
        refused(RuntimeError, text, features.add_node, *arguments)
    for arguments in (("Gain",), (node, "Gain"), ("Gain", node, 0, 0)):
        refused(ValueError, NO_MATCH, features.add_node, *arguments)
    for arguments in ((), (5,), (None,)):
        refused(ValueError, NO_MATCH, features.remove_node, *arguments)
    assert features.try_get_node("Gain") is None and node.node_map is None and not features.remove_node(node)
    for arguments in ({}, {"key": "Gain"}, {"key": "Gain", "m_kind": 0}):
        held = features.nodes
        assert type(held) is not dict and isinstance(held, dict) and features.nodes is held
        features.add_node(node=node, **arguments)
        assert features.Gain is node and node.node_map is features
        assert features.nodes["Cust::Gain"] is node and "Cust::Gain" not in held
        assert features.remove_node("Gain") and not features.remove_node("Gain")
        assert node.node_map is None and features.try_get_node("Gain") is None
        weak = weakref.ref(held)
        del held
        assert weak() is None
    features.add_node(node)
    with pytest.raises((ValueError, RuntimeError), match="Gain"):
        features.add_node(IntegerNode.create("Std::Gain"))
    refused(ValueError, "9 is no node list", features.add_node, "Gain", node, 9)
    assert features.Gain is node
    fresh = IntegerNode.create("Fresh")
    refused(ValueError, "9 is no node list", features.add_node, "Fresh", fresh, 9)
    assert features.try_get_node("Fresh") is None and fresh.node_map is None


def test_children_are_cut_off_with_their_server() -> None:
    server = new_server()
    features, stream, width = server.node_map, server.stream, server.node_map.Width
    inside, free = IntegerNode.create("Inside"), IntegerNode.create("Free")
    features.add_node(inside)
    weak = weakref.ref(server)
    del server
    gc.collect()
    assert weak() is None
    for use in (
        lambda: features.nodes,
        lambda: features.Width,
        lambda: features.add_node(free),
        lambda: stream.is_running,
        lambda: width.value,
        lambda: inside.name,
        lambda: width.register_event_updated(print),
    ):
        refused(RuntimeError, GONE, use)
    assert free.name == "Cust::Free" and free.node_map is None


def test_listeners_live_with_their_node_in_the_map() -> None:
    """A node with a listener stays; its callable goes with the registration, the node, or the server."""
    server, free = new_server(), IntegerNode.create("Gain")
    features, before = server.node_map, sys.getrefcount(listener)
    cookie = features.Width.register_event_written_updated(listener)
    gc.collect()
    width = weakref.ref(features.Width)
    assert width() is not None and sys.getrefcount(listener) == before + 1
    features.Width.unregister_event_written_updated(cookie)
    assert width() is None and sys.getrefcount(listener) == before
    free.register_event_updated(listener)
    features.add_node(free)
    weak = weakref.ref(free)
    del free
    assert weak() is features.Gain
    features.remove_node("Gain")
    assert weak() is None and sys.getrefcount(listener) == before
    features.Width.register_event_on_read_updated(listener)
    IntegerNode.create("Lonely").register_event_updated(listener)
    del server, features
    assert sys.getrefcount(listener) == before


def test_servers_may_go_in_the_middle_of_a_call() -> None:
    """With the last listener that held them, or by a collection: nothing reads what is gone."""
    server = new_server()
    features = server.node_map
    features.add_node(IntegerNode.create("Gain"))
    features.Gain.register_event_updated(lambda node, server=server: None)
    del server
    assert features.remove_node("Gain")
    refused(RuntimeError, GONE, lambda: features.nodes)
    threshold = gc.get_threshold()
    for look in (lambda map_: map_["Width"], lambda map_: map_.Width, lambda map_: map_.nodes):
        cycle: list[Any] = [new_server()]
        features = cycle[0].node_map
        cycle.append(cycle)
        del cycle
        gc.set_threshold(1, 1, 1)
        with contextlib.suppress(RuntimeError):
            look(features)
        gc.set_threshold(*threshold)
        gc.collect()
        refused(RuntimeError, GONE, lambda features=features: features.nodes)


def test_texts_end_nowhere_but_at_their_end() -> None:
    """The library's texts end at a null character, so one in the middle is refused."""
    server = new_server()
    width, text = server.node_map.Width, "text must not contain a null character"
    before = width.tool_tip, server.user_version
    refused(ValueError, text, IntegerNode.create, "Ba\0r")
    refused(ValueError, text, setattr, width, "tool_tip", "a\0b")
    refused(ValueError, text, width.from_string, "1\0")
    refused(ValueError, text, setattr, server, "user_version", "1\0")
    assert (width.tool_tip, server.user_version) == before


def test_sending_without_a_client() -> None:
    server = new_server()
    stream, image = server.stream, tarn.Image((64, 48))
    for send, arguments in ((stream.send, (5,)), (stream.send, (5, print)), (stream.try_send, (None,))):
        refused(ValueError, MISMATCH + "tarn.Image", send, *arguments)
    for arguments in ((), (image, 5)):
        refused(ValueError, NO_MATCH, stream.send, *arguments)
    refused(ValueError, NO_MATCH, lambda: stream.send(image, image_released=print))
    before = sys.getrefcount(image), sys.getrefcount(listener)
    for rest in ((), (None,), (listener,)):  # the callback is dropped without a call
        with pytest.raises(RuntimeError, match=r"^Could not send image"):
            stream.send(image, *rest)
        assert stream.try_send(image, *rest) is False
    del rest
    assert (sys.getrefcount(image), sys.getrefcount(listener)) == before
    stream.resend_buffers_count = 2
    for send in (stream.send, stream.try_send):
        refused(RuntimeError, "Packet resend must be disabled for send without callback", send, image)
    for wrong in (1.0, "1", True):
        refused(ValueError, MISMATCH + "int", setattr, stream, "resend_buffers_count", wrong)
    assert stream.resend_buffers_count == 2 and not stream.is_running


def test_subinterpreters_are_refused() -> None:
    """Callbacks and the exit hook belong to the main interpreter, whichever imported the package first."""
    interpreters = pytest.importorskip("_xxsubinterpreters")
    other = interpreters.create()
    script = "import tarn.gevserver as g; g.Server.create_non_streaming()"
    with pytest.raises(interpreters.RunFailedError, match="main interpreter only"):
        interpreters.run_string(other, f"import sys; sys.path[:] = {sys.path!r}; {script}")
    interpreters.destroy(other)

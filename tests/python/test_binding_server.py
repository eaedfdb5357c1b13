"""Factories, arguments, node map and ownership of a server, without a client."""

import contextlib
import gc
import sys
import weakref
from typing import Any

import pytest

import tarn
from conftest import free_address
from tarn.gevserver import DriverType, IntegerNode, NodeMap, Server, State

MONO8 = tarn.PfncFormat.Mono8
GONE = "failed to extract type -  resource might be gone"
NO_MATCH = "the arguments do not match any of the expected signatures of the function"
UNSIGNED8 = tarn.DataType.Int8BppUnsigned


def new_server() -> Server:
    return Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), MONO8)


def refused(call: Any, error: type[Exception], text: str) -> None:
    with pytest.raises(error) as caught:
        call()
    assert str(caught.value) == text


def test_factories_make_the_camera_that_was_asked_for() -> None:
    for server, size, pixel_format in (
        (Server.create_with_const_size(tarn.Size2D(639.5, 479.4), 1, UNSIGNED8), (640, 479), MONO8),
        (Server.create_with_const_size(tarn.Size2D(8, 4), -1), (8, 4), tarn.PfncFormat.Mono8s),
        (
            Server.create_with_variable_size(tarn.Size2D(8, 4), 2, tarn.DataType.Int16BppUnsigned),
            (8, 4),
            tarn.PfncFormat.RGB16,
        ),
        (
            Server.create_with_variable_size_pfnc(
                pixel_format=tarn.PfncFormat.BayerRG8,
                max_size=tarn.Size2D(8, 4),
                driver_type=DriverType.Socket,
            ),
            (8, 4),
            tarn.PfncFormat.BayerRG8,
        ),
    ):
        features = server.node_map
        assert (features.Width.value, features.Height.value) == size
        assert features.PixelFormatValue.value == pixel_format
        assert server.state == State.Configuration and server.stream is not None
    assert Server.create_non_streaming().stream is None


def test_factories_refuse_what_is_no_camera() -> None:
    size = tarn.Size2D(8, 4)
    constant, variable = Server.create_with_const_size, Server.create_with_variable_size_pfnc
    for call, error, text in (
        (
            lambda: constant(tarn.Size2D(0.4, 480), 1, UNSIGNED8),
            RuntimeError,
            "Width must be larger or equal to 1",
        ),
        (lambda: constant(tarn.Size2D(640, 0), 1), RuntimeError, "Height must be larger or equal to 1"),
        (lambda: constant(tarn.Size2D(-5, 0), 9), RuntimeError, "Width must be larger or equal to 1"),
        (lambda: constant(size, 2), RuntimeError, "Invalid pixel format"),
        (lambda: constant(size, 1, tarn.DataType(0x10C)), RuntimeError, "Invalid pixel format"),
        (lambda: constant(size, 1, tarn.DataType.Float), RuntimeError, "Invalid pixel format"),
        (lambda: constant(size, 2**40), RuntimeError, "Invalid pixel format"),
        (lambda: variable(size, 0), RuntimeError, "Invalid pixel format"),
        (
            lambda: variable((8, 4), MONO8),
            ValueError,
            "type miss match - cannot convert object to tarn.Size2D",
        ),
        (lambda: variable(size, "x"), ValueError, "type miss match - cannot convert object to int"),
        (lambda: variable(size, MONO8, None), ValueError, "type miss match - cannot convert object to int"),
        (
            lambda: constant(size, 1, 8),
            ValueError,
            "type miss match - cannot convert object to tarn.DataType",
        ),
        (lambda: variable(size), ValueError, NO_MATCH),
        (lambda: variable(size, MONO8, -1, 0), ValueError, NO_MATCH),
        (lambda: variable(size=size, pixel_format=MONO8), ValueError, NO_MATCH),
        (lambda: Server.create_non_streaming(1), ValueError, NO_MATCH),
    ):
        refused(call, error, text)


def test_start_takes_text_or_number_by_exact_type() -> None:
    server = new_server()
    address = free_address()
    server.start(1.5)  # neither: starts nothing
    assert server.state == State.Configuration
    server.start(address)
    assert (server.state, tuple(server.local_endpoint)) == (State.Disconnected, (address, 3956))
    assert tuple(server.remote_endpoint)[0] == "0.0.0.0"
    server.stop()
    server.stop()
    number = int.from_bytes(map(int, address.split(".")), "big")
    server.start(number - 2**32)  # the low 32 bits count
    assert server.local_endpoint.address == address
    server.stop()
    refused(lambda: server.start(), ValueError, NO_MATCH)
    refused(lambda: server.start(2**80), OverflowError, "int too big to convert")
    for address, what in (
        ("0.0.0.0", "every address of the host"),
        ("255.255.255.255", "a broadcast address"),
        ("127.255.255.255", "a broadcast address"),
        ("239.1.2.3", "a multicast group"),
        ("241.1.2.3", "a reserved address"),
    ):
        text = f"ServerBase {address} is {what}: a server is started on the address of one interface"
        refused(lambda address=address: server.start(address), ValueError, text)
    assert server.state == State.Configuration


def test_user_version_is_text_of_anything() -> None:
    server = new_server()
    for given, kept in ((7, "7"), ("x" * 40, "x" * 31), ("ä" * 20, "ä" * 15), (None, "None")):
        server.user_version = given
        assert server.user_version == kept
    with pytest.raises(AttributeError):
        del server.user_version


def test_node_map_identity_and_attributes() -> None:
    server = new_server()
    features = server.node_map
    assert features is server.node_map and server.stream is server.stream
    assert (features.module_name, features.transport_layer_namespace) == ("Device", "GEV")
    assert features.vendor_name == features.DeviceVendorName.value
    features.xml_file_version = tarn.GenApiVersion(3, 2, 1)
    assert features.xml_file_version == tarn.GenApiVersion(3, 2, 1)
    refused(
        lambda: setattr(features, "xml_file_version", "1.2.3"),
        ValueError,
        "type miss match - cannot convert object to tarn.GenApiVersion",
    )
    width = features.Width
    assert width is features["Width"] is features["Std::Width"] is features.try_get_node("Width")
    assert width is features.nodes["Std::Width"] and width.node_map is features
    assert callable(features.add_node) and not features.is_read_only
    with pytest.raises(AttributeError):
        _ = features.NoSuchNode
    refused(lambda: features["NoSuchNode"], IndexError, "no node for name")
    refused(lambda: features[1], ValueError, "type miss match - cannot convert object to str")
    refused(lambda: features.try_get_node(1), ValueError, "type miss match - cannot convert object to str")
    assert features.try_get_node("NoSuchNode") is None and features.try_get_node("") is None


def test_nodes_dictionary_lives_while_somebody_holds_it() -> None:
    server = new_server()
    features = server.node_map
    first = features.nodes
    assert isinstance(first, dict) and features.nodes is first
    node = IntegerNode.create("Gain")
    features.add_node(node)
    second = features.nodes
    assert second is not first and "Cust::Gain" in second and "Cust::Gain" not in first
    assert features.remove_node(node) and "Cust::Gain" not in features.nodes and "Cust::Gain" in second
    weak = weakref.ref(second)
    del second
    assert weak() is None


def test_adding_and_removing_nodes() -> None:
    server = new_server()
    features, node = server.node_map, IntegerNode.create("Gain")
    for call, text in (
        (lambda: features.add_node("", node, 0), "key must not be empty"),
        (lambda: features.add_node("Offset", node, 0), "key and value->NameOnly() must be equal"),
        (lambda: features.add_node("Cust::Gain", node), "key and value->NameOnly() must be equal"),
        (lambda: features.add_node("Gain", None), "node must not be null"),
        (lambda: features.add_node(None), "node must not be null"),
    ):
        refused(call, RuntimeError, text)
    for call in (
        lambda: features.add_node("Gain", node, kind=0),
        lambda: features.add_node("Gain"),
        lambda: features.add_node(node, "Gain"),
        lambda: features.remove_node(),
        lambda: features.remove_node(5),
        lambda: features.remove_node(None),
    ):
        refused(call, ValueError, NO_MATCH)
    assert features.try_get_node("Gain") is None and node.node_map is None

    for add in (
        lambda: features.add_node(node),
        lambda: features.add_node(key="Gain", node=node),
        lambda: features.add_node("Gain", node, m_kind=0),
    ):
        add()
        assert features.Gain is node and node.node_map is features
        assert features.remove_node("Gain") and not features.remove_node("Gain")
        assert node.node_map is None and features.try_get_node("Gain") is None
    assert not features.remove_node("NoSuchNode") and not features.remove_node(node)
    features.add_node(node)
    again = IntegerNode.create("Std::Gain")
    with pytest.raises((ValueError, RuntimeError), match="Gain"):
        features.add_node(again)
    assert features.Gain is node


def test_children_are_cut_off_with_their_server() -> None:
    server = new_server()
    features, stream, width = server.node_map, server.stream, server.node_map.Width
    inside, free = IntegerNode.create("Inside"), IntegerNode.create("Free")
    features.add_node(inside)
    removed = features.PixelFormat
    weak = weakref.ref(server)
    del server
    gc.collect()
    assert weak() is None
    for use in (
        lambda: features.nodes,
        lambda: features.Width,
        lambda: features.add_node(free),
        lambda: stream.is_running,
        lambda: stream.send(tarn.Image((2, 2))),
        lambda: width.name,
        lambda: inside.name,
        lambda: removed.register_event_updated(print),
    ):
        refused(use, RuntimeError, GONE)
    assert free.name == "Cust::Free" and free.node_map is None


def test_listeners_live_with_their_node_in_the_map() -> None:
    """A node with a listener stays; its callable goes with the registration, the node, or the server."""
    server = new_server()
    features = server.node_map

    def listener(node: Any) -> None:
        pass

    before = sys.getrefcount(listener)
    cookie = features.Width.register_event_written_updated(listener)
    assert isinstance(cookie, tarn.EventCookie) and sys.getrefcount(listener) == before + 1
    gc.collect()
    width = weakref.ref(features.Width)
    assert width() is not None
    features.Width.unregister_event_written_updated(cookie)
    assert sys.getrefcount(listener) == before and width() is None
    refused(
        lambda: features.Width.unregister_event_written_updated(cookie),
        RuntimeError,
        "no such callable for this id",
    )

    free = IntegerNode.create("Gain")
    free.register_event_updated(listener)
    features.add_node(free)
    free = weakref.ref(free)
    assert free() is features.Gain
    features.remove_node("Gain")
    assert free() is None and sys.getrefcount(listener) == before

    IntegerNode.create("Lonely").register_event_updated(listener)
    assert sys.getrefcount(listener) == before
    refused(lambda: features.Width.register_event_updated(5), RuntimeError, "callable object required")
    refused(lambda: features.Width.register_event_updated(callback=listener), ValueError, NO_MATCH)


def test_a_dropped_server_drops_its_listeners() -> None:
    def listener(node: Any) -> None:
        pass

    before = sys.getrefcount(listener)
    server = Server.create_non_streaming()
    server.node_map.DeviceUserID.register_event_on_read_updated(listener)
    assert sys.getrefcount(listener) == before + 1
    del server
    assert sys.getrefcount(listener) == before


def test_a_call_outlives_the_server_that_it_ends() -> None:
    """A removed node frees its listener, that frees the server, and the map's record with it."""
    server = new_server()
    features = server.node_map
    features.add_node(IntegerNode.create("Gain"))
    features.Gain.register_event_updated(lambda node, server=server: None)
    weak = weakref.ref(server)
    del server
    assert features.remove_node("Gain") and weak() is None
    refused(lambda: features.nodes, RuntimeError, GONE)


def test_a_collection_inside_a_look_up_may_end_the_server() -> None:
    """What the garbage collector frees is as gone as if it had been dropped; nothing reads its memory."""
    for look in (lambda map_: map_["Width"], lambda map_: map_.Width, lambda map_: map_.nodes):
        server = new_server()
        features = server.node_map
        cycle: list[object] = [server]
        cycle.append(cycle)
        del server, cycle
        threshold = gc.get_threshold()
        gc.set_threshold(1, 1, 1)
        try:
            with contextlib.suppress(RuntimeError):
                look(features)
        finally:
            gc.set_threshold(*threshold)
            gc.collect()
        refused(lambda features=features: features.nodes, RuntimeError, GONE)


def test_a_wrapper_made_while_the_server_goes_is_cut_off_too() -> None:
    server = new_server()
    made = []

    class Curious:
        """Looks at a relation when it goes."""

        def __init__(self, node: Any) -> None:
            self.node = node

        def __call__(self, node: Any) -> None: ...

        def __del__(self) -> None:
            made.extend(self.node.entries)

    # Nodes are cut off in the order of their names, so that the pixel format is still there.
    server.node_map.AcquisitionMode.register_event_updated(Curious(server.node_map.PixelFormat))
    del server
    gc.collect()
    assert made
    for entry in made:
        refused(lambda entry=entry: entry.name, RuntimeError, GONE)


def test_texts_end_nowhere_but_at_their_end() -> None:
    """The library's texts end at a null character, so one in the middle is refused."""
    server = new_server()
    width, text = server.node_map.Width, "text must not contain a null character"
    before = width.tool_tip, server.user_version
    for act in (
        lambda: IntegerNode.create("Ba\0r"),
        lambda: setattr(width, "tool_tip", "a\0b"),
        lambda: width.from_string("1\0"),
        lambda: setattr(server, "user_version", "1\0"),
    ):
        refused(act, ValueError, text)
    assert (width.tool_tip, server.user_version) == before


def test_a_version_is_set_whole_or_not_at_all() -> None:
    server = new_server()
    features = server.node_map
    features.xml_file_version = tarn.GenApiVersion(1, 2, 3)
    with pytest.raises(IndexError):
        features.xml_file_version = tarn.GenApiVersion(4, 5, 2**40)
    assert features.xml_file_version == tarn.GenApiVersion(1, 2, 3)


def test_sending_without_a_client() -> None:
    server = new_server()
    stream, image = server.stream, tarn.Image((64, 48))
    for call, error, text in (
        (lambda: stream.send(5), ValueError, "type miss match - cannot convert object to tarn.Image"),
        (lambda: stream.send(5, print), ValueError, "type miss match - cannot convert object to tarn.Image"),
        (
            lambda: stream.try_send(image=None),
            ValueError,
            "type miss match - cannot convert object to tarn.Image",
        ),
        (lambda: stream.send(image, 5), ValueError, NO_MATCH),
        (lambda: stream.send(image, image_released=print), ValueError, NO_MATCH),
        (lambda: stream.send(), ValueError, NO_MATCH),
        (lambda: stream.send(image), RuntimeError, "Could not send image"),
        (lambda: stream.send(image, callback=print), RuntimeError, "Could not send image"),
        (lambda: stream.send(image, None), RuntimeError, "Could not send image"),
    ):
        refused(call, error, text)
    assert stream.try_send(image) is False and stream.try_send(image, None) is False

    before = sys.getrefcount(image), sys.getrefcount(refused)
    assert stream.try_send(image, refused) is False  # the callback is dropped without a call
    assert (sys.getrefcount(image), sys.getrefcount(refused)) == before

    stream.resend_buffers_count = 2
    text = "Packet resend must be disabled for send without callback"
    refused(lambda: stream.send(image), RuntimeError, text)
    refused(lambda: stream.try_send(image), RuntimeError, text)
    for wrong in (1.0, "1", True):
        refused(
            lambda wrong=wrong: setattr(stream, "resend_buffers_count", wrong),
            ValueError,
            "type miss match - cannot convert object to int",
        )
    assert stream.resend_buffers_count == 2 and not stream.is_running


def test_everything_is_refused_once_started() -> None:
    server = new_server()
    server.start(free_address())
    try:
        with pytest.raises(Exception, match=r".+"):
            server.stream.resend_buffers_count = 1
        assert server.stream.resend_buffers_count == 0 and server.node_map.is_read_only
    finally:
        server.stop()
    server.stream.resend_buffers_count = 1
    assert not server.node_map.is_read_only and isinstance(server.node_map, NodeMap)

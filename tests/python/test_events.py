"""Events on the message channel, as a client receives them."""

import contextlib
import pathlib
from collections.abc import Callable, Iterator

import numpy as np
import pytest

import gvcp_client as gvcp
import tarn
from conftest import Camera, need_tool, open_stream, wait_until
from features import Features
from genapi_peer import genapi, node_map
from gvcp_client import ControlClient, Event, EventReceiver
from gvsp_receiver import StreamReceiver
from node_trees import put
from tarn.gevserver import Int32RegNode, IntegerNode, Node, NodeList, NodeMap, StringRegNode
from tshark import Expected, assert_reads, capturing, dissected, faults, show

ACQUISITION_START, ACQUISITION_END, FRAME_START, FRAME_END = range(0x9001, 0x9005)
MOTOR, MOTOR_STOP = 0x9100, 0x9101
NO_CHANNEL = 0xFFFF
SILENCE = 0.3  # seconds without an event that count as none coming


def define(tree: NodeMap, name: str, number: int, *nodes: Node) -> None:
    """The event `name`, with nodes that belong to it."""
    event = IntegerNode.create(f"Event{name}")
    event.value_config_as_int = number
    for node in put(tree, event, *nodes):
        tree.EventControl.add(node, NodeList.Child)


@pytest.fixture
def motor(make_camera: Callable[..., Camera]) -> Camera:
    """A camera with two events of its own, started: the motor's position and text, and its stop."""
    camera = make_camera(start=False)
    tree = camera.server.node_map
    position, text = IntegerNode.create("EventMotorPosition"), StringRegNode.create("EventMotorText", 512)
    define(tree, "Motor", MOTOR, position, text)
    (position.value_config_as_node,) = put(tree, Int32RegNode.create("MotorPosition"))
    define(tree, "MotorStop", MOTOR_STOP, Int32RegNode.create("EventMotorStopReason"))
    camera.server.start(camera.address)
    return camera


@contextlib.contextmanager
def listening(
    camera: Camera, *numbers: int, silent: bool = False, **channel: int
) -> Iterator[tuple[ControlClient, EventReceiver]]:
    """A client in control that asked for these events: yields (client, receiver)."""
    with EventReceiver(silent=silent) as receiver, camera.client() as client:
        client.connect()
        receiver.open_channel(client, **channel)
        first, _ = Features(client).register("EventNotification")
        client.write_registers(*((first + 4 * number, 1) for number in numbers))
        yield client, receiver


def received(receiver: EventReceiver, count: int) -> list[Event]:
    """This many events, and no more."""
    events = [event for _ in range(count) if (event := receiver.receive())]
    assert len(events) == count
    assert receiver.receive(SILENCE) is None
    return events


def stream_frames(camera: Camera, client: ControlClient, stream: StreamReceiver, count: int) -> None:
    open_stream(client, stream)
    features = Features(client)
    features.execute("AcquisitionStart")
    camera.wait_running()
    for _ in range(count):
        image = tarn.WrappedImage.from_buffer(np.zeros((48, 64), np.uint8))
        camera.send(image, lambda image: None)
    stream.wait_frames(count)
    features.execute("AcquisitionStop")


@pytest.mark.parametrize("extended", [False, True])
def test_a_streams_life_is_told_as_tshark_reads_it(
    motor: Camera, tmp_path: pathlib.Path, extended: bool
) -> None:
    need_tool("tshark")
    path = tmp_path / "events.pcapng"
    asked = (ACQUISITION_START, FRAME_START, FRAME_END, ACQUISITION_END, MOTOR)
    with capturing(motor.address, path), listening(motor, *asked, timeout_ms=1000) as (client, receiver):
        source = (motor.address, client.read_register(gvcp.MCSP))
        with StreamReceiver() as stream:
            client.write_register(gvcp.GVSP_CONFIGURATION, 0x4000_0000 if extended else 0)
            stream_frames(motor, client, stream, 2)
        motor.server.node_map.MotorPosition.value = 0x0A0B0C0D
        events = received(receiver, 7)
    assert [(event.number, event.block, event.channel) for event in events] == [
        (ACQUISITION_START, 0, NO_CHANNEL),
        *[(number, block, 0) for block in (1, 2) for number in (FRAME_START, FRAME_END)],
        (ACQUISITION_END, 0, NO_CHANNEL),
        (MOTOR, 0, NO_CHANNEL),
    ]
    assert [event.request_id - events[0].request_id for event in events] == [*range(7)]
    assert sorted({event.timestamp for event in events}) == [event.timestamp for event in events]
    assert {(event.extended, event.wants_ack, event.source) for event in events} == {(extended, True, source)}
    assert [event.data.hex() for event in events] == [*[""] * 6, "0a0b0c0d"]
    decode = f"udp.port=={source[1]},gvcp"
    assert faults(path, decode) == []
    packets = dissected(path, "gvcp", "gvcp.cmd.command == 0xc0 || gvcp.cmd.command == 0xc2", decode)
    block = "gvcp.event_timestamp" if extended else "gvcp.cmd.event.blockid"  # named so by tshark
    for event, packet in zip(events, packets, strict=True):
        shown: Expected = {
            "gvcp.cmd.req_id": event.request_id,
            "gvcp.cmd.event.devicespecificid": event.number,
            "gvcp.cmd.event.streamchannelindex": event.channel,
            "gvcp.cmd.event.timestamp": event.timestamp,
            block: event.block,
        }
        data = {"gvcp.cmd.eventdata.data": event.data.hex(":")} if event.data else {}
        assert_reads(packet, shown | data, f"event {event.number:#x}")
    assert len(show(path, "gvcp.ack == 0x00c1 || gvcp.ack == 0x00c3", decode_as=decode)) == 7


def test_user_events_carry_what_the_program_stored(motor: Camera) -> None:
    tree = motor.server.node_map
    assert [node.event_id for node in (tree.EventMotorText, tree.EventMotorStopReason)] == [MOTOR, MOTOR_STOP]
    assert tree.MotorPosition.event_id == MOTOR  # clients are to read it anew
    with listening(motor, MOTOR, MOTOR_STOP) as (client, receiver):
        tree.EventMotorPosition.value = 0x01020304  # by the feature
        tree.MotorPosition.value = -1  # and by the register behind it
        tree.EventMotorStopReason.value = 5
        tree.EventMotorText.value = "at the top"
        client.write_register(tree.MotorPosition.address, 7)  # a client's own store is no news to it
        events = received(receiver, 4)
    text = b"at the top".ljust(512, b"\0")
    assert [(event.number, event.data.hex()) for event in events] == [
        *[(MOTOR, "01020304"), (MOTOR, "ffffffff"), (MOTOR_STOP, "00000005"), (MOTOR, text.hex())]
    ]
    assert {(event.channel, event.block, event.wants_ack) for event in events} == {(NO_CHANNEL, 0, False)}


def test_what_cannot_be_an_event_is_refused(motor: Camera) -> None:
    motor.server.stop()
    tree = motor.server.node_map
    beyond = "and must lie between 0x9000 and 0xFFFF"
    long_text = StringRegNode.create("EventLongText", 520)
    for name, number, text, *nodes in (
        ("Early", 0x8FFF, f"the number of the event EventEarly is 0x8FFF, {beyond}"),
        ("Far", 0x10000, f"the number of the event EventFar is 0x10000, {beyond}"),
        ("Mine", FRAME_START, "the number 0x9003 of the event EventMine is that of an event of the device"),
        ("Twin", MOTOR, "the events Motor and Twin have the number 0x9100"),
        ("Long", 0x9500, "EventLongText .* 520 bytes, an event message carries 516", long_text),
    ):
        define(tree, name, number, *nodes)
        with pytest.raises(ValueError, match=text):
            motor.server.start(motor.address)
        tree.remove_node(f"Event{name}")


def test_a_client_that_does_not_acknowledge_is_asked_again_until_it_closes_the_channel(motor: Camera) -> None:
    tree = motor.server.node_map
    with listening(motor, MOTOR, silent=True, timeout_ms=50, retries=2) as (client, receiver):
        tree.MotorPosition.value = 1
        assert len({event.datagram for event in received(receiver, 3)}) == 1
        assert [getattr(tree, f"DeviceEvents{what}").value for what in ("Sent", "Repeated", "Lost")] == [
            1,
            2,
            1,
        ]
        client.write_register(gvcp.MCTT, 60_000)
        for value in range(100):
            tree.MotorPosition.value = value
        first = receiver.receive()
        receiver.acknowledge(first)
        assert received(receiver, 1)[0].request_id == first.request_id + 1
        # One on its way, 64 that waited; the newest were dropped.
        assert tree.DeviceEventsDropped.value == 35
        client.write_register(gvcp.MCP, 0)
        assert client.read_register(gvcp.MCSP) == 0
        client.write_registers((gvcp.MCTT, 0), (gvcp.MCP, receiver.endpoint[1]))
        tree.EventMotorStopReason.value = 1  # for which nobody asked
        tree.MotorPosition.value = 12
        assert received(receiver, 1)[0].data == (12).to_bytes(4, "big")  # what waited is forgotten


@pytest.mark.parametrize("how", ["leaves", "falls silent"])
def test_who_loses_control_hears_no_more(motor: Camera, how: str) -> None:
    """Acknowledges are no heartbeat."""
    with listening(motor, MOTOR, timeout_ms=100) as (client, receiver):

        def hears() -> bool:
            motor.server.node_map.MotorPosition.value = 1
            return receiver.receive(0.1) is not None

        assert hears()
        if how == "leaves":
            client.disconnect()
        else:
            client.write_register(gvcp.HEARTBEAT_TIMEOUT, 500)
            client.stop_heartbeat()
        wait_until(lambda: not hears(), "events end with control")
        assert client.read_registers(gvcp.CCP, gvcp.MCP, gvcp.MCSP) == (0, 0, 0)


def test_the_reference_library_finds_the_event_behind_its_nodes(motor: Camera) -> None:
    with motor.client() as client, EventReceiver() as receiver, StreamReceiver() as stream:
        client.connect()
        nodes, port = node_map(client)
        events = genapi.EventAdapterGEV(nodes.get_node("Root").node.node_map)
        nodes.get_node("GevGVSPExtendedIDMode").value = "On"
        for name in ("FrameEnd", "Motor"):
            nodes.get_node("EventSelector").value = name
            assert nodes.get_node("EventNotification").value == "Off"
            nodes.get_node("EventNotification").value = "On"
        receiver.open_channel(client)
        stream_frames(motor, client, stream, 2)
        for block in (1, 2):
            event = receiver.receive()
            assert event.number == nodes.get_node("EventFrameEnd").value == FRAME_END
            events.deliver_message(event.datagram)
            assert nodes.get_node("EventFrameEndFrameID").value == block
            assert nodes.get_node("EventFrameEndTimestamp").value == event.timestamp
        assert nodes.get_node("EventMotorPosition").value == 0
        motor.server.node_map.MotorPosition.value = 4711
        assert nodes.get_node("EventMotorPosition").value == 0  # what it read before
        events.deliver_message(receiver.receive().datagram)
        assert nodes.get_node("EventMotorPosition").value == 4711
        del events, nodes, port  # each uses those behind it

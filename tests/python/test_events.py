"""Events on the message channel, as a client receives them."""

import contextlib
import itertools
import pathlib
import time
from collections.abc import Callable, Iterator

import numpy as np
import pytest

import tarn
from conftest import Camera, need_tool, open_stream, wait_until
from features import Features
from genapi_peer import genapi, node_map
from gvcp_client import (
    CCP,
    CONTROL,
    GVCP_CAPABILITY,
    GVSP_CONFIGURATION,
    HEARTBEAT_TIMEOUT,
    INVALID_PARAMETER,
    MCDA,
    MCP,
    MCRC,
    MCSP,
    MCTT,
    WRITE_PROTECT,
    ControlClient,
    Event,
    EventReceiver,
    GvcpError,
)
from gvsp_receiver import StreamReceiver
from node_trees import put
from tarn.gevserver import Int32RegNode, IntegerNode, Node, NodeList, NodeMap, StringRegNode
from test_memory import resident_kilobytes
from tshark import capturing, dissected, faults, show

PRIMARY_SWITCH = 0x0007
ACQUISITION_START, ACQUISITION_END, FRAME_START, FRAME_END = range(0x9001, 0x9005)
MOTOR, MOTOR_STOP = 0x9100, 0x9101
NO_CHANNEL = 0xFFFF
SWITCHOVER_KEY = 0x095C
SILENCE = 0.3  # seconds without an event that count as none coming


def define(tree: NodeMap, name: str, number: int, *nodes: Node) -> IntegerNode:
    """The event `name`, with nodes that belong to it."""
    event = IntegerNode.create(f"Event{name}")
    event.value_config_as_int = number
    for node in put(tree, event, *nodes):
        tree.EventControl.add(node, NodeList.Child)
    return event


@pytest.fixture
def motor(make_camera: Callable[..., Camera]) -> Camera:
    """A camera with two events of its own, started: the motor's position and text, and its stop."""
    camera = make_camera(start=False)
    tree = camera.server.node_map
    position, text = IntegerNode.create("EventMotorPosition"), StringRegNode.create("EventMotorText", 512)
    define(tree, "Motor", MOTOR, position, text)
    (register,) = put(tree, Int32RegNode.create("MotorPosition"))
    position.value_config_as_node = register
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
        notify(client, *numbers)
        yield client, receiver


def notify(client: ControlClient, *numbers: int, on: bool = True) -> None:
    """Switch notifications as a client does that has read the description."""
    first, _ = Features(client).register("EventNotification")
    for number in numbers:
        client.write_register(first + 4 * number, int(on))


def received(receiver: EventReceiver, count: int) -> list[Event]:
    """This many events, and no more."""
    events = [event for _ in range(count) if (event := receiver.receive())]
    assert len(events) == count
    assert receiver.receive(SILENCE) is None
    return events


def numbers_of(events: list[Event]) -> list[int]:
    return [event.number for event in events]


def counted(camera: Camera) -> dict[str, int]:
    """What the camera counted of its events."""
    tree = camera.server.node_map
    return {
        name: getattr(tree, f"DeviceEvents{name}").value for name in ("Sent", "Repeated", "Lost", "Dropped")
    }


def send_frames(camera: Camera, count: int) -> None:
    picture = np.zeros((48, 64), np.uint8)
    for _ in range(count):
        camera.send(tarn.WrappedImage.from_buffer(picture), lambda image: None)


def test_capabilities_are_shown(camera: Camera) -> None:
    with camera.client() as client:
        channels, message_capability, capability = client.read_registers(0x0900, 0x0930, GVCP_CAPABILITY)
        assert channels == 1
        assert message_capability == 0x8000_0000
        assert capability & 0x18 == 0x18


@pytest.mark.parametrize("extended", [False, True])
def test_a_streams_life_is_told(camera: Camera, extended: bool) -> None:
    every = (ACQUISITION_START, FRAME_START, FRAME_END, ACQUISITION_END)
    with listening(camera, *every, timeout_ms=1000, retries=1) as (client, receiver):
        with StreamReceiver() as stream:
            if extended:
                client.write_register(GVSP_CONFIGURATION, 0x4000_0000)
            open_stream(client, stream)
            features = Features(client)
            features.execute("AcquisitionStart")
            camera.wait_running()
            send_frames(camera, 3)
            assert all(frame.is_whole for frame in stream.wait_frames(3))
            features.execute("AcquisitionStop")
            events = received(receiver, 8)
        assert numbers_of(events) == [ACQUISITION_START, *[FRAME_START, FRAME_END] * 3, ACQUISITION_END]
        assert [event.block for event in events] == [0, 1, 1, 2, 2, 3, 3, 0]
        assert [event.channel for event in events] == [NO_CHANNEL, *[0] * 6, NO_CHANNEL]
        for before, after in itertools.pairwise(events):
            assert before.timestamp < after.timestamp
            assert after.request_id == before.request_id + 1
        source = (camera.address, client.read_register(MCSP))
        for event in events:
            assert (event.extended, event.wants_ack, event.data) == (extended, True, b"")
            assert event.source == source


def test_only_what_was_asked_for_is_told(motor: Camera) -> None:
    tree = motor.server.node_map
    with listening(motor, MOTOR) as (client, receiver):
        tree.MotorPosition.value = 1
        tree.EventMotorStopReason.value = 1
        assert numbers_of(received(receiver, 1)) == [MOTOR]
        notify(client, MOTOR, on=False)
        tree.MotorPosition.value = 2
        assert received(receiver, 0) == []


def test_user_events_carry_what_the_program_stored(motor: Camera) -> None:
    tree = motor.server.node_map
    with listening(motor, MOTOR, MOTOR_STOP) as (client, receiver):
        tree.EventMotorPosition.value = 0x01020304  # by the feature
        tree.MotorPosition.value = -1  # and by the register behind it
        tree.EventMotorStopReason.value = 5
        tree.EventMotorText.value = "at the top"
        client.write_register(tree.MotorPosition.address, 7)  # a client's own store is no news to it
        events = received(receiver, 4)
    assert numbers_of(events) == [MOTOR, MOTOR, MOTOR_STOP, MOTOR]
    assert [event.data.hex() for event in events] == [
        "01020304",
        "ffffffff",
        "00000005",
        b"at the top".ljust(512, b"\0").hex(),
    ]
    assert {(event.channel, event.block, event.wants_ack) for event in events} == {(NO_CHANNEL, 0, False)}


def test_data_that_no_message_carries_are_refused(motor: Camera) -> None:
    motor.server.stop()
    define(motor.server.node_map, "Long", 0x9500, StringRegNode.create("EventLongText", 520))
    with pytest.raises(ValueError, match=r"EventLongText .* 520 bytes, an event message carries 516"):
        motor.server.start(motor.address)


def test_ids_follow_names(motor: Camera) -> None:
    tree = motor.server.node_map
    assert tree.EventMotor.event_id == tree.EventMotorText.event_id == MOTOR
    assert tree.EventMotorStop.event_id == tree.EventMotorStopReason.event_id == MOTOR_STOP
    assert tree.MotorPosition.event_id == MOTOR  # clients are to read it anew
    # Once more, with another number.
    motor.server.stop()
    tree.EventMotorStop.value_config_as_int = 0x9200
    motor.server.start(motor.address)
    assert tree.EventMotorStopReason.event_id == 0x9200
    entries = {entry.symbolic_value: entry.numeric_value for entry in tree.EventSelector.entries}
    assert entries["MotorStop"] == 0x9200
    assert len(entries) == 8


@pytest.mark.parametrize(
    ("name", "number", "text"),
    [
        (
            "Early",
            0x8FFF,
            "the number of the event EventEarly is 0x8FFF, and must lie between 0x9000 and 0xFFFF",
        ),
        (
            "Far",
            0x10000,
            "the number of the event EventFar is 0x10000, and must lie between 0x9000 and 0xFFFF",
        ),
        ("Mine", FRAME_START, "the number 0x9003 of the event EventMine is that of an event of the device"),
        ("Twin", MOTOR, "the events Motor and Twin have the number 0x9100"),
    ],
)
def test_numbers_that_cannot_be_are_refused(motor: Camera, name: str, number: int, text: str) -> None:
    motor.server.stop()
    event = define(motor.server.node_map, name, number)
    with pytest.raises(Exception, match=text):
        motor.server.start(motor.address)
    event.value_config_as_int = 0x9300
    motor.server.start(motor.address)
    with motor.client() as client:
        assert b"9300" in Features(client).xml.find(f".//*[@Name='Event{name}']/*[.='9300']").text.encode()


def test_an_event_is_repeated_until_it_is_acknowledged(motor: Camera) -> None:
    tree = motor.server.node_map
    with listening(motor, MOTOR, silent=True, timeout_ms=50, retries=3) as (_, receiver):
        for value in (1, 2):
            tree.MotorPosition.value = value
        events = received(receiver, 8)  # each is given up after its repeats
        assert [event.request_id for event in events] == [
            *[events[0].request_id] * 4,
            *[events[4].request_id] * 4,
        ]
        assert len({event.datagram for event in events}) == 2
        assert events[4].request_id == events[0].request_id + 1
        assert counted(motor) == {"Sent": 2, "Repeated": 6, "Lost": 2, "Dropped": 0}

        tree.MotorPosition.value = 3
        first = receiver.receive()
        for wrong in ({"code": first.code + 3}, {"request_id": first.request_id + 1}):
            receiver.acknowledge(first, **wrong)
        with EventReceiver() as stranger:
            stranger.acknowledge(first)
        again = receiver.receive()
        assert again.datagram == first.datagram
        receiver.acknowledge(again)
        assert received(receiver, 0) == []


def test_one_event_at_a_time_awaits_its_acknowledge(motor: Camera) -> None:
    tree = motor.server.node_map
    with listening(motor, MOTOR, silent=True, timeout_ms=60_000) as (_, receiver):
        for value in range(100):
            tree.MotorPosition.value = value
        events = []
        while event := receiver.receive(SILENCE):
            receiver.acknowledge(event)
            events.append(event)
    # One on its way, 64 that waited, in their order; the newest were dropped.
    assert [int.from_bytes(event.data, "big") for event in events] == list(range(65))
    assert counted(motor) == {"Sent": 65, "Repeated": 0, "Lost": 0, "Dropped": 35}


def test_a_closed_channel_is_silent(motor: Camera) -> None:
    tree = motor.server.node_map
    with listening(motor, MOTOR, silent=True, timeout_ms=100, retries=100) as (client, receiver):
        for value in range(10):
            tree.MotorPosition.value = value
        assert receiver.receive()
        assert client.read_register(MCSP) != 0
        client.write_register(MCP, 0)
        assert client.read_register(MCSP) == 0
        while receiver.receive(SILENCE):  # what was under way
            pass
        tree.MotorPosition.value = 11
        client.write_register(MCP, receiver.endpoint[1])
        assert received(receiver, 0) == []  # forgotten
        tree.MotorPosition.value = 12
        assert receiver.receive().data == (12).to_bytes(4, "big")


@pytest.mark.parametrize("how", ["leaves", "falls silent"])
def test_who_loses_control_hears_no_more(motor: Camera, how: str) -> None:
    tree = motor.server.node_map
    with listening(motor, MOTOR) as (client, receiver):
        tree.MotorPosition.value = 1
        assert receiver.receive()
        if how == "leaves":
            client.disconnect()
        else:
            client.write_register(HEARTBEAT_TIMEOUT, 500)
            client.stop_heartbeat()
            wait_until(lambda: client.read_register(CCP) == 0 or time.sleep(0.6), "control falls free")
        tree.MotorPosition.value = 2
        assert received(receiver, 0) == []
        assert client.read_registers(MCP, MCSP) == (0, 0)


def test_acknowledges_are_no_heartbeat(motor: Camera) -> None:
    tree = motor.server.node_map
    with listening(motor, MOTOR, timeout_ms=100) as (client, receiver):
        client.write_register(HEARTBEAT_TIMEOUT, 500)
        client.stop_heartbeat()

        def lost() -> bool:
            tree.MotorPosition.value = 1
            return receiver.receive(0.1) is None

        wait_until(lost, "events end with the heartbeat")
        assert client.read_register(CCP) == 0


def test_registers_take_what_can_be(camera: Camera) -> None:
    with camera.client() as client:
        client.connect()
        for address, value, status in (
            (MCDA, 0x7F00_0002, INVALID_PARAMETER),  # not the controller's
            (MCDA, 0x0808_0808, INVALID_PARAMETER),
            (MCP, 0x0001_C350, INVALID_PARAMETER),  # there is one interface
            (MCSP, 1, WRITE_PROTECT),
        ):
            with pytest.raises(GvcpError) as refusal:
                client.write_register(address, value)
            assert refusal.value.status == status, f"{address:#x} {value:#x}"
        for address, value in ((MCDA, 0xEF01_0203), (MCTT, 0xFFFF_FFFF), (MCRC, 0xFFFF_FFFF), (MCDA, 0)):
            client.write_register(address, value)
            assert client.read_register(address) == value


def test_a_change_of_the_controller_is_told_unasked(camera: Camera) -> None:
    with listening(camera) as (client, receiver), camera.client() as other:
        client.write_registers((SWITCHOVER_KEY, 0x1234), (CCP, 0x4 | CONTROL))
        other.connect(0x1234_0000 | CONTROL)
        assert numbers_of(received(receiver, 1)) == [PRIMARY_SWITCH]
        client._connected = False  # control is the other's to give back


def test_many_events_cost_neither_memory_nor_time(motor: Camera) -> None:
    """A client that does not acknowledge must not hold up the program."""
    tree = motor.server.node_map
    with listening(motor, MOTOR, silent=True, timeout_ms=1000, retries=1) as (client, receiver):
        for value in range(2000):
            tree.MotorPosition.value = value
        before = resident_kilobytes()
        for value in range(10_000):
            tree.MotorPosition.value = value
        assert resident_kilobytes() - before < 512
        client.write_register(MCP, 0)
        client.write_register(MCTT, 0)
        while receiver.receive(SILENCE):
            pass
        # Without acknowledges each leaves at once; the receiver's buffer takes them all.
        client.write_register(MCP, receiver.endpoint[1])
        for value in range(2000):
            tree.MotorPosition.value = value
        values = [int.from_bytes(receiver.receive().data, "big") for _ in range(2000)]
        assert values == list(range(2000))


@pytest.mark.parametrize("extended", [False, True])
def test_the_reference_library_finds_the_event_behind_its_nodes(motor: Camera, extended: bool) -> None:
    tree = motor.server.node_map
    with motor.client() as client, EventReceiver() as receiver, StreamReceiver() as stream:
        client.connect()
        nodes, port = node_map(client)
        events = genapi.EventAdapterGEV(nodes.get_node("Root").node.node_map)
        nodes.get_node("GevGVSPExtendedIDMode").value = "On" if extended else "Off"
        for name in ("FrameEnd", "Motor"):
            nodes.get_node("EventSelector").value = name
            assert nodes.get_node("EventNotification").value == "Off"
            nodes.get_node("EventNotification").value = "On"
        receiver.open_channel(client)
        open_stream(client, stream)
        nodes.get_node("AcquisitionStart").execute()
        motor.wait_running()
        send_frames(motor, 2)
        for block in (1, 2):
            event = receiver.receive()
            assert event.number == nodes.get_node("EventFrameEnd").value == FRAME_END
            events.deliver_message(event.datagram)
            assert nodes.get_node("EventFrameEndFrameID").value == block
            assert nodes.get_node("EventFrameEndTimestamp").value == event.timestamp

        assert nodes.get_node("EventMotorPosition").value == 0
        tree.MotorPosition.value = 4711
        assert nodes.get_node("EventMotorPosition").value == 0  # what it read before
        events.deliver_message(receiver.receive().datagram)
        assert nodes.get_node("EventMotorPosition").value == 4711
        del events, nodes, port  # each uses those behind it


@pytest.mark.parametrize("extended", [False, True])
def test_tshark_reads_every_event(motor: Camera, tmp_path: pathlib.Path, extended: bool) -> None:
    need_tool("tshark")
    path = tmp_path / "events.pcapng"
    with capturing(motor.address, path), listening(motor, FRAME_START, MOTOR, timeout_ms=1000) as peers:
        client, receiver = peers
        decode = f"udp.port=={client.read_register(MCSP)},gvcp"
        with StreamReceiver() as stream:
            client.write_register(GVSP_CONFIGURATION, 0x4000_0000 if extended else 0)
            open_stream(client, stream)
            Features(client).execute("AcquisitionStart")
            motor.wait_running()
            send_frames(motor, 1)
            motor.server.node_map.MotorPosition.value = 0x0A0B0C0D
            sent = received(receiver, 2)
    assert faults(path, decode) == []
    for event in sent:
        (packet,) = dissected(path, "gvcp", f"gvcp.cmd.command == {event.code:#06x}", decode)
        block = "gvcp.event_timestamp" if extended else "gvcp.cmd.event.blockid"  # named so by tshark
        shown = {
            "gvcp.cmd.req_id": event.request_id,
            "gvcp.cmd.event.devicespecificid": event.number,
            "gvcp.cmd.event.streamchannelindex": event.channel,
            "gvcp.cmd.event.timestamp": event.timestamp,
            block: event.block,
        }
        assert {name: int(text, 0) for name, text in packet if name in shown} == shown
        data = [text.replace(":", "") for name, text in packet if name == "gvcp.cmd.eventdata.data"]
        assert data == ([event.data.hex()] if event.data else [])
    assert len(show(path, "gvcp.ack == 0x00c1 || gvcp.ack == 0x00c3", decode_as=decode)) == 2

"""Action commands: one datagram, maybe to many cameras, and each does what it was told beforehand."""

import socket
import struct
import threading

import gvcp_client as gvcp
from conftest import Camera, MakeCamera, wait_until
from gvcp_client import SUCCESS, Ack, ControlClient, command, words

DEVICE_KEY, GROUP_KEY = 0x11, 0x22
LATCH = 2
SCHEDULED = 0x81
MILLISECOND = 1_000_000  # of the camera's clock


def set_up(camera: Camera, client: ControlClient) -> list[int]:
    """Signals 1 and 2 have the masks 1 and 2; 3 has both, 4 none. Gives those that fire, in their order."""
    heard: list[int] = []
    client.connect()
    client.write_register(gvcp.ACTION_DEVICE_KEY, DEVICE_KEY)
    for signal, mask in enumerate((1, 2, 3, 0)):
        place = gvcp.ACTION_GROUPS + 0x10 * signal
        client.write_registers((place, GROUP_KEY), (place + 4, mask))
        node = getattr(camera.server.node_map, f"ActionCount{signal + 1}")
        node.register_event_written_updated(lambda node: heard.append(int(node.name_only[-1])))
    return heard


def test_one_broadcast_reaches_every_camera_that_was_set_up(make_camera: MakeCamera) -> None:
    one, other, _ = (make_camera() for _ in range(3))
    gate = threading.Event()
    one.server.node_map.ActionCount1.register_event_written_updated(lambda node: gate.wait(10))
    with one.client() as first, other.client() as second, ControlClient("127.255.255.255") as sender:
        heard = [set_up(one, first), set_up(other, second)]
        sender._socket.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        for mask in (1, 2):
            sender.send_raw(command(gvcp.ACTION, words(DEVICE_KEY, GROUP_KEY, mask), request_id=mask))
            answers = [sender.receive(5), sender.receive(5)]
            assert {ack and ack.source[0] for ack in answers} == {one.address, other.address}
            assert {ack and (ack.status, ack.payload) for ack in answers} == {(SUCCESS, b"")}
        assert sender.receive(0.1) is None
        # A slow listener neither holds up commands nor loses actions.
        assert [getattr(one.server.node_map, f"ActionCount{signal}").value for signal in (1, 2, 3)] == [
            1,
            1,
            2,
        ]
        assert heard[0] == []
        gate.set()
        wait_until(lambda: heard == [[1, 3, 2, 3]] * 2, "the signals of those two are heard")


def test_keys_and_masks_are_features(camera: Camera) -> None:
    """Clients set up actions by name; device keys can be written, but not read."""
    nodes = camera.server.node_map
    with camera.client() as client:
        set_up(camera, client)
        assert client.read_memory(gvcp.ACTION_DEVICE_KEY, 4) == bytes(4)
        nodes.ActionSelector.value = 3
        assert (nodes.ActionGroupMask.value, nodes.ActionGroupKey.value) == (3, GROUP_KEY)
        nodes.ActionGroupKey.value = 77
        assert client.read_register(gvcp.ACTION_GROUPS + 0x20) == 77


def test_scheduled_actions_fire_in_order_and_not_before_their_time(camera: Camera) -> None:
    with camera.client() as client, camera.client() as sender:
        heard = set_up(camera, client)

        def ticks() -> int:
            client.write_register(gvcp.TIMESTAMP_CONTROL, LATCH)
            high, low = client.read_registers(gvcp.TIMESTAMP_HIGH, gvcp.TIMESTAMP_LOW)
            return high << 32 | low

        def schedule(mask: int, time: int) -> Ack:
            payload = words(DEVICE_KEY, GROUP_KEY, mask) + struct.pack(">Q", time)
            return sender.request(gvcp.ACTION, payload, SCHEDULED)

        sooner = ticks() + 200 * MILLISECOND
        later = sooner + 200 * MILLISECOND
        assert [schedule(1, later).status, schedule(2, sooner).status] == [SUCCESS, SUCCESS]
        for time, fired in ((sooner, [2, 3]), (later, [2, 3, 1, 3])):
            wait_until(lambda fired=fired: heard[: len(fired)] == fired, "the signals fire")  # type: ignore[misc]
            assert ticks() >= time

"""Action commands: one datagram, maybe to many cameras, and each does what it was told beforehand."""

import contextlib
import socket
import struct
import threading
from collections.abc import Iterator

import pytest

from conftest import Camera, MakeCamera
from features import Features
from gvcp_client import (
    ACK_REQUESTED,
    ACTION,
    ACTION_DEVICE_KEY,
    ACTION_GROUPS,
    GVCP_CONFIGURATION,
    PORT,
    SUCCESS,
    TIMESTAMP_CONTROL,
    TIMESTAMP_HIGH,
    TIMESTAMP_LOW,
    Ack,
    ControlClient,
    command,
)
from tarn.gevserver import Node

OVERFLOW = 0x8015
ACTION_LATE = 0x8016
STATUS_CODES_2_0 = 1 << 31 - 13
UNCONDITIONAL = 1 << 31 - 28
SCHEDULED = 0x80
DEVICE_KEY, GROUP_KEY = 0x11, 0x22
LATCH = 2
MILLISECOND = 1_000_000  # of the camera's clock


class Sender:
    """Somebody on the network who sends actions and is nobody's controller."""

    def __init__(self, sock: socket.socket, target: str) -> None:
        self._socket = sock
        self.target = target
        self._ids = iter(range(1, 0x10000))

    def datagram(self, mask: int, time: int | None = None, *, device_key: int = DEVICE_KEY) -> bytes:
        payload = struct.pack(">III", device_key, GROUP_KEY, mask)
        if time is None:
            return command(ACTION, payload, next(self._ids))
        return command(ACTION, payload + struct.pack(">Q", time), next(self._ids), ACK_REQUESTED | SCHEDULED)

    def send(self, datagram: bytes) -> None:
        self._socket.sendto(datagram, (self.target, PORT))

    def ask(self, datagram: bytes, timeout: float = 2) -> Ack | None:
        self.send(datagram)
        return self.answer(timeout)

    def answer(self, timeout: float = 2) -> Ack | None:
        self._socket.settimeout(timeout)
        with contextlib.suppress(TimeoutError):
            return Ack.decode(*self._socket.recvfrom(2048))
        return None


@contextlib.contextmanager
def open_sender(target: str) -> Iterator[Sender]:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        sock.bind(("127.0.0.1", 0))
        yield Sender(sock, target)


class Listener:
    """Notes in which order the signals of a camera fired, by the numbers of their features."""

    def __init__(self, camera: Camera) -> None:
        self.heard: list[int] = []
        self._changed = threading.Condition()
        for signal in range(1, 5):
            node = getattr(camera.server.node_map, f"ActionCount{signal}")
            node.register_event_written_updated(self._fired)

    def _fired(self, node: Node) -> None:
        with self._changed:
            self.heard.append(int(node.name_only[-1]))
            self._changed.notify_all()

    def wait(self, count: int) -> list[int]:
        with self._changed:
            assert self._changed.wait_for(lambda: len(self.heard) >= count, 10), self.heard
            return list(self.heard)


def set_up(client: ControlClient) -> None:
    """Signals 1 and 2 belong to the group, for the masks 1 and 2; 3 answers to both, 4 to nothing."""
    client.write_registers(
        (ACTION_DEVICE_KEY, DEVICE_KEY),
        (GVCP_CONFIGURATION, STATUS_CODES_2_0),
        *((ACTION_GROUPS + 0x10 * signal, GROUP_KEY) for signal in range(4)),
        *((ACTION_GROUPS + 0x10 * signal + 4, mask) for signal, mask in enumerate((1, 2, 3, 0))),
    )


def ticks(client: ControlClient) -> int:
    client.write_register(TIMESTAMP_CONTROL, LATCH)
    high, low = client.read_registers(TIMESTAMP_HIGH, TIMESTAMP_LOW)
    return high << 32 | low


def counts(client: ControlClient) -> list[int]:
    features = Features(client)
    return [features.read(f"ActionCount{signal}") for signal in range(1, 5)]


def test_listeners_hear_which_signal_fired(camera: Camera) -> None:
    listener = Listener(camera)
    with camera.client() as client, open_sender(camera.address) as sender:
        client.connect()
        set_up(client)
        answer = sender.ask(sender.datagram(2))
        assert answer is not None
        assert (answer.status, answer.code, answer.payload) == (SUCCESS, ACTION + 1, b"")
        assert listener.wait(2) == [2, 3]
        assert sender.ask(sender.datagram(1)) is not None
        assert listener.wait(4) == [2, 3, 1, 3]
        # Meant for others, or for nobody.
        for datagram in (sender.datagram(4), sender.datagram(1, device_key=DEVICE_KEY + 1)):
            assert sender.ask(datagram, timeout=0.1) is None
        assert counts(client) == [1, 1, 2, 0]
        assert listener.heard == [2, 3, 1, 3]
        assert camera.server.node_map.ActionCount3.value == 2


def test_repeats_fire_once(camera: Camera) -> None:
    with camera.client() as client, open_sender(camera.address) as sender:
        client.connect()
        set_up(client)
        datagram = sender.datagram(1)
        answers = [sender.ask(datagram) for _ in range(3)]
        assert {answer and answer.status for answer in answers} == {SUCCESS}
        assert counts(client) == [1, 0, 1, 0]


def test_without_control_only_unconditional_actions_fire(camera: Camera) -> None:
    with camera.client() as client, open_sender(camera.address) as sender:
        client.connect()
        set_up(client)
        client.disconnect()
        assert sender.ask(sender.datagram(1), timeout=0.1) is None
        client.connect()
        client.write_register(GVCP_CONFIGURATION, UNCONDITIONAL)
        client.disconnect()
        assert sender.ask(sender.datagram(1)) is not None
        assert counts(client) == [1, 0, 1, 0]


def test_scheduled_actions_fire_in_order_and_not_before_their_time(camera: Camera) -> None:
    listener = Listener(camera)
    with camera.client() as client, open_sender(camera.address) as sender:
        client.connect()
        set_up(client)
        now = ticks(client)
        later, sooner = now + 400 * MILLISECOND, now + 200 * MILLISECOND
        for time, mask in ((later, 1), (sooner, 2)):
            answer = sender.ask(sender.datagram(mask, time))
            assert answer is not None
            assert answer.status == SUCCESS
        assert listener.wait(2)[:2] == [2, 3]
        assert ticks(client) >= sooner
        assert listener.wait(4) == [2, 3, 1, 3]
        assert ticks(client) >= later


def test_late_and_too_many_scheduled_actions_are_told(camera: Camera) -> None:
    with camera.client() as client, open_sender(camera.address) as sender:
        client.connect()
        set_up(client)
        answer = sender.ask(sender.datagram(1, 1))
        assert answer is not None
        assert answer.status == ACTION_LATE
        assert counts(client) == [1, 0, 1, 0]  # done all the same
        size = Features(client).read("ActionQueueSize")
        hour = 3600 * 1000 * MILLISECOND
        beyond = sender.ask(sender.datagram(1, ticks(client) + hour))
        assert beyond is not None
        assert beyond.status == OVERFLOW  # nobody can take places for so long
        far = ticks(client) + hour // 20
        answers = [sender.ask(sender.datagram(1, far)) for _ in range(size + 1)]
        assert [answer and answer.status for answer in answers] == [SUCCESS] * size + [OVERFLOW]
        assert counts(client) == [1, 0, 1, 0]


def test_one_broadcast_reaches_every_camera(make_camera: MakeCamera) -> None:
    cameras = [make_camera() for _ in range(3)]
    listeners = [Listener(camera) for camera in cameras]
    with contextlib.ExitStack() as stack:
        for camera in cameras[:2]:
            client = stack.enter_context(camera.client()).connect()
            set_up(client)
        sender = stack.enter_context(open_sender("127.255.255.255"))
        sender.send(sender.datagram(1))
        answers = [sender.answer(), sender.answer()]
        assert {answer and answer.source[0] for answer in answers} == {c.address for c in cameras[:2]}
        assert sender.answer(0.1) is None  # the third was not set up for it
        for listener in listeners[:2]:
            assert listener.wait(2) == [1, 3]
        assert listeners[2].heard == []


def test_a_slow_listener_neither_holds_up_commands_nor_loses_actions(camera: Camera) -> None:
    entered, gate = threading.Event(), threading.Event()

    def slow(_node: Node) -> None:
        entered.set()
        gate.wait(10)

    camera.server.node_map.ActionCount1.register_event_written_updated(slow)
    listener = Listener(camera)
    with camera.client() as client, open_sender(camera.address) as sender:
        client.connect()
        set_up(client)
        assert sender.ask(sender.datagram(1)) is not None
        assert entered.wait(10)
        for _ in range(5):
            assert sender.ask(sender.datagram(2)) is not None
        nodes = camera.server.node_map
        seen = [nodes.ActionCount1.value, nodes.ActionCount2.value, nodes.ActionCount3.value]
        assert seen == [1, 5, 6]  # all happened while the listener lasted
        assert listener.heard == []
        gate.set()
        assert listener.wait(12) == [1, 3] + [2, 3] * 5


@pytest.mark.parametrize("signal", [1, 4])
def test_keys_and_masks_are_features(camera: Camera, signal: int) -> None:
    """Clients set up actions by name; device keys can be written, but not read."""
    nodes = camera.server.node_map
    nodes.ActionDeviceKey.value = 0xABCDEF
    with camera.client() as client:
        client.connect()
        assert client.read_register(ACTION_DEVICE_KEY) == 0
        assert client.read_memory(ACTION_DEVICE_KEY, 4) == bytes(4)
        client.write_register(ACTION_GROUPS + 0x10 * (signal - 1) + 4, 0xFFFF_FFFF)
        nodes.ActionSelector.value = signal
        assert nodes.ActionGroupMask.value == 0xFFFF_FFFF
        nodes.ActionGroupKey.value = 77
        assert client.read_register(ACTION_GROUPS + 0x10 * (signal - 1)) == 77

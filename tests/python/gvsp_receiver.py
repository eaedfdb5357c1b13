"""The stream side of a GigE Vision client: receives packets, assembles frames, asks for resends.

Written from the standard's tables like the control side. The receiver has a thread of its own; frames are
handed over whole, or with gaps when nothing more came for them.
"""

import collections
import contextlib
import itertools
import socket
import struct
import threading
import time
from collections.abc import Callable
from typing import NamedTuple

from gvcp_client import PORT, resend_command

LEADER, TRAILER, PAYLOAD = 1, 2, 3
IMAGE, RAW_DATA, FILE, CHUNKED = 0x0001, 0x0002, 0x0003, 0x4000
_SO_RCVBUFFORCE = 33
_BUFFER_BYTES = 16 << 20
_GIVE_UP_AFTER = 1.0  # seconds without a packet of an open frame
_ASK_AFTER = 0.02  # seconds without a packet of an open frame
_ASK_TIMES = 20


class Packet(NamedTuple):
    """One stream packet without its header; the kind is 0 for a test packet."""

    status: int
    block: int
    kind: int
    number: int
    data: bytes
    extended: bool
    flags: int

    @classmethod
    def decode(cls, datagram: bytes) -> "Packet":
        status, block, word = struct.unpack_from(">HHI", datagram)
        kind = word >> 24 & 0x0F
        if not word >> 24 & 0x80:
            return cls(status, block, kind, word & 0xFFFFFF, datagram[8:], False, 0)
        flags = block
        block, number = struct.unpack_from(">QI", datagram, 8)
        return cls(status, block, kind, number, datagram[20:], True, flags)


# Leaders of images, and of raw data and files.
Leader = collections.namedtuple(
    "Leader", "payload_type timestamp pixel_format width height offset_x offset_y padding_x padding_y"
)
DataLeader = collections.namedtuple("DataLeader", "payload_type timestamp payload_size file_name")


class Frame:
    """One block: its packets by number, and how it came together."""

    def __init__(self, block: int) -> None:
        self.block = block
        self.packets: dict[int, Packet] = {}
        self.trailer: int | None = None  # its packet number
        self.last_heard = time.monotonic()
        self.asked = 0

    def add(self, packet: Packet) -> None:
        self.last_heard = time.monotonic()
        if not packet.status & 0x8000:
            self.packets.setdefault(packet.number, packet)
            if packet.kind == TRAILER:
                self.trailer = packet.number

    @property
    def is_whole(self) -> bool:
        return self.trailer is not None and len(self.packets) == self.trailer + 1

    def missing(self) -> list[tuple[int, int]]:
        """Gaps as (first, last); before the trailer came, what is behind the last packet is one, too."""
        edges = [-1, *sorted(self.packets)]
        gaps = [(low + 1, high - 1) for low, high in itertools.pairwise(edges) if high - low > 1]
        return gaps if self.trailer is not None else [*gaps, (edges[-1] + 1, 0xFFFFFFFF)]

    @property
    def payload_type(self) -> int:
        assert self.packets[0].kind == LEADER
        return struct.unpack_from(">H", self.packets[0].data, 2)[0]

    @property
    def leader(self) -> Leader:
        return Leader(*struct.unpack(">xxHQIIIIIHH", self.packets[0].data))

    @property
    def data_leader(self) -> DataLeader:
        data = self.packets[0].data
        name, end = data[20:-1], data[20:][-1:]
        assert (end == b"\0") == (self.payload_type & ~CHUNKED == FILE), "a zero ends the name"
        return DataLeader(*struct.unpack_from(">xxHQQ", data), name.decode())

    @property
    def payload(self) -> bytes:
        """The data packets' bytes, each put where its number says; their sizes must agree with that."""
        assert self.is_whole, f"block {self.block} lacks {self.missing()}"
        parts = [self.packets[number] for number in range(1, self.trailer)]
        assert {part.kind for part in parts} <= {PAYLOAD}
        assert len({len(part.data) for part in parts[:-1]}) <= 1
        assert not parts[1:] or 0 < len(parts[-1].data) <= len(parts[0].data)
        return b"".join(part.data for part in parts)

    @property
    def image(self) -> bytes:
        """The payload of a block without chunks."""
        assert not self.payload_type & CHUNKED
        return self.payload

    @property
    def chunks(self) -> dict[int, bytes]:
        """The chunks by their ids, in the order of the wire, found from the end backwards."""
        assert self.payload_type & CHUNKED
        data, found = self.payload, []
        assert len(data) == self._trailer()[-2]
        while data:
            chunk, length = struct.unpack_from(">II", data, len(data) - 8)
            assert length % 4 == 0
            assert length + 8 <= len(data), f"the chunk {chunk:#x} begins before the block"
            found.append((chunk, data[len(data) - 8 - length : -8]))
            data = data[: len(data) - 8 - length]
        return dict(reversed(found))

    @property
    def chunk_layout(self) -> int:
        return self._trailer()[-1]

    @property
    def lines_sent(self) -> int:
        """Size y of the trailer."""
        assert self.payload_type & ~CHUNKED == IMAGE
        return self._trailer()[0]

    def _trailer(self) -> tuple[int, ...]:
        """The words of the trailer, whose form and length follow from the payload type."""
        count = (self.payload_type & ~CHUNKED == IMAGE) + 2 * bool(self.payload_type & CHUNKED)
        reserved, payload_type, *fields = struct.unpack(f">HH{count}I", self.packets[self.trailer].data)
        assert (reserved, payload_type) == (0, self.payload_type)
        return tuple(fields)


class StreamReceiver:
    """Receives on a port of `local`; set SCDA and SCP to `endpoint` to get the stream.

    `drop` is called with (block, packet number, copies seen before): true makes the receiver blind to the
    packet. What is missing is asked for from the device `resend_from`, if any. `group` is a multicast group
    and port to listen to instead, which other receivers may share.
    """

    def __init__(
        self,
        *,
        local: str = "127.0.0.1",
        drop: Callable[[int, int, int], bool] | None = None,
        resend_from: str | None = None,
        group: tuple[str, int] | None = None,
    ) -> None:
        self.test_packets: list[bytes] = []
        self.frames: list[Frame] = []  # in the order of their ends
        self.packets_seen = 0
        self.sources: set[tuple[str, int]] = set()
        self._drop = drop
        self._device = (resend_from, PORT) if resend_from else None
        self._open: dict[int, Frame] = {}
        self._done: set[int] = set()
        self._copies: collections.Counter[tuple[int, int]] = collections.Counter()
        self._changed = threading.Condition()
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, _BUFFER_BYTES)
        with contextlib.suppress(PermissionError):
            self._socket.setsockopt(socket.SOL_SOCKET, _SO_RCVBUFFORCE, _BUFFER_BYTES)
        if group:
            self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            membership = socket.inet_aton(group[0]) + socket.inet_aton(local)
            self._socket.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, membership)
        self._socket.bind(group or (local, 0))
        self._socket.settimeout(_ASK_AFTER / 2)
        self._ending = False
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def __enter__(self) -> "StreamReceiver":
        return self

    def __exit__(self, *exception: object) -> None:
        self._ending = True
        self._thread.join()
        self._socket.close()

    @property
    def endpoint(self) -> tuple[str, int]:
        return self._socket.getsockname()

    @property
    def port(self) -> int:
        return self.endpoint[1]

    def wait_frames(self, count: int, timeout: float = 20.0) -> list[Frame]:
        """The first `count` frames; fails when they do not come in time."""
        with self._changed:
            come = self._changed.wait_for(lambda: len(self.frames) >= count, timeout)
            assert come, f"{len(self.frames)} of {count} frames, {self.packets_seen} packets came"
            return self.frames[:count]

    def wait_test_packets(self, count: int, timeout: float) -> list[bytes]:
        """Up to `count` test packets' UDP payloads, as many as came in time."""
        with self._changed:
            self._changed.wait_for(lambda: len(self.test_packets) >= count, timeout)
            return self.test_packets[:count]

    def _run(self) -> None:
        while not self._ending:
            with contextlib.suppress(TimeoutError):
                self._take(*self._socket.recvfrom(65536))
            self._look_after_open_frames()

    def _take(self, datagram: bytes, source: tuple[str, int]) -> None:
        packet = Packet.decode(datagram)
        with self._changed:
            self.packets_seen += 1
            self.sources.add(source)
            if packet.block == 0:
                self.test_packets.append(datagram)
                self._changed.notify_all()
                return
            key = (packet.block, packet.number)
            copies = self._copies[key]
            self._copies[key] += 1
            if packet.block in self._done or (self._drop and self._drop(*key, copies)):
                return
            frame = self._open.setdefault(packet.block, Frame(packet.block))
            frame.add(packet)
            if frame.is_whole:
                self._finish(frame)

    def _finish(self, frame: Frame) -> None:
        self._done.add(frame.block)
        del self._open[frame.block]
        self.frames.append(frame)
        self._changed.notify_all()

    def _look_after_open_frames(self) -> None:
        now = time.monotonic()
        with self._changed:
            for frame in list(self._open.values()):
                silent = now - frame.last_heard
                if silent > _GIVE_UP_AFTER:
                    self._finish(frame)
                elif self._device and silent > _ASK_AFTER and frame.asked < _ASK_TIMES:
                    frame.asked += 1
                    frame.last_heard = now
                    extended = any(packet.extended for packet in frame.packets.values())
                    for first, last in frame.missing():
                        # From the stream socket, as clients in the field do.
                        asked = resend_command(frame.block, first, last, extended=extended)
                        self._socket.sendto(asked, self._device)

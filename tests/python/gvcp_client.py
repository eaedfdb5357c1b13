"""The control side of a GigE Vision client, in plain sockets.

Written from the standard's tables, on purpose without a look at the camera's own encoders, so that a mistake
in them is not mirrored here. Blocking; every wait has a limit.
"""

import contextlib
import dataclasses
import itertools
import socket
import struct
import threading
import time
from collections.abc import Iterator
from typing import Self

PORT = 3956
KEY = 0x42
ACK_REQUESTED = 0x01

DISCOVERY, FORCEIP, PACKETRESEND, PENDING_ACK = 0x0002, 0x0004, 0x0040, 0x0089
READREG, WRITEREG, READMEM, WRITEMEM = 0x0080, 0x0082, 0x0084, 0x0086
EVENT, EVENTDATA, ACTION = 0x00C0, 0x00C2, 0x0100

SUCCESS, NOT_IMPLEMENTED, INVALID_PARAMETER, INVALID_ADDRESS = 0x0000, 0x8001, 0x8002, 0x8003
WRITE_PROTECT, BAD_ALIGNMENT, ACCESS_DENIED, BUSY = 0x8004, 0x8005, 0x8006, 0x8007
INVALID_HEADER = 0x800E

FIRST_URL, SECOND_URL = 0x0200, 0x0400
ACTION_SIGNALS, ACTION_DEVICE_KEY, ACTION_GROUPS = 0x0908, 0x090C, 0x9800
GVSP_CAPABILITY, MESSAGE_CAPABILITY, GVCP_CAPABILITY = 0x092C, 0x0930, 0x0934
HEARTBEAT_TIMEOUT, TICK_FREQUENCY_LOW = 0x0938, 0x0940
TIMESTAMP_CONTROL, TIMESTAMP_HIGH, TIMESTAMP_LOW = 0x0944, 0x0948, 0x094C
DISCOVERY_DELAY, GVCP_CONFIGURATION, PENDING_TIMEOUT = 0x0950, 0x0954, 0x0958
SWITCHOVER_KEY, GVSP_CONFIGURATION = 0x095C, 0x0960
CCP, PRIMARY_PORT, PRIMARY_ADDRESS = 0x0A00, 0x0A04, 0x0A14
MCP, MCDA, MCTT, MCRC, MCSP = 0x0B00, 0x0B10, 0x0B14, 0x0B18, 0x0B1C
SCP, SCPS, SCPD, SCDA, SCSP, SCC, SCCFG = 0x0D00, 0x0D04, 0x0D08, 0x0D18, 0x0D1C, 0x0D20, 0x0D24

EXCLUSIVE, CONTROL, SWITCHOVER = 1, 2, 4
READMEM_MAX = 536


class GvcpError(Exception):
    """The device answered with an error; `status` holds its 16-bit code."""

    def __init__(self, status: int, command: int) -> None:
        super().__init__(f"command {command:#06x}: status {status:#06x}")
        self.status = status


@dataclasses.dataclass(frozen=True)
class Ack:
    """One acknowledge as it came."""

    status: int
    code: int
    ack_id: int
    payload: bytes
    source: tuple[str, int]

    @classmethod
    def decode(cls, datagram: bytes, source: tuple[str, int]) -> "Ack":
        status, code, length, ack_id = struct.unpack_from(">HHHH", datagram)
        assert length == len(datagram) - 8
        return cls(status, code, ack_id, datagram[8:], source)


@dataclasses.dataclass(frozen=True)
class DeviceInfo:
    """What a discovery acknowledge tells."""

    payload: bytes
    source: tuple[str, int]
    mac: bytes
    address: str
    manufacturer: str
    model: str
    device_version: str
    serial: str
    user_name: str

    @classmethod
    def decode(cls, ack: Ack) -> "DeviceInfo":
        data = ack.payload
        assert len(data) == 248
        places = ((72, 32), (104, 32), (136, 32), (216, 16), (232, 16))
        texts = (data[at : at + size].split(b"\0")[0].decode("utf-8") for at, size in places)
        return cls(data, ack.source, data[10:16], socket.inet_ntoa(data[36:40]), *texts)


def words(*values: int) -> bytes:
    """Register addresses and values, as payloads carry them."""
    return struct.pack(f">{len(values)}I", *values)


def command(code: int, payload: bytes = b"", request_id: int = 1, flags: int = ACK_REQUESTED) -> bytes:
    """A command datagram with a correct length field."""
    return struct.pack(">BBHHH", KEY, flags, code, len(payload), request_id) + payload


def discover(target: str, *, wait: float = 0.5) -> list[DeviceInfo]:
    """Send one DISCOVERY to `target`, maybe a broadcast address, and collect answers for `wait` seconds."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        # The limited broadcast would leave by the default route otherwise.
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"lo\0")
        sock.bind(("127.0.0.1", 0))
        sock.sendto(command(DISCOVERY, request_id=0xFFFF, flags=0x11), (target, PORT))
        return [DeviceInfo.decode(ack) for ack in _receive_until(sock, time.monotonic() + wait)]


class _Peer:
    """Has a socket on an address of this host."""

    def __init__(self, local: str) -> None:
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind((local, 0))

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    @property
    def endpoint(self) -> tuple[str, int]:
        host, port = self._socket.getsockname()
        return host, port

    def close(self) -> None:
        self._socket.close()


def _receive_until(sock: socket.socket, deadline: float) -> Iterator[Ack]:
    while (left := deadline - time.monotonic()) > 0:
        sock.settimeout(left)
        try:
            yield Ack.decode(*sock.recvfrom(2048))
        except TimeoutError:
            return


class ControlClient(_Peer):
    """One control socket towards one device; commands of several threads go one at a time."""

    TRIES = 4

    def __init__(self, address: str, *, local: str = "127.0.0.1", timeout: float = 0.5) -> None:
        super().__init__(local)
        self.device = (address, PORT)
        self.timeout = timeout
        self._lock = threading.Lock()
        self._ids = itertools.cycle(range(1, 0x10000))
        self._connected = False
        self._calm = threading.Event()  # set to end the heartbeat
        self._heart: threading.Thread | None = None

    def __exit__(self, *exception: object) -> None:
        with contextlib.suppress(GvcpError, TimeoutError):
            self.disconnect()
        self.close()

    def close(self) -> None:
        """Vanish without a word: no more heartbeat, no release of control."""
        self._connected = False
        self.stop_heartbeat()
        super().close()

    def send_raw(self, datagram: bytes) -> None:
        self._socket.sendto(datagram, self.device)

    def receive(self, timeout: float | None = None) -> Ack | None:
        """The next acknowledge, None when none comes in time."""
        return next(_receive_until(self._socket, time.monotonic() + (timeout or self.timeout)), None)

    def exchange(self, datagram: bytes, timeout: float | None = None) -> Ack | None:
        """Send a datagram as it is, once, and return what comes back."""
        with self._lock:
            self.send_raw(datagram)
            return self.receive(timeout)

    def request(self, code: int, payload: bytes = b"", flags: int = ACK_REQUESTED) -> Ack:
        """The answer to a command, whatever its status; the command is repeated while none comes."""
        with self._lock:
            request_id = next(self._ids)
            datagram = command(code, payload, request_id, flags)
            for _ in range(self.TRIES):
                self.send_raw(datagram)
                if ack := self._answer(code, request_id):
                    return ack
        raise TimeoutError(f"no answer to command {code:#06x} from {self.device[0]}")

    def _answer(self, code: int, request_id: int) -> Ack | None:
        deadline = time.monotonic() + self.timeout
        while (left := deadline - time.monotonic()) > 0:
            ack = self.receive(left)
            if ack is None:
                return None
            assert ack.source == self.device, f"answered from {ack.source}"
            if ack.ack_id == request_id and ack.code == PENDING_ACK:
                milliseconds = int.from_bytes(ack.payload, "big")
                deadline = time.monotonic() + self.timeout + milliseconds / 1000
            elif ack.ack_id == request_id:  # else a late answer to a repeated command
                assert ack.code == code + 1, f"command {code:#06x} was answered with {ack.code:#06x}"
                return ack
        return None

    def _checked(self, code: int, payload: bytes) -> bytes:
        ack = self.request(code, payload)
        if ack.status != SUCCESS:
            raise GvcpError(ack.status, code)
        return ack.payload

    def read_registers(self, *addresses: int) -> tuple[int, ...]:
        data = self._checked(READREG, words(*addresses))
        return struct.unpack(f">{len(addresses)}I", data)

    def read_register(self, address: int) -> int:
        return self.read_registers(address)[0]

    def write_registers(self, *pairs: tuple[int, int]) -> int:
        """Write in order; return the number written."""
        data = self._checked(WRITEREG, words(*itertools.chain.from_iterable(pairs)))
        return int(struct.unpack(">HH", data)[1])

    def write_register(self, address: int, value: int) -> None:
        assert self.write_registers((address, value)) == 1

    def read_memory(self, address: int, size: int) -> bytes:
        """`size` bytes, as many commands as that takes."""
        data = b""
        while len(data) < size:
            count = min(READMEM_MAX, (size - len(data) + 3) & ~3)
            part = self._checked(READMEM, struct.pack(">IHH", address + len(data), 0, count))
            assert part[:4] == words(address + len(data)) and len(part) == 4 + count
            data += part[4:]
        return data[:size]

    def write_memory(self, address: int, data: bytes) -> int:
        """Write in one command; return the number of bytes written."""
        return int(struct.unpack(">HH", self._checked(WRITEMEM, words(address) + data))[1])

    def connect(self, privilege: int = CONTROL, *, beat: float | None = 0.2) -> Self:
        """Take control and keep it by a heartbeat every `beat` seconds; None for no heartbeat."""
        self.write_register(CCP, privilege)
        self._connected = True
        if beat and not self._heart:
            self._calm.clear()
            self._heart = threading.Thread(target=self._beat, args=(beat,), daemon=True)
            self._heart.start()
        return self

    def _beat(self, interval: float) -> None:
        while not self._calm.wait(interval):
            with contextlib.suppress(GvcpError, TimeoutError):
                self.read_register(CCP)

    def stop_heartbeat(self) -> None:
        if self._heart:
            self._calm.set()
            self._heart.join()
            self._heart = None

    def disconnect(self) -> None:
        """Stop the heartbeat and give control back, when it was taken."""
        self.stop_heartbeat()
        if self._connected:
            self._connected = False
            self.write_register(CCP, 0)

    def description(self) -> tuple[str, bytes]:
        """File name and bytes of the description file that the first URL names."""
        url = self.read_memory(FIRST_URL, 512).split(b"\0")[0].decode("ascii")
        name, address, length = url.lower().removeprefix("local:").split("?")[0].split(";")
        return name, self.read_memory(int(address, 16), int(length, 16))

    def request_resend(self, block: int, first: int, last: int, *, extended: bool = False) -> None:
        """Ask for packets `first` to `last`; they come on the stream, there is no acknowledge."""
        with self._lock:
            self.send_raw(resend_command(block, first, last, extended=extended, request_id=next(self._ids)))


def resend_command(block: int, first: int, last: int, *, extended: bool, request_id: int = 1) -> bytes:
    """A PACKETRESEND datagram for stream channel 0."""
    payload = struct.pack(">HHII", 0, 0 if extended else block, first, last)
    if extended:
        payload += struct.pack(">Q", block)
    return command(PACKETRESEND, payload, request_id, flags=0x10 if extended else 0)


@dataclasses.dataclass(frozen=True)
class Event:
    """One event command as it came."""

    code: int
    request_id: int
    wants_ack: bool
    extended: bool
    number: int
    channel: int
    block: int
    timestamp: int
    data: bytes
    datagram: bytes
    source: tuple[str, int]

    @classmethod
    def decode(cls, datagram: bytes, source: tuple[str, int]) -> "Event":
        key, flags, code, length, request_id = struct.unpack_from(">BBHHH", datagram)
        extended = bool(flags & 0x10)
        if extended:
            size, number, channel, reserved, block, timestamp = struct.unpack_from(">HHHHQQ", datagram, 8)
        else:
            reserved, number, channel, block, timestamp = struct.unpack_from(">HHHHQ", datagram, 8)
            size = length
        assert (key, flags & ~0x11, length, size, reserved) == (KEY, 0, len(datagram) - 8, length, 0)
        data = datagram[32 if extended else 24 :]
        assert request_id != 0 and code == (EVENTDATA if data else EVENT)
        marks = bool(flags & ACK_REQUESTED), extended
        return cls(code, request_id, *marks, number, channel, block, timestamp, data, datagram, source)


class EventReceiver(_Peer):
    """A socket that events come to. Acknowledges those that want it, unless `silent`."""

    def __init__(self, local: str = "127.0.0.1", *, silent: bool = False) -> None:
        super().__init__(local)
        self.silent = silent

    def receive(self, timeout: float = 5.0) -> Event | None:
        """The next event, None when none comes in time."""
        self._socket.settimeout(timeout)
        try:
            event = Event.decode(*self._socket.recvfrom(2048))
        except TimeoutError:
            return None
        if event.wants_ack and not self.silent:
            self.acknowledge(event)
        return event

    def acknowledge(self, event: Event) -> None:
        ack = struct.pack(">HHHH", SUCCESS, event.code + 1, 0, event.request_id)
        self._socket.sendto(ack, event.source)

    def open_channel(self, client: ControlClient, *, timeout_ms: int = 0, retries: int = 0) -> None:
        """Let the camera that `client` controls send its events here."""
        address, port = self.endpoint
        destination = int.from_bytes(socket.inet_aton(address), "big")
        client.write_registers((MCTT, timeout_ms), (MCRC, retries), (MCDA, destination), (MCP, port))

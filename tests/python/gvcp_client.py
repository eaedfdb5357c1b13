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

PORT = 3956
KEY = 0x42
ACK_REQUESTED = 0x01

DISCOVERY = 0x0002
FORCEIP = 0x0004
PACKETRESEND = 0x0040
READREG = 0x0080
WRITEREG = 0x0082
READMEM = 0x0084
WRITEMEM = 0x0086
PENDING_ACK = 0x0089
ACTION = 0x0100
EVENT = 0x00C0
EVENTDATA = 0x00C2

SUCCESS = 0x0000
NOT_IMPLEMENTED = 0x8001
INVALID_PARAMETER = 0x8002
INVALID_ADDRESS = 0x8003
WRITE_PROTECT = 0x8004
BAD_ALIGNMENT = 0x8005
ACCESS_DENIED = 0x8006
BUSY = 0x8007
INVALID_HEADER = 0x800E

FIRST_URL = 0x0200
SECOND_URL = 0x0400
ACTION_SIGNALS = 0x0908
ACTION_DEVICE_KEY = 0x090C
GVSP_CAPABILITY = 0x092C
MESSAGE_CAPABILITY = 0x0930
GVCP_CAPABILITY = 0x0934
HEARTBEAT_TIMEOUT = 0x0938
TICK_FREQUENCY_LOW = 0x0940
TIMESTAMP_CONTROL = 0x0944
TIMESTAMP_HIGH = 0x0948
TIMESTAMP_LOW = 0x094C
DISCOVERY_DELAY = 0x0950
GVCP_CONFIGURATION = 0x0954
PENDING_TIMEOUT = 0x0958
SWITCHOVER_KEY = 0x095C
GVSP_CONFIGURATION = 0x0960
CCP = 0x0A00
PRIMARY_PORT = 0x0A04
PRIMARY_ADDRESS = 0x0A14
MCP = 0x0B00
MCDA = 0x0B10
MCTT = 0x0B14
MCRC = 0x0B18
MCSP = 0x0B1C
SCP = 0x0D00
SCPS = 0x0D04
SCPD = 0x0D08
SCDA = 0x0D18
SCSP = 0x0D1C
SCC = 0x0D20
SCCFG = 0x0D24
ACTION_GROUPS = 0x9800

CONTROL = 2
EXCLUSIVE = 1
SWITCHOVER = 4
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
        if length != len(datagram) - 8:
            raise AssertionError(f"length field {length} in a datagram of {len(datagram)} bytes")
        return cls(status, code, ack_id, datagram[8:], source)


@dataclasses.dataclass(frozen=True)
class DeviceInfo:
    """What a discovery acknowledge tells."""

    version: tuple[int, int]
    mode: int
    mac: bytes
    address: str
    netmask: str
    manufacturer: str
    model: str
    device_version: str
    serial: str
    user_name: str
    payload: bytes
    source: tuple[str, int]

    @classmethod
    def decode(cls, ack: Ack) -> "DeviceInfo":
        data = ack.payload
        if len(data) != 248:
            raise AssertionError(f"a discovery acknowledge of {len(data)} bytes")

        def text(offset: int, size: int) -> str:
            return data[offset : offset + size].split(b"\0")[0].decode("utf-8")

        return cls(
            version=struct.unpack_from(">HH", data),
            mode=struct.unpack_from(">I", data, 4)[0],
            mac=data[10:16],
            address=socket.inet_ntoa(data[36:40]),
            netmask=socket.inet_ntoa(data[52:56]),
            manufacturer=text(72, 32),
            model=text(104, 32),
            device_version=text(136, 32),
            serial=text(216, 16),
            user_name=text(232, 16),
            payload=data,
            source=ack.source,
        )


def command(code: int, payload: bytes = b"", request_id: int = 1, flags: int = ACK_REQUESTED) -> bytes:
    """A command datagram with a correct length field."""
    return struct.pack(">BBHHH", KEY, flags, code, len(payload), request_id) + payload


def discover(
    target: str, *, local: str = "127.0.0.1", flags: int = 0x11, wait: float = 0.5
) -> list[DeviceInfo]:
    """Send one DISCOVERY to `target`, maybe a broadcast address, and collect answers for `wait` seconds."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        if local.startswith("127."):
            # The limited broadcast would leave by the default route otherwise.
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_BINDTODEVICE, b"lo\0")
        sock.bind((local, 0))
        sock.sendto(command(DISCOVERY, request_id=0xFFFF, flags=flags), (target, PORT))
        return [DeviceInfo.decode(ack) for ack in _receive_until(sock, time.monotonic() + wait)]


def _receive_until(sock: socket.socket, deadline: float) -> Iterator[Ack]:
    while (left := deadline - time.monotonic()) > 0:
        sock.settimeout(left)
        try:
            yield Ack.decode(*sock.recvfrom(2048))
        except TimeoutError:
            return


class ControlClient:
    """One control socket towards one device: commands, and on request the heartbeat of a connected client.

    Commands may come from several threads; one is on its way at a time. Request ids count from 1.
    """

    TRIES = 4

    def __init__(self, address: str, *, local: str = "127.0.0.1", timeout: float = 0.5) -> None:
        self.device = (address, PORT)
        self.timeout = timeout
        self.pending_acks = 0  # PENDING_ACK seen so far
        self._lock = threading.Lock()
        self._ids = itertools.cycle(range(1, 0x10000))
        self._connected = False
        self._beating = threading.Event()
        self._heart: threading.Thread | None = None
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind((local, 0))

    def __enter__(self) -> "ControlClient":
        return self

    def __exit__(self, *exception: object) -> None:
        with contextlib.suppress(GvcpError, TimeoutError):
            self.disconnect()
        self.close()

    @property
    def local(self) -> tuple[str, int]:
        host, port = self._socket.getsockname()
        return host, port

    def close(self) -> None:
        """Vanish without a word: no more heartbeat, no release of control."""
        self._connected = False
        self.stop_heartbeat()
        self._socket.close()

    # Raw traffic.

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

    # Commands.

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
            if ack.ack_id != request_id:
                continue  # late answer to a repeated command
            if ack.code == PENDING_ACK:
                self.pending_acks += 1
                reserved, milliseconds = struct.unpack(">HH", ack.payload)
                assert reserved == 0
                deadline = time.monotonic() + self.timeout + milliseconds / 1000
                continue
            assert ack.code == code + 1, f"command {code:#06x} was answered with {ack.code:#06x}"
            return ack
        return None

    def _checked(self, code: int, payload: bytes) -> bytes:
        ack = self.request(code, payload)
        if ack.status != SUCCESS:
            raise GvcpError(ack.status, code)
        return ack.payload

    def read_registers(self, *addresses: int) -> tuple[int, ...]:
        data = self._checked(READREG, struct.pack(f">{len(addresses)}I", *addresses))
        return struct.unpack(f">{len(addresses)}I", data)

    def read_register(self, address: int) -> int:
        return self.read_registers(address)[0]

    def write_registers(self, *pairs: tuple[int, int]) -> int:
        """Write in order; return the number written."""
        words = itertools.chain.from_iterable(pairs)
        data = self._checked(WRITEREG, struct.pack(f">{2 * len(pairs)}I", *words))
        return int(struct.unpack(">HH", data)[1])

    def write_register(self, address: int, value: int) -> None:
        assert self.write_registers((address, value)) == 1

    def read_memory(self, address: int, size: int) -> bytes:
        """`size` bytes, as many commands as that takes."""
        data = b""
        while len(data) < size:
            count = min(READMEM_MAX, (size - len(data) + 3) & ~3)
            part = self._checked(READMEM, struct.pack(">IHH", address + len(data), 0, count))
            echo, part = struct.unpack_from(">I", part)[0], part[4:]
            assert echo == address + len(data)
            assert len(part) == count
            data += part
        return data[:size]

    def write_memory(self, address: int, data: bytes) -> int:
        """Write in one command; return the number of bytes written."""
        return int(struct.unpack(">HH", self._checked(WRITEMEM, struct.pack(">I", address) + data))[1])

    # The life of a connection.

    def connect(self, privilege: int = CONTROL, *, beat: float | None = 0.2) -> "ControlClient":
        """Take control and keep it by a heartbeat every `beat` seconds; None for no heartbeat."""
        self.write_register(CCP, privilege)
        self._connected = True
        if beat is not None and self._heart is None:
            self._beating.set()
            self._heart = threading.Thread(target=self._beat, args=(beat,), daemon=True)
            self._heart.start()
        return self

    def _beat(self, interval: float) -> None:
        while self._beating.is_set():
            with contextlib.suppress(GvcpError, TimeoutError):
                self.read_register(CCP)
            time.sleep(interval)

    def stop_heartbeat(self) -> None:
        if self._heart:
            self._beating.clear()
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
        scheme, _, rest = url.partition(":")
        assert scheme.lower() == "local", url
        name, address, length = rest.split("?")[0].split(";")
        return name, self.read_memory(int(address, 16), int(length, 16))

    def request_resend(self, block: int, first: int, last: int, *, extended: bool = False) -> None:
        """Ask for packets `first` to `last`; they come on the stream, there is no acknowledge."""
        with self._lock:
            self.send_raw(resend_command(block, first, last, extended=extended, request_id=next(self._ids)))


def resend_command(block: int, first: int, last: int, *, extended: bool, request_id: int = 1) -> bytes:
    """A PACKETRESEND datagram for stream channel 0."""
    if extended:
        return command(PACKETRESEND, struct.pack(">HHIIQ", 0, 0, first, last, block), request_id, flags=0x10)
    return command(PACKETRESEND, struct.pack(">HHII", 0, block, first, last), request_id, flags=0)


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
        assert key == KEY
        assert code in (EVENT, EVENTDATA)
        assert length == len(datagram) - 8
        assert flags & ~0x11 == 0
        assert request_id != 0
        extended = bool(flags & 0x10)
        if extended:
            size, number, channel, reserved, block, timestamp = struct.unpack_from(">HHHHQQ", datagram, 8)
            assert (size, reserved) == (length, 0)
        else:
            reserved, number, channel, block, timestamp = struct.unpack_from(">HHHHQ", datagram, 8)
            assert reserved == 0
        data = datagram[32 if extended else 24 :]
        assert bool(data) == (code == EVENTDATA)
        wants_ack = bool(flags & ACK_REQUESTED)
        return cls(
            code, request_id, wants_ack, extended, number, channel, block, timestamp, data, datagram, source
        )


class EventReceiver:
    """A socket that events come to. Acknowledges those that want it, unless `silent`."""

    def __init__(self, local: str = "127.0.0.1", *, silent: bool = False) -> None:
        self.silent = silent
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)
        self._socket.bind((local, 0))

    def __enter__(self) -> "EventReceiver":
        return self

    def __exit__(self, *exception: object) -> None:
        self._socket.close()

    @property
    def endpoint(self) -> tuple[str, int]:
        host, port = self._socket.getsockname()
        return host, port

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

    def acknowledge(self, event: Event, **changes: int) -> None:
        """Send the acknowledge; `changes` replace its fields ``status``, ``code`` and ``request_id``."""
        fields = {"status": SUCCESS, "code": event.code + 1, "request_id": event.request_id} | changes
        ack = struct.pack(">HHHH", fields["status"], fields["code"], 0, fields["request_id"])
        self._socket.sendto(ack, event.source)

    def open_channel(self, client: ControlClient, *, timeout_ms: int = 0, retries: int = 0) -> None:
        """Let the camera that `client` controls send its events here."""
        address, port = self.endpoint
        client.write_registers(
            (MCTT, timeout_ms),
            (MCRC, retries),
            (MCDA, int.from_bytes(socket.inet_aton(address), "big")),
            (MCP, port),
        )

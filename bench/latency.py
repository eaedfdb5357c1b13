#!/usr/bin/env python3
"""How long a camera takes: from call to first packet, to the image's release, from request to resent packet.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/latency.py``.

Packets are timed where they come, by the kernel's time stamps, so that nobody's waking up counts. Figures
are in us, median and slowest hundredth; each block of rows begins with what it is compared with.

- First packet: from the Python call to the leader, for a small image without a limit and for one of 2 MB
  under a limit of 1 Gbit/s, without a resend store and with one; beside a plain `send` of a Python socket in
  the same process.
- Release: from the last packet to the call of `released`, without a store; negative when the camera needs
  the image no more before that. With a store, from the call that pushes the image out, whose own image may be
  on the wire meanwhile. Beside the time in which a Python thread wakes that waits for a pipe.
- Resend: from a request for one packet to that packet, idle and beside a stream of 2048 x 2048 pixels, 20
  images per second in packets of 1500 bytes under the same limit; beside a bare UDP echo
  (``bench/udp_echo.cpp``).
- Flood: 200 requests of one packet each at once: how many are served, the first after how long, and how many
  in a millisecond from then on; beside the echo of as many datagrams.
- Command: a register read, without a stream and beside one of 4 MiB images as fast as the camera may, over
  a virtual cable between two hosts that a shaper keeps to 1 Gbit/s; with the limit that the camera chooses
  (such a cable tells 10 Gbit/s) and with that it chooses on a link that tells the truth; beside the bare
  echo on the camera's host, whose answers take the same way. The camera sends no trains into a shaper.
"""

import argparse
import contextlib
import itertools
import os
import socket
import statistics
import struct
import threading
import time
from collections.abc import Callable, Iterator

from camera import OWN_LIMIT, Camera, Sending, beats, nothing, send_in_step
from programs import LOOPBACK, Program, silent_socket
from silent_link import open_cable

import tarn
from gvcp_client import PORT, READREG, SCCFG, SCPS, command, resend_command

SMALL, LARGE, LIVE = (64, 64), (1600, 1250), (2048, 2048)
LIMIT = 125_000_000  # bytes per second
DEPTH = 8
TURN = 8  # images that are sent before the receiver looks
SEND_RATE = 40  # images per second, far below the limit
REQUEST_RATE = 500  # per second
LIVE_RATE = 20  # images per second
ENDLESS = 1_000_000  # images
SETTLE = 0.15  # seconds
LIVE_PACKETS = 2_800  # some less than an image of the stream has
FLOOD = 200
CABLE_RATE = "1gbit"
CABLE_LIMITS = {"own limit": OWN_LIMIT, "95 % of the link": 118_750_000}  # bytes per second
CABLE_NUMBER = 7  # of the camera on the cable
ADDRESSES = (f"127.88.0.{number}" for number in itertools.count(20))
RECEIVE_BUFFER = 32 << 20  # bytes
SO_RCVBUFFORCE, SO_TIMESTAMPNS = 33, 35  # Source: Linux, asm-generic/socket.h
LEADER, TRAILER = 1, 2  # packet formats of GVSP
TO_REQUESTER = 1 << 3  # resent packets go to whoever asks, bit 28 of the channel's configuration
Endpoint = tuple[str, int]
Answer = tuple[bytes, int]  # first bytes, time stamp in ns


def now() -> int:
    """By the clock of the time stamps."""
    return time.clock_gettime_ns(time.CLOCK_REALTIME)


class StampedSocket:
    """A UDP socket that knows when the kernel had each datagram."""

    def __init__(self, address: str = LOOPBACK) -> None:
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind((address, 0))
        self.socket.setsockopt(socket.SOL_SOCKET, SO_TIMESTAMPNS, 1)
        try:
            self.socket.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, RECEIVE_BUFFER)
        except PermissionError:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER)

    @property
    def port(self) -> int:
        return self.socket.getsockname()[1]

    def receive(self, timeout: float) -> Answer | None:
        self.socket.settimeout(timeout)
        try:
            data, ((_, _, stamp), *_), _, _ = self.socket.recvmsg(64, 64)
        except TimeoutError:
            return None
        seconds, nanoseconds = struct.unpack("qq", stamp)
        return data, seconds * 1_000_000_000 + nanoseconds

    def all(self, timeout: float) -> list[Answer]:
        """Until nothing comes for that time."""
        return list(iter(lambda: self.receive(timeout), None))


# Run in the camera's process.

_releases: list[int] = []  # when images were released


def _note_release(image: tarn.Image) -> None:
    _releases.append(now())


def send_and_note(sending: Sending, count: int) -> tuple[list[int], list[int]]:
    """When each call began, and when images were released meanwhile."""
    (image,) = sending.images
    _releases.clear()
    calls = []
    for _ in beats(SEND_RATE, count / SEND_RATE):
        calls.append(now())
        send_in_step(sending.stream, image, _note_release)
    time.sleep(SETTLE)  # for the last one under the limit
    return calls, list(_releases)


def send_bare(sending: Sending, count: int, port: int) -> list[int]:
    """When each call of a plain socket began."""
    calls = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.connect((LOOPBACK, port))
        for _ in beats(SEND_RATE, count / SEND_RATE):
            calls.append(now())
            sock.send(b"x")
    return calls


def wake(sending: Sending, count: int) -> list[float]:
    """Microseconds in which a thread wakes that waits for a pipe."""
    source, sink = os.pipe()
    woken = []

    def wait() -> None:
        while os.read(source, 1):
            woken.append(now())

    thread = threading.Thread(target=wait)
    thread.start()
    begun = []
    for _ in beats(SEND_RATE, count / SEND_RATE):
        begun.append(now())
        os.write(sink, b"x")
    os.close(sink)
    thread.join()
    os.close(source)
    return differences(begun, woken)


def send_live(sending: Sending, frames: int) -> None:
    """Images at the rate of the stream, so many or until told."""
    (image,) = sending.images
    first = sending.newest + 1
    for number, _ in enumerate(beats(LIVE_RATE, frames / LIVE_RATE)):
        if sending.told_to_end():
            return
        send_in_step(sending.stream, image, _note_release)
        sending.note_newest(first + number)


def send_at_full_rate(sending: Sending) -> None:
    """Until told."""
    (image,) = sending.images
    while not sending.told_to_end():
        send_in_step(sending.stream, image, nothing)


def queue_full(sending: Sending) -> int:
    """Times that the stream found the link's queue full."""
    return sending.server.node_map.DeviceStreamQueueFull.value


# Run here.


def differences(begin: list[int], end: list[int]) -> list[float]:
    """In microseconds."""
    return [(late - early) / 1e3 for early, late in zip(begin, end, strict=True)]


class Table:
    """Prints rows; the first of a block is what the others are compared with."""

    def __init__(self) -> None:
        self._base: tuple[float, float] | None = None
        print(f"{'':<48}{'median us':>10}{'ratio':>8}{'99 % us':>10}{'ratio':>8}")

    def begin(self) -> None:
        self._base = None
        print()

    def row(self, name: str, microseconds: list[float], remark: str = "") -> None:
        if len(microseconds) < 2:
            print(f"{name:<48}{'nothing came':>36}{remark}", flush=True)
            return
        found = statistics.median(microseconds), statistics.quantiles(microseconds, n=100)[98]
        self._base = self._base or found
        cells = (f"{value:>10.1f}{value / base:>8.2f}" for value, base in zip(found, self._base, strict=True))
        print(f"{name:<48}{''.join(cells)}{remark}", flush=True)


def frames_of(packets: list[Answer]) -> tuple[list[int], list[int]]:
    """Time stamps of leaders and of trailers."""
    stamps: dict[int, list[int]] = {LEADER: [], TRAILER: []}
    for data, stamp in packets:
        if (kind := data[4] & 0x7F) in stamps:
            stamps[kind].append(stamp)
    return stamps[LEADER], stamps[TRAILER]


def send_and_receive(camera: Camera, sink: StampedSocket, rounds: int) -> tuple[list[float], list[float]]:
    """First packets and releases, in microseconds."""
    first, release = [], []
    for number in range(rounds + 1):
        calls, releases = camera.run(send_and_note, TURN)
        leaders, trailers = frames_of(sink.all(0.1))
        if number == 0 or not len(leaders) == len(trailers) == TURN:
            continue  # warming up, and filling the store; or the receiver was too slow
        first += differences(calls, leaders)
        if camera.resend:
            causes = [max(call for call in calls if call <= time) for time in releases]
            release += differences(causes, releases)
        else:
            release += differences(trailers, releases)
    return first, release


def sending_latency(table: Table, rounds: int) -> None:
    first: dict[str, list[float]] = {}
    release: dict[str, list[float]] = {}
    for (what, size, limit), (store, depth) in itertools.product(
        (("4 KiB, no limit", SMALL, None), ("2 MB, 1 Gbit/s", LARGE, LIMIT)),
        (("no store", 0), (f"store of {DEPTH}", DEPTH)),
    ):
        sink = StampedSocket()
        camera = Camera(next(ADDRESSES), sink.port, size=size, resend=depth, limit=limit)
        if not first:
            calls = camera.run(send_bare, TURN * rounds, sink.port)
            first["plain socket"] = differences(calls, [stamp for _, stamp in sink.all(0.1)])
            release["thread that waits for a pipe"] = camera.run(wake, TURN * rounds)
        row = f"{what}, {store}"
        first[row], release[row] = send_and_receive(camera, sink, rounds)
        camera.end()
        sink.socket.close()
    for kind, rows in (("first packet", first), ("release", release)):
        table.begin()
        for name, times in rows.items():
            table.row(f"{kind}: {name}", times)


class Asker:
    """Asks a camera or the echo, each time with another number, from a socket of its own."""

    def __init__(self, target: Endpoint, request: Callable[[int], bytes], local: str = LOOPBACK) -> None:
        self._target = target
        self._request = request
        self._numbers = itertools.count()
        self._stamped = StampedSocket(local)

    def ask(self, seconds: float) -> tuple[list[float], int]:
        """One after the other: how long each took, in microseconds, and how many were not served."""
        times, unserved = [], 0
        for _ in beats(REQUEST_RATE, seconds):
            begin = now()
            self._send()
            answer = self._stamped.receive(0.05)
            if answer and served(answer):
                times.append((answer[1] - begin) / 1e3)
            else:
                unserved += 1
        self._stamped.all(0.05)
        return times, unserved

    def flood(self) -> tuple[int, float, float]:
        """Served of FLOOD at once; microseconds to the first; served in a millisecond from then on."""
        begin = now()
        for _ in range(FLOOD):
            self._send()
        stamps = [answer[1] for answer in self._stamped.all(0.1) if served(answer)]
        if len(stamps) < 2:
            return len(stamps), float("nan"), float("nan")
        return len(stamps), (stamps[0] - begin) / 1e3, (len(stamps) - 1) / (stamps[-1] - stamps[0]) * 1e6

    def close(self) -> None:
        self._stamped.socket.close()

    def _send(self) -> None:
        self._stamped.socket.sendto(self._request(next(self._numbers)), self._target)


def served(answer: Answer) -> bool:
    """Whether it is what was asked for and no refusal."""
    return answer[0][:2] == b"\0\0"


@contextlib.contextmanager
def askers(camera: Camera) -> Iterator[dict[str, Asker]]:
    echo = Program("udp_echo", LOOPBACK)

    def request(number: int) -> bytes:
        # The newest block may still be on its way.
        number, block = 1 + number % LIVE_PACKETS, camera.newest - 1
        return resend_command(block, number, number, extended=False, request_id=1 + number % 0xFFFF)

    both = {
        "echo": Asker((LOOPBACK, int(echo.read()[0])), lambda number: bytes(20)),
        "resend": Asker((camera.address, PORT), request),
    }
    try:
        yield both
    finally:
        for asker in both.values():
            asker.close()
        echo.end()


@contextlib.contextmanager
def load(camera: Camera, what: str) -> Iterator[None]:
    """The camera streams, or is idle and has new images to ask for: a packet is resent a few times only."""
    if what == "idle":
        camera.run(send_live, 3)
        time.sleep(SETTLE)
        yield
        return
    with camera.running(send_live, ENDLESS):
        time.sleep(SETTLE)
        yield


def resend_latency(table: Table, rounds: int, seconds: float) -> None:
    with silent_socket() as sink:
        camera = Camera(next(ADDRESSES), sink.getsockname()[1], size=LIVE, resend=DEPTH, limit=LIMIT)
        camera.client.write_register(SCCFG, TO_REQUESTER)
        with askers(camera) as both:
            asked: dict[str, list[tuple[list[float], int]]] = {}
            floods: dict[str, list[tuple[int, float, float]]] = {}
            for _ in range(rounds):
                for what, (name, asker) in itertools.product(("idle", "streaming"), both.items()):
                    with load(camera, what):
                        asked.setdefault(f"{name}, {what}", []).append(asker.ask(seconds))
                        floods.setdefault(f"{name}, {what}", []).append(asker.flood())
        camera.end()
    report_asked(table, asked)
    report_floods(floods)


def report_asked(table: Table, asked: dict[str, list[tuple[list[float], int]]]) -> None:
    table.begin()
    for row, results in asked.items():
        times = list(itertools.chain.from_iterable(times for times, _ in results))
        unserved = sum(count for _, count in results)
        table.row(row, times, f"{unserved:>5} of {unserved + len(times)} not served")


def report_floods(floods: dict[str, list[tuple[int, float, float]]]) -> None:
    print(f"\n{f'flood of {FLOOD} at once':<48}{'served':>8}{'first us':>10}{'per ms':>8}{'ratio':>8}")
    base = None
    for row, results in floods.items():
        count, first, rate = map(statistics.median, zip(*results, strict=True))
        base = base or rate
        print(f"{row:<48}{count:>8.0f}{first:>10.1f}{rate:>8.1f}{rate / base:>8.2f}", flush=True)


def read_register(number: int) -> bytes:
    return command(READREG, struct.pack(">I", SCPS), request_id=1 + number % 0xFFFF)


def command_latency(table: Table, rounds: int, seconds: float) -> None:
    """Moves this process to a network of its own."""
    cable = open_cable(CABLE_RATE)
    address = cable.camera_address(CABLE_NUMBER)
    echo = Program("udp_echo", address)
    with cable.at_the_client():
        sink = silent_socket(cable.destination)
        both = {
            "echo": Asker((address, int(echo.read()[0])), lambda number: bytes(20), cable.destination),
            "register read": Asker((address, PORT), read_register, cable.destination),
        }
    for limit_name, limit in CABLE_LIMITS.items():
        camera = Camera(address, sink.getsockname()[1], link=cable, size=LIVE, resend=DEPTH, limit=limit)
        asked: dict[str, list[tuple[list[float], int]]] = {}
        carried, took = 0, 0.0
        for _, what, (name, asker) in itertools.product(range(rounds), ("alone", "streaming"), both.items()):
            with camera.running(send_at_full_rate) if what == "streaming" else contextlib.nullcontext():
                time.sleep(2 * SETTLE)  # images that were waiting need most of that on this link
                begin, before = time.perf_counter(), cable.udp_payload()
                asked.setdefault(f"{name}, {limit_name}, {what}", []).append(asker.ask(seconds))
                if what == "streaming":
                    carried += cable.udp_payload() - before
                    took += time.perf_counter() - begin
        found_full = camera.run(queue_full)
        camera.end()
        report_asked(table, asked)
        print(f"the stream had {carried / took / 1e6:.0f} MB/s and found the queue full {found_full} times")
    for asker in both.values():
        asker.close()
    echo.end()
    sink.close()


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--seconds", type=float, default=0.5, help="of requests in a turn")
    parser.add_argument("--only", choices=("sending", "resend", "command"), help="one part of it")
    options = parser.parse_args()
    Program.build("udp_echo")
    table = Table()
    if options.only in (None, "sending"):
        sending_latency(table, options.rounds)
    if options.only in (None, "resend"):
        resend_latency(table, options.rounds, options.seconds)
    if options.only in (None, "command"):
        command_latency(table, options.rounds, options.seconds)


if __name__ == "__main__":
    main()

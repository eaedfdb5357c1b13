#!/usr/bin/env python3
"""Many cameras in one process, and a camera in a program with an event loop.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/many.py``.

The cameras of a row are one process, with settings as they come but for what the row says; each has a thread
that sends by a clock, all at different moments, and leaves an image out that is late by a whole period. One
receiver counts for all (``bench/drain.cpp``). For each row: images that were due, of them sent and received
whole in a hundred, the CPU time of the sending process in per cent of a core, and beside it what a bare loop
needs for the same datagrams (``bench/bare_sender.cpp``); the longest that `send` took. Medians of the rounds.

The program with an event loop sends 60 images of 1280 x 1024 pixels per second under a limit of 1 Gbit/s
from a coroutine, while another sleeps for 1 ms again and again: how late that wakes, in ms, without images
and with.
"""

import argparse
import asyncio
import contextlib
import dataclasses
import multiprocessing
import statistics
import threading
import time
from collections.abc import Iterator
from multiprocessing.connection import Connection

from camera import Camera, Sending, address_word, beats, image_of, nothing, wait_running
from programs import LOOPBACK, BareSender, Program

import tarn
from features import Features
from gvcp_client import HEARTBEAT_TIMEOUT, SCDA, SCP, SCPS, ControlClient
from tarn.gevserver import Server

RECEIVE_BUFFER = 64 << 20  # bytes
LASTING = 3_600_000  # ms
LOOP_SIZE, LOOP_RATE, LOOP_LIMIT = (1280, 1024), 60, 125_000_000
LOOP_CAMERA = "127.88.1.1"
LOOP_SLEEP = 0.001  # seconds


@dataclasses.dataclass(frozen=True)
class Fleet:
    """Cameras that stream at once."""

    count: int
    size: tuple[int, int]
    rate: int  # images per second, of each
    resend: int | None  # depth of the store; None: as it comes

    @property
    def image_bytes(self) -> int:
        width, height = self.size
        return width * height

    @property
    def addresses(self) -> list[str]:
        return [f"127.88.2.{number}" for number in range(1, self.count + 1)]

    def __str__(self) -> str:
        width, height = self.size
        store = "" if self.resend is None else f", store {self.resend}"
        return f"{self.count} cameras {width}x{height} {self.rate}/s{store}"


FLEETS = (
    Fleet(16, (640, 480), 30, None),
    Fleet(128, (640, 480), 4, None),
    Fleet(8, (1280, 1024), 30, 0),
)
Turn = tuple[int, int, float, float, float]  # due, sent, CPU and wall seconds, longest send in ms


# Run in the process of the cameras.


class Feed(threading.Thread):
    """Sends by a clock to one camera."""

    def __init__(self, server: Server, image: tarn.Image, fleet: Fleet, number: int, seconds: float) -> None:
        super().__init__()
        self._server = server
        self._image = image
        self._rate = fleet.rate
        self._offset = number / fleet.count / fleet.rate  # no two at the same moment
        self._seconds = seconds
        self.due = 0
        self.sent = 0
        self.longest = 0.0  # seconds

    def run(self) -> None:
        send = self._server.stream.send
        time.sleep(self._offset)
        for late in beats(self._rate, self._seconds):
            self.due += 1
            if late > 1 / self._rate:
                continue
            begin = time.perf_counter()
            with contextlib.suppress(RuntimeError):
                send(self._image, nothing)
                self.sent += 1
            self.longest = max(self.longest, time.perf_counter() - begin)


def stream(servers: list[Server], image: tarn.Image, fleet: Fleet, seconds: float) -> Turn:
    feeds = [Feed(server, image, fleet, number, seconds) for number, server in enumerate(servers)]
    wall, cpu = time.perf_counter(), time.process_time()
    for feed in feeds:
        feed.start()
    for feed in feeds:
        feed.join()
    cpu, wall = time.process_time() - cpu, time.perf_counter() - wall
    due, sent = sum(feed.due for feed in feeds), sum(feed.sent for feed in feeds)
    return due, sent, cpu, wall, max(feed.longest for feed in feeds) * 1e3


def serve(pipe: Connection, fleet: Fleet) -> None:
    servers = []
    for address in fleet.addresses:
        server = Server.create_with_const_size_pfnc(tarn.Size2D(*fleet.size), tarn.PfncFormat.Mono8)
        if fleet.resend is not None:
            server.stream.resend_buffers_count = fleet.resend
        server.start(address)
        servers.append(server)
    pipe.send(servers[0].stream.resend_buffers_count)
    image = image_of(fleet.size)
    while seconds := pipe.recv():
        for server in servers:
            wait_running(server)
        pipe.send(stream(servers, image, fleet, seconds))
    for server in servers:
        server.stop()


async def _sleeper(late: list[float]) -> None:
    while True:
        begin = time.perf_counter()
        await asyncio.sleep(LOOP_SLEEP)
        late.append(time.perf_counter() - begin - LOOP_SLEEP)


async def _sender(sending: Sending, rate: float, seconds: float) -> int:
    """Returns how many were sent."""
    (image,) = sending.images
    begin, sent = time.perf_counter(), 0
    for number in range(round(rate * seconds)):
        await asyncio.sleep(max(0, begin + number / rate - time.perf_counter()))
        with contextlib.suppress(RuntimeError):
            sending.stream.send(image, nothing)
            sent += 1
    return sent


async def _loop(sending: Sending, rate: float, seconds: float) -> tuple[int, list[float]]:
    late: list[float] = []
    sleeper = asyncio.create_task(_sleeper(late))
    if rate:
        sent = await _sender(sending, rate, seconds)
    else:
        sent = 0
        await asyncio.sleep(seconds)
    sleeper.cancel()
    return sent, late


def event_loop(sending: Sending, rate: float, seconds: float) -> tuple[int, float, float]:
    """Images sent; how late the loop was, median and slowest hundredth, in ms."""
    sent, late = asyncio.run(_loop(sending, rate, seconds))
    return sent, statistics.median(late) * 1e3, statistics.quantiles(late, n=100)[98] * 1e3


# Run here.


@contextlib.contextmanager
def streaming_clients(fleet: Fleet, port: int) -> Iterator[int]:
    """A client for each camera; gives the size of the packets."""
    with contextlib.ExitStack() as stack:
        for address in fleet.addresses:
            client = stack.enter_context(ControlClient(address))
            client.connect(beat=None)  # 128 hearts would need time of their own
            client.write_register(HEARTBEAT_TIMEOUT, LASTING)
            client.write_registers((SCDA, address_word(LOOPBACK)), (SCP, port))
            Features(client).execute("AcquisitionStart")
            packet_size = client.read_register(SCPS) & 0xFFFF
        yield packet_size


def bare_cost(fleet: Fleet, packet_size: int, port: int) -> float:
    """CPU seconds of an image."""
    frames = 2 + (64 << 20) // fleet.image_bytes
    sender = BareSender("Socket", packet_size, fleet.image_bytes, port)
    sender.send(2)
    cost = statistics.median(sender.send(frames)[0] / frames for _ in range(5))
    sender.end()
    return cost


def measure(fleet: Fleet, rounds: int, seconds: float) -> str:
    drain = Program("drain", LOOPBACK, RECEIVE_BUFFER)
    port = int(drain.read()[0])
    pipe, theirs = multiprocessing.Pipe()
    process = multiprocessing.get_context("spawn").Process(target=serve, args=(theirs, fleet), daemon=True)
    process.start()
    depth = pipe.recv()
    turns: list[tuple[float, ...]] = []
    with streaming_clients(fleet, port) as packet_size:
        bare = bare_cost(fleet, packet_size, port)
        drain.ask()
        for _ in range(rounds):
            pipe.send(seconds)
            due, sent, cpu, wall, longest = pipe.recv()
            whole = drain.ask()[1]
            of_core = 100 * cpu / wall, 100 * bare * sent / wall
            turns.append(
                (due, 100 * sent / due, 100 * whole / due, *of_core, of_core[0] / of_core[1], longest)
            )
    pipe.send(None)
    process.join()
    drain.end()
    due, sent, whole, cpu, least, ratio, longest = map(statistics.median, zip(*turns, strict=True))
    row = f"{fleet!s:<36}{depth:>6}{packet_size:>7}{due:>7.0f}{sent:>7.1f}{whole:>7.1f}"
    return f"{row}{cpu:>8.1f}{least:>7.1f}{ratio:>7.2f}{longest:>9.2f}"


def measure_loop(rounds: int, seconds: float) -> None:
    drain = Program("drain", LOOPBACK, RECEIVE_BUFFER)
    camera = Camera(LOOP_CAMERA, int(drain.read()[0]), size=LOOP_SIZE, limit=LOOP_LIMIT)
    turns = []
    for _ in range(rounds):
        _, idle, idle_slow = camera.run(event_loop, 0, seconds)
        drain.ask()
        sent, late, slow = camera.run(event_loop, LOOP_RATE, seconds)
        due, whole = round(LOOP_RATE * seconds), drain.ask()[1]
        turns.append((due, 100 * sent / due, 100 * whole / due, idle, late, idle_slow, slow))
    camera.end()
    drain.end()
    due, *cells, idle_slow, slow = map(statistics.median, zip(*turns, strict=True))
    row = "".join(f"{cell:>9.2f}" for cell in (*cells, idle_slow, slow))
    print(f"{'event loop, 60/s':<36}{due:>6.0f}{row}{slow / idle_slow:>9.2f}", flush=True)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=float, default=3.0, help="length of a turn")
    parser.add_argument(
        "--only", default="", help="rows with these words, as in --only '16 cameras', or 'loop'"
    )
    options = parser.parse_args()
    Program.build("bare_sender", "drain")
    words = set(options.only.split())
    chosen = [fleet for fleet in FLEETS if words <= set(str(fleet).split())]
    if chosen:
        print(f"{'':<49}images, % of those due    % of a core          send")
        print(f"{'':<36} store packet    due   sent  whole    ours   bare  ratio   max ms")
    for fleet in chosen:
        print(measure(fleet, options.rounds, options.seconds), flush=True)
    if words <= {"event", "loop"}:
        print(f"{'':<42}images, % of those due   late, ms: median    slowest hundredth")
        print(f"{'':<36}   due     sent    whole     idle  sending     idle  sending    ratio")
        measure_loop(options.rounds, options.seconds)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""What a stream that keeps to a rate costs, how evenly its packets leave, and what the program notices of it.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/pacing.py``.

A camera sends images by a clock, nine tenths of what its limit lets through: limits of 1, 2.5 and 10 Gbit/s,
and a packet delay of 90 us. For each, medians of the rounds:

- CPU time of the sending process, in per cent of a core, beside what a bare loop needs for the same datagrams
  as fast as it can (``bench/bare_sender.cpp``), for as many images, and the ratio;
- the rate from the first to the last packet of a frame, as a part of the limit; 1.00 is ideal;
- gaps between neighbouring packets of a frame at the receiver (``bench/gap_counter.cpp``), by the
  kernel's time stamps, in us. Ideal is a packet's share of the limit. Packets of a train have the same stamp;
- packets that the receiver missed, and images that `send` refused, in a hundred;
- the longest that `send` took, in ms;
- how late another thread of the program woke that sleeps for 1 ms again and again: its slowest hundredth and
  its latest, and the latest beside no stream; in ms.

On a silent link (``bench/silent_link.py``) there is no receiver, and CPU time is the sender's alone.
"""

import argparse
import contextlib
import dataclasses
import itertools
import statistics
import threading
import time
from collections.abc import Iterator

from camera import DRIVERS, IMAGES, Camera, Sending, beats, nothing
from programs import LOOPBACK, BareSender, Program
from silent_link import NOBODY, Link, add_link_option, open_link

PACKETS = (1500, 9000)
LOAD = 0.9  # of the limit
SLEEP = 0.001  # seconds
RECEIVE_BUFFER = 32 << 20  # bytes
NUMBER = 6  # of the camera on the link
DEPTHS = {"off": 0, "on": 8}
HEADING = (
    f"{'':<33}    % of a core   rate/      gaps in a frame, us            lost refused   send"
    "   thread late, ms",
    f"{'limit       packet driver resend':<33}  ours  bare ratio  limit  ideal median    99 %     max     %"
    "      % max ms   99 %   max alone",
)


@dataclasses.dataclass(frozen=True)
class Row:
    """How a camera streams.

    Parameters
    ----------
    name : str
        Of the limit.
    limit : int or None
        In bytes per second.
    delay : int
        From packet to packet, in nanoseconds.
    """

    name: str
    image: str
    limit: int | None
    delay: int
    packet_size: int
    driver: str
    resend: str

    @property
    def gap(self) -> float:
        """Ideal, in seconds."""
        return self.delay / 1e9 if self.limit is None else self.packet_size / self.limit

    @property
    def rate(self) -> float:
        """Bytes of IP packets per second that the limit lets through."""
        return self.packet_size / self.gap

    @property
    def image_bytes(self) -> int:
        width, height = IMAGES[self.image]
        return width * height

    @property
    def frames_per_second(self) -> float:
        return LOAD * self.rate / (self.image_bytes * self.packet_size / (self.packet_size - 36))

    def __str__(self) -> str:
        return f"{self.name:<12}{self.packet_size:>6} {self.driver:<6} {self.resend:<3}"


LIMITS = (
    ("1Gbit", "4 MiB", 125_000_000, 0),
    ("2.5Gbit", "4 MiB", 312_500_000, 0),
    ("10Gbit", "4 MiB", 1_250_000_000, 0),
    ("90us", "300 KiB", None, 90_000),
)


@dataclasses.dataclass(frozen=True)
class Told:
    """What the camera's program saw in one turn."""

    cpu: float  # per cent of a core
    sent: float  # images per second
    refused: float  # of a hundred images
    longest_send: float  # ms
    late: tuple[float, float]  # the other thread: slowest hundredth and latest, ms


@contextlib.contextmanager
def sleeper() -> Iterator[list[float]]:
    """Another thread of the program sleeps again and again; gives a list of how late it woke, in seconds."""
    ended = threading.Event()
    late: list[float] = []

    def run() -> None:
        while not ended.is_set():
            begin = time.perf_counter()
            time.sleep(SLEEP)
            late.append(time.perf_counter() - begin - SLEEP)

    thread = threading.Thread(target=run)
    thread.start()
    yield late
    ended.set()
    thread.join()


def slow_ones(seconds: list[float]) -> tuple[float, float]:
    """Slowest hundredth and longest, in ms."""
    return statistics.quantiles(seconds, n=100)[98] * 1e3, max(seconds) * 1e3


def idle(sending: Sending, seconds: float) -> tuple[float, float]:
    with sleeper() as late:
        time.sleep(seconds)
    return slow_ones(late)


def stream(sending: Sending, frames_per_second: float, seconds: float) -> Told:
    send, (image,) = sending.stream.send, sending.images
    times: list[float] = []
    refused = 0
    with sleeper() as late:
        wall, cpu = time.perf_counter(), time.process_time()
        for _ in beats(frames_per_second, seconds):
            begin = time.perf_counter()
            try:
                send(image, nothing)
            except RuntimeError:
                refused += 1
            times.append(time.perf_counter() - begin)
        used, took = time.process_time() - cpu, time.perf_counter() - wall
    sent = (len(times) - refused) / took
    return Told(100 * used / took, sent, 100 * refused / len(times), max(times) * 1e3, slow_ones(late))


def bare_cost(row: Row, link: Link, port: int) -> float:
    """CPU seconds of a frame."""
    frames = 2 + (64 << 20) // row.image_bytes
    sender = BareSender(row.driver, row.packet_size, row.image_bytes, port, destination=link.destination)
    sender.send(2)
    cost = statistics.median(sender.send(frames)[0] / frames for _ in range(5))
    sender.end()
    return cost


def median(values: Iterator[float]) -> float:
    return statistics.median(values)


def measure(row: Row, link: Link, rounds: int, seconds: float) -> str:
    counter = None if link.silent else Program("gap_counter", LOOPBACK, RECEIVE_BUFFER)
    port = int(counter.read()[0]) if counter else NOBODY
    bare = bare_cost(row, link, port)
    camera = Camera(
        link.camera_address(NUMBER),
        port,
        link=link,
        driver=row.driver,
        packet_size=row.packet_size,
        size=IMAGES[row.image],
        resend=DEPTHS[row.resend],
        limit=row.limit,
        packet_delay=row.delay,
    )
    camera.run(stream, row.frames_per_second, 0.1)
    told, alone, received = [], [], []
    for _ in range(rounds):
        alone.append(camera.run(idle, seconds / 2)[1])
        if counter:
            counter.ask()
        told.append(camera.run(stream, row.frames_per_second, seconds))
        if counter:
            received.append(counter.ask())
    camera.end()
    if counter:
        counter.end()
    return report(row, bare, told, statistics.median(alone), received)


def report(row: Row, bare: float, told: list[Told], alone: float, received: list[list[float]]) -> str:
    ours = median(each.cpu for each in told)
    least = median(100 * bare * each.sent for each in told)
    cpu = f"{ours:6.1f}{least:6.1f}{ours / least if least else float('nan'):6.2f}"
    gaps = f"{'-':>8}{row.gap * 1e6:7.1f}{'-':>7}{'-':>8}{'-':>8}{'-':>6}"
    if received:
        packets, missing, _, *times, rate = map(statistics.median, zip(*received, strict=True))
        lost = 100 * missing / (packets + missing) if packets else 100.0
        middle, slow, longest = times
        gaps = f"{rate / row.rate:8.2f}{row.gap * 1e6:7.1f}{middle:7.1f}{slow:8.1f}{longest:8.0f}{lost:6.1f}"
    refused = median(each.refused for each in told)
    longest_send = median(each.longest_send for each in told)
    slow, latest = (median(each.late[part] for each in told) for part in range(2))
    return f"{row!s:<33}{cpu}{gaps}{refused:7.1f}{longest_send:7.2f}{slow:7.2f}{latest:6.2f}{alone:6.2f}"


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=float, default=1.0, help="length of a turn")
    parser.add_argument(
        "--only", default="", help="rows with these words, as in --only '1Gbit 1500 Filter off'"
    )
    add_link_option(parser)
    options = parser.parse_args()
    Program.build("bare_sender", "gap_counter")
    link = open_link(options.link)
    print(*HEADING, sep="\n")
    for limit, *rest in itertools.product(LIMITS, PACKETS, DRIVERS, DEPTHS):
        row = Row(*limit, *rest)
        if set(options.only.split()) <= set(str(row).split()):
            print(measure(row, link, options.rounds, options.seconds), flush=True)


if __name__ == "__main__":
    main()

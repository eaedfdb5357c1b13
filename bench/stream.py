#!/usr/bin/env python3
"""What it costs to send images through the Python call, beside a bare loop that sends the same datagrams.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/stream.py``.

Each row is a driver, packet size, image size and depth of the resend store. A bare loop in a process of its
own (``bench/bare_sender.cpp``: prepared datagrams, sendmmsg, for Filter with UDP_SEGMENT, nothing computed)
and a camera's ``stream.send`` in another send in turn, over loopback and without a limit of the rate:

* to a socket that nobody reads. The CPU time of the sending process, all its threads, then is the way
  through the stack and nothing else; figures are medians of the rounds, ratios medians of the rounds' ratios.
* to a receiver that counts. Its losses, in frames of a hundred, stand beside the bare loop's: both send as
  fast as they can, which is faster than one process reads. ``docs/performance.md`` has the losses at the rate
  that a camera keeps by default.
"""

import argparse
import dataclasses
import itertools
import statistics

from camera import IMAGES, Camera, Cost
from programs import LOOPBACK, BareSender, Program, silent_socket

CAMERA = "127.88.0.4"
PACKETS = (1500, 9000, 16000)
RECEIVE_BUFFER = 32 << 20
HEADING = (
    "                              bare GB     our GB   ratio   our CPU    our wall   frames lost %",
    "driver  packet    image resend  /CPU s     /CPU s          us/frame    us/frame   bare     ours",
)


@dataclasses.dataclass(frozen=True)
class Row:
    """What is measured."""

    driver: str
    packet_size: int
    image: str
    resend: int

    @property
    def size(self) -> tuple[int, int]:
        return IMAGES[self.image]

    @property
    def image_bytes(self) -> int:
        return self.size[0] * self.size[1]

    def __str__(self) -> str:
        return f"{self.driver:<8}{self.packet_size:>6}{self.image:>9}{self.resend:>7}"


class Pair:
    """The bare loop and the camera, set up alike, with one sink."""

    def __init__(self, row: Row, port: int) -> None:
        self.bare = BareSender(row.driver, row.packet_size, row.image_bytes, port)
        self.camera = Camera(
            CAMERA, port, driver=row.driver, packet_size=row.packet_size, size=row.size, resend=row.resend
        )

    def __enter__(self) -> "Pair":
        return self

    def __exit__(self, *exception: object) -> None:
        self.bare.end()
        self.camera.end()


def costs(row: Row, rounds: int, seconds: float) -> tuple[list[Cost], list[Cost]]:
    """Per frame, of the bare loop and of the camera, a round of each in turn."""
    with silent_socket() as sink, Pair(row, sink.getsockname()[1]) as pair:
        trial = 2 + (1 << 20) // row.image_bytes
        pair.camera.send(trial)
        count = max(1, int(seconds * trial / pair.bare.send(trial)[1]))
        bare, ours = [], []
        for _ in range(rounds):
            for sender, of_sender in ((pair.bare, bare), (pair.camera, ours)):
                cpu, wall = sender.send(count)
                of_sender.append((cpu / count, wall / count))
        return bare, ours


def losses(row: Row, frames: int) -> tuple[float, float]:
    """Frames in a hundred that did not come whole, of the bare loop and of the camera."""
    drain = Program("drain", LOOPBACK, RECEIVE_BUFFER)
    lost = []
    with Pair(row, int(drain.read()[0])) as pair:
        for sender in (pair.bare, pair.camera):
            sender.send(frames)
            whole = drain.ask()[1]
            lost.append(100 * (1 - whole / frames))
    drain.end()
    return lost[0], lost[1]


def print_row(row: Row, bare: list[Cost], ours: list[Cost], lost: tuple[float, float]) -> None:
    ratio = statistics.median(b[0] / o[0] for b, o in zip(bare, ours, strict=True))
    gigabytes = [row.image_bytes / statistics.median(cpu for cpu, _ in costs) / 1e9 for costs in (bare, ours)]
    cpu, wall = (statistics.median(column) * 1e6 for column in zip(*ours, strict=True))
    print(
        f"{row}{gigabytes[0]:11.3f}{gigabytes[1]:11.3f}{ratio:8.3f}{cpu:12.2f}{wall:12.2f}"
        f"{lost[0]:9.1f}{lost[1]:9.1f}",
        flush=True,
    )


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--seconds", type=float, default=0.15, help="length of a round")
    parser.add_argument("--only", default="", help="rows with these words: --only 'Filter 1500'")
    options = parser.parse_args()
    Program.build("bare_sender", "drain")
    for line in HEADING:
        print(line)
    for parts in itertools.product(("Socket", "Filter"), PACKETS, IMAGES, (0, 8)):
        row = Row(*parts)
        if not set(options.only.split()) <= set(str(row).split()):
            continue
        bare, ours = costs(row, options.rounds, options.seconds)
        frames = max(20, (64 << 20) // row.image_bytes)
        print_row(row, bare, ours, losses(row, frames))


if __name__ == "__main__":
    main()

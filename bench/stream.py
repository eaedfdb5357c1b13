#!/usr/bin/env python3
"""What it costs to send images through the Python call, beside a bare loop that sends the same datagrams.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/stream.py``.

Three processes send the same image in turn, over loopback and without a limit of the rate: a bare loop
(``bench/bare_sender.cpp``: datagrams prepared once, sendmmsg, for Filter with UDP_SEGMENT, nothing computed),
a camera that keeps no images for resends, and one that keeps eight. The cameras send with
``stream.send(image, released)``.

First to a socket that nobody reads. The CPU time of the sending process, all its threads, is then the way
through the stack and nothing else. Times are medians of the rounds, ratios are those of CPU time, medians of
the rounds' ratios. Then to a receiver that counts the frames that come whole, still as fast as each can: the
losses, in frames of a hundred.
"""

import argparse
import dataclasses
import itertools
import statistics

from camera import IMAGES, Camera, Cost
from programs import LOOPBACK, BareSender, Program, silent_socket

DRIVERS = ("Socket", "Filter")
PACKETS = (1500, 9000, 16000)
DEPTH = 8
ADDRESSES = ("127.88.0.4", "127.88.0.5")
RECEIVE_BUFFER = 32 << 20  # bytes
LOSS_BYTES = 256 << 20
HEADING = (
    "                        MB per CPU second     ratio of CPU time  us of CPU / frame      frames lost, %",
    "driver packet   image   bare    off     on  off/bare on/bare on/off   bare    off     on  bare off on",
)


@dataclasses.dataclass(frozen=True)
class Row:
    """What is sent, and how."""

    driver: str
    packet_size: int
    image: str

    @property
    def image_bytes(self) -> int:
        width, height = IMAGES[self.image]
        return width * height

    def __str__(self) -> str:
        return f"{self.driver:<7}{self.packet_size:>6}{self.image:>8}"


class Senders:
    """The bare loop and the two cameras, set up alike, with one sink."""

    def __init__(self, row: Row, port: int) -> None:
        self.all: list[BareSender | Camera] = [BareSender(row.driver, row.packet_size, row.image_bytes, port)]
        options = {"driver": row.driver, "packet_size": row.packet_size, "size": IMAGES[row.image]}
        for address, resend in zip(ADDRESSES, (0, DEPTH), strict=True):
            self.all.append(Camera(address, port, resend=resend, **options))

    def __enter__(self) -> "list[BareSender | Camera]":
        return self.all

    def __exit__(self, *exception: object) -> None:
        for sender in self.all:
            sender.end()


def costs(row: Row, rounds: int, seconds: float) -> list[list[Cost]]:
    """CPU and wall seconds per frame: for each sender, of each round."""
    with silent_socket() as sink, Senders(row, sink.getsockname()[1]) as senders:
        trial = 2 + (4 << 20) // row.image_bytes
        count = max(2, int(seconds * trial / senders[0].send(trial)[1]))
        for sender in senders:
            sender.send(trial)
        of_rounds = [[sender.send(count) for sender in senders] for _ in range(rounds)]
    return [[(cpu / count, wall / count) for cpu, wall in column] for column in zip(*of_rounds, strict=True)]


def losses(row: Row) -> list[float]:
    """Frames in a hundred that did not come whole, for each sender."""
    frames = min(20_000, LOSS_BYTES // row.image_bytes)
    drain = Program("drain", LOOPBACK, RECEIVE_BUFFER)
    lost = []
    with Senders(row, int(drain.read()[0])) as senders:
        for sender in senders:
            sender.send(frames)
            whole = drain.ask()[1]
            lost.append(100 * (1 - whole / frames))
    drain.end()
    return lost


def ratio(fast: list[Cost], slow: list[Cost]) -> float:
    """Of what the second achieves in a CPU second to what the first does."""
    return statistics.median(one[0] / other[0] for one, other in zip(fast, slow, strict=True))


def report(row: Row, measured: list[list[Cost]], lost: list[float]) -> str:
    bare, off, on = measured
    cpu = [statistics.median(cpu for cpu, _ in column) for column in measured]
    rates = "".join(f"{row.image_bytes / seconds / 1e6:7.0f}" for seconds in cpu)
    ratios = f"{ratio(bare, off):10.3f}{ratio(bare, on):8.3f}{ratio(off, on):7.3f}"
    times = "".join(f"{seconds * 1e6:8.1f}" for seconds in cpu)
    return f"{row}{rates}{ratios}{times}" + "".join(f"{each:5.1f}" for each in lost)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=11)
    parser.add_argument("--seconds", type=float, default=0.12, help="length of a sender's turn")
    parser.add_argument("--only", default="", help="rows with these words, as in --only 'Filter 1500'")
    options = parser.parse_args()
    Program.build("bare_sender", "drain")
    print(*HEADING, sep="\n")
    for row in itertools.starmap(Row, itertools.product(DRIVERS, PACKETS, IMAGES)):
        if set(options.only.split()) <= set(str(row).split()):
            print(report(row, costs(row, options.rounds, options.seconds), losses(row)), flush=True)


if __name__ == "__main__":
    main()

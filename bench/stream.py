#!/usr/bin/env python3
"""What it costs to send images through the Python call, beside a bare loop that sends the same datagrams.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/stream.py``.

Three processes send the same images in turn, without a limit of the rate: a bare loop
(``bench/bare_sender.cpp``: datagrams prepared once, sendmmsg, for Filter with UDP_SEGMENT, nothing
computed), a camera that keeps no images for resends, and one that keeps eight. The cameras send with
``stream.send(image, released)``. Rows with ``x40`` send forty images one after the other, so that large
ones come from memory and not from the cache.

Where they send to is chosen with ``--link``: over loopback to a socket that nobody reads, or onto a link that
frees what it is given (``bench/silent_link.py``), which leaves the way through the receiving stack out.
Times are CPU time of the sending process, all its threads, medians of the rounds; ratios are those of CPU
time, medians of the rounds' ratios.

The last columns are what was lost, in a hundred. On loopback: frames that did not come whole to a receiver
that counts, while each sent as fast as it can. On a silent link: bytes that the device should have been given
and was not, in the measured rounds themselves.
"""

import argparse
import dataclasses
import itertools
import statistics

from camera import IMAGES, Camera
from programs import LOOPBACK, BareSender, Program, silent_socket
from silent_link import NOBODY, Link, add_link_option, open_link

DRIVERS = ("Socket", "Filter")
PACKETS = (1500, 9000, 16000)
DEPTH = 8
TURNS = (1, 40)  # images in memory
NUMBERS = (4, 5)  # of the cameras on the link

RECEIVE_BUFFER = 32 << 20  # bytes
LOSS_BYTES = 256 << 20
HEADING = (
    f"{'':<28}MB per CPU second     ratio of CPU time  us of CPU / frame      lost, %",
    f"{'driver packet   image':<28}bare    off     on  off/bare on/bare on/off   bare    off     on"
    "  bare off on",
)
# Source: GVSP, sizes of headers of block ids with 16 bits, and of what leader and trailer of an image hold.
IP_AND_UDP, HEADER, LEADER, TRAILER = 20 + 8, 8, 36, 8


@dataclasses.dataclass(frozen=True)
class Row:
    """What is sent, and how."""

    driver: str
    packet_size: int
    image: str
    images: int

    @property
    def image_bytes(self) -> int:
        width, height = IMAGES[self.image]
        return width * height

    @property
    def payload(self) -> int:
        """Bytes of UDP payload that a frame takes."""
        packets = -(-self.image_bytes // (self.packet_size - IP_AND_UDP - HEADER))
        return self.image_bytes + (packets + 2) * HEADER + LEADER + TRAILER

    def __str__(self) -> str:
        turns = f"x{self.images}"
        return f"{self.driver:<7}{self.packet_size:>6}{self.image:>8} {turns:<3}"


class Senders:
    """The bare loop and the two cameras, set up alike, with one sink."""

    def __init__(self, row: Row, link: Link, port: int) -> None:
        bare = (row.driver, row.packet_size, row.image_bytes, port)
        self.all: list[BareSender | Camera] = [
            BareSender(*bare, images=row.images, destination=link.destination)
        ]
        options = {"driver": row.driver, "packet_size": row.packet_size, "size": IMAGES[row.image]}
        options |= {"images": row.images, "link": link}
        for number, resend in zip(NUMBERS, (0, DEPTH), strict=True):
            self.all.append(Camera(link.camera_address(number), port, resend=resend, **options))

    def __enter__(self) -> "list[BareSender | Camera]":
        return self.all

    def __exit__(self, *exception: object) -> None:
        for sender in self.all:
            sender.end()


Sent = tuple[float, float]  # for a frame: CPU seconds, UDP payload that the device was given


def send(sender: BareSender | Camera, link: Link, count: int) -> Sent:
    before = link.udp_payload()
    cpu, _ = sender.send(count)
    return cpu / count, (link.udp_payload() - before) / count


def measure(row: Row, link: Link, rounds: int, seconds: float) -> list[list[Sent]]:
    """For each sender, of each round."""
    with (
        silent_socket() as sink,
        Senders(row, link, NOBODY if link.silent else sink.getsockname()[1]) as senders,
    ):
        trial = max(row.images, 2 + (4 << 20) // row.image_bytes)
        senders[0].send(trial)
        count = max(2, int(seconds * trial / senders[0].send(trial)[1]))
        for sender in senders:
            sender.send(trial)
        of_rounds = [[send(sender, link, count) for sender in senders] for _ in range(rounds)]
    return list(map(list, zip(*of_rounds, strict=True)))


def lost_bytes(row: Row, measured: list[list[Sent]]) -> list[float]:
    """In a hundred, for each sender; of all rounds."""
    return [100 * (1 - statistics.mean(given for _, given in column) / row.payload) for column in measured]


def lost_frames(row: Row, link: Link) -> list[float]:
    """In a hundred, for each sender."""
    frames = min(20_000, LOSS_BYTES // row.image_bytes)
    drain = Program("drain", LOOPBACK, RECEIVE_BUFFER)
    lost = []
    with Senders(row, link, int(drain.read()[0])) as senders:
        for sender in senders:
            sender.send(frames)
            whole = drain.ask()[1]
            lost.append(100 * (1 - whole / frames))
    drain.end()
    return lost


def ratio(fast: list[Sent], slow: list[Sent]) -> float:
    """Of what the second achieves in a CPU second to what the first does."""
    return statistics.median(one[0] / other[0] for one, other in zip(fast, slow, strict=True))


def report(row: Row, measured: list[list[Sent]], lost: list[float]) -> str:
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
    parser.add_argument("--only", default="", help="rows with these words, as in --only 'Filter 1500 x40'")
    add_link_option(parser)
    options = parser.parse_args()
    Program.build("bare_sender", "drain")
    link = open_link(options.link)
    print(*HEADING, sep="\n")
    for row in itertools.starmap(Row, itertools.product(DRIVERS, PACKETS, IMAGES, TURNS)):
        if set(options.only.split()) <= set(str(row).split()):
            measured = measure(row, link, options.rounds, options.seconds)
            lost = lost_bytes(row, measured) if link.silent else lost_frames(row, link)
            print(report(row, measured, lost), flush=True)


if __name__ == "__main__":
    main()

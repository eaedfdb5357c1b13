#!/usr/bin/env python3
"""Whether clients that soon ask for lost packets, and soon give frames up, get their frames whole.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/loss.py``.

A camera with its default settings and a resend store of 8 sends images of 2048 x 2048 pixels by a clock, in
packets of 1500 bytes, to a client (``bench/impatient_client.cpp``) that throws away some of what comes, asks
for a packet 0.3, 1 and 1.5 ms after it missed it, and gives its frame up 2 ms after that. Each
row tells:

- frames that were sent, that came whole and that were given up, and how many are given up on average when
  chance takes a packet and the answers to all three requests for it;
- packets that were missed, and how many of them were not thrown away, but did not come at all;
- commands, packets asked for; packets that came again, that came although they were there, that came when
  their frame was given up; refusals;
- what the camera counted: packets sent again, requests dropped;
- the time from a request for a packet to that packet, in ms: median, slowest hundredth, longest;
- the camera's rate in MB/s while it streamed: at first, median and least; it slows down for clients that lose
  packets.
"""

import argparse
import itertools
import math
import statistics
import time
from typing import NamedTuple

from camera import DRIVERS, OWN_LIMIT, Camera, Sending, beats, nothing
from programs import Program
from silent_link import LOOP, Link, open_cable

SIZE = (2048, 2048)
PACKET_SIZE = 1500  # bytes
HEADERS = 20 + 8 + 8  # IP, UDP and stream: part of a packet's size
TRAILER = math.ceil(SIZE[0] * SIZE[1] / (PACKET_SIZE - HEADERS)) + 1  # its packet id; the leader's is 0
DEPTH = 8
REQUESTS = 3  # for a packet
LOSSES = (0.0, 0.01, 0.05)
RECEIVE_BUFFER = 32 << 20  # bytes
NUMBER = 7  # of the camera on the link
SEED = 1
HEADING = (
    f"{'':<14}{'frames':>29}{'packets':>15}{'asked for':>16}{'came':>28}{'camera':>16}"
    f"{'to packet, ms':>22}{'rate, MB/s':>18}",
    f"{'lost driver':<14}{'sent':>7}{'whole':>7}{'given':>6}{'chance':>9}{'missed':>9}{'gone':>6}"
    f"{'commands':>9}{'packets':>8}{'again':>7}{'twice':>7}{'late':>6}{'refused':>8}{'resent':>8}{'dropped':>8}"
    f"{'median':>8}{'99 %':>7}{'max':>7}{'first':>6}{'median':>7}{'least':>6}",
)


class Sent(NamedTuple):
    """What the camera's program saw in one turn."""

    frames: int
    rates: list[int]  # of the stream, at each frame


class Counted(NamedTuple):
    """Counters of the camera."""

    resent: int
    dropped: int


class Seen(NamedTuple):
    """What the client prints."""

    whole: float
    given_up: float
    came: float
    thrown: float
    missed: float
    commands: float
    asked: float
    again: float
    twice: float
    late: float
    refused: float
    median: float  # microseconds
    slow: float
    longest: float


# Run in the camera's process.


def stream(sending: Sending, frames_per_second: float, seconds: float) -> Sent:
    tree, (image,) = sending.server.node_map, sending.images
    frames, rates = 0, []
    for _ in beats(frames_per_second, seconds):
        frames += sending.stream.try_send(image, nothing)
        rates.append(tree.DeviceStreamRate.value)
    time.sleep(1 / frames_per_second)  # until the last one is out
    return Sent(frames, rates)


def counted(sending: Sending) -> Counted:
    tree = sending.server.node_map
    return Counted(tree.DeviceStreamResentPackets.value, tree.DeviceStreamDroppedRequests.value)


# Run here.


def measure(link: Link, driver: str, lost: float, options: argparse.Namespace) -> str:
    address = link.camera_address(NUMBER)
    arguments = (link.destination, RECEIVE_BUFFER, address, TRAILER, lost, SEED)
    with link.at_the_client():
        client = Program("impatient_client", *arguments)
    camera = Camera(
        address,
        int(client.read()[0]),
        link=link,
        driver=driver,
        packet_size=PACKET_SIZE,
        size=SIZE,
        resend=DEPTH,
        limit=OWN_LIMIT,
    )
    sent = camera.run(stream, options.fps, options.seconds)
    seen = Seen(*client.ask())
    counters = camera.run(counted)
    camera.end()
    client.end()
    return report(f"{lost:4.0%} {driver}", lost, sent, seen, counters)


def report(name: str, lost: float, sent: Sent, seen: Seen, counters: Counted) -> str:
    chance = sent.frames * (1 - (1 - lost ** (1 + REQUESTS)) ** (TRAILER + 1))
    frames = f"{sent.frames:>7}{seen.whole:>7.0f}{seen.given_up:>6.0f}{chance:>9.3f}"
    packets = f"{seen.missed:>9.0f}{seen.missed - seen.thrown:>6.0f}{seen.commands:>9.0f}{seen.asked:>8.0f}"
    came = f"{seen.again:>7.0f}{seen.twice:>7.0f}{seen.late:>6.0f}{seen.refused:>8.0f}"
    camera = f"{counters.resent:>8}{counters.dropped:>8}"
    times = f"{seen.median / 1e3:>8.3f}{seen.slow / 1e3:>7.3f}{seen.longest / 1e3:>7.3f}"
    first, *_ = rates = [rate / 1e6 for rate in sent.rates]
    rate = f"{first:>6.0f}{statistics.median(rates):>7.0f}{min(rates):>6.0f}"
    return f"{name:<14}{frames}{packets}{came}{camera}{times}{rate}"


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--fps", type=float, default=20.0, help="frames per second")
    parser.add_argument("--seconds", type=float, default=5.0, help="length of a row")
    parser.add_argument(
        "--cable", action="store_true", help="between two hosts of their own, not over loopback"
    )
    options = parser.parse_args()
    Program.build("impatient_client")
    link = open_cable() if options.cable else LOOP
    print(*HEADING, sep="\n")
    for driver, lost in itertools.product(DRIVERS, LOSSES):
        print(measure(link, driver, lost, options), flush=True)


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Millions of packets in each configuration: do numbers wrap, does time go on, does anything grow?

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/endurance.py``.

For each pair of id width and driver, without and with a resend store, a camera sends images of 4 KiB until
so many packets are out, to a receiver that counts. A row says how many frames did not come whole, how often a
block id was not the one after the last (65,535 is followed by 1 where ids have 16 bits), how often a
timestamp did not rise, the highest block id, and what the camera's process held before and after: library
handles, file descriptors, resident memory. Exits with 1 when anything is wrong; memory may grow by what an
allocator rounds.
"""

import argparse
import itertools
import sys

from camera import IMAGES, Camera
from programs import LOOPBACK, Program

CAMERA = "127.88.0.8"
PACKET_SIZE = 1500
PACKETS_PER_FRAME = 5  # leader, three of data, trailer
BURST = 4_000  # frames that the receiver's buffer takes when it does not get to read
RECEIVE_BUFFER = 64 << 20  # bytes
WARM_UP = 2_000  # frames
MAX_GROWTH = 512  # KiB
IMAGE = "4 KiB"


def run(extended: bool, driver: str, resend: int, frames: int) -> bool:
    """Measure and print one configuration; false when something is wrong."""
    drain = Program("drain", LOOPBACK, RECEIVE_BUFFER)
    camera = Camera(
        CAMERA,
        int(drain.read()[0]),
        driver=driver,
        packet_size=PACKET_SIZE,
        size=IMAGES[IMAGE],
        resend=resend,
        extended=extended,
    )
    camera.send(WARM_UP)
    drain.ask()
    before = camera.belongings()
    sums = [0, 0, 0, 0]  # packets, whole frames, id slips, clock slips
    highest = 0
    for first in range(0, frames, BURST):
        camera.send(min(BURST, frames - first))
        *counts, top = map(int, drain.ask())
        sums = [old + new for old, new in zip(sums, counts, strict=True)]
        highest = max(highest, top)
    after = camera.belongings()
    camera.end()
    drain.end()

    packets, whole, id_slips, clock_slips = sums
    expected_top = WARM_UP + frames if extended else min(WARM_UP + frames, 0xFFFF)
    growth = {what: after[what] - before[what] for what in before}
    good = (packets, whole) == (frames * PACKETS_PER_FRAME, frames)
    good &= id_slips == clock_slips == 0 and highest == expected_top
    good &= growth["handles"] == growth["descriptors"] == 0 and growth["resident KiB"] <= MAX_GROWTH
    held = "".join(
        f"{f'{before[what]} > {after[what]}':>{width}}"
        for what, width in zip(before, (10, 10, 16), strict=True)
    )
    print(
        f"{'64' if extended else '16':>3} bit  {driver:<7}{resend:>6}{packets:>11}{frames - whole:>6}"
        f"{id_slips:>6}{clock_slips:>6}{highest:>9}{held}  {'ok' if good else 'WRONG'}",
        flush=True,
    )
    return good


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--packets", type=int, default=2_000_000, help="for each configuration")
    frames = -(-parser.parse_args().packets // PACKETS_PER_FRAME)
    Program.build("drain")
    print("     ids  driver resend    packets  lost    id  time  highest   handles      fds    resident KiB")
    rows = itertools.product((False, True), ("Socket", "Filter"), (0, 8))
    return 0 if all([run(*row, frames) for row in rows]) else 1


if __name__ == "__main__":
    sys.exit(main())

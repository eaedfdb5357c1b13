#!/usr/bin/env python3
"""Round trip of a register read, beside a bare UDP echo (``bench/udp_echo.cpp``), idle and while streaming.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/control.py``.

Camera and echo run in processes of their own; the same few lines of client ask them in turn. While
streaming, the camera sends images of 300 KiB as fast as it can to a socket that nobody reads, from a Python
program that does nothing else. All who ask and answer share one core, where the scheduler would now and
then put them on two, whose waking each other takes longer than the rest; the stream has the other. Figures
are medians of the rounds' medians and slowest hundredths; they are compared with the echo on the idle
machine, and the echo beside the stream tells what the machine itself has to do with it.
"""

import contextlib
import os
import pathlib
import socket
import statistics
import struct
import time

from camera import HEARD, IMAGES, Camera
from programs import LOOPBACK, Program, silent_socket

from gvcp_client import PORT, READREG, SCPS, command

ROUNDS = 9
READS = 2_000
CAMERA = "127.88.0.3"
Endpoint = tuple[str, int]


def round_trips(target: Endpoint, register: int) -> list[float]:
    """Microseconds from each of READS commands, each with an id of its own, to its answer."""
    times = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.connect(target)
        sock.settimeout(5)
        for number in range(READS):
            datagram = command(READREG, struct.pack(">I", register), request_id=number + 1)
            begin = time.perf_counter()
            sock.send(datagram)
            sock.recv(2048)
            times.append((time.perf_counter() - begin) * 1e6)
    return times


def pin(echo: int, camera: int) -> None:
    """Put the client, the echo and the camera's own threads on one core, the camera's program on another."""
    answering, sending = {0}, {1}
    for process in (os.getpid(), echo):
        os.sched_setaffinity(process, answering)
    for thread in pathlib.Path(f"/proc/{camera}/task").iterdir():
        os.sched_setaffinity(int(thread.name), sending if int(thread.name) == camera else answering)


def measure(rows: dict[str, tuple[Endpoint, int]]) -> dict[str, tuple[float, float]]:
    """Median and 99 % of each, asked in turn."""
    cuts = {name: [] for name in rows}
    for _ in range(ROUNDS):
        for name, (target, register) in rows.items():
            cuts[name].append(statistics.quantiles(round_trips(target, register), n=100))
    return {
        name: (statistics.median(cut[49] for cut in of_row), statistics.median(cut[98] for cut in of_row))
        for name, of_row in cuts.items()
    }


def main() -> None:
    Program.build("udp_echo")
    echo = Program("udp_echo", LOOPBACK)
    rows = {"UDP echo": ((LOOPBACK, int(echo.read()[0])), SCPS)}
    rows |= {"register read": ((CAMERA, PORT), SCPS), "with a Python listener": ((CAMERA, PORT), HEARD)}
    base = None
    print(f"{'':<36}{'median us':>10}{'x echo':>8}{'99 % us':>10}{'x echo':>8}")
    with silent_socket() as sink:
        camera = Camera(CAMERA, sink.getsockname()[1], size=IMAGES["300 KiB"])
        pin(echo.pid, camera.pid)
        for what, busy in (("idle", contextlib.nullcontext()), ("streaming", camera.streaming())):
            with busy:
                measured = measure(rows)
            base = base or measured["UDP echo"]
            for name, (median, slow) in measured.items():
                ratios = median / base[0], slow / base[1]
                print(f"{name + ', ' + what:<36}{median:10.1f}{ratios[0]:8.2f}{slow:10.1f}{ratios[1]:8.2f}")
        camera.end()
    echo.end()


if __name__ == "__main__":
    main()

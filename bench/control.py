#!/usr/bin/env python3
"""Round trip of a register read, beside a bare UDP echo by a process of its own.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/control.py``.
Camera and echo run in processes of their own; the same few lines of client ask both, in turn.
"""

import multiprocessing
import socket
import statistics
import struct
import time
from collections.abc import Callable
from multiprocessing.connection import Connection

from tarn.gevserver import Int32RegNode, Server

ROUNDS = 5
READS = 2_000
CAMERA = "127.88.0.3"
CONTROL_PORT = 3956
REGISTER = 0x0010_0000
HEARD = 0x0010_0010  # a register with a Python listener


def echo(ready: Connection) -> None:
    """Send back whatever comes, until something empty does."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.bind(("127.0.0.1", 0))
        ready.send(sock.getsockname())
        while True:
            datagram, source = sock.recvfrom(2048)
            if not datagram:
                return
            sock.sendto(datagram, source)


def camera(ready: Connection) -> None:
    """Serve two registers, one with a listener of reads, until told to end."""
    server = Server.create_non_streaming()
    for name, address in (("Plain", REGISTER), ("Heard", HEARD)):
        server.node_map.add_node(Int32RegNode.create(name, address=address))
    server.node_map.Heard.register_event_on_read_updated(lambda node: None)
    server.start(CAMERA)
    ready.send((CAMERA, CONTROL_PORT))
    ready.recv()
    server.stop()


def read_commands(address: int) -> list[bytes]:
    """READREG commands, each with an id of its own."""
    return [struct.pack(">BBHHHI", 0x42, 0x01, 0x0080, 4, number + 1, address) for number in range(READS)]


def round_trips(target: tuple[str, int], datagrams: list[bytes]) -> list[float]:
    """Microseconds from each datagram to its answer."""
    times = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.connect(target)
        sock.settimeout(5)
        for datagram in datagrams:
            begin = time.perf_counter()
            sock.send(datagram)
            sock.recv(2048)
            times.append((time.perf_counter() - begin) * 1e6)
    return times


def spawned(
    serve: Callable[[Connection], None],
) -> tuple[multiprocessing.Process, Connection, tuple[str, int]]:
    ours, theirs = multiprocessing.Pipe()
    process = multiprocessing.Process(target=serve, args=(theirs,))
    process.start()
    return process, ours, ours.recv()


def main() -> None:
    multiprocessing.set_start_method("spawn")
    echo_process, _, echo_address = spawned(echo)
    camera_process, camera_pipe, camera_address = spawned(camera)
    rows = {
        "UDP echo": (echo_address, read_commands(REGISTER)),
        "register read": (camera_address, read_commands(REGISTER)),
        "with a Python listener": (camera_address, read_commands(HEARD)),
    }
    medians: dict[str, list[float]] = {name: [] for name in rows}
    slowest: dict[str, list[float]] = {name: [] for name in rows}
    for _ in range(ROUNDS):
        for name, (address, datagrams) in rows.items():
            cuts = statistics.quantiles(round_trips(address, datagrams), n=100)
            medians[name].append(cuts[49])
            slowest[name].append(cuts[98])
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.sendto(b"", echo_address)
    camera_pipe.send("end")
    for process in (echo_process, camera_process):
        process.join(10)
    base = statistics.median(medians["UDP echo"]), statistics.median(slowest["UDP echo"])
    print(f"{'':<24}{'median us':>10}{'x echo':>8}{'99% us':>10}{'x echo':>8}")
    for name in rows:
        row = statistics.median(medians[name]), statistics.median(slowest[name])
        print(f"{name:<24}{row[0]:10.1f}{row[0] / base[0]:8.2f}{row[1]:10.1f}{row[1] / base[1]:8.2f}")


if __name__ == "__main__":
    main()

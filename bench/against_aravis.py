#!/usr/bin/env python3
"""Bytes that a camera sends per CPU second of its process, beside Aravis' fake camera.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/against_aravis.py``.

Both stream images of the same size in packets of the same size, in turn, as fast as they can, either to a
socket that nobody reads, or to a receiver that counts on the other core. The bytes of the packets that came
to the socket, taken or not, are divided by the CPU time of the sending process, all its threads, as the
kernel counts both. The fake camera draws its image anew for each frame.
"""

import contextlib
import itertools
import os
import pathlib
import re
import statistics
import subprocess
import time
from collections.abc import Iterator

from camera import IMAGES, Camera
from programs import LOOPBACK, Program, silent_socket

from features import description
from gvcp_client import SCDA, SCP, SCPS, ControlClient

PACKETS = (1500, 9000)
ROUNDS = 7
SECONDS = 0.5
FAKE = LOOPBACK  # it takes addresses of interfaces, not all that they hear
OURS = "127.88.0.7"
RECEIVE_BUFFER = 64 << 20  # bytes
SHORTEST_PERIOD = 1000  # microseconds, by its description


def cpu_seconds(process: int) -> float:
    """Of all threads of a process, from nanoseconds and not from ticks."""
    tasks = pathlib.Path(f"/proc/{process}/task").iterdir()
    return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / 1e9


def write_by_name(client: ControlClient, xml: str, values: dict[str, int]) -> None:
    """Write registers of the fake camera, whose description gives each a fixed address."""
    for name, value in values.items():
        address = re.search(rf'Name="{name}".*?<Address>(\w+)</Address>', xml, re.DOTALL)[1]
        client.write_register(int(address, 0), value)


class FakeCamera:
    """Aravis' fake camera, streaming to a port of this host while asked to."""

    def __init__(self, port: int, packet_size: int, size: tuple[int, int]) -> None:
        self._process = subprocess.Popen(["arv-fake-gv-camera-0.8", "-i", FAKE], stdout=subprocess.DEVNULL)
        self._client = ControlClient(FAKE)
        self._client.connect(beat=0.5)
        self._xml = description(self._client).decode()
        width, height = size
        geometry = {"WidthRegister": width, "HeightRegister": height}
        write_by_name(self._client, self._xml, geometry | {"AcquisitionFramePeriodRegister": SHORTEST_PERIOD})
        for register, value in ((SCPS, packet_size), (SCDA, 0x7F00_0001), (SCP, port)):
            self._client.write_register(register, value)

    @property
    def pid(self) -> int:
        return self._process.pid

    @contextlib.contextmanager
    def streaming(self) -> Iterator[None]:
        write_by_name(self._client, self._xml, {"AcquisitionCommandRegister": 1})
        yield
        write_by_name(self._client, self._xml, {"AcquisitionCommandRegister": 0})

    def end(self) -> None:
        self._client.disconnect()
        self._client.close()
        self._process.terminate()
        self._process.wait()


class Silent:
    """A sink that nobody reads."""

    def __init__(self) -> None:
        self._socket = silent_socket()
        self.port = self._socket.getsockname()[1]
        self._seen = 0

    def packets(self) -> int:
        """Dropped since the last call; the few that the buffer holds came in the first round."""
        inode = str(os.fstat(self._socket.fileno()).st_ino)
        lines = (line.split() for line in pathlib.Path("/proc/net/udp").read_text().splitlines())
        drops = next(int(words[12]) for words in lines if words[9] == inode)
        before, self._seen = self._seen, drops
        return drops - before

    def end(self) -> None:
        self._socket.close()


class Counting:
    """A sink that another process reads."""

    def __init__(self) -> None:
        self._drain = Program("drain", LOOPBACK, RECEIVE_BUFFER)
        self.port = int(self._drain.read()[0])

    def packets(self) -> int:
        """Read since the last call."""
        return int(self._drain.ask()[0])

    def end(self) -> None:
        self._drain.end()


def bytes_per_cpu_second(sender: FakeCamera | Camera, sink: Silent | Counting, packet_size: int) -> float:
    sink.packets()
    before = cpu_seconds(sender.pid)
    with sender.streaming():
        time.sleep(SECONDS)
    used = cpu_seconds(sender.pid) - before
    # Leader, trailer and the short last packet are counted as full ones, for both alike.
    return sink.packets() * packet_size / used


def compare(packet_size: int, image: str, driver: str, kind: type) -> None:
    sink = kind()
    fake = FakeCamera(sink.port, packet_size, IMAGES[image])
    ours = Camera(OURS, sink.port, driver=driver, packet_size=packet_size, size=IMAGES[image])
    rates = [[bytes_per_cpu_second(each, sink, packet_size) for each in (fake, ours)] for _ in range(ROUNDS)]
    for each in (fake, ours, sink):
        each.end()
    theirs, mine = (statistics.median(column) / 1e6 for column in zip(*rates, strict=True))
    ratio = statistics.median(one[1] / one[0] for one in rates)
    row = f"{kind.__name__:<9}{driver:<7}{packet_size:>7}{image:>9}"
    print(f"{row}{theirs:>10.1f}{mine:>10.1f}{ratio:>8.1f}", flush=True)


SINKS = (Silent, Counting)


def main() -> None:
    Program.build("drain")
    print("MB per CPU second\nsink     driver  packet    image      fake      ours   ratio")
    for parts in itertools.product(PACKETS, ("4 MiB", "300 KiB"), ("Socket", "Filter"), SINKS):
        compare(*parts)


if __name__ == "__main__":
    main()

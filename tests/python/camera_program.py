"""The camera program in a process of its own, and a client that looks at it."""

import contextlib
import dataclasses
import os
import queue
import struct
import subprocess
import sys
import threading
from collections.abc import Iterator
from typing import IO, Any

import numpy as np
import pytest

from conftest import PACKAGE, free_address, open_stream
from features import Features
from gvcp_client import ControlClient
from gvsp_receiver import Frame, StreamReceiver


def environment(**more: str) -> dict[str, str]:
    """Of a process that finds the package."""
    return os.environ | {"PYTHONPATH": str(PACKAGE.parent)} | more


def camera_command(*options: str) -> list[str]:
    """What starts the program."""
    return [sys.executable, "-m", "tarn.gevserver", *options]


def start(command: list[str], stderr: int = subprocess.PIPE, **options: Any) -> subprocess.Popen[str]:
    """A process that finds the package; its streams are pipes of text."""
    settings: dict[str, Any] = {
        "env": environment(),
        "stdout": subprocess.PIPE,
        "stderr": stderr,
        "text": True,
    } | options
    process: subprocess.Popen[str] = subprocess.Popen(command, **settings)
    return process


def first_line(process: subprocess.Popen[str]) -> str:
    """What the program writes to standard output next."""
    assert process.stdout
    return process.stdout.readline()


@dataclasses.dataclass
class Program:
    """The program while it runs."""

    process: subprocess.Popen[str]
    address: str
    greeting: str  # first line of standard output
    _log: queue.Queue[str]

    def wait_log(self, text: str) -> None:
        """Return once a line of standard error ends with `text`; those before it are taken away."""
        seen = []
        while True:
            try:
                seen.append(self._log.get(timeout=15))
            except queue.Empty:
                pytest.fail(f"{text!r} is not in {seen}")
            if seen[-1].endswith(text):
                return


@contextlib.contextmanager
def running(*options: str, prefix: tuple[str, ...] = (), address: str | None = None) -> Iterator[Program]:
    """The program with these options, ended at the end; `prefix` is a command that runs it elsewhere."""
    address = address or free_address()
    command = [*prefix, *camera_command("--address", address, *options)]
    with start(command) as process:
        lines: queue.Queue[str] = queue.Queue()
        reader = threading.Thread(target=_read, args=(process.stderr, lines))
        reader.start()
        try:
            yield Program(process, address, first_line(process), lines)
        finally:
            process.terminate()
            process.wait(timeout=20)
            reader.join()
    assert process.returncode == 0, list(lines.queue)


def _read(stream: IO[str], lines: "queue.Queue[str]") -> None:
    for line in stream:
        lines.put(line.rstrip())


class Viewer:
    """A client with control of a camera: features by name, and frames."""

    def __init__(self, client: ControlClient, receiver: StreamReceiver) -> None:
        self.client = client.connect()
        self.features = Features(client)
        self.receiver = receiver

    def open_stream(self) -> None:
        open_stream(self.client, self.receiver)

    def set_float(self, name: str, value: float) -> None:
        address, length = self.features.register(name)
        self.client.write_memory(address, struct.pack(">d" if length == 8 else ">f", value))

    def read_count(self, name: str) -> int:
        """An integer feature of eight bytes."""
        return int.from_bytes(self.client.read_memory(*self.features.register(name)), "big")

    def start(self) -> None:
        """Open the stream and start the acquisition."""
        self.open_stream()
        self.features.execute("AcquisitionStart")

    def next_frames(self, count: int) -> list[Frame]:
        """Whole frames that end after now."""
        before = len(self.receiver.frames)
        return self.receiver.wait_frames(before + count)[before:]

    def next_pictures(self, count: int) -> list[np.ndarray]:
        """Their bytes, ``(height, bytes of a line)``."""
        return [_picture(frame) for frame in self.next_frames(count)]

    def pictures(self, count: int) -> list[np.ndarray]:
        """The first ones, as `next_pictures`."""
        return [_picture(frame) for frame in self.receiver.wait_frames(count)]


def _picture(frame: Frame) -> np.ndarray:
    return np.frombuffer(frame.image, np.uint8).reshape(frame.leader.height, -1)


@contextlib.contextmanager
def viewing(address: str, local: str = "127.0.0.1") -> Iterator[Viewer]:
    """A client that takes control of the camera and leaves it at the end."""
    with (
        StreamReceiver(local=local, resend_from=address) as receiver,
        ControlClient(address, local=local) as client,
    ):
        yield Viewer(client, receiver)

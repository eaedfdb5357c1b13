"""The camera program in a process of its own."""

import contextlib
import dataclasses
import os
import queue
import subprocess
import sys
import threading
from collections.abc import Iterable, Iterator
from typing import Any

import pytest

from conftest import PACKAGE, free_address


def camera_command(*options: str) -> list[str]:
    """What starts the program."""
    return [sys.executable, "-m", "tarn.gevserver", *options]


def start(command: list[str], *, variables: dict[str, str] | None = None, **options: Any) -> Any:
    """A process that finds the package, with more environment variables; its streams are pipes of text.

    Gives a ``subprocess.Popen[str]``, for type checkers one whose streams are there.
    """
    environment = os.environ | {"PYTHONPATH": str(PACKAGE.parent)} | (variables or {})
    pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE} | options
    return subprocess.Popen(command, env=environment, text=True, **pipes)


@dataclasses.dataclass
class Program:
    """The program while it runs."""

    process: Any
    address: str
    greeting: str  # first line of standard output
    _log: queue.Queue[str]

    def wait_log(self, text: str) -> None:
        """Return once a line of standard error ends with `text`; those before it are taken away."""
        seen = [""]
        while not seen[-1].endswith(text):
            try:
                seen.append(self._log.get(timeout=15))
            except queue.Empty:
                pytest.fail(f"{text!r} is not in {seen}")


@contextlib.contextmanager
def running(*options: str, prefix: tuple[str, ...] = (), address: str | None = None) -> Iterator[Program]:
    """The program with these options, ended at the end; `prefix` is a command that runs it elsewhere."""
    address = address or free_address()
    log: queue.Queue[str] = queue.Queue()
    with start([*prefix, *camera_command("--address", address, *options)]) as process:
        reader = threading.Thread(target=_read, args=(process.stderr, log))
        reader.start()
        try:
            yield Program(process, address, process.stdout.readline(), log)
        finally:
            process.terminate()
            process.wait(timeout=20)
            reader.join()
    assert process.returncode == 0, list(log.queue)


def _read(lines: Iterable[str], log: queue.Queue[str]) -> None:
    for line in lines:
        log.put(line.rstrip())

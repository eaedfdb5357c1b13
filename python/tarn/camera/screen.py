"""Where the lines about the cameras go: rewritten on a terminal, else into the log when they change."""

import logging
import shutil
from collections.abc import Mapping
from typing import TextIO

from tarn.camera.status import Status

log = logging.getLogger("tarn-camera")


class LiveLines:
    """One line per camera on a terminal, written over again and again."""

    def __init__(self, terminal: TextIO) -> None:
        self._terminal = terminal
        self._shown = 0

    def show(self, looks: Mapping[str, Status]) -> None:
        """Write the lines, by the cameras' addresses."""
        columns = shutil.get_terminal_size().columns
        # A line that wraps would not be found again; \x1b[F goes a line up, \x1b[K clears to the line's end.
        lines = [f"{address:<15} {look.line}"[: columns - 1] + "\x1b[K\n" for address, look in looks.items()]
        self._terminal.write("\x1b[F" * self._shown + "".join(lines))
        self._terminal.flush()
        self._shown = len(lines)

    def close(self) -> None:
        """The last lines stay."""


class LogLines:
    """A line in the log for each change of a camera's state."""

    def __init__(self) -> None:
        self._said: dict[str, str] = {}

    def show(self, looks: Mapping[str, Status]) -> None:
        """Log what changed, by the cameras' addresses."""
        for address, look in looks.items():
            if self._said.get(address) != look.summary:
                self._said[address] = look.summary
                log.info("%s  %s", address, look.summary)

    def close(self) -> None:
        """Nothing is open."""

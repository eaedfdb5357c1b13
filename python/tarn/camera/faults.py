"""Deliberate faults, with which people test their clients."""

import collections
import random
import time
from typing import NamedTuple

import numpy as np

from tarn.camera.controls import Controls

_DAMAGED_SHARE = 8  # of a damaged frame a run of one in so many bytes is inverted


class Frame(NamedTuple):
    """One frame on its way."""

    number: int  # counted from 0 since the camera was started
    acquisition: int  # to which it belongs
    data: np.ndarray


class Faults:
    """Decides frame by frame what goes wrong, as the features of the tree say at that moment.

    Parameters
    ----------
    controls : Controls
        Kind and rate of faults; it also counts them.
    """

    def __init__(self, controls: Controls) -> None:
        self._controls = controls
        self._random = random.Random()
        self._late: collections.deque[tuple[float, Frame]] = collections.deque()
        self._before: np.ndarray | None = None

    def shown(self, frame: np.ndarray) -> np.ndarray:
        """The frame, or while the picture is frozen the one before."""
        if self._before is None or len(self._before) != len(frame) or not self._controls.freeze:
            self._before = frame
        return self._before

    def drops(self) -> bool:
        """True when the frame is not to be sent."""
        if not self._happens(self._controls.drop):
            return False
        self._controls.dropped += 1
        return True

    def damaged(self, frame: np.ndarray) -> np.ndarray:
        """The frame, or a damaged copy of it."""
        if not self._happens(self._controls.corrupt):
            return frame
        self._controls.corrupted += 1
        damaged = frame.copy()
        run = -(-len(frame) // _DAMAGED_SHARE)
        start = self._random.randrange(len(frame) - run + 1)
        damaged[start : start + run] ^= 0xFF
        return damaged

    def hold(self, frame: Frame) -> None:
        """Keep a frame until it is late enough; `due` gives it back."""
        self._late.append((time.monotonic() + self._controls.delay / 1000, frame))

    def due(self) -> list[Frame]:
        """The frames that are late enough by now, in their order."""
        now = time.monotonic()
        frames = []
        while self._late and self._late[0][0] <= now:
            frames.append(self._late.popleft()[1])
        return frames

    @property
    def next_due(self) -> float | None:
        """When the next held frame is to be sent, in the time of ``time.monotonic``."""
        return self._late[0][0] if self._late else None

    def _happens(self, percent: float) -> bool:
        return self._random.random() * 100 < percent

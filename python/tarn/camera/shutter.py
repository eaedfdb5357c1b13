"""When the next frame is taken."""

import enum
import threading
import time

from tarn.camera.controls import Controls


class Wake(enum.Enum):
    """Why a wait ended."""

    Frame = enum.auto()  # a frame is to be taken
    Deadline = enum.auto()
    End = enum.auto()


class Shutter:
    """Waits for the moment of the next frame: by frame rate, or by a client's trigger.

    `wait` is for one thread; the rest may be called by any.

    Parameters
    ----------
    controls : Controls
        Rate, exposure and trigger mode; changes hold at once.
    """

    def __init__(self, controls: Controls) -> None:
        self._controls = controls
        self._changed = threading.Condition()
        self._triggers = 0
        self._ended = False
        self._last = float("-inf")  # when the last frame was due
        self.is_waiting_for_trigger = False
        controls.on_trigger = self._trigger
        controls.on_timing = self._wake

    def wait(self, deadline: float | None = None) -> Wake:
        """Return when a frame is to be taken, at the deadline, or when all ends.

        Parameters
        ----------
        deadline : float, optional
            In the time of ``time.monotonic``.
        """
        with self._changed:
            while not self._ended:
                now = time.monotonic()
                if self._is_due(now):
                    return Wake.Frame
                if deadline is not None and now >= deadline:
                    return Wake.Deadline
                moments = [] if self.is_waiting_for_trigger else [self._last + self._controls.frame_period]
                moments += [] if deadline is None else [deadline]
                self._changed.wait(min(moments) - now if moments else None)
            return Wake.End

    def forget_triggers(self) -> None:
        """Take no frame for the triggers that came before."""
        with self._changed:
            self._triggers = 0

    def end(self) -> None:
        """Let `wait` return, now and from now on."""
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def _is_due(self, now: float) -> bool:
        """True when a frame is to be taken now; takes note of that."""
        triggered = self._controls.is_triggered
        self.is_waiting_for_trigger = triggered and not self._triggers
        if triggered:
            if not self._triggers:
                return False
            self._triggers -= 1
            self._last = now
            return True
        self._triggers = 0  # what came before the mode was left counts no longer
        period = self._controls.frame_period
        due = self._last + period
        if now < due:
            return False
        self._last = due if now - due < period else now  # too slow for the rate: no burst to catch up
        return True

    def _trigger(self) -> None:
        with self._changed:
            if self._controls.is_triggered:
                self._triggers += 1
                self._changed.notify_all()

    def _wake(self) -> None:
        with self._changed:
            self._changed.notify_all()

"""Test patterns that scroll, drawn once.

A pattern that moves by scrolling up through a tall picture costs nothing per frame: each frame is a part of
the same memory.
"""

import dataclasses
from collections.abc import Callable

import numpy as np

from tarn.camera.pixels import Picture

#: Lines that a frame is ahead of the one before: with a multiple of eight every frame begins with a whole
#: byte, whatever the pixel format and the width.
STEP = 8

_FULL = 65535
_SQUARE = 32  # pixels, side of a checkerboard's square
#: Source: the usual order of colour bars, brightest first.
_BARS = ("111", "110", "011", "010", "101", "100", "001", "000")


@dataclasses.dataclass(frozen=True)
class Scroll:
    """A picture that moves upwards and begins again at its end.

    Attributes
    ----------
    picture : Picture
        ``(period, width)`` or ``(period, width, 3)``; the period is a multiple of `STEP`.
    step : int
        Lines from one frame to the next, a multiple of `STEP`.
    """

    picture: Picture
    step: int = STEP

    @property
    def period(self) -> int:
        """Lines after which the picture repeats."""
        return len(self.picture)

    def first_line(self, number: int) -> int:
        """Line of `picture` with which frame `number` begins."""
        return number * self.step % self.period


def gradient(width: int, height: int) -> Scroll:
    """Diagonal grey ramp with all values of a 16-bit sample."""
    del height  # the ramp repeats every 256 lines, whatever the height
    lines, columns = np.arange(256)[:, None], np.arange(width)
    fine = columns * 37 % 256  # so that formats with more than eight bits use them all
    return Scroll(((lines + columns) % 256 * 256 + fine).astype(np.uint16))


def bars(width: int, height: int) -> Scroll:
    """Eight colour bars, and a line of the opposite colours that moves."""
    colours = np.array([[int(digit) * _FULL for digit in bar] for bar in _BARS], np.uint16)
    line = colours[np.arange(width) * len(colours) // width]
    picture = np.repeat(line[None], _whole_steps(height), axis=0)
    picture[-STEP:] = _FULL - line
    return Scroll(picture)


def checkerboard(width: int, height: int) -> Scroll:
    """Black and white squares of 32 pixels."""
    del height  # two rows of squares are the period, whatever the height
    lines, columns = np.arange(2 * _SQUARE)[:, None], np.arange(width)
    return Scroll(((lines // _SQUARE + columns // _SQUARE) % 2 * 255).astype(np.uint8))


def noise(width: int, height: int) -> Scroll:
    """Random grey values, the same at each start of the program."""
    period = 2 * _whole_steps(height) + STEP
    values = np.random.default_rng(0).integers(0, 256, (period, width), np.uint8)
    # The next frame begins about half the period further on, so that the eye sees no movement.
    return Scroll(values, step=_whole_steps(height))


def black(width: int, height: int) -> Scroll:
    """Nothing but black."""
    del height
    return Scroll(np.zeros((STEP, width), np.uint8))


def white(width: int, height: int) -> Scroll:
    """Nothing but white."""
    del height
    return Scroll(np.full((STEP, width), 255, np.uint8))


def _whole_steps(lines: int) -> int:
    return -(-lines // STEP) * STEP


#: The patterns by the names that the command line uses: of width and height in pixels.
SCROLLS: dict[str, Callable[[int, int], Scroll]] = {
    "gradient": gradient,
    "bars": bars,
    "checkerboard": checkerboard,
    "noise": noise,
    "black": black,
    "white": white,
}

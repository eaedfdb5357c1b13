"""A picture with time and frame number burnt in, so that people and programs see what is missing."""

import datetime

import numpy as np
from PIL import Image, ImageDraw, ImageFont

from tarn.camera.pixels import Picture

#: Bits of the frame number along the top edge.
MARKS = 32

_CHARACTERS = "0123456789:.#"
_BACKGROUND = 64


class Clock:
    """Time of day and frame number in figures; the number also as 32 squares along the top edge.

    The squares hold the number's bits, the most significant one at the left, white for 1. Each is a 32nd of
    the width wide and a 16th of the height high, rounded down.

    Parameters
    ----------
    width, height : int
        Size in pixels, at least 32.
    """

    period = None  # no frame looks like another

    def __init__(self, width: int, height: int) -> None:
        self._background = np.full((height, width), _BACKGROUND, np.uint8)
        self._mark_width, self._mark_height = width // MARKS, height // 16
        # A figure takes about 0.6 of its height, and the time of day has twelve.
        size = max(min(width // 9, height // 4), 6)
        self._glyphs = _draw_glyphs(size)
        self._line = self._glyphs["0"].shape[0]

    def frame(self, number: int) -> Picture:
        """Frame `number`, counted from 0, with the time of now: ``(height, width)`` uint8, new memory."""
        picture = self._background.copy()
        bits = np.array([number >> bit & 1 for bit in reversed(range(MARKS))], np.uint8) * 255
        marks = np.repeat(bits, self._mark_width)
        picture[: self._mark_height, : len(marks)] = marks
        now = datetime.datetime.now().strftime("%H:%M:%S.%f")[:-3]
        top = len(picture) // 2 - self._line
        self._write(picture, now, top)
        self._write(picture, f"#{number:08d}", top + self._line)
        return picture

    def _write(self, picture: Picture, text: str, top: int) -> None:
        line = np.concatenate([self._glyphs[character] for character in text], axis=1)
        left = max((picture.shape[1] - line.shape[1]) // 2, 0)
        place = picture[max(top, 0) : top + line.shape[0], left : left + line.shape[1]]
        np.maximum(place, line[: place.shape[0], : place.shape[1]], out=place)


def _draw_glyphs(size: int) -> dict[str, np.ndarray]:
    """Figures of equal width, white on black."""
    font = ImageFont.load_default(size)
    width = round(max(font.getlength(character) for character in _CHARACTERS[:10])) + 1
    glyphs = {}
    for character in _CHARACTERS:
        image = Image.new("L", (width, size + size // 4))
        ImageDraw.Draw(image).text((width // 2, 0), character, 255, font, anchor="ma")
        glyphs[character] = np.asarray(image)
    return glyphs

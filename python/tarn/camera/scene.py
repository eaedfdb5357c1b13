"""What the camera looks at, as the bytes that it sends."""

import dataclasses
from typing import Protocol

import numpy as np

from tarn.camera.patterns import Scroll
from tarn.camera.pixels import Picture, PixelFormat, encode

_KEEP_BYTES = 256 << 20  # of encoded frames of a film that repeats


class Film(Protocol):
    """Makes pictures frame by frame."""

    @property
    def period(self) -> int | None:
        """Frames after which the first comes again; None when that is never, or too late to keep them."""

    def frame(self, number: int) -> Picture:
        """Frame `number`, counted from 0, of the sensor's size."""


@dataclasses.dataclass(frozen=True)
class View:
    """How the sensor is read: region in pixels, and how bright, 1 for as it is."""

    x: int
    y: int
    width: int
    height: int
    brightness: float


class Scene:
    """Frames of a source in a pixel format; keeps what is needed again.

    Not for use by several threads at once. The bytes that it gives out are never written again.
    """

    def __init__(self, source: Scroll | Film, pixel_format: PixelFormat) -> None:
        self._source = source
        self._format = pixel_format
        self._view: View | None = None
        self._strip: np.ndarray | None = None
        self._kept: dict[int, np.ndarray] = {}

    def frame(self, number: int, view: View) -> np.ndarray:
        """The bytes of frame `number`, counted from 0, as `view` sees it: one dimension, uint8, read only."""
        if view != self._view:
            self._view, self._strip = view, None
            self._kept.clear()
        if isinstance(self._source, Scroll):
            return self._part(self._source, number, view)
        return self._shot(self._source, number, view)

    def _part(self, source: Scroll, number: int, view: View) -> np.ndarray:
        """A part of the source's whole movement, which is encoded at its first frame."""
        if self._strip is None:
            lines = (view.y + np.arange(source.period + view.height)) % source.period
            columns = slice(view.x, view.x + view.width)
            self._strip = encode(source.picture[lines, columns], self._format, view.brightness)
        start = self._format.payload_bytes(view.width, source.first_line(number))
        return self._strip[start : start + self._format.payload_bytes(view.width, view.height)]

    def _shot(self, source: Film, number: int, view: View) -> np.ndarray:
        size = self._format.payload_bytes(view.width, view.height)
        keep = source.period is not None and source.period * size <= _KEEP_BYTES
        key = number % source.period if source.period else 0
        if keep and key in self._kept:
            return self._kept[key]
        picture = source.frame(number)[view.y : view.y + view.height, view.x : view.x + view.width]
        shot = encode(picture, self._format, view.brightness)
        if keep:
            self._kept[key] = shot
        return shot

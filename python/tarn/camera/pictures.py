"""A folder of pictures as what the camera looks at."""

import pathlib

import numpy as np
from PIL import Image, ImageOps

from tarn.camera.pixels import Picture


class SourceError(Exception):
    """What the camera is to show cannot be read; the text says why and what to do."""


class Pictures:
    """The pictures of a folder, in the order of their names, one per frame, again and again.

    Parameters
    ----------
    folder : pathlib.Path
        Holds files that Pillow reads; others are passed over.
    size : tuple of int, optional
        Width and height in pixels: pictures of other sizes are scaled, with black margins where their shape
        differs. The size of the first picture if None.

    Raises
    ------
    SourceError
        There is no picture in the folder, or the first cannot be read.
    """

    def __init__(self, folder: pathlib.Path, size: tuple[int, int] | None) -> None:
        known = Image.registered_extensions()
        self._files = sorted(file for file in folder.iterdir() if file.suffix.lower() in known)
        if not self._files:
            raise SourceError(f"no pictures in {folder}: put files like 1.png or 2.jpg there")
        self.size = size or _load(self._files[0]).size

    @property
    def period(self) -> int:
        """Frames after which the first comes again."""
        return len(self._files)

    def frame(self, number: int) -> Picture:
        """Frame `number`, counted from 0: ``(height, width)`` or ``(height, width, 3)`` uint8.

        Raises
        ------
        SourceError
            The file cannot be read.
        """
        image = _load(self._files[number % self.period])
        if image.size != self.size:
            image = ImageOps.pad(image, self.size)
        return np.asarray(image)


def _load(file: pathlib.Path) -> Image.Image:
    """The picture as grey or red, green, blue, eight bits each."""
    try:
        with Image.open(file) as image:
            upright = ImageOps.exif_transpose(image)
            if upright.mode.startswith("I"):  # 16 bits of grey, of which the upper eight are kept
                return Image.fromarray((np.asarray(upright) >> 8).astype(np.uint8))
            return upright.convert("L" if upright.mode in ("1", "L") else "RGB")
    except OSError as error:
        raise SourceError(f"cannot read the picture {file}: {error}") from error

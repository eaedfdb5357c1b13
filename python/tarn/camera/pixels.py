"""From a picture to the bytes of a pixel format."""

import dataclasses
import re

import numpy as np

import tarn

#: ``(height, width)`` grey or ``(height, width, 3)`` red, green, blue; uint8 or uint16, full scale.
Picture = np.ndarray

_NAME = re.compile(
    r"(?P<family>Mono|Bayer|RGBa?|BGRa?)(?P<tile>RG|GR|GB|BG)?(?P<depth>\d+)(?P<packing>p|Packed)?"
)
_CHANNELS = {"R": 0, "G": 1, "B": 2}
#: Luma of red, green and blue, in 256ths. Source: ITU-R BT.601.
_LUMA = (77, 150, 29)
_WORD_DEPTHS = (8, 10, 12, 14, 16)


@dataclasses.dataclass(frozen=True)
class PixelFormat:
    """A pixel format that the program can make.

    Attributes
    ----------
    name : str
        PFNC name, such as ``BayerRG12p``.
    value : int
        PFNC value.
    depth : int
        Bits per sample, 1 to 16.
    components : str
        What a pixel holds: ``L`` for luma, else letters of ``RGBa`` in the order of the wire; a mosaic names
        the four pixels of its tile, line by line.
    packing : str
        ``""`` for whole bytes, ``p`` for samples without gaps, ``Packed`` for two in three bytes.
    """

    name: str
    value: int
    depth: int
    components: str
    packing: str

    @property
    def is_mosaic(self) -> bool:
        return self.name.startswith("Bayer")

    @property
    def bits_per_pixel(self) -> int:
        """Source: PFNC, where they stand in the value."""
        return self.value >> 16 & 0xFF

    def payload_bytes(self, width: int, height: int) -> int:
        """Bytes of an image of this size, in pixels."""
        return (width * height * self.bits_per_pixel + 7) // 8


def _describe(name: str) -> PixelFormat | None:
    """The format of this PFNC name; None for those that the program does not make."""
    found = _NAME.fullmatch(name)
    if not found:
        return None
    family, depth, packing = found["family"], int(found["depth"]), found["packing"] or ""
    if (family == "Bayer") != (found["tile"] is not None):
        return None
    if depth > 16 or (not packing and depth not in _WORD_DEPTHS):
        return None
    if family == "Mono":
        components = "L"
    elif family == "Bayer":
        tile = found["tile"]
        components = tile + {"RG": "GB", "GR": "BG", "GB": "RG", "BG": "GR"}[tile]
    else:
        components = family
    return PixelFormat(name, getattr(tarn.PfncFormat, name), depth, components, packing)


#: All formats that the program makes, by name.
FORMATS: dict[str, PixelFormat] = {
    name: described
    for name in dir(tarn.PfncFormat)
    if isinstance(getattr(tarn.PfncFormat, name), int) and (described := _describe(name))
}


#: The same, by PFNC value.
BY_VALUE = {described.value: described for described in FORMATS.values()}


def choices_beside(first: PixelFormat, width: int) -> list[int]:
    """PFNC values that a client may choose in its place: all whose lines of so many pixels end on bytes."""
    fitting = [each for each in FORMATS.values() if each.bits_per_pixel * width % 8 == 0]
    return [each.value for each in fitting] if first in fitting else []


def encode(picture: Picture, pixel_format: PixelFormat, brightness: float = 1.0) -> np.ndarray:
    """The bytes of a picture in a pixel format.

    Parameters
    ----------
    picture : Picture
        What the camera looks at.
    pixel_format : PixelFormat
        One of `FORMATS`.
    brightness : float
        Factor on all values, at least 0; too bright ones end at full scale.

    Returns
    -------
    numpy.ndarray
        One dimension, uint8, contiguous; lines follow each other without gaps. Never the memory of `picture`.
    """
    table = _table(picture.dtype, pixel_format.depth, brightness)
    samples: np.ndarray
    if pixel_format.components == "L":
        samples = table[_luma(picture)]
    elif pixel_format.is_mosaic:
        samples = table[_mosaic(picture, pixel_format.components)]
    else:
        samples = _interleaved(picture, pixel_format, table)
    if pixel_format.packing:
        packed = tarn.WrappedImage.from_buffer(samples).packed(pixel_format.value)
        return np.asarray(packed).reshape(-1)
    return samples.reshape(-1).view(np.uint8)


def _table(dtype: np.dtype, depth: int, brightness: float) -> np.ndarray:
    """For each value of a picture the sample on the wire, little-endian."""
    full = np.iinfo(dtype).max
    light = np.minimum(np.arange(full + 1) * (brightness / full), 1.0)
    samples: np.ndarray = np.rint(light * ((1 << depth) - 1)).astype(np.uint8 if depth <= 8 else "<u2")
    return samples


def _luma(picture: Picture) -> Picture:
    if picture.ndim == 2:
        return picture
    red, green, blue = (picture[..., channel] for channel in range(3))
    luma = red.astype(np.uint32) * _LUMA[0]
    luma += green.astype(np.uint32) * _LUMA[1]
    luma += blue.astype(np.uint32) * _LUMA[2]
    luma >>= 8
    return luma.astype(picture.dtype)


def _mosaic(picture: Picture, tile: str) -> np.ndarray:
    """Of each pixel the colour that its filter lets through; the tile starts at the first pixel."""
    if picture.ndim == 2:
        return picture
    mosaic = np.empty(picture.shape[:2], picture.dtype)
    for index, colour in enumerate(tile):
        where = np.s_[index // 2 :: 2, index % 2 :: 2]
        mosaic[where] = picture[..., _CHANNELS[colour]][where]
    return mosaic


def _interleaved(picture: Picture, pixel_format: PixelFormat, table: np.ndarray) -> np.ndarray:
    components = pixel_format.components
    samples = np.empty((*picture.shape[:2], len(components)), table.dtype)
    for index, component in enumerate(components):
        if component == "a":
            samples[..., index] = (1 << pixel_format.depth) - 1  # nothing is transparent
        else:
            plane = picture if picture.ndim == 2 else picture[..., _CHANNELS[component]]
            samples[..., index] = table[plane]
    return samples

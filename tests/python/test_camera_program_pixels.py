"""Pictures as bytes of pixel formats, and moving patterns as parts of one memory."""

import numpy as np
import pytest

from tarn.camera.clock import MARKS, Clock
from tarn.camera.patterns import SCROLLS
from tarn.camera.pixels import FORMATS, encode
from tarn.camera.scene import Scene, View

# Two lines of two pixels, red green over blue white, full scale in 16 bits.
_R, _G, _B, _W = (0xFFFF, 0, 0), (0, 0xFFFF, 0), (0, 0, 0xFFFF), (0xFFFF, 0xFFFF, 0xFFFF)
COLOURS = np.array([[_R, _G], [_B, _W]], np.uint16)
# In twelve bits 0xABC, 0x123, 0x456, 0xFFF; in ten 0x2AE, 0x049, 0x115, 0x3FF.
GREYS = np.array([[0xABCA, 0x1231], [0x4564, 0xFFFF]], np.uint16)

GOLDEN = [
    (COLOURS, "RGB8", "ff0000 00ff00 0000ff ffffff"),
    (COLOURS, "BGR8", "0000ff 00ff00 ff0000 ffffff"),
    (COLOURS, "RGBa8", "ff0000ff 00ff00ff 0000ffff ffffffff"),
    (COLOURS, "RGB12", "ff0f00000000 0000ff0f0000 00000000ff0f ff0fff0fff0f"),
    (COLOURS, "RGB10p", "ff03000000 ff03000000 ffffffffff"),
    (COLOURS, "BayerRG8", "ff ff 00 ff"),
    (COLOURS, "BayerGR8", "00 00 ff ff"),
    (COLOURS, "BayerGB8", "00 00 00 ff"),
    (COLOURS, "BayerBG8", "00 ff 00 ff"),
    (COLOURS, "Mono8", "4d 95 1d ff"),
    (GREYS, "Mono16", "caab 3112 6445 ffff"),
    (GREYS, "Mono12", "bc0a 2301 5604 ff0f"),
    (GREYS, "Mono12p", "bc3a12 56f4ff"),
    (GREYS, "Mono12Packed", "ab3c12 45f6ff"),
    (GREYS, "Mono10", "ae02 4900 1501 ff03"),
    (GREYS, "Mono10p", "ae2651d1ff"),
    (GREYS, "Mono10Packed", "ab1212 4531ff"),
    (GREYS, "Mono4p", "1a f4"),
]


def test_encodes_as_the_naming_convention_says() -> None:
    for picture, name, expected in GOLDEN:
        assert encode(picture, FORMATS[name]).tobytes() == bytes.fromhex(expected), name
    ramp = np.arange(256, dtype=np.uint8).reshape(16, 16)
    assert np.array_equal(encode(ramp, FORMATS["Mono8"], 2.0), np.minimum(np.arange(256) * 2, 255))


def test_every_format_takes_odd_sizes_grey_and_colour_and_has_its_number_of_bytes() -> None:
    for name, described in FORMATS.items():
        for shape in ((5, 7), (5, 7, 3)):
            for dtype in (np.uint8, np.uint16):
                white = np.full(shape, np.iinfo(dtype).max, dtype)
                data = encode(white, described)
                assert data.nbytes == described.payload_bytes(7, 5), name
                assert np.array_equal(data, encode(white, described, 100.0)), "brighter than white"
                assert not encode(white, described, 0.0).any() or "a" in described.components, name


@pytest.mark.parametrize("name", ["Mono8", "Mono10p", "Mono12Packed", "BayerGB12p", "RGB8", "Mono1p"])
def test_parts_of_a_scrolling_pattern_are_what_one_picture_gives(name: str) -> None:
    """Also of a region that begins and ends anywhere, where lines end inside bytes; all but two move."""
    described = FORMATS[name]
    for pattern, make in SCROLLS.items():
        source = make(61, 43)
        scene = Scene(source, described)
        for view in (View(0, 0, 61, 43, 1.0), View(3, 5, 51, 31, 0.5)):
            used = view.width * view.height * (described.value >> 16 & 0xFF) // 8
            parts = []
            for number in (0, 1, 5, 1000):
                first = source.first_line(number) + view.y
                lines = np.arange(first, first + view.height) % source.period
                picture = source.picture[lines, view.x : view.x + view.width]
                whole = encode(picture, described, view.brightness)
                parts.append(scene.frame(number, view))
                assert np.array_equal(parts[-1][:used], whole[:used]), (pattern, view, number)
                assert len(parts[-1]) == len(whole)
            if name == "Mono8":
                assert np.array_equal(parts[0], parts[1]) == (pattern in ("black", "white")), pattern


@pytest.mark.parametrize("size", [(32, 32), (640, 480), (1001, 333)])
def test_clock_shows_the_number_of_its_frame(size: tuple[int, int]) -> None:
    clock = Clock(*size)
    for number in (0, 1, 0xDEADBEEF):
        picture = clock.frame(number)
        assert picture.shape == size[::-1]
        squares = picture[size[1] // 32, size[0] // MARKS // 2 :: size[0] // MARKS][:MARKS] > 127
        assert int("".join(map(str, squares.astype(int))), 2) == number

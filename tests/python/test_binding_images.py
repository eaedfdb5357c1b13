"""Images as buffers, and images over other objects' memory."""

import array
import ctypes
import gc
import io
import itertools
import mmap
import pickle
import sys
import threading
import zlib
from typing import Any

import numpy as np
import pytest

import tarn

MODEL = tarn.ColorModel
from_buffer = tarn.WrappedImage.from_buffer


def test_new_images_are_zero_and_shared_with_numpy() -> None:
    for size, planes, data_type, shape, dtype, model in (
        ((5, 4), 1, tarn.DataType.Int8BppUnsigned, (4, 5), np.uint8, MODEL.Mono),
        (tarn.Size2D(4.5, 3), 3, tarn.DataType.Int12BppUnsigned, (3, 5, 3), np.uint16, MODEL.RGB),
        ([2, 2], 2, tarn.DataType.Int16BppSigned, (2, 2, 2), np.int16, MODEL.Unknown),
        ((1, 1), 4, tarn.DataType.Double, (1, 1, 4), np.float64, MODEL.Unknown),
    ):
        image = tarn.Image(size, planes, data_type)
        view = np.asarray(image)
        assert (view.shape, view.dtype, image.color_model) == (shape, dtype, model)
        assert not view.any() and view.flags.c_contiguous and view.flags.writeable
        assert (image.height, image.width, image.planes) == (*shape, 1)[:3]
        assert image.size == tarn.Size2D(image.width, image.height) and image.data_type == data_type
        view[-1, -1] = 7
        assert memoryview(image).tobytes() == view.tobytes() and np.asarray(image)[-1, -1].all()
        del image
        gc.collect()
        assert view[-1, -1].all()  # a view keeps its image alive
    assert tarn.Image((1, 1), color_model=MODEL.HSV).color_model == MODEL.HSV


def test_wrapped_images_are_their_source() -> None:
    """Whole, upside down, every second column mirrored, transposed, and a window; of each kind of numbers."""
    layouts = [lambda a: a, lambda a: a[::-1], lambda a: a[:, ::-2], lambda a: a.swapaxes(0, 1)]
    layouts.append(lambda a: a[1:-1, 2:-1])
    kinds, shapes = ["u1", "i1", "<u2", "<i2", "<u4", "<i4", "<f4", "<f8"], [(6, 8), (6, 8, 1), (6, 8, 3)]
    for layout, dtype, shape in itertools.product(layouts, kinds, shapes):
        source = layout(np.arange(np.prod(shape)).reshape(shape).astype(dtype))
        image = from_buffer(source)
        view = np.asarray(image)
        assert np.shares_memory(view, source) and view.dtype == source.dtype
        assert (view == (source[..., 0] if shape[2:] == (1,) else source)).all()
        assert (image.height, image.width, image.planes) == (*source.shape, 1)[:3]
        copy = image.copy()
        assert type(copy) is tarn.Image and (np.asarray(copy) == view).all()
        source[:] = 1
        assert (view == 1).all() and not (np.asarray(copy) == view).all()


# Names, and how many bits of each sample of a pixel follow each other, the lowest first.
PACKED = [
    ("Mono12p", [12]),
    ("BayerGR14p", [14]),
    ("Mono1p", [1]),
    ("BGR10p", [10] * 3),
    ("RGBa10p", [10] * 4),
    ("YCbCr422_12p_CbYCrY", [12] * 2),
    ("RGB565p", [5, 6, 5]),
    ("RGB10p32", [10, 10, 10, 2]),
]


@pytest.mark.parametrize(("name", "bits"), PACKED, ids=[name for name, _ in PACKED])
@pytest.mark.parametrize("size", [(8, 6), (7, 3), (2, 2)])
def test_packs_samples_bit_by_bit_from_memory_of_any_layout(
    name: str, bits: list[int], size: tuple[int, int]
) -> None:
    width, height = size
    planes = len(bits) - (name == "RGB10p32")  # whose last two bits are empty
    shape = (height, width, planes) if planes > 1 else (height, width)
    samples = np.random.default_rng(1).integers(
        0, 1 << 16, shape, np.uint16
    )  # of which the low bits are taken
    pixels = np.zeros((height * width, len(bits)), int)
    pixels[:, :planes] = samples.reshape(-1, planes)
    ones = np.concatenate([pixels[:, [i]] >> np.arange(count) & 1 for i, count in enumerate(bits)], axis=1)
    expected = np.packbits(ones.reshape(-1).astype(bool), bitorder="little").tobytes()
    value = getattr(tarn.PfncFormat, name)
    for layout in (
        samples,
        np.asfortranarray(samples),
        np.repeat(samples, 2, 1)[:, ::2],
        samples[::-1].copy()[::-1],
    ):
        packed = from_buffer(layout).packed(value)
        assert packed.data_type == tarn.DataType.Int8BppUnsigned and np.asarray(packed).tobytes() == expected
        assert packed.height == (height if width * sum(bits) % 8 == 0 else 1)
    octets = samples.astype(np.uint8)
    same = [
        np.asarray(from_buffer(octets.astype(kind)).packed(value)).tobytes() for kind in (np.uint8, np.uint16)
    ]
    assert same[0] == same[1]


def test_every_exporter_is_an_image_or_refused() -> None:
    """Those that leave out strides, as ctypes does, and those whose memory is no picture."""
    rows = ((ctypes.c_uint16 * 3) * 2)((1, 2, 3), (4, 5, 6))
    colors = (((ctypes.c_ubyte * 3) * 2) * 2)()
    colors[1][1][2] = 9
    pointer = ctypes.cast(rows, ctypes.POINTER(type(rows)))  # as a driver's library hands it out
    mapped = mmap.mmap(-1, 8)
    for good, expected in (
        (pointer.contents, [[1, 2, 3], [4, 5, 6]]),
        (colors, [[[0, 0, 0], [0, 0, 0]], [[0, 0, 0], [0, 0, 9]]]),
        (memoryview(mapped).cast("B", (2, 4)), [[0] * 4] * 2),
        (memoryview(array.array("f", range(4))).cast("B").cast("f", (2, 2)), [[0, 1], [2, 3]]),
    ):
        assert np.asarray(from_buffer(good)).tolist() == expected
    flat = [bytearray(4), array.array("H", [1, 2]), mapped, ctypes.c_int(), pickle.PickleBuffer(b"abc"), 3]
    characters = [((ctypes.c_char * 2) * 2)(), memoryview(b"abcd").cast("c", (2, 2))]
    for bad in (*flat, *characters, np.zeros((2, 2), [("a", "u1")])):
        with pytest.raises((ValueError, TypeError)):
            from_buffer(bad)


def test_what_was_asked_of_a_buffer_is_what_it_gives() -> None:
    with pytest.raises(BufferError, match="not contiguous"):
        zlib.crc32(from_buffer(np.zeros((4, 4), np.uint8)[:, ::2]))
    locked = np.zeros((4, 4), np.uint8)
    locked.flags.writeable = False
    image = from_buffer(locked)
    assert not np.asarray(image).flags.writeable and np.asarray(image.copy()).flags.writeable
    with pytest.raises(TypeError, match="read-write"):
        io.BytesIO(bytes(16)).readinto(image)
    target = image.copy()
    assert io.BytesIO(bytes(range(1, 17))).readinto(target) == 16 and np.asarray(target)[0, 1] == 2
    with pytest.raises(BufferError, match="no buffer format"):
        memoryview(tarn.Image((2, 2), 1, tarn.DataType(24)))


def test_a_buffer_is_held_as_long_as_its_images_are_in_use() -> None:
    memory = bytearray(64)
    view = np.asarray(from_buffer(memoryview(memory).cast("B", (8, 8))))
    with pytest.raises(BufferError):
        memory.append(0)
    del view
    memory.append(0)
    source = np.zeros((8, 8), np.uint8)
    before = sys.getrefcount(source)
    images = [from_buffer(source) for _ in range(10)]
    assert sys.getrefcount(source) == before + 10
    thread = threading.Thread(target=images.clear)
    thread.start()
    thread.join()
    for bad in (source[0], source.astype(complex)):
        with pytest.raises(ValueError, match=r"shape|format"):
            from_buffer(bad)
    assert sys.getrefcount(source) == before


@pytest.mark.parametrize(
    ("make", "error", "text"),
    [
        (lambda: tarn.Image((0, 4)), ValueError, "Width must be larger or equal to 1"),
        (lambda: tarn.Image((4, 0.4)), ValueError, "Height must be larger or equal to 1"),
        (lambda: tarn.Image((4, 4), 0), ValueError, "Planes must be larger or equal to 1"),
        (lambda: tarn.Image((4, 4), 1, tarn.DataType(0)), ValueError, "bits"),
        (lambda: tarn.Image((4, 4), color_model=6), ValueError, "color model"),
        (lambda: tarn.Image((4, 4, 4)), ValueError, "pair"),
        (lambda: tarn.Image(4), ValueError, "cannot convert object to tarn.Size2D"),
        (lambda: tarn.Image((1e300, 4)), OverflowError, None),
        (lambda: from_buffer(b"abc"), ValueError, r"shape \(3\)"),
        (lambda: from_buffer(np.zeros((2, 0))), ValueError, r"shape \(2, 0\)"),
        (lambda: from_buffer(np.zeros((2, 2, 2, 2))), ValueError, r"shape \(2, 2, 2, 2\)"),
        (lambda: from_buffer(np.zeros((2, 2), ">u2")), ValueError, "format '>H'"),
        (lambda: from_buffer(np.zeros((2, 2), bool)), ValueError, r"format '\?'"),
        (
            lambda: tarn.Image((4, 4)).packed(tarn.PfncFormat.Mono8),
            ValueError,
            "Mono8 is no packed pixel format",
        ),
        (lambda: tarn.Image((4, 4)).packed(0), ValueError, "is no packed pixel format"),
        (
            lambda: tarn.Image((4, 4)).packed(tarn.PfncFormat.RGB10p),
            ValueError,
            "3 samples, the image has 1 planes",
        ),
        (lambda: from_buffer(np.zeros((2, 2))).packed(tarn.PfncFormat.Mono10p), ValueError, "8 or 16 bits"),
        (lambda: tarn.WrappedImage(), TypeError, "no public constructor"),
        (lambda: tarn.RingBufferImage((2, 2)), TypeError, "no public constructor"),
    ],
)
def test_refused_images(make: Any, error: Any, text: str) -> None:
    with pytest.raises(error, match=text):
        make()

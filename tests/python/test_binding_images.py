"""Images as buffers, and images over other objects' memory."""

import array
import ctypes
import gc
import io
import mmap
import pickle
import sys
import tempfile
import threading
import zlib
from typing import Any

import numpy as np
import pytest

import tarn

MODEL = tarn.ColorModel


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
        assert np.asarray(image)[-1, -1].all()
        assert memoryview(image).tobytes() == view.tobytes()
    assert tarn.Image((1, 1), color_model=MODEL.HSV).color_model == MODEL.HSV


def test_a_view_keeps_its_image_alive() -> None:
    view = np.asarray(tarn.Image((64, 64)))
    gc.collect()
    view[:] = 9
    assert view.sum() == 9 * 64 * 64


LAYOUTS = {
    "plain": lambda a: a,
    "upside down": lambda a: a[::-1],
    "every second column, mirrored": lambda a: a[:, ::-2],
    "transposed": lambda a: a.swapaxes(0, 1),
    "a window": lambda a: a[1:-1, 2:-1],
}


@pytest.mark.parametrize("layout", LAYOUTS)
@pytest.mark.parametrize("planes", [None, 1, 3])
@pytest.mark.parametrize("dtype", ["u1", "i1", "<u2", "<i2", "<u4", "<i4", "<f4", "<f8"])
def test_wrapped_images_are_their_source(layout: Any, planes: Any, dtype: Any) -> None:
    shape = (6, 8) if planes is None else (6, 8, planes)
    source = LAYOUTS[layout](np.arange(np.prod(shape)).reshape(shape).astype(dtype))
    image = tarn.WrappedImage.from_buffer(source)
    view = np.asarray(image)
    expected = source[..., 0] if planes == 1 else source
    assert np.shares_memory(view, source) and view.dtype == source.dtype
    assert (view == expected).all()
    assert (image.height, image.width) == source.shape[:2] and image.planes == (planes or 1)
    copy = image.copy()
    source[:] = 1
    assert (np.asarray(image) == 1).all() and not np.shares_memory(np.asarray(copy), source)
    assert type(copy) is tarn.Image and np.asarray(copy).sum() != np.asarray(image).sum()


def test_every_exporter_is_an_image_or_refused() -> None:
    """Those that leave out strides, as ctypes does, and those whose memory is no picture."""
    rows = ((ctypes.c_uint16 * 3) * 2)((1, 2, 3), (4, 5, 6))
    colors = (((ctypes.c_ubyte * 3) * 2) * 2)()
    colors[1][1][2] = 9
    pointer = ctypes.cast(rows, ctypes.POINTER(type(rows)))  # as a driver's library hands it out
    with tempfile.TemporaryFile() as file:
        file.truncate(8)
        mapped = mmap.mmap(file.fileno(), 8)
        for good, expected in (
            (rows, [[1, 2, 3], [4, 5, 6]]),
            (pointer.contents, [[1, 2, 3], [4, 5, 6]]),
            (colors, [[[0, 0, 0], [0, 0, 0]], [[0, 0, 0], [0, 0, 9]]]),
            (memoryview(bytearray(range(6))).cast("B", (2, 3)), [[0, 1, 2], [3, 4, 5]]),
            (memoryview(mapped).cast("B", (2, 4)), [[0] * 4] * 2),
            (memoryview(array.array("f", range(4))).cast("B").cast("f", (2, 2)), [[0, 1], [2, 3]]),
        ):
            image = tarn.WrappedImage.from_buffer(good)
            assert np.asarray(image).tolist() == expected
            del image
        for bad in (
            b"abc",
            bytearray(4),
            array.array("H", [1, 2]),
            mapped,
            ctypes.c_int(),
            ctypes.pointer(ctypes.c_int()),
            ctypes.create_string_buffer(4),
            ((ctypes.c_char * 2) * 2)(),
            io.BytesIO(b"abc").getbuffer(),
            memoryview(b"abcd").cast("c", (2, 2)),
            pickle.PickleBuffer(b"abc"),
            np.zeros((2, 2), [("a", "u1")]),
        ):
            with pytest.raises((ValueError, TypeError)):
                tarn.WrappedImage.from_buffer(bad)


def test_what_was_asked_of_a_buffer_is_what_it_gives() -> None:
    strided = tarn.WrappedImage.from_buffer(np.zeros((4, 4), np.uint8)[:, ::2])
    with pytest.raises(BufferError, match="not contiguous"):
        zlib.crc32(strided)
    locked = np.zeros((4, 4), np.uint8)
    locked.flags.writeable = False
    image = tarn.WrappedImage.from_buffer(locked)
    assert not np.asarray(image).flags.writeable and np.asarray(image.copy()).flags.writeable
    with pytest.raises(TypeError, match="read-write"):
        io.BytesIO(bytes(range(1, 17))).readinto(image)
    assert not locked.any()
    target = image.copy()
    assert io.BytesIO(bytes(range(1, 17))).readinto(target) == 16 and np.asarray(target)[0, 1] == 2
    with pytest.raises(BufferError, match="no buffer format"):
        memoryview(tarn.Image((2, 2), 1, tarn.DataType(24)))


def test_the_buffer_stays_exported_until_the_image_is_gone() -> None:
    memory = bytearray(64)
    image = tarn.WrappedImage.from_buffer(memoryview(memory).cast("B", (8, 8)))
    with pytest.raises(BufferError):
        memory.append(0)
    view = np.asarray(image)
    del image
    with pytest.raises(BufferError):
        memory.append(0)
    del view
    memory.append(0)


def test_wrapping_leaves_no_reference_behind() -> None:
    source = np.zeros((8, 8), np.uint8)
    before = sys.getrefcount(source)
    for bad in (source[0], source.astype(complex)):
        with pytest.raises(ValueError, match=r"shape|format"):
            tarn.WrappedImage.from_buffer(bad)
    images = [tarn.WrappedImage.from_buffer(source) for _ in range(10)]
    assert sys.getrefcount(source) == before + 10
    thread = threading.Thread(target=images.clear)
    thread.start()
    thread.join()
    assert sys.getrefcount(source) == before


def test_refused_images() -> None:
    from_buffer = tarn.WrappedImage.from_buffer
    for make, error, text in (
        (lambda: tarn.Image((0, 4)), ValueError, "Width must be larger or equal to 1"),
        (lambda: tarn.Image((4, 0.4)), ValueError, "Height must be larger or equal to 1"),
        (lambda: tarn.Image((4, 4), 0), ValueError, "Planes must be larger or equal to 1"),
        (lambda: tarn.Image((4, 4), 1, tarn.DataType(0)), ValueError, "bits"),
        (lambda: tarn.Image((4, 4), color_model=6), ValueError, "color model"),
        (lambda: tarn.Image((4, 4, 4)), ValueError, "pair"),
        (lambda: tarn.Image(4), ValueError, "cannot convert object to tarn.Size2D"),
        (lambda: tarn.Image((1e300, 4)), OverflowError, None),
        (lambda: from_buffer(3), TypeError, "bytes-like"),
        (lambda: from_buffer(b"abc"), ValueError, r"shape \(3\)"),
        (lambda: from_buffer(np.zeros((2, 0))), ValueError, r"shape \(2, 0\)"),
        (lambda: from_buffer(np.zeros((2, 2, 2, 2))), ValueError, r"shape \(2, 2, 2, 2\)"),
        (lambda: from_buffer(np.zeros((2, 2), ">u2")), ValueError, "format '>H'"),
        (lambda: from_buffer(np.zeros((2, 2), np.int64)), ValueError, "format 'l'"),
        (lambda: from_buffer(np.zeros((2, 2), bool)), ValueError, r"format '\?'"),
        (lambda: tarn.WrappedImage(), TypeError, "no public constructor"),
        (lambda: tarn.RingBufferImage((2, 2)), TypeError, "no public constructor"),
    ):
        with pytest.raises(error, match=text):
            make()

"""The core module's values and codes: construction, comparison, texts, what is refused."""

import csv
import gc
import weakref
from typing import Any

import pytest

import tarn
from conftest import ROOT

NO_MATCH = "the arguments do not match any of the expected signatures of the function"


def test_values_compare_hash_iterate_and_print() -> None:
    assert tarn.Size2D(3, 4) == tarn.Size2D(width=3.0, height=4) != tarn.Size2D(4, 3)
    assert tarn.Size2D() != (0, 0) and tarn.Size2D(1, 2) != tarn.Point2D(1, 2)
    assert list(tarn.Size2D(3, 4)) == [3, 4] and list(tarn.Point2D(y=5)) == [0, 5]
    for mutable in (tarn.Size2D(), tarn.Point2D()):
        with pytest.raises(TypeError, match="unhashable"):
            hash(mutable)

    assert {tarn.DataType(0x108): 1}[tarn.DataType.Int8BppSigned] == 1
    assert len({tarn.GenApiVersion(1, 2), tarn.GenApiVersion(1, 2, 0), tarn.GenApiVersion(2)}) == 2
    assert tuple(tarn.NetworkConnection("10.0.0.1", 3956)) == ("10.0.0.1", 3956)
    assert tarn.GenApiVersion(1, 9, 9) < tarn.GenApiVersion(2) >= tarn.GenApiVersion(1, 10)
    with pytest.raises(TypeError):
        tarn.DataType(8) < tarn.DataType(16)  # noqa: B015

    for value, text, representation in (
        (tarn.GenApiVersion(1, 2, 3), "1.2.3", "GenApiVersion(major=1, minor=2, sub_minor=3)"),
        (
            tarn.NetworkConnection("10.0.0.1", 80),
            "10.0.0.1:80",
            "NetworkConnection(address='10.0.0.1', port=80)",
        ),
    ):
        assert (str(value), repr(value)) == (text, representation)
    assert repr(tarn.Size2D(1, 2.5)) == "Size2D(width=1.0, height=2.5)"
    assert repr(tarn.DataType(0x320)) == "DataType(0x320)"


def test_data_types() -> None:
    ready_made = {
        "Int8BppUnsigned": (0x008, 8, 1, False, False),
        "Int8BppSigned": (0x108, 8, 1, True, False),
        "Int10BppUnsigned": (0x00A, 10, 2, False, False),
        "Int12BppUnsigned": (0x00C, 12, 2, False, False),
        "Int14BppUnsigned": (0x00E, 14, 2, False, False),
        "Int16BppUnsigned": (0x010, 16, 2, False, False),
        "Int16BppSigned": (0x110, 16, 2, True, False),
        "Int32BppUnsigned": (0x020, 32, 4, False, False),
        "Int32BppSigned": (0x120, 32, 4, True, False),
        "Float": (0x320, 32, 4, True, True),
        "Double": (0x340, 64, 8, True, True),
    }
    for name, expected in ready_made.items():
        of = getattr(tarn.DataType, name)
        told = (of.descriptor, of.bits_per_pixel, of.bytes_per_pixel, of.is_signed, of.is_float)
        assert told == expected, name


def test_mutable_and_immutable_members() -> None:
    size = tarn.Size2D(1, 2)
    size.width = 7
    assert list(size) == [7, 2]
    with pytest.raises(AttributeError):
        del size.width
    for immutable, name in (
        (tarn.DataType(8), "descriptor"),
        (tarn.GenApiVersion(), "major"),
        (tarn.NetworkConnection(), "port"),
    ):
        with pytest.raises(AttributeError):
            setattr(immutable, name, 1)
        immutable.__init__()  # a second construction changes nothing either
        assert immutable == type(immutable)(*([8] if name == "descriptor" else []))


def test_refused_arguments() -> None:
    for construct, error, text in (
        (lambda: tarn.Size2D(1, 2, 3), ValueError, NO_MATCH),
        (lambda: tarn.Size2D(depth=1), ValueError, NO_MATCH),
        (lambda: tarn.Size2D(1, width=1), ValueError, NO_MATCH),
        (lambda: tarn.DataType(), ValueError, NO_MATCH),
        (lambda: tarn.DataType("x"), ValueError, "type miss match - cannot convert object to int"),
        (lambda: tarn.DataType(2**32), OverflowError, "integer does not fit"),
        (lambda: tarn.DataType(-1), OverflowError, "integer does not fit"),
        (lambda: tarn.GenApiVersion(2**64), OverflowError, "int too big to convert"),
        (lambda: tarn.GenApiVersion(float("nan")), OverflowError, "float too large"),
        (lambda: tarn.GenApiVersion(2.0**63), OverflowError, "float too large"),
        (lambda: tarn.NetworkConnection(5), ValueError, "type miss match - cannot convert object to str"),
        (lambda: tarn.NetworkConnection("", 65536), OverflowError, "integer does not fit"),
        (lambda: tarn.EventCookie(), TypeError, "no public constructor"),
    ):
        with pytest.raises(error, match=text):
            construct()
    with pytest.raises(TypeError):  # the interpreter's own error gets through
        tarn.Size2D([])


def test_numbers_are_converted_as_promised() -> None:
    version = tarn.GenApiVersion
    assert [version(n).major for n in (2.5, -2.5, 2.4, "7", True, -(2**63))] == [3, -3, 2, 7, 1, -(2**63)]

    class Index:
        def __int__(self) -> Any:
            return 12

    assert version(Index()).major == 12
    assert tarn.Size2D("1.5", Index().__int__()).width == 1.5

    class Text(str):
        pass

    with pytest.raises(ValueError, match="cannot convert object to str"):
        tarn.NetworkConnection(Text("10.0.0.1"))


def test_codes_are_plain_ints_that_stay() -> None:
    assert tarn.AccessMode.ReadWrite == 4 and tarn.ColorModel.RGBGuess == -2
    for holder in (tarn.ColorModel, tarn.ColorModel()):
        assert type(holder.YCbCr) is int
        with pytest.raises(AttributeError):
            holder.YCbCr = 9
        with pytest.raises(AttributeError):
            del holder.YCbCr
        assert holder.YCbCr == 5

    class Mine(tarn.ColorModel):
        extra = 1

    Mine.extra = 2
    with pytest.raises(AttributeError):
        Mine.Mono = 3
    assert (Mine.Mono, Mine().Mono, Mine.extra) == (1, 1, 2)


def test_pixel_formats_are_those_of_the_list() -> None:
    with open(ROOT / "camera" / "wire" / "pfnc.csv", newline="") as file:
        listed = {row["name"]: int(row["value"], 16) for row in csv.DictReader(file)}
    names = [name for name in dir(tarn.PfncFormat) if not name.startswith("_")]
    assert {name: getattr(tarn.PfncFormat, name) for name in names} == listed


def test_weak_references_and_subclasses_of_every_type() -> None:
    class Mine(tarn.Size2D):
        pass

    for make in (tarn.Size2D, tarn.NetworkConnection, tarn.AccessMode, Mine, lambda: tarn.Image((2, 2))):
        value = make()
        weak = weakref.ref(value)
        assert (weak() is value and not gc.is_tracked(value)) or isinstance(value, Mine)
        del value
        gc.collect()
        assert weak() is None

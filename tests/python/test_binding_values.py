"""Values, buffer descriptions and interfaces: how they are made, converted, compared and refused."""

import csv
import gc
import weakref
from typing import Any

import pytest

import tarn
from conftest import ROOT
from node_trees import MISMATCH, NO_MATCH, refused
from tarn import gevserver
from tarn.gevserver import ChunkImageBufferDescription as Chunk
from tarn.gevserver import ImageBufferDescription as Image
from tarn.gevserver import LogicalNetworkInterface

MONO8 = tarn.PfncFormat.Mono8
UNSIGNED8 = tarn.DataType.Int8BppUnsigned


def test_values_compare_hash_iterate_and_print() -> None:
    size, version = tarn.Size2D(1, 2.5), tarn.GenApiVersion(1, 2, 3)
    endpoint = tarn.NetworkConnection("10.0.0.1", 80)
    assert size == tarn.Size2D(width=1.0, height=2.5) != tarn.Size2D(2.5, 1)
    assert tarn.Size2D() != (0, 0) and tarn.Size2D(1, 2) != tarn.Point2D(1, 2)
    assert (list(size), list(tarn.Point2D(y=5)), tuple(endpoint)) == ([1, 2.5], [0, 5], ("10.0.0.1", 80))
    assert tarn.GenApiVersion(1, 9, 9) < tarn.GenApiVersion(2) >= tarn.GenApiVersion(1, 10)
    assert {tarn.DataType(0x108): 1}[tarn.DataType.Int8BppSigned] == 1
    assert len({tarn.GenApiVersion(1, 2), tarn.GenApiVersion(1, 2, 0), tarn.GenApiVersion(2)}) == 2
    assert (str(version), str(endpoint)) == ("1.2.3", "10.0.0.1:80")
    assert repr(version) == "GenApiVersion(major=1, minor=2, sub_minor=3)"
    assert repr(endpoint) == "NetworkConnection(address='10.0.0.1', port=80)"
    assert (repr(size), repr(UNSIGNED8)) == ("Size2D(width=1.0, height=2.5)", "DataType(0x008)")
    for call in (lambda: hash(size), lambda: hash(tarn.Point2D()), lambda: UNSIGNED8 < UNSIGNED8):
        with pytest.raises(TypeError):
            call()
    for kind in (tarn.Size2D, tarn.AccessMode, gevserver.FloatNode, type("Mine", (tarn.Size2D,), {})):
        made = kind()
        weak = weakref.ref(made)
        assert gc.is_tracked(made) == (kind.__name__ == "Mine")
        del made
        gc.collect()
        assert weak() is None


def test_data_types() -> None:
    descriptors = {"Int8BppUnsigned": 0x008, "Int10BppUnsigned": 0x00A, "Int12BppUnsigned": 0x00C}
    descriptors |= {"Int14BppUnsigned": 0x00E, "Int16BppUnsigned": 0x010, "Int32BppUnsigned": 0x020}
    descriptors |= {"Int8BppSigned": 0x108, "Int16BppSigned": 0x110, "Int32BppSigned": 0x120}
    descriptors |= {"Float": 0x320, "Double": 0x340}
    for name, descriptor in descriptors.items():
        of, bits = getattr(tarn.DataType, name), descriptor & 0xFF
        assert (of.descriptor, of.bits_per_pixel, of.bytes_per_pixel) == (descriptor, bits, (bits + 7) // 8)
        assert (of.is_signed, of.is_float) == ("Unsigned" not in name, name in ("Float", "Double")), name


def test_some_members_change_and_others_do_not() -> None:
    size, data_type = tarn.Size2D(1, 2), tarn.DataType(8)
    size.width = 7
    with pytest.raises(AttributeError):
        del size.width
    with pytest.raises(AttributeError):
        data_type.descriptor = 1
    data_type.__init__()  # a second construction changes nothing either
    assert (list(size), data_type.descriptor) == ([7, 2], 8)


class Text(str):
    pass


@pytest.mark.parametrize(
    ("construct", "error", "text"),
    [
        (lambda: tarn.Size2D(1, 2, 3), ValueError, NO_MATCH),
        (lambda: tarn.Size2D(depth=1), ValueError, NO_MATCH),
        (lambda: tarn.Size2D(1, width=1), ValueError, NO_MATCH),
        (lambda: tarn.Size2D([]), TypeError, "float"),  # the interpreter's own error gets through
        (lambda: tarn.DataType(), ValueError, NO_MATCH),
        (lambda: tarn.DataType("x"), ValueError, MISMATCH + "int"),
        (lambda: tarn.DataType(2**32), OverflowError, "integer does not fit"),
        (lambda: tarn.DataType(-1), OverflowError, "integer does not fit"),
        (lambda: tarn.GenApiVersion(2**64), OverflowError, "int too big to convert"),
        (lambda: tarn.GenApiVersion(float("nan")), OverflowError, "float too large"),
        (lambda: tarn.GenApiVersion(2.0**63), OverflowError, "float too large"),
        (lambda: tarn.NetworkConnection(Text("10.0.0.1")), ValueError, MISMATCH + "str"),
        (lambda: tarn.NetworkConnection("", 65536), OverflowError, "integer does not fit"),
        (lambda: tarn.EventCookie(), TypeError, "no public constructor"),
    ],
)
def test_refused_arguments(construct: Any, error: Any, text: str) -> None:
    with pytest.raises(error, match=text):
        construct()


def test_numbers_are_converted_as_promised() -> None:
    class Number:
        def __int__(self) -> int:
            return 12

    given = [2.5, -2.5, 2.4, "7", True, -(2**63), Number()]
    assert [tarn.GenApiVersion(n).major for n in given] == [3, -3, 2, 7, 1, -(2**63), 12]
    assert tarn.Size2D("1.5").width == 1.5


def test_codes_are_plain_ints_that_stay() -> None:
    """What they are is in the stubs, but for those of the standard's list."""

    class Mine(tarn.ColorModel):
        extra = 1

    Mine.extra = 2
    for holder in (tarn.ColorModel, tarn.ColorModel(), Mine):
        with pytest.raises(AttributeError):
            holder.YCbCr = 9
        with pytest.raises(AttributeError):
            del holder.YCbCr
        assert holder.YCbCr == 5 and type(holder.YCbCr) is int
    with open(ROOT / "camera" / "wire" / "pfnc.csv", newline="") as file:
        listed = {row["name"]: int(row["value"], 16) for row in csv.DictReader(file)}
    names = [name for name in dir(tarn.PfncFormat) if not name.startswith("_")]
    assert {name: getattr(tarn.PfncFormat, name) for name in names} == listed


def test_descriptions_change_or_stay_as_they_are() -> None:
    of_image, of_chunk = Image.create_image_buffer_description, Chunk.create_chunk_image_buffer_description
    size, small = tarn.Size2D(0.5, 10), "Total payload size must at least be large enough to hold a chunk"
    for made in (
        of_image(size, 1, UNSIGNED8),
        Image.create_image_buffer_description_pfnc(size=size, pixel_format=MONO8),
        Chunk.create_chunk_image_buffer_description_pfnc(size, MONO8, 4),
        good := of_chunk(size, 1, UNSIGNED8, 4.4),
    ):
        assert (tuple(made.size), made.pixel_format) == ((1, 10), MONO8)
        assert (tuple(made.offset), made.line_padding) == ((0, 0), 0)
    assert (good.total_payload_size, good.layout_id) == (4, 0)
    good.size, good.offset, good.line_padding = tarn.Size2D(3.5, 2.4), tarn.Point2D(0.5, 1.4), -2.5
    good.pixel_format, good.total_payload_size, good.layout_id = 0x80000001, "17", 5
    for name, value, text in (
        ("pixel_format", 0, "Invalid pixel format"),
        ("size", tarn.Size2D(0, 0), "Width must be larger or equal to 1"),
        ("size", tarn.Size2D(1, 0.4), "Height must be larger or equal to 1"),
        ("offset", tarn.Point2D(-1, -1), "X must be larger or equal to 0"),
        ("offset", tarn.Point2D(0, -0.5), "Y must be larger or equal to 0"),
        ("total_payload_size", 3, small),
        ("layout_id", -1, "Layout identifier must be larger or equal to 0"),
    ):
        refused(RuntimeError, text, setattr, good, name, value)
    refused(ValueError, MISMATCH + "tarn.Size2D", setattr, good, "size", (4, 4))
    assert (tuple(good.size), tuple(good.offset), good.line_padding) == ((4, 2), (1, 1), -3)
    assert (good.pixel_format, good.total_payload_size, good.layout_id) == (0x80000001, 17, 5)
    refused(RuntimeError, "Width must be larger or equal to 1", of_image, tarn.Size2D(0, 0), 1, UNSIGNED8)
    refused(RuntimeError, "Height must be larger or equal to 1", of_image, tarn.Size2D(4, 0), 9, UNSIGNED8)
    refused(RuntimeError, "Invalid pixel format", of_chunk, size, 4, UNSIGNED8, 3)
    refused(RuntimeError, small, of_chunk, size, 1, UNSIGNED8, 3)


def test_an_interface_is_one_address_in_two_views() -> None:
    interface = LogicalNetworkInterface("192.168.0.1", ipv4_mask="255.255.255.0")
    assert (interface.ip_address_uint, interface.ipv4_mask) == (0xC0A80001, "255.255.255.0")
    interface.ip_address_uint = 0x7F000001
    assert interface.ip_address == "127.0.0.1"
    for text in ("nowhere", 5, "1.2.3.4.5", "1.2.3.256"):
        interface.ip_address = text
        assert (interface.ip_address, interface.ip_address_uint) == (str(text), 0)
    interface.ipv4_mask = None
    assert interface.ipv4_mask == "None"
    for wrong in (1.0, "1", True):
        refused(ValueError, MISMATCH + "int", setattr, interface, "ip_address_uint", wrong)
    with pytest.raises(OverflowError):
        interface.ip_address_uint = 2**32
    refused(ValueError, MISMATCH + "str", LogicalNetworkInterface, "10.0.0.1", 24)
    masks = {each.ip_address: each.ipv4_mask for each in LogicalNetworkInterface.get_all_available()}
    assert masks.get("127.0.0.1", "255.0.0.0") == "255.0.0.0"

"""Buffer descriptions and network interfaces."""

from typing import Any

import pytest

import tarn
from tarn.gevserver import ChunkImageBufferDescription as Chunk
from tarn.gevserver import ImageBufferDescription as Image
from tarn.gevserver import LogicalNetworkInterface

UNSIGNED8 = tarn.DataType.Int8BppUnsigned


def test_a_new_description_and_its_changes() -> None:
    size = tarn.Size2D(0.5, 10)
    for made, size_told in (
        (Image.create_image_buffer_description(size, 1, UNSIGNED8), (1, 10)),
        (Image.create_image_buffer_description_pfnc(size=size, pixel_format=tarn.PfncFormat.Mono8), (1, 10)),
        (Chunk.create_chunk_image_buffer_description(size, 1, UNSIGNED8, 4.4), (1, 10)),
        (Chunk.create_chunk_image_buffer_description_pfnc(size, tarn.PfncFormat.Mono8, 4), (1, 10)),
    ):
        assert tuple(made.size) == size_told and made.pixel_format == tarn.PfncFormat.Mono8
        assert (tuple(made.offset), made.line_padding) == ((0, 0), 0)
        made.size, made.offset = tarn.Size2D(3.5, 2.4), tarn.Point2D(0.5, 1.4)
        made.line_padding, made.pixel_format = -2.5, 0x80000001
        assert (tuple(made.size), tuple(made.offset)) == ((4, 2), (1, 1))
        assert (made.line_padding, made.pixel_format) == (-3, 0x80000001)
        if isinstance(made, Chunk):
            assert (made.total_payload_size, made.layout_id) == (4, 0)
            made.total_payload_size, made.layout_id = "17", 5
            assert (made.total_payload_size, made.layout_id) == (17, 5)


def test_refused_descriptions() -> None:
    size, good = (
        tarn.Size2D(4, 4),
        Chunk.create_chunk_image_buffer_description(tarn.Size2D(4, 4), 1, UNSIGNED8, 9),
    )
    small = "Total payload size must at least be large enough to hold a chunk"
    of_image, of_chunk = Image.create_image_buffer_description, Chunk.create_chunk_image_buffer_description

    def change(name: str, value: Any) -> Any:
        return lambda: setattr(good, name, value)

    for call, text in (
        (lambda: of_image(tarn.Size2D(0.4, 0), 1, UNSIGNED8), "Width must be larger or equal to 1"),
        (lambda: of_image(tarn.Size2D(4, 0), 9, UNSIGNED8), "Height must be larger or equal to 1"),
        (lambda: of_image(size, 1, tarn.DataType.Float), "Invalid pixel format"),
        (lambda: of_chunk(size, 4, UNSIGNED8, 3), "Invalid pixel format"),
        (lambda: of_chunk(size, 1, UNSIGNED8, 3), small),
        (change("total_payload_size", 3), small),
        (change("layout_id", -1), "Layout identifier must be larger or equal to 0"),
        (change("pixel_format", 0), "Invalid pixel format"),
        (change("size", tarn.Size2D(0, 0)), "Width must be larger or equal to 1"),
        (change("size", tarn.Size2D(1, 0.4)), "Height must be larger or equal to 1"),
        (change("offset", tarn.Point2D(-1, -1)), "X must be larger or equal to 0"),
        (change("offset", tarn.Point2D(0, -0.5)), "Y must be larger or equal to 0"),
    ):
        with pytest.raises(RuntimeError) as caught:
            call()
        assert str(caught.value) == text
    for wrong in ((4, 4), tarn.Point2D(4, 4)):
        with pytest.raises(ValueError, match=r"cannot convert object to tarn\.Size2D"):
            good.size = wrong
    assert (tuple(good.size), tuple(good.offset), good.total_payload_size) == ((4, 4), (0, 0), 9)


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
        with pytest.raises(ValueError, match="cannot convert object to int"):
            interface.ip_address_uint = wrong
    for wrong in (-1, 2**32):
        with pytest.raises(OverflowError):
            interface.ip_address_uint = wrong
    with pytest.raises(ValueError, match="do not match any of the expected signatures"):
        LogicalNetworkInterface("10.0.0.1")
    with pytest.raises(ValueError, match="cannot convert object to str"):
        LogicalNetworkInterface("10.0.0.1", 24)


def test_interfaces_of_this_machine() -> None:
    available = LogicalNetworkInterface.get_all_available()
    assert all(type(interface) is LogicalNetworkInterface for interface in available)
    loopback = [interface for interface in available if interface.ip_address == "127.0.0.1"]
    assert not loopback or loopback[0].ipv4_mask == "255.0.0.0"

"""Pixel formats that a client chooses among."""

import re
from typing import Any

import numpy as np
import pytest

import tarn
from aravis_tools import tool
from conftest import MakeCamera
from genapi_peer import check_agreement, in_control
from gvcp_client import BUSY, INVALID_PARAMETER, GvcpError
from tarn.gevserver import Server
from tarn.gevserver.features import offer_pixel_formats
from viewing import streaming, viewing

Pfnc = tarn.PfncFormat
OFFERED = [Pfnc.Mono12p, Pfnc.Mono10p, Pfnc.Mono8, Pfnc.RGB8]
variable = Server.create_with_variable_size_pfnc


def refused(write: Any, *arguments: Any) -> int:
    with pytest.raises(GvcpError) as refusal:
        write(*arguments)
    return refusal.value.status


@pytest.mark.parametrize("chunks", [False, True])
def test_a_client_chooses_and_size_leader_and_packets_follow(make_camera: MakeCamera, chunks: bool) -> None:
    camera = make_camera((640, 48), start=False, kind=variable)
    offer_pixel_formats(camera.server, OFFERED)
    camera.server.start(camera.address)
    tool("-a", camera.address, "control", "PixelFormat=Mono12p")
    samples = np.random.default_rng(1).integers(0, 4096, (48, 632, 3), np.uint16)
    with viewing(camera.address) as viewer:
        features = viewer.features
        assert features.read("PixelFormat") == Pfnc.Mono12p
        features.write("PixelFormat", Pfnc.Mono8)
        features.write("Width", 637)
        features.write("ChunkModeActive", chunks)
        for value, width in ((Pfnc.Mono12p, 636), (Pfnc.RGB8, 636), (Pfnc.Mono8, 636), (Pfnc.Mono10p, 636)):
            features.write("PixelFormat", value)
            assert features.read("Width") == width
        assert [refused(features.write, "Width", width) for width in (0, 1, 634)] == [INVALID_PARAMETER] * 3
        assert refused(features.write, "PixelFormat", Pfnc.BGR8) == INVALID_PARAMETER
        features.write("Width", 632)
    for value in (Pfnc.Mono12p, Pfnc.RGB8):
        packed = value == Pfnc.Mono12p
        array = samples[..., 0] if packed else samples.astype(np.uint8)
        image = tarn.WrappedImage.from_buffer(array)
        with streaming(camera.address, settings={"PixelFormat": value}) as viewer:
            assert refused(viewer.features.write, "PixelFormat", Pfnc.Mono8) == BUSY
            camera.send(image.packed(value) if packed else image)
            frame = viewer.next_frames(1)[0]
            assert viewer.features.read("PayloadSize") == len(frame.payload)
        expected = np.asarray(image.packed(value) if packed else image).tobytes()
        assert (frame.chunks[1] if chunks else frame.image) == expected
        assert chunks or (frame.leader.pixel_format, frame.leader.width) == (value, 632)


def test_the_reference_library_and_user_sets_agree(make_camera: MakeCamera) -> None:
    camera = make_camera((640, 480), start=False, kind=variable)
    offer_pixel_formats(camera.server, OFFERED)
    camera.server.start(camera.address)
    with in_control(camera) as nodes:
        check_agreement(nodes, camera.server.node_map)
        assert [entry.symbolic for entry in nodes.PixelFormat.entries] == [
            "Mono8",
            "Mono12p",
            "Mono10p",
            "RGB8",
        ]
        assert nodes.Width.inc == 1
        nodes.PixelFormat.value = "Mono10p"
        assert (nodes.Width.min, nodes.Width.inc) == (4, 4)
        nodes.Width.value = 64
        nodes.UserSetSelector.value = "UserSet1"
        nodes.UserSetSave.execute()
        nodes.PixelFormat.value, nodes.Width.value = "Mono8", 61
        nodes.UserSetLoad.execute()
        assert (nodes.PixelFormat.value, nodes.Width.value, nodes.PayloadSize.value) == (
            "Mono10p",
            64,
            64 * 600,
        )


@pytest.mark.parametrize(
    ("kind", "formats", "error", "text"),
    [
        (variable, [Pfnc.RGB8, 12345], ValueError, "0x3039 is no PFNC format"),
        (variable, [Pfnc.RGB8, Pfnc.Mono10p], ValueError, "lines of 637 pixels of Mono10p end inside a byte"),
        (Server.create_with_const_size_pfnc, [Pfnc.Mono1p], ValueError, "lines of 637 pixels"),
    ],
)
def test_refused_offers_add_nothing(
    make_camera: MakeCamera, kind: Any, formats: Any, error: Any, text: str
) -> None:
    camera = make_camera((637, 48), start=False, kind=kind)
    with pytest.raises(error, match=re.escape(text)):
        offer_pixel_formats(camera.server, formats)
    assert len(camera.server.node_map.PixelFormat.entries) == 1
    camera.server.start(camera.address)
    with pytest.raises(RuntimeError):
        offer_pixel_formats(camera.server, [Pfnc.RGB8])

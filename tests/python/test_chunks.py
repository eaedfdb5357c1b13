"""Chunks behind images: as the wire has them, and as two independent clients read them."""

import pathlib
import struct
from typing import Any

import pytest

import tarn
from aravis_tools import grab, pieces
from conftest import Camera, MakeCamera
from feeding import Feeder, noise, send
from gvcp_client import BUSY, GvcpError
from gvsp_receiver import CHUNKED, IMAGE, Frame
from tarn import PfncFormat
from tarn.gevserver import Float64RegNode, Int32RegNode, IntegerNode, NodeList, NodeMap, StringRegNode
from viewing import Viewer, streaming, viewing

IMAGE_ID, TIMESTAMP, FRAME_ID, OFFSET_X, OFFSET_Y, WIDTH, HEIGHT, PIXEL_FORMAT = range(1, 9)
OF_PROGRAM = 0x10000
LENGTHS = {TIMESTAMP: 8, FRAME_ID: 8, OFFSET_X: 4, OFFSET_Y: 4, WIDTH: 4, HEIGHT: 4, PIXEL_FORMAT: 4}
CHUNKS_ON = {"ChunkModeActive": 1}
PICTURE = noise((64, 48))


def add_chunks(camera: Camera) -> NodeMap:
    """Three chunks of the program: a register, one behind a feature, and a text; and start it."""
    tree: NodeMap = camera.server.node_map
    exposure = Float64RegNode.create("ChunkExposureTime")
    count_value = Int32RegNode.create("CountValue")
    count = IntegerNode.create("ChunkCount")
    label = StringRegNode.create("ChunkLabel", length=10 + 2)
    for node in (exposure, count_value, count, label):
        tree.add_node(node)
    count.value_config_as_node = count_value
    for node in (exposure, count, label):
        tree.ChunkDataControl.add(node, NodeList.Child)
    tree.ChunkExposureTime.value, tree.ChunkCount.value, tree.ChunkLabel.value = 12.25, -3, "bench"
    camera.server.start(camera.address)
    return tree


@pytest.mark.parametrize("size", [(64, 48), (61, 47), (99, 40)])
def test_chunks_tell_of_the_image_and_of_the_program(make_camera: MakeCamera, size: tuple[int, int]) -> None:
    camera = make_camera(size, start=False)
    tree = add_chunks(camera)
    pictures = [noise(size, seed=seed) for seed in range(3)]
    with streaming(camera.address, settings=CHUNKS_ON) as viewer:
        for number, picture in enumerate(pictures):
            tree.ChunkExposureTime.value = 1000.5 + number
            tree.ChunkCount.value = -number
            tree.ChunkLabel.value = f"image {number}"
            send(camera, picture)
        frames = viewer.receiver.wait_frames(3)
        payload_size = viewer.features.read("PayloadSize")
    for number, (frame, picture) in enumerate(zip(frames, pictures, strict=True)):
        chunks = frame.chunks
        assert frame.payload_type == frame.leader.payload_type == IMAGE | CHUNKED
        assert (frame.lines_sent, len(frame.payload)) == (size[1], payload_size)
        assert list(chunks) == [IMAGE_ID, *LENGTHS, OF_PROGRAM, OF_PROGRAM + 1, OF_PROGRAM + 2]
        assert chunks[IMAGE_ID] == picture.tobytes() + bytes(-picture.nbytes % 4)
        assert {chunk: len(chunks[chunk]) for chunk in LENGTHS} == LENGTHS
        values = {chunk: int.from_bytes(chunks[chunk], "big") for chunk in LENGTHS}
        assert (values[TIMESTAMP], values[FRAME_ID]) == (frame.leader.timestamp, number + 1)
        assert (values[WIDTH], values[HEIGHT], values[PIXEL_FORMAT]) == (*size, PfncFormat.Mono8)
        assert struct.unpack(">d", chunks[OF_PROGRAM]) == (1000.5 + number,)
        assert struct.unpack(">i", chunks[OF_PROGRAM + 1]) == (-number,)
        assert chunks[OF_PROGRAM + 2] == f"image {number}".encode().ljust(12, b"\0")
    assert len({frame.chunk_layout for frame in frames} - {0}) == 1


def test_the_client_chooses_chunks_while_it_does_not_stream(camera: Camera) -> None:
    def choose(viewer: Viewer, number: int, on: bool) -> None:
        """ChunkEnable of the entry of ChunkSelector with this number: a word for each."""
        viewer.client.write_register(viewer.features.register("ChunkEnable")[0] + 4 * number, on)

    frames: list[Frame] = []
    for chosen in ((), (TIMESTAMP,), (WIDTH, HEIGHT), (HEIGHT, WIDTH)):
        with viewing(camera.address) as viewer:
            viewer.features.write("ChunkModeActive", 1)
            for number in range(len(LENGTHS) + 1):  # the image stays, and nobody is refused for trying
                choose(viewer, number, number + 1 in chosen)
            viewer.start()
            for write in (lambda v: v.features.write("ChunkModeActive", 0), lambda v: choose(v, 1, True)):
                with pytest.raises(GvcpError) as refusal:
                    write(viewer)
                assert refusal.value.status == BUSY
            send(camera, PICTURE)
            frames += viewer.receiver.wait_frames(1)
            assert len(frames[-1].payload) == viewer.features.read("PayloadSize")
        assert list(frames[-1].chunks) == [IMAGE_ID, *sorted(chosen)]
    layouts = [frame.chunk_layout for frame in frames]
    assert layouts[2] == layouts[3]
    assert len(set(layouts)) == 3
    with streaming(camera.address, settings={"ChunkModeActive": 0}) as viewer:
        send(camera, PICTURE)
        frame = viewer.receiver.wait_frames(1)[0]
        assert (frame.payload_type, frame.image) == (IMAGE, PICTURE.tobytes())
        assert viewer.features.read("PayloadSize") == PICTURE.nbytes


def test_a_given_payload_size_is_the_images_own(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    camera.server.node_map.PayloadSizeValue.value = 5000
    camera.server.start(camera.address)
    with streaming(camera.address, settings=CHUNKS_ON) as viewer:
        send(camera, PICTURE)
        frame = viewer.receiver.wait_frames(1)[0]
        assert viewer.features.read("PayloadSize") - 5000 == len(frame.payload) - PICTURE.nbytes


def test_registers_come_and_go_as_chunks(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    tree = add_chunks(camera)

    def last_entries(count: int) -> list[str]:
        return [entry.name_only for entry in tree.ChunkSelector.entries][-count:]

    camera.server.stop()
    assert last_entries(3) == ["ExposureTime", "Count", "Label"]
    exposure = tree.ChunkExposureTime
    assert (exposure.access_mode, exposure.value) == (tarn.AccessMode.ReadOnly, 12.25)
    tree.ChunkDataControl.remove(tree.ChunkCount, NodeList.Child)
    tree.remove_node(tree.ChunkLabel)
    camera.server.start(camera.address)
    assert last_entries(2) == ["PixelFormat", "ExposureTime"]
    with viewing(camera.address) as viewer:
        assert viewer.features.read("ChunkCount") == 2**32 - 3, "in the device again"


@pytest.mark.parametrize(
    ("chunks", "reason"),
    [
        (["Shared"], "ChunkShared cannot be a chunk: its register ChunkShared is also used by Gain"),
        (["Moving"], "ChunkMoving cannot be a chunk: the address of its register moves"),
        (["Image"], "ChunkSelector has an entry Image already"),
        ([f"V{number}" for number in range(57)], "there are more than 56 chunks beside the device's own"),
    ],
    ids=lambda what: what[0] if isinstance(what, list) else "",
)
def test_what_cannot_be_a_chunk_is_refused_by_its_name(
    make_camera: MakeCamera, chunks: list[str], reason: str
) -> None:
    camera = make_camera(start=False)
    tree = camera.server.node_map
    offset, gain = Int32RegNode.create("Offset"), IntegerNode.create("Gain")
    registers = [Int32RegNode.create(f"Chunk{name}") for name in chunks]
    for node in (offset, gain, *registers):
        tree.add_node(node)
    for register in registers:
        tree.ChunkDataControl.add(register, NodeList.Child)
    if chunks == ["Shared"]:
        gain.value_config_as_node = registers[0]
    if chunks == ["Moving"]:
        registers[0].add(offset, NodeList.Addresses)
    with pytest.raises((RuntimeError, ValueError), match=reason):
        camera.server.start(camera.address)
    if chunks == ["Shared"]:
        gain.value_config_as_int = 0
        camera.server.start(camera.address)  # nothing was lost


@pytest.mark.usefixtures("aravis_binding")
def test_aravis_reads_chunks(make_camera: MakeCamera, tmp_path: pathlib.Path) -> None:
    camera = make_camera((61, 47), resend=2, start=False)
    add_chunks(camera)
    picture = noise((61, 47))
    names = "Timestamp,FrameID,Width,PixelFormat,ExposureTime,Count,Label"
    out = tmp_path / "frames"
    with Feeder(camera, [picture]):
        _, *facts = grab(camera.address, 1500, 5, "udp-socket", out, names)
    whole = [fact for fact in facts if fact["status"] == "success"]  # on a busy machine not all may be
    assert whole
    for fact in whole:
        chunks = {"Timestamp": fact["timestamp"], "FrameID": fact["frame"], "Width": 61}
        chunks |= {"PixelFormat": PfncFormat.Mono8, "ExposureTime": 12.25, "Count": -3, "Label": "bench"}
        assert fact["chunks"] == chunks
        assert (fact["width"], fact["height"]) == (61, 47)
    images = {frame[: picture.nbytes] for frame in pieces(out, whole[0]["bytes"])}
    assert images == {picture.tobytes()}


def test_the_reference_library_reads_chunks(make_camera: MakeCamera) -> None:
    peer = pytest.importorskip("genapi_peer")
    camera = make_camera(start=False)
    tree = add_chunks(camera)
    with viewing(camera.address) as viewer:
        nodes, _port = peer.node_map(viewer.client)
        nodes.get_node("ChunkModeActive").value = True
        selector, enable = nodes.get_node("ChunkSelector"), nodes.get_node("ChunkEnable")
        for entry in selector.symbolics:
            selector.value = entry
            enable.value = entry not in ("OffsetX", "OffsetY")
        absent = peer.genapi.EAccessMode.NA
        assert nodes.get_node("ChunkWidth").get_access_mode() == absent, "there is no image yet"
        viewer.start()
        adapter = peer.genapi.ChunkAdapterGEV(nodes)
        for number in range(1, 4):
            tree.ChunkExposureTime.value = number / 8
            send(camera, noise((64, 48), seed=number))
            frame = viewer.receiver.wait_frames(number)[-1]
            payload = frame.payload
            assert adapter.check_buffer_layout(payload, len(payload))
            adapter.attach_buffer(payload, len(payload))
            expected = {"Width": 64, "Height": 48, "FrameID": number, "Count": -3, "Label": "bench"}
            expected |= {"ExposureTime": number / 8, "Timestamp": frame.leader.timestamp}
            expected |= {"PixelFormat": "Mono8"}
            seen: dict[str, Any] = {name: nodes.get_node(f"Chunk{name}").value for name in expected}
            assert seen == expected
            assert nodes.get_node("ChunkOffsetX").get_access_mode() == absent
            adapter.detach_buffer()

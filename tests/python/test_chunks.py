"""Chunks behind images: as the wire has them, and as two independent clients read them."""

import contextlib
import json
import pathlib
import struct
import subprocess
import sys
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest

import tarn
from conftest import Camera, MakeCamera, free_address, open_stream, wait_until
from features import Features
from feeding import Feeder, noise
from gvcp_client import BUSY, ControlClient, GvcpError
from gvsp_receiver import CHUNKED, IMAGE, Frame, StreamReceiver
from tarn import PfncFormat
from tarn.gevserver import (
    CategoryNode,
    Float64RegNode,
    Int32RegNode,
    IntegerNode,
    NodeList,
    NodeMap,
    StringRegNode,
)

ARAVIS = pathlib.Path(__file__).with_name("aravis_chunks.py")

IMAGE_ID, TIMESTAMP, FRAME_ID, OFFSET_X, OFFSET_Y, WIDTH, HEIGHT, PIXEL_FORMAT = range(1, 9)
OF_PROGRAM = 0x10000
_REGISTERS = {TIMESTAMP: 8, FRAME_ID: 8, OFFSET_X: 4, OFFSET_Y: 4, WIDTH: 4, HEIGHT: 4, PIXEL_FORMAT: 4}


def add_chunks(tree: NodeMap) -> None:
    """Three chunks of the program: a register, one behind a feature, and a text."""
    exposure = Float64RegNode.create("ChunkExposureTime")
    count_value = Int32RegNode.create("CountValue")
    count = IntegerNode.create("ChunkCount")
    label = StringRegNode.create("ChunkLabel", length=10 + 2)
    for node in (exposure, count_value, count, label):
        tree.add_node(node)
    count.value_config_as_node = count_value
    for node in (exposure, count, label):
        tree.ChunkDataControl.add(node, NodeList.Child)


def set_chunk(features: Features, client: ControlClient, number: int, on: bool) -> None:
    """ChunkEnable of the entry of ChunkSelector with this number: a word for each."""
    client.write_register(features.register("ChunkEnable")[0] + 4 * number, on)


@contextlib.contextmanager
def streaming(
    camera: Camera, *, chunks: bool = True
) -> Iterator[tuple[ControlClient, StreamReceiver, Features]]:
    with StreamReceiver() as receiver, camera.client() as client:
        client.connect()
        open_stream(client, receiver)
        features = Features(client)
        features.write("ChunkModeActive", chunks)
        features.execute("AcquisitionStart")
        camera.wait_running()
        yield client, receiver, features
        features.execute("AcquisitionStop")


def send(camera: Camera, picture: np.ndarray) -> None:
    camera.send(tarn.WrappedImage.from_buffer(picture))


@pytest.mark.parametrize("size", [(64, 48), (61, 47), (99, 40)])
def test_chunks_tell_of_the_image_and_of_the_program(make_camera: MakeCamera, size: tuple[int, int]) -> None:
    camera = make_camera(size, start=False)
    tree = camera.server.node_map
    add_chunks(tree)
    camera.server.start(camera.address)
    pictures = [noise(size, PfncFormat.Mono8, seed) for seed in range(3)]
    with streaming(camera) as (_, receiver, features):
        for number, picture in enumerate(pictures):
            tree.ChunkExposureTime.value = 1000.5 + number
            tree.ChunkCount.value = -number
            tree.ChunkLabel.value = f"image {number}"
            send(camera, picture)
        frames = receiver.wait_frames(3)
        payload_size = features.read("PayloadSize")
    for number, (frame, picture) in enumerate(zip(frames, pictures, strict=True)):
        chunks = frame.chunks
        assert frame.payload_type == frame.leader.payload_type == IMAGE | CHUNKED
        assert frame.lines_sent == size[1]
        assert len(frame.payload) == payload_size
        assert list(chunks) == [IMAGE_ID, *_REGISTERS, OF_PROGRAM, OF_PROGRAM + 1, OF_PROGRAM + 2]
        assert chunks[IMAGE_ID] == picture.tobytes() + bytes(-picture.nbytes % 4)
        values = {chunk: int.from_bytes(chunks[chunk], "big") for chunk in _REGISTERS}
        assert {chunk: len(chunks[chunk]) for chunk in _REGISTERS} == _REGISTERS
        assert values[TIMESTAMP] == frame.leader.timestamp
        assert values[FRAME_ID] == frame.block == number + 1
        assert (values[WIDTH], values[HEIGHT], values[PIXEL_FORMAT]) == (*size, PfncFormat.Mono8)
        assert struct.unpack(">d", chunks[OF_PROGRAM]) == (1000.5 + number,)
        assert struct.unpack(">i", chunks[OF_PROGRAM + 1]) == (-number,)
        assert chunks[OF_PROGRAM + 2] == f"image {number}".encode().ljust(12, b"\0")
    assert len({frame.chunk_layout for frame in frames}) == 1
    assert frames[0].chunk_layout != 0


def test_the_client_chooses_chunks_while_it_does_not_stream(camera: Camera) -> None:
    picture = noise((64, 48), PfncFormat.Mono8, 0)
    frames: list[Frame] = []
    for chosen in ((), (TIMESTAMP,), (WIDTH, HEIGHT), (HEIGHT, WIDTH)):
        with camera.client() as client:
            client.connect()
            features = Features(client)
            for number in range(
                len(_REGISTERS) + 1
            ):  # the image cannot be switched off, and nobody is refused for trying
                set_chunk(features, client, number, number + 1 in chosen)
        with streaming(camera) as (client, receiver, features):
            with pytest.raises(GvcpError) as mode:
                features.write("ChunkModeActive", 0)
            with pytest.raises(GvcpError) as enable:
                set_chunk(features, client, 1, True)
            assert (mode.value.status, enable.value.status) == (BUSY, BUSY)
            send(camera, picture)
            frames += receiver.wait_frames(1)
            assert len(frames[-1].payload) == features.read("PayloadSize")
        assert list(frames[-1].chunks) == [IMAGE_ID, *sorted(chosen)]
    layouts = [frame.chunk_layout for frame in frames]
    assert layouts[2] == layouts[3]
    assert len(set(layouts)) == 3
    with streaming(camera, chunks=False) as (_, receiver, features):
        send(camera, picture)
        frame = receiver.wait_frames(1)[0]
        assert (frame.payload_type, frame.image) == (IMAGE, picture.tobytes())
        assert features.read("PayloadSize") == picture.nbytes


def test_a_given_payload_size_is_the_images_own(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    camera.server.node_map.PayloadSizeValue.value = 5000
    camera.server.start(camera.address)
    with streaming(camera) as (_, receiver, features):
        send(camera, noise((64, 48), PfncFormat.Mono8, 0))
        frame = receiver.wait_frames(1)[0]
        assert features.read("PayloadSize") - 5000 == len(frame.payload) - 64 * 48


def test_registers_come_and_go_as_chunks(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    server, tree = camera.server, camera.server.node_map
    add_chunks(tree)
    tree.ChunkExposureTime.value = 7.5
    server.start(camera.address)
    server.stop()
    assert [entry.name_only for entry in tree.ChunkSelector.entries][-3:] == [
        "ExposureTime",
        "Count",
        "Label",
    ]
    assert tree.ChunkExposureTime.access_mode == tarn.AccessMode.ReadOnly
    assert tree.ChunkExposureTime.value == 7.5
    tree.ChunkDataControl.remove(tree.ChunkCount, NodeList.Child)
    tree.remove_node(tree.ChunkLabel)
    server.start(camera.address)
    assert [entry.name_only for entry in tree.ChunkSelector.entries][-2:] == ["PixelFormat", "ExposureTime"]
    with camera.client() as client:
        features = Features(client)
        assert client.read_register(features.register("ChunkCount")[0]) == 0  # in the device again


@pytest.mark.parametrize("fault", ["shared", "moving", "name", "many"])
def test_what_cannot_be_a_chunk_is_refused_by_its_name(make_camera: MakeCamera, fault: Any) -> None:
    camera = make_camera(start=False)
    tree = camera.server.node_map

    def add(name: str, parent: CategoryNode | None = None) -> Int32RegNode:
        node = Int32RegNode.create(name)
        tree.add_node(node)
        if parent:
            parent.add(node, NodeList.Child)
        return node

    reg = add("ChunkGain", tree.ChunkDataControl)
    if fault == "shared":
        gain = IntegerNode.create("Gain")
        tree.add_node(gain)
        gain.value_config_as_node = reg
        reason = "ChunkGain cannot be a chunk: its register ChunkGain is also used by Gain"
    elif fault == "moving":
        reg.add(add("Offset"), NodeList.Addresses)
        reason = "ChunkGain cannot be a chunk: the address of its register moves"
    elif fault == "name":
        add("ChunkImage", tree.ChunkDataControl)
        reason = "ChunkSelector has an entry Image already"
    else:
        for number in range(56):
            add(f"ChunkV{number}", tree.ChunkDataControl)
        reason = "there are more than 56 chunks beside the device's own"
    with pytest.raises((RuntimeError, ValueError), match=reason):
        camera.server.start(camera.address)
    if fault == "shared":
        tree.Gain.value_config_as_int = 0
        camera.server.start(camera.address)  # nothing was lost


@pytest.mark.usefixtures("aravis_binding")
def test_aravis_reads_chunks(make_camera: MakeCamera) -> None:
    camera = make_camera((61, 47), resend=2, start=False)
    tree = camera.server.node_map
    add_chunks(tree)
    tree.ChunkExposureTime.value, tree.ChunkCount.value, tree.ChunkLabel.value = 12.25, -3, "bench"
    camera.server.start(camera.address)
    picture = noise((61, 47), PfncFormat.Mono8, 0)
    with Feeder(camera, [picture]):
        names = "Timestamp,FrameID,Width,PixelFormat,ExposureTime,Count,Label"
        command = [sys.executable, str(ARAVIS), camera.address, names, "5"]
        done = subprocess.run(command, capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    facts = [json.loads(line) for line in done.stdout.splitlines()]
    assert len(facts) == 5
    for fact in facts:
        assert fact["has_chunks"]
        assert (fact["width"], fact["height"]) == (61, 47)
        assert bytes.fromhex(fact["image"])[: picture.nbytes] == picture.tobytes()
        assert fact["ChunkTimestamp"] == fact["timestamp"]
        assert fact["ChunkFrameID"] == fact["frame"]
        assert (fact["ChunkWidth"], fact["ChunkPixelFormat"]) == (61, PfncFormat.Mono8)
        assert (fact["ChunkExposureTime"], fact["ChunkCount"], fact["ChunkLabel"]) == (12.25, -3, "bench")


def test_the_reference_library_reads_chunks(make_camera: MakeCamera) -> None:
    peer = pytest.importorskip("genapi_peer")
    camera = make_camera((64, 48), start=False)
    tree = camera.server.node_map
    add_chunks(tree)
    tree.ChunkCount.value, tree.ChunkLabel.value = 42, "bench"
    camera.server.start(camera.address)
    with StreamReceiver() as receiver, camera.client() as client:
        client.connect()
        open_stream(client, receiver)
        nodes, _port = peer.node_map(client)

        def value(name: str) -> Any:
            return nodes.get_node(name).value

        nodes.get_node("ChunkModeActive").value = True
        selector, enable = nodes.get_node("ChunkSelector"), nodes.get_node("ChunkEnable")
        for entry in selector.symbolics:
            selector.value = entry
            enable.value = entry not in ("OffsetX", "OffsetY")
        assert nodes.get_node("ChunkWidth").get_access_mode() == peer.genapi.EAccessMode.NA  # no image yet
        nodes.get_node("AcquisitionStart").execute()
        camera.wait_running()
        adapter = peer.genapi.ChunkAdapterGEV(nodes)
        for number in range(1, 4):
            tree.ChunkExposureTime.value = number / 8
            send(camera, noise((64, 48), PfncFormat.Mono8, number))
            frame = receiver.wait_frames(number)[-1]
            payload = frame.payload
            assert adapter.check_buffer_layout(payload, len(payload))
            adapter.attach_buffer(payload, len(payload))
            seen = {name: value(f"Chunk{name}") for name in ("Width", "Height", "FrameID", "Count", "Label")}
            assert seen == {"Width": 64, "Height": 48, "FrameID": number, "Count": 42, "Label": "bench"}
            assert value("ChunkExposureTime") == number / 8
            assert value("ChunkTimestamp") == frame.leader.timestamp
            assert value("ChunkPixelFormat") == "Mono8"
            assert nodes.get_node("ChunkOffsetX").get_access_mode() == peer.genapi.EAccessMode.NA
            adapter.detach_buffer()
        nodes.get_node("AcquisitionStop").execute()
        wait_until(lambda: not camera.server.stream.is_running, "the acquisition ends")


def test_the_documents_example_sends_its_chunks() -> None:
    document = (pathlib.Path(__file__).parents[2] / "docs" / "chunks.md").read_text()
    example = document.split("```python\n")[1].split("```")[0].replace("127.0.0.1", address := free_address())
    # A client comes between the start and the images, which go out when somebody streams.
    begin, images = example.split("for microseconds")
    names: dict[str, object] = {}
    exec(begin, names)
    camera = Camera(names["server"], address)
    try:
        with streaming(camera) as (_, receiver, _):
            exec("for microseconds" + images.removesuffix("server.stop()\n"), names)
            frames = receiver.wait_frames(3)
    finally:
        camera.end()
    values = [struct.unpack(">d", frame.chunks[OF_PROGRAM])[0] for frame in frames]
    assert values == [100.0, 200.0, 400.0]
    assert [frame.chunks[IMAGE_ID][0] for frame in frames] == [50, 100, 200]

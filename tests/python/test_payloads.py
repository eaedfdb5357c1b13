"""What blocks are sent as and where they go: raw data, files, images of any size, multicast, test packets."""

import contextlib
import random
from collections.abc import Iterator

import numpy as np
import pytest

import tarn
from conftest import Camera, MakeCamera, address_word, free_address, open_stream
from features import Features
from feeding import noise
from gvcp_client import (
    BUSY,
    GVCP_CAPABILITY,
    INVALID_PARAMETER,
    SCDA,
    SCP,
    SCPS,
    TIMESTAMP_HIGH,
    TIMESTAMP_LOW,
    ControlClient,
    GvcpError,
)
from gvsp_receiver import CHUNKED, FILE, IMAGE, RAW_DATA, StreamReceiver
from tarn import PfncFormat
from tarn.gevserver import Server

TEST_DATA = 1 << 31 - 6  # in the capability register
FIRE = 0x8000_0000
SIZE = (64, 48)


@contextlib.contextmanager
def acquiring(camera: Camera, client: ControlClient, features: Features) -> Iterator[None]:
    features.execute("AcquisitionStart")
    camera.wait_running()
    yield
    features.execute("AcquisitionStop")


def send(camera: Camera, array: np.ndarray) -> None:
    assert camera.server
    camera.send(tarn.WrappedImage.from_buffer(array))


@pytest.mark.parametrize("chunks", [False, True])
@pytest.mark.parametrize("payload_type", [RAW_DATA, FILE])
def test_any_bytes_go_as_raw_data_or_a_file(camera: Camera, payload_type: int, chunks: bool) -> None:
    arrays = [noise(size, PfncFormat.Mono8, 0) for size in (SIZE, (1000, 1), (1, 1), (7, 3))]
    arrays.append(noise((20, 20), PfncFormat.RGB8, 0))
    longest = "n" * 63
    with StreamReceiver() as receiver, camera.client() as client:
        client.connect()
        open_stream(client, receiver)
        features = Features(client)
        features.write("PayloadType", payload_type)
        client.write_memory(features.register("PayloadFileName")[0], longest.encode() + b"n")
        features.write("ChunkModeActive", chunks)
        with acquiring(camera, client, features):
            for array in arrays:
                send(camera, array)
            with pytest.raises(RuntimeError, match="Could not send image"):
                camera.server.stream.send(tarn.WrappedImage.from_buffer(noise((64, 49), PfncFormat.Mono8, 0)))
            with pytest.raises(GvcpError) as refusal:
                features.write("PayloadType", IMAGE)
            assert refusal.value.status == BUSY
            frames = receiver.wait_frames(len(arrays))
    for frame, array in zip(frames, arrays, strict=True):
        leader = frame.data_leader
        assert leader.payload_type == payload_type | (CHUNKED if chunks else 0)
        assert leader.file_name == (longest if payload_type == FILE else "")
        assert leader.payload_size == len(frame.payload)
        data = frame.chunks[1] if chunks else frame.image
        assert data == array.tobytes() + bytes(-array.nbytes % 4 if chunks else 0)
    assert [frame.block for frame in frames] == [1, 2, 3, 4, 5]


def test_the_leader_follows_a_variable_size() -> None:
    server = Server.create_with_variable_size_pfnc(tarn.Size2D(200, 100), PfncFormat.Mono12)
    camera = Camera(server, free_address())
    try:
        server.start(camera.address)
        for region in ((0, 0, 200, 100), (8, 4, 64, 48), (199, 99, 1, 1)):
            with StreamReceiver() as receiver, camera.client() as client:
                client.connect()
                open_stream(client, receiver)
                features = Features(client)
                values = dict(zip(("OffsetX", "OffsetY", "Width", "Height"), region, strict=True))
                for name in ("OffsetX", "OffsetY"):
                    features.write(name, 0)
                for name in ("Width", "Height", "OffsetX", "OffsetY"):
                    features.write(name, values[name])
                picture = noise(region[2:], PfncFormat.Mono12, 0)
                with acquiring(camera, client, features):
                    send(camera, picture)
                    frame = receiver.wait_frames(1)[0]
                assert features.read("PayloadSize") == len(frame.image) == picture.nbytes
                leader = frame.leader
                assert (leader.offset_x, leader.offset_y, leader.width, leader.height) == region
                assert (frame.lines_sent, frame.image) == (region[3], picture.tobytes())
    finally:
        camera.end()


def test_one_stream_reaches_every_receiver_of_a_group(camera: Camera) -> None:
    group = (f"239.77.{random.randrange(256)}.{random.randrange(1, 255)}", 20_000 + random.randrange(20_000))
    picture = noise(SIZE, PfncFormat.Mono8, 0)
    with (
        StreamReceiver(group=group) as first,
        StreamReceiver(group=group) as second,
        camera.client() as client,
    ):
        client.connect()
        client.write_register(SCPS, 1500)
        client.write_register(SCDA, address_word(group[0]))
        client.write_register(SCP, group[1])
        features = Features(client)
        with acquiring(camera, client, features):
            for _ in range(3):
                send(camera, picture)
            for receiver in (first, second):
                frames = receiver.wait_frames(3)
                assert [frame.image for frame in frames] == [picture.tobytes()] * 3
                assert {source[0] for source in receiver.sources} == {camera.address}


def test_the_stream_goes_to_the_controller_or_a_group_only(camera: Camera) -> None:
    with camera.client() as client:
        client.connect()
        for address in ("127.0.0.1", "224.0.1.1", "239.255.255.255", "0.0.0.0"):
            client.write_register(SCDA, address_word(address))
        others = ("127.0.0.2", "10.0.0.1", "255.255.255.255", "240.0.0.1", "127.255.255.255", "224.0.0.1")
        for other in others:
            with pytest.raises(GvcpError) as refusal:
                client.write_register(SCDA, address_word(other))
            assert refusal.value.status == INVALID_PARAMETER, other
            assert client.read_register(SCDA) == 0


def test_closing_the_channel_stops_the_stream(make_camera: MakeCamera) -> None:
    camera = make_camera((1024, 1024), resend=2)
    picture = noise((1024, 1024), PfncFormat.Mono8, 0)
    with StreamReceiver() as receiver, camera.client() as client:
        client.connect()
        open_stream(client, receiver)
        features = Features(client)
        features.write("GevSCPD", 1_000_000)  # a second and more for each image
        features.execute("AcquisitionStart")
        camera.wait_running()
        assert camera.server
        camera.send(tarn.WrappedImage.from_buffer(picture), lambda image: None)
        client.write_register(SCP, 0)
        assert not camera.server.stream.is_running
        assert not receiver.frames
        with pytest.raises(RuntimeError):
            camera.server.stream.send(tarn.WrappedImage.from_buffer(picture), lambda image: None)


def test_test_packets_hold_data_that_clients_can_check(camera: Camera) -> None:
    def expected(size: int) -> bytes:
        """The standard's generator: a 16-bit register shifted right, fed back at bits 15, 4, 2, 1."""
        state, data = 0xFFFF, bytearray(8)
        while len(data) < size:
            data.append(state & 0xFF)
            out = state & 1
            state >>= 1
            for bit in (15, 4, 2, 1):
                state ^= out << bit
        return bytes(data)

    with StreamReceiver() as receiver, camera.client() as client:
        client.connect()
        assert client.read_register(GVCP_CAPABILITY) & TEST_DATA
        open_stream(client, receiver)
        for count, size in enumerate((576, 1500, 9000, 16000), 1):
            client.write_register(SCPS, FIRE | size)
            assert receiver.wait_test_packets(count, 5)[-1] == expected(size - 28)


def test_leaders_tell_the_time_of_the_clock_that_clients_latch(camera: Camera) -> None:
    def latched() -> int:
        features.execute("TimestampLatch")
        high, low = client.read_registers(TIMESTAMP_HIGH, TIMESTAMP_LOW)
        return high << 32 | low

    with StreamReceiver() as receiver, camera.client() as client:
        client.connect()
        open_stream(client, receiver)
        features = Features(client)
        for count in (1, 2):
            features.execute("TimestampReset")
            with acquiring(camera, client, features):
                before = latched()
                send(camera, noise(SIZE, PfncFormat.Mono8, 0))
                leader = receiver.wait_frames(count)[-1].leader
                assert before < leader.timestamp < latched()

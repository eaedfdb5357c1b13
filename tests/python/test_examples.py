"""The examples do what they say, in processes of their own, seen by a client."""

import contextlib
import ipaddress
import pathlib
import signal
import struct
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest

from conftest import ROOT, free_address, open_stream, run_python
from features import Features
from gvcp_client import ControlClient, discover
from gvsp_receiver import StreamReceiver

EXAMPLES = ROOT / "examples"


@contextlib.contextmanager
def running(name: str, *arguments: str) -> Iterator[str]:
    """The address of the example's first camera; Ctrl+C ends it, without a word."""
    address = free_address()
    with run_python((EXAMPLES / name).read_text(), *arguments, address) as program:
        try:
            while not discover(address, wait=0.1):
                assert program.poll() is None, program.stderr.read()
            yield address
        finally:
            program.send_signal(signal.SIGINT)
            output, error = program.communicate(timeout=20)
    assert (program.returncode, output, error) == (0, "", "")


@contextlib.contextmanager
def streaming(address: str, **settings: int) -> Iterator[tuple[Features, StreamReceiver]]:
    """A client in control, with these features set, that receives."""
    with StreamReceiver(resend_from=address) as receiver, ControlClient(address) as client:
        client.connect()
        features = Features(client)
        for name, value in settings.items():
            features.write(name, value)
        open_stream(client, receiver)
        features.execute("AcquisitionStart")
        yield features, receiver
        features.execute("AcquisitionStop")


def test_every_example_is_short() -> None:
    for example in EXAMPLES.glob("*.py"):
        assert len(example.read_text().splitlines()) < 60, example.name


def test_several_cameras_have_names_and_pictures_of_their_own() -> None:
    with running("several_cameras.py", "--count", "2") as first:
        second = str(ipaddress.IPv4Address(first) + 1)
        for number, address in enumerate((first, second)):
            (found,) = discover(address)
            assert found.user_name == f"camera {number}"
            with streaming(address) as (_, receiver):
                one, other = (frame.image for frame in receiver.wait_frames(2))
            assert len(set(one)) == 1
            assert one[0] + 1 & 255 == other[0]


def test_variable_size_sends_the_part_that_was_chosen() -> None:
    chosen = {"Width": 100, "Height": 50, "OffsetX": 20, "OffsetY": 30}
    with running("variable_size.py") as address, streaming(address, **chosen) as (_, receiver):
        frame, *_ = receiver.wait_frames(1)
        leader = frame.leader
        assert (leader.width, leader.height, leader.offset_x, leader.offset_y) == (100, 50, 20, 30)
        picture = np.frombuffer(frame.image, np.uint8).reshape(50, 100)
        ramp = np.add.outer(np.arange(50), np.arange(100)).astype(np.uint8)
        assert np.array_equal(picture - picture[0, 0], ramp)


def test_resend_callbacks_never_send_a_buffer_that_changes() -> None:
    with running("resend_callbacks.py") as address, streaming(address) as (_, receiver):
        ramp = np.add.outer(np.arange(480), np.arange(640)).astype(np.uint8)
        for frame in receiver.wait_frames(20):  # more than there are buffers
            picture = np.frombuffer(frame.image, np.uint8).reshape(480, 640)
            assert np.array_equal(picture - picture[0, 0], ramp)


def test_trigger_takes_one_picture_for_each_execution() -> None:
    with running("trigger.py") as address, streaming(address, TriggerMode=1) as (features, receiver):
        shown = []
        for number in range(1, 4):
            features.execute("TriggerSoftware")
            shown.append(receiver.wait_frames(number)[-1].image[0])
        assert [(value - shown[0]) % 256 for value in shown] == [0, 1, 2]
        features.write("TriggerMode", 0)
        receiver.wait_frames(8)


def test_chunk_data_fits_the_image_that_brings_it() -> None:
    with running("chunk_data.py") as address, streaming(address, ChunkModeActive=1) as (_, receiver):
        frames = receiver.wait_frames(12)
    parts = []
    for frame in frames:
        image, *_, exposure, part, verdict = frame.chunks.values()
        (microseconds,) = struct.unpack(">d", exposure)
        parts.append(int.from_bytes(part, "big"))
        assert image == bytes([int(microseconds / 2)]) * (640 * 480)
        assert verdict.rstrip(b"\0") == (b"good" if parts[-1] % 10 else b"broken")
        assert microseconds == 100 * 2 ** (parts[-1] % 3)
    assert parts == sorted(set(parts))


@pytest.mark.parametrize(("fault", "unusual"), [(0, 0), (2, 5)])
def test_fault_injection_spoils_every_second_picture(fault: Any, unusual: Any) -> None:
    settings = {"Fault": fault, "Every": 2}
    with running("fault_injection.py") as address, streaming(address, **settings) as (_, receiver):
        frames = receiver.wait_frames(10)[:10]
    assert sum(frame.image == bytes(320 * 240) for frame in frames) == unusual


def test_video_camera_shows_the_video(tmp_path: pathlib.Path) -> None:
    av = pytest.importorskip("av")
    path = tmp_path / "grey.mkv"
    with av.open(str(path), "w") as container:
        stream = container.add_stream("ffv1", rate=30)
        stream.width, stream.height, stream.pix_fmt = 64, 48, "bgr0"
        for level in range(150):
            grey = np.full((48, 64, 3), level, np.uint8)
            container.mux(stream.encode(av.VideoFrame.from_ndarray(grey, format="rgb24")))
        container.mux(stream.encode())
    with running("video_camera.py", str(path)) as address, streaming(address) as (_, receiver):
        levels = [frame.image[0] for frame in receiver.wait_frames(5)]
    assert levels == sorted(set(levels))

"""The examples do what they say, in processes of their own, seen by a client."""

import contextlib
import ipaddress
import pathlib
import signal
import struct
from collections.abc import Iterator

import numpy as np

from conftest import ROOT, free_address, run_python
from feeding import make_video
from gvcp_client import discover
from gvsp_receiver import Frame
from viewing import picture_of, streaming

RAMP = np.add.outer(np.arange(480), np.arange(640)).astype(np.uint8)


@contextlib.contextmanager
def running(name: str, *arguments: str) -> Iterator[str]:
    """The address of the example's first camera, its last argument; Ctrl+C ends it, without a word."""
    script, address = (ROOT / "examples" / name).read_text(), free_address()
    with run_python(script.replace("127.0.0.1", address), *arguments, address) as program:
        try:
            while not discover(address, wait=0.1):
                assert program.poll() is None, program.stderr.read()
            yield address
        finally:
            program.send_signal(signal.SIGINT)
            output, error = program.communicate(timeout=20)
    if name == "hello_camera.py":  # so short that it does not catch Ctrl+C
        assert error.endswith("KeyboardInterrupt\n")
    else:
        assert (program.returncode, output, error) == (0, "", "")
    assert not discover(address, wait=0.1)


def received(name: str, count: int, *arguments: str, **settings: int) -> list[Frame]:
    """Frames of an example that a client gets after it has set these features."""
    with running(name, *arguments) as address, streaming(address, settings=settings) as viewer:
        return viewer.receiver.wait_frames(count)


def test_hello_camera_shows_a_moving_ramp() -> None:
    first, second = map(picture_of, received("hello_camera.py", 2))
    assert np.array_equal(first + np.uint8(1), second)


def test_several_cameras_have_names_and_pictures_of_their_own() -> None:
    with running("several_cameras.py", "--count", "2") as first:
        for number, address in enumerate((first, str(ipaddress.IPv4Address(first) + 1))):
            assert [device.user_name for device in discover(address)] == [f"camera {number}"]
            with streaming(address) as viewer:
                one, other = (frame.image for frame in viewer.receiver.wait_frames(2))
            assert len(set(one)) == 1
            assert one[0] + 1 & 255 == other[0]


def test_variable_size_sends_the_part_that_was_chosen() -> None:
    chosen = {"Width": 100, "Height": 50, "OffsetX": 20, "OffsetY": 30}
    (frame,) = received("variable_size.py", 1, **chosen)
    leader, picture = frame.leader, picture_of(frame)
    assert [leader.width, leader.height, leader.offset_x, leader.offset_y] == list(chosen.values())
    assert np.array_equal(picture - picture[0, 0], RAMP[:50, :100])


def test_resend_callbacks_never_send_a_buffer_that_changes() -> None:
    for picture in map(picture_of, received("resend_callbacks.py", 20)):  # more than there are buffers
        assert np.array_equal(picture - picture[0, 0], RAMP)


def test_trigger_takes_one_picture_for_each_execution() -> None:
    with running("trigger.py") as address, streaming(address, settings={"TriggerMode": 1}) as viewer:
        shown = []
        for number in range(1, 4):
            viewer.features.execute("TriggerSoftware")
            shown.append(viewer.receiver.wait_frames(number)[-1].image[0])
        assert [(value - shown[0]) % 256 for value in shown] == [0, 1, 2]
        viewer.features.write("TriggerMode", 0)
        viewer.receiver.wait_frames(8)


def test_chunk_data_fits_the_image_that_brings_it() -> None:
    parts = []
    for frame in received("chunk_data.py", 12, ChunkModeActive=1):
        image, *_, exposure, part, verdict = frame.chunks.values()
        (microseconds,) = struct.unpack(">d", exposure)
        parts.append(int.from_bytes(part, "big"))
        assert image == bytes([int(microseconds / 2)]) * (640 * 480)
        assert verdict.rstrip(b"\0") == (b"good" if parts[-1] % 10 else b"broken")
        assert microseconds == 100 * 2 ** (parts[-1] % 3)
    assert parts == sorted(set(parts))


def test_fault_injection_spoils_every_second_picture() -> None:
    black = [
        frame.image == bytes(320 * 240) for frame in received("fault_injection.py", 10, Fault=2, Every=2)
    ]
    assert sum(black) == 5


def test_video_camera_shows_the_video(tmp_path: pathlib.Path) -> None:
    make_video(tmp_path / "grey.mkv", list(range(150)), rate=30)
    levels = [frame.image[0] for frame in received("video_camera.py", 5, str(tmp_path / "grey.mkv"))]
    assert levels == sorted(set(levels))

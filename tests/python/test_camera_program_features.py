"""What clients set on the camera program, and what that does to its frames."""

import time

import numpy as np
import pytest

from aravis_tools import tool
from camera_program import running
from gvcp_client import GVCP_CAPABILITY, SCP
from namespaces import two_hosts
from tarn.camera.clock import MARKS
from viewing import Viewer, picture_of, viewing

DO_NOT_FRAGMENT = 0x4000_0000
MONO12P = 0x010C_0047


def frame_numbers(pictures: list[np.ndarray]) -> list[int]:
    """The numbers that the clock burnt into Mono8 pictures."""
    numbers = []
    for picture in pictures:
        step = picture.shape[1] // MARKS
        squares = picture[1, step // 2 :: step][:MARKS] > 127
        numbers.append(int("".join(str(int(square)) for square in squares), 2))
    return numbers


def settled(viewer: Viewer) -> np.ndarray:
    """A picture of a time when all was set: those on their way when the camera is asked are older."""
    viewer.features.execute("TimestampLatch")
    now = viewer.read_count("TimestampLatchValue")
    while viewer.next_frames(1)[0].leader.timestamp <= now:
        pass
    return viewer.next_pictures(3)[-1]


def test_client_sets_brightness_pattern_and_region() -> None:
    with running("--pattern", "white", "--exposure", "2ms") as program, viewing(program.address) as viewer:
        viewer.start()
        assert np.all(settled(viewer) == 51)
        for name, value, grey in (("ExposureTime", 4000, 102), ("Gain", 20, 255), ("ExposureTime", 100, 26)):
            viewer.set_float(name, value)
            assert np.all(settled(viewer) == grey)
        tool("-a", program.address, "control", "TestPattern")  # a second client may read
        viewer.features.write("TestPattern", 1)  # Black
        assert not settled(viewer).any()
        viewer.stop()
        region = {"Width": 100, "Height": 31, "OffsetX": 11, "TestPattern": 2, "PixelFormat": MONO12P}
        for name, value in region.items():
            viewer.features.write(name, value)
        viewer.features.execute("AcquisitionStart")
        tenth = np.frombuffer(b"\x9a\xa1\x19", np.uint8)  # two samples of a tenth of full scale
        assert np.array_equal(settled(viewer), np.tile(tenth, (31, 50)))


def test_frame_rate_holds_from_the_next_frame_on() -> None:
    """Also when the camera is waiting for one that would come much later."""
    with running("--fps", "0.1", "--pattern", "clock") as program, viewing(program.address) as viewer:
        viewer.start()
        viewer.set_float("AcquisitionFrameRate", 100.0)
        viewer.next_frames(20)
        viewer.set_float("AcquisitionFrameRate", 0.1)
        viewer.features.write("AcquisitionFrameRateEnable", 0)  # the exposure of 10 ms alone
        viewer.next_frames(20)


@pytest.mark.parametrize(
    ("options", "resend", "megabytes", "processors"),
    [
        ("--driver socket --resend 0", 0, 125, 0),
        ("--driver filter --resend 2 --throughput 5.5 --processors 0", 1, 5.5, 1),
        ("--size 1920x1080 --format RGB8 --fps 100", 1, 125, 0),
    ],
)
def test_options_say_how_packets_leave(options: str, resend: int, megabytes: float, processors: int) -> None:
    with running(*options.split()) as program, viewing(program.address) as viewer:
        assert viewer.client.read_register(GVCP_CAPABILITY) >> 2 & 1 == resend
        assert viewer.read_count("DeviceLinkThroughputLimit") == megabytes * 1e6
        assert viewer.read_count("StreamThreadProcessors") == processors
        viewer.start()
        viewer.next_frames(3)


def test_damages_frames_on_purpose() -> None:
    options = ("--corrupt", "100%", "--pattern", "white", "--fps", "100")
    with running(*options) as program, viewing(program.address) as viewer:
        viewer.start()
        for picture in viewer.next_pictures(5):
            damaged = np.flatnonzero(picture.reshape(-1) != 255)
            assert len(damaged) == picture.size // 8
            assert damaged[-1] - damaged[0] == len(damaged) - 1, "in one run"
        assert viewer.read_count("FaultCorruptedFrames") >= 5
        viewer.set_float("FaultCorrupt", 0.0)
        assert np.all(settled(viewer) == 255)


def test_freezes_and_drops_frames_on_purpose_and_counts_them() -> None:
    options = ("--freeze", "--drop", "100%", "--pattern", "clock", "--fps", "200", "--size", "64x64")
    with running(*options) as program, viewing(program.address) as viewer:
        viewer.start()
        program.wait_log("no frames: all dropped on purpose (FaultDrop)")
        viewer.set_float("FaultDrop", 0.0)
        assert len(set(frame_numbers(viewer.next_pictures(5)))) == 1
        viewer.features.write("FaultFreeze", 0)
        settled(viewer)
        before = viewer.read_count("FaultDroppedFrames")
        viewer.set_float("FaultDrop", 50.0)
        frames = viewer.next_frames(60)
        counted = viewer.read_count("FaultDroppedFrames") - before
        blocks, numbers = [frame.block for frame in frames], frame_numbers(list(map(picture_of, frames)))
        assert blocks == list(range(blocks[0], blocks[0] + 60)), "the stream itself has no gap"
        lost = numbers[-1] - numbers[0] + 1 - len(numbers)
        assert 20 < lost <= counted, "about as many were left out as were sent"
        viewer.features.write("FaultFreeze", 1)
        settled(viewer)
        assert len(set(frame_numbers(viewer.next_pictures(5)))) == 1


def test_takes_a_frame_for_each_software_trigger_and_sends_late_frames_while_they_are_wanted() -> None:
    options = ("--trigger", "--delay", "300ms", "--pattern", "clock", "--fps", "100")
    with running(*options) as program, viewing(program.address) as viewer:
        viewer.start()
        for _ in range(3):
            viewer.features.execute("TriggerSoftware")
        assert frame_numbers(viewer.next_pictures(3)) == [0, 1, 2], "none before a trigger, none lost"
        viewer.features.execute("TriggerSoftware")
        viewer.stop()
        viewer.features.execute("AcquisitionStart")
        for _ in range(2):
            before = time.monotonic()
            viewer.features.execute("TriggerSoftware")
            viewer.next_frames(1)
            assert time.monotonic() - before >= 0.3, "late, and none is left from the acquisition before"
        viewer.features.write("TriggerMode", 0)
        numbers = frame_numbers(viewer.next_pictures(60))
        assert numbers == list(range(numbers[0], numbers[0] + 60)), "late ones are not fewer"


def test_says_why_no_frames_flow() -> None:
    with running("--fps", "50") as program:
        program.wait_log("no frames: no client")
        with viewing(program.address) as viewer:
            program.wait_log("no frames: acquisition stopped")
            viewer.features.execute("AcquisitionStart")
            program.wait_log("no frames: client has no stream destination")
            viewer.stop()
            viewer.start()
            program.wait_log("streaming to 127.0.0.1")
            viewer.features.write("TriggerMode", 1)
            program.wait_log("no frames: waiting for trigger")
            viewer.features.write("TriggerMode", 0)
            program.wait_log("streaming to 127.0.0.1")
            port = viewer.receiver.port + 1 if viewer.receiver.port < 65535 else 1025
            viewer.client.write_register(SCP, port)
            program.wait_log(f"no frames: nobody listens at 127.0.0.1 port {port}")
        program.wait_log("no frames: no client")


def test_says_that_packets_are_too_large_for_the_path() -> None:
    with (
        two_hosts() as (camera, client),
        running(prefix=tuple(camera.command()), address=camera.address) as program,
        viewing(program.address, host=client) as viewer,
    ):
        viewer.start(DO_NOT_FRAGMENT | 1500)
        program.wait_log(f"streaming to {client.address}")
        camera.ip("link", "set", "wire", "mtu", "1000")
        program.wait_log("no frames: packets too large for the path: 1500 bytes, 1000 pass")

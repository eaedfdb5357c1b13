"""What clients set on the camera program, and what that does to its frames."""

import time

import numpy as np
import pytest

from aravis_tools import tool
from camera_program import Viewer, running, viewing
from gvcp_client import GVCP_CAPABILITY, SCP
from namespaces import two_hosts
from tarn.camera.clock import MARKS


def frame_numbers(pictures: list[np.ndarray]) -> list[int]:
    """The numbers that the clock burnt into Mono8 pictures."""
    numbers = []
    for picture in pictures:
        step = picture.shape[1] // MARKS
        squares = picture[1, step // 2 :: step][:MARKS] > 127
        numbers.append(int("".join(str(int(square)) for square in squares), 2))
    return numbers


def settled(viewer: Viewer) -> np.ndarray:
    """A picture that was taken after all that was set before: those on their way may be older."""
    return viewer.next_pictures(3)[-1]


def test_exposure_and_gain_change_the_picture() -> None:
    with running("--pattern", "white", "--exposure", "2ms") as program, viewing(program.address) as viewer:
        viewer.start()
        assert np.all(settled(viewer) == 51)
        viewer.set_float("ExposureTime", 4000.0)
        assert np.all(settled(viewer) == 102)
        viewer.set_float("Gain", 20.0)
        assert np.all(settled(viewer) == 255)
        viewer.set_float("ExposureTime", 100.0)
        assert np.all(settled(viewer) == round(255 * 0.1))


def test_client_chooses_pattern_and_region() -> None:
    with running("--pattern", "black") as program, viewing(program.address) as viewer:
        viewer.start()
        assert not settled(viewer).any()
        tool("-a", program.address, "control", "TestPattern")  # a second client may read
        viewer.features.write("TestPattern", 2)  # White
        assert np.all(settled(viewer) == 255)
        viewer.features.execute("AcquisitionStop")
        viewer.features.write("Width", 100)
        viewer.features.write("Height", 31)
        viewer.features.write("OffsetX", 11)
        viewer.features.write("TestPattern", 7)  # FrameCounter
        viewer.features.execute("AcquisitionStart")
        assert settled(viewer).shape == (31, 100)


def test_takes_a_frame_for_each_software_trigger() -> None:
    with running("--trigger", "--pattern", "clock") as program, viewing(program.address) as viewer:
        viewer.start()
        for _ in range(3):
            viewer.features.execute("TriggerSoftware")
        first = frame_numbers(viewer.pictures(3))
        assert first == [0, 1, 2], "no frame without a trigger, none lost right after the start"
        viewer.features.write("TriggerMode", 0)
        frame_numbers(viewer.next_pictures(5))


def test_frame_rate_holds_from_the_next_frame_on() -> None:
    """Also when the camera is waiting for one that would come much later."""
    with running("--fps", "0.1", "--pattern", "clock") as program, viewing(program.address) as viewer:
        viewer.start()
        viewer.set_float("AcquisitionFrameRate", 100.0)
        viewer.next_frames(20)
        viewer.set_float("AcquisitionFrameRate", 0.1)
        viewer.features.write("AcquisitionFrameRateEnable", 0)  # the exposure of 10 ms alone
        viewer.next_frames(20)


@pytest.mark.parametrize("driver", ["socket", "filter"])
@pytest.mark.parametrize("resend", ["0", "2"])
def test_streams_with_each_driver_with_and_without_resend(driver: str, resend: str) -> None:
    with running("--driver", driver, "--resend", resend) as program, viewing(program.address) as viewer:
        can_resend = viewer.client.read_register(GVCP_CAPABILITY) >> 2 & 1
        assert can_resend == (resend != "0")
        viewer.start()
        viewer.next_frames(5)


@pytest.mark.parametrize(
    ("options", "megabytes"),
    [
        ([], 125),
        (["--size", "1920x1080", "--format", "RGB8", "--fps", "100"], 125),
        (["--throughput", "5.5"], 5.5),
    ],
)
def test_stream_keeps_to_a_gigabit_unless_told(options: list[str], megabytes: float) -> None:
    with running(*options) as program, viewing(program.address) as viewer:
        assert viewer.read_count("DeviceLinkThroughputLimit") == int(megabytes * 1e6)


def test_drops_frames_on_purpose_and_counts_them() -> None:
    with running("--pattern", "clock", "--fps", "200", "--drop", "50%", "--size", "64x64") as program:
        with viewing(program.address) as viewer:
            viewer.start()
            frames = viewer.next_frames(60)
            counted = viewer.read_count("FaultDroppedFrames")
        blocks = [frame.block for frame in frames]
        pictures = [np.frombuffer(frame.image, np.uint8).reshape(64, 64) for frame in frames]
        numbers = frame_numbers(pictures)
        assert blocks == list(range(1, 61)), "the stream itself has no gap"
        lost = numbers[-1] - numbers[0] + 1 - len(numbers)
        assert 20 < lost <= counted, "about as many were left out as were sent"


@pytest.mark.parametrize("way", ["option", "feature"])
@pytest.mark.parametrize("fault", ["corrupt", "freeze", "drop"])
def test_each_fault_can_be_set_both_ways(fault: str, way: str) -> None:
    value = {"corrupt": ["--corrupt", "100%"], "freeze": ["--freeze"], "drop": ["--drop", "100%"]}[fault]
    pattern = "white" if fault == "corrupt" else "clock"
    options = ["--pattern", pattern, "--fps", "100", *(value if way == "option" else [])]
    with running(*options) as program, viewing(program.address) as viewer:
        viewer.start()
        if way == "feature":
            viewer.next_frames(1)
            if fault == "freeze":
                viewer.features.write("FaultFreeze", 1)
            else:
                viewer.set_float(f"Fault{fault.capitalize()}", 100.0)
        if fault == "drop":
            program.wait_log("no frames: all dropped on purpose (FaultDrop)")
            return
        pictures = viewer.next_pictures(9)[3:]
        if fault == "freeze":
            assert all(np.array_equal(picture, pictures[0]) for picture in pictures)
        else:
            for picture in pictures:
                damaged = np.flatnonzero(picture.reshape(-1) != 255)
                assert len(damaged) == picture.size // 8
                assert damaged[-1] - damaged[0] == len(damaged) - 1, "in one run"


def test_delay_makes_frames_late_but_not_fewer() -> None:
    options = ["--delay", "100ms", "--fps", "100", "--pattern", "clock"]
    with running(*options) as program, viewing(program.address) as viewer:
        viewer.start()
        numbers = frame_numbers(viewer.next_pictures(60))
    assert numbers == list(range(numbers[0], numbers[0] + 60)), "in their order, none left out"


def test_late_frames_end_with_their_acquisition() -> None:
    options = ["--trigger", "--delay", "500ms", "--pattern", "clock"]
    with running(*options) as program, viewing(program.address) as viewer:
        viewer.start()
        viewer.features.execute("TriggerSoftware")
        viewer.features.execute("AcquisitionStop")
        viewer.features.execute("AcquisitionStart")
        for _ in range(2):
            before = time.monotonic()
            viewer.features.execute("TriggerSoftware")
            viewer.next_frames(1)
        assert time.monotonic() - before >= 0.5, "late"
        assert len(viewer.receiver.frames) == 2, "none is left from before"


def test_says_why_no_frames_flow() -> None:
    with running("--fps", "50") as program:
        program.wait_log("no frames: no client")
        with viewing(program.address) as viewer:
            program.wait_log("no frames: acquisition stopped")
            viewer.features.execute("AcquisitionStart")
            program.wait_log("no frames: client has no stream destination")
            viewer.features.execute("AcquisitionStop")
            viewer.start()
            program.wait_log("streaming to 127.0.0.1")
            viewer.features.write("TriggerMode", 1)
            program.wait_log("no frames: waiting for trigger")
            viewer.features.write("TriggerMode", 0)
            program.wait_log("streaming to 127.0.0.1")
        program.wait_log("no frames: no client")


def test_says_that_nobody_listens_where_the_stream_goes() -> None:
    with running("--fps", "50") as program, viewing(program.address) as viewer:
        port = viewer.receiver.port + 1 if viewer.receiver.port < 65535 else 1025
        viewer.open_stream()
        viewer.client.write_register(SCP, port)
        viewer.features.execute("AcquisitionStart")
        program.wait_log(f"no frames: nobody listens at 127.0.0.1 port {port}")


def test_says_that_packets_are_too_large_for_the_path() -> None:
    with two_hosts() as (camera, client):
        prefix = tuple(camera.command())
        with (
            running(prefix=prefix, address=camera.address) as program,
            client.inside(),
            viewing(program.address, client.address) as viewer,
        ):
            viewer.open_stream()
            viewer.features.write("GevSCPSDoNotFragment", 1)
            viewer.features.execute("AcquisitionStart")
            program.wait_log(f"streaming to {client.address}")
            camera.ip("link", "set", "wire", "mtu", "1000")
            program.wait_log("no frames: packets too large for the path: 1500 bytes, 1000 pass")

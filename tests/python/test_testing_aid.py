"""The camera for tests of client programs: feeds images, and knows what clients did."""

import itertools
import pathlib
import re
import sys
import threading
import tomllib
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest

import tarn
from camera_program import start
from conftest import ROOT
from gvcp_client import ControlClient
from gvsp_receiver import Frame
from tarn.gevserver import Server
from tarn.gevserver.features import Enumeration, FeatureSet, Float, String
from tarn.gevserver.testing import Write, camera, free_address
from viewing import streaming, viewing

PICTURES = [np.full((48, 64), grey, np.uint8) for grey in (10, 20, 30)]


def grab(address: str, count: int, **receiving: Any) -> list[Frame]:
    """What a client program does: start, take frames, stop."""
    with streaming(address, **receiving) as viewer:
        frames = viewer.receiver.wait_frames(count)
        viewer.stop()
    return frames


def test_a_client_gets_what_was_fed_and_leaves_a_record() -> None:
    with camera() as cam:
        cam.feed(itertools.cycle(PICTURES))
        assert [frame.image[0] for frame in grab(cam.address, 4)] == [10, 20, 30, 10]
        assert (cam.acquisitions, cam.written("AcquisitionStop")) == (1, [None])
        assert cam.written("GevSCPSPacketSize")[-1] == 1500
        names = [write.feature for write in cam.writes]
        places = [names.index(name) for name in ("GevSCPHostPort", "AcquisitionStart", "AcquisitionStop")]
        assert places == sorted(places)
        cam.wait_frames_sent(4)
        cam.forget()
        assert (cam.writes, cam.frames_sent, cam.acquisitions) == ((), 0, 0)
    with pytest.raises(TimeoutError), ControlClient(cam.address, timeout=0.05) as client:
        client.read_register(0)


def test_send_waits_for_a_client_and_copies() -> None:
    """The client asks again for what it lost after the test has changed its array."""

    def lost(_block: int, number: int, copies: int) -> bool:
        return number == 1 and copies == 0

    with camera(resend_buffers=3) as cam:
        grabbed: list[Frame] = []
        program = threading.Thread(target=lambda: grabbed.extend(grab(cam.address, 2, drop=lost)))
        program.start()
        picture = PICTURES[0].copy()
        cam.send(picture)
        picture[:] = 99
        cam.send(tarn.WrappedImage.from_buffer(picture))
        program.join()
        assert [frame.image[:1] for frame in grabbed] == [b"\x0a", b"\x63"]
        assert cam.frames_sent == 2


def test_writes_to_features_of_the_program() -> None:
    class Analog(FeatureSet):
        gain = Float(1.0, min=0, max=4)
        mode = Enumeration(["Off", "On"])
        label = String()

    server = Server.create_non_streaming()
    analog = Analog(server)
    with camera(server) as cam, viewing(cam.address) as viewer:
        analog.gain = 3.0
        viewer.features.write("Mode", 1)
        viewer.client.write_memory(viewer.features.register("Label")[0], b"bench 3".ljust(64, b"\0"))
        assert cam.wait_written("Label") == "bench 3"
        own = [write for write in cam.writes if write.feature in ("Gain", "Mode", "Label")]
        assert own == [Write("Mode", "On"), Write("Label", "bench 3")]


def test_waiting_in_vain_tells_what_happened_instead() -> None:
    with camera() as cam, viewing(cam.address) as viewer:
        viewer.features.write("GevSCPSPacketSize", 1400)
        for wait, what in (
            (lambda: cam.wait_written("Gain", 0.02), "a client writes Gain"),
            (lambda: cam.wait_acquisition(0.02), "a client starts acquisition"),
            (lambda: cam.wait_frames_sent(1, 0.02), "1 frames are sent"),
            (lambda: cam.send(PICTURES[0], 0.02), "a client takes an image"),
        ):
            told = rf"not within 0\.02 s: {what}; 0 .*GevSCPSPacketSize=1400"
            with pytest.raises(AssertionError, match=told):
                wait()


def test_what_cannot_be_sent_fails_the_test() -> None:
    large = np.zeros((49, 64), np.uint8)
    too_large = "an image of 3136 bytes; the camera sends at most 3072"
    with camera() as cam:
        with pytest.raises(ValueError, match=too_large):
            cam.send(large)
        with pytest.raises(ValueError, match="the rate is 0"):
            cam.feed([], rate=0)
        cam.feed([large])
        with pytest.raises(ValueError, match=too_large):
            cam.wait_frames_sent(1)
    with camera(Server.create_non_streaming()) as cam:
        with pytest.raises(ValueError, match="made without a stream"):
            cam.send(large)
        with pytest.raises(ValueError, match="made without a stream"):
            cam.wait_acquisition()

    def broken() -> Iterator[np.ndarray]:
        raise OSError("no such video")
        yield

    with pytest.raises(OSError, match="no such video"), camera() as cam:
        cam.feed(broken())


def test_addresses_are_free() -> None:
    with camera() as first, camera() as second:
        addresses = {first.address, second.address, *(free_address() for _ in range(50))}
        assert len(addresses) == 52
    with camera(address=first.address) as again:
        assert again.server.local_endpoint.address == first.address


def test_the_documented_test_runs_with_the_fixtures_of_the_plugin(tmp_path: pathlib.Path) -> None:
    """As in another project: its program, the test from the documentation, and pytest."""
    text = (ROOT / "docs" / "testing.md").read_text()
    (example,) = (
        piece for piece in re.findall(r"```python\n(.*?)```", text, re.S) if "make_gev_camera" in piece
    )
    ready_made = "\n\ndef test_ready_made(gev_camera):\n    assert gev_camera.writes == ()\n"
    (tmp_path / "test_grabber.py").write_text(example + ready_made)
    (tmp_path / "grabber.py").write_text(
        "import test_testing_aid\n\n"
        "def mean_of(address, frames):\n"
        "    grabbed = test_testing_aid.grab(address, frames)\n"
        "    return sum(sum(each.image) / len(each.image) for each in grabbed) / frames\n"
    )
    project = tomllib.loads((ROOT / "pyproject.toml").read_text())["project"]
    plugins = ["-p", project["entry-points"]["pytest11"]["tarn"], "-p", "no:cacheprovider"]
    options = ["-c", "/dev/null", "--rootdir", str(tmp_path), "-o", f"pythonpath={ROOT}/tests/python"]
    # The fixtures come from this build alone.
    variables = {"PYTEST_DISABLE_PLUGIN_AUTOLOAD": "1"}
    command = [sys.executable, "-m", "pytest", "-q", *options, *plugins, str(tmp_path)]
    with start(command, variables=variables, cwd=tmp_path) as process:
        out, error = process.communicate(timeout=60)
    assert process.returncode == 0, out + error
    assert "2 passed" in out

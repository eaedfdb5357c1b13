"""Clients that share no code with this project or with each other find the camera and receive its images."""

import json
import pathlib
import re
import subprocess
import sys
import zlib
from typing import Any

import numpy as np
import pytest

import tarn
from conftest import ROOT, Camera, MakeCamera, need_tool
from feeding import Feeder
from namespaces import Host, two_hosts
from tarn.gevserver import Server

PROGRAMS = pathlib.Path(__file__).parent
FRAMES = 50
LONG = 300  # frames, at a rate of 100 per second
FRAME_START = 0x9003


def run_client(host: Host, program: str, *arguments: str) -> dict[str, Any]:
    """What the client program wrote, run on that host."""
    command = host.command(sys.executable, str(PROGRAMS / program), *arguments)
    done = subprocess.run(command, capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stdout + done.stderr
    written: dict[str, Any] = json.loads(done.stdout.splitlines()[-1])
    return written


def pictures(width: int, height: int) -> list[np.ndarray]:
    generator = np.random.default_rng(5)
    return [generator.integers(0, 256, (height, width), np.uint8) for _ in range(4)]


def documented_version(client: str) -> str:
    """The version that the documentation's compatibility table gives for a client."""
    table = (ROOT / "docs" / "compatibility.md").read_text()
    (version,) = re.findall(rf"^\| {re.escape(client)} \| ([\w.+-]+) \|", table, re.MULTILINE)
    return str(version)


@pytest.mark.parametrize(
    ("client", "program"),
    [
        ("Aravis", "arv-tool-0.8"),
        ("GStreamer with `aravissrc`", "gst-launch-1.0"),
        ("Wireshark (tshark)", "tshark"),
    ],
)
def test_compatibility_table_has_the_versions_that_are_tried(client: str, program: str) -> None:
    need_tool(program)
    done = subprocess.run([program, "--version"], capture_output=True, text=True, timeout=60)
    (installed, *_) = re.findall(
        r"(\d+\.\d+)\.\d+", done.stdout
    )  # Debian may repair one, and count up the last
    assert documented_version(client).startswith(f"{installed}.")


def check_frames(frames: list[dict[str, Any]], sent: list[np.ndarray]) -> None:
    assert len(frames) == FRAMES
    blocks = [frame["block"] for frame in frames]
    assert blocks == sorted(set(blocks))
    assert {tuple(frame["size"]) for frame in frames} == {sent[0].shape[::-1]}
    assert {frame["sum"] for frame in frames} <= {zlib.crc32(picture.tobytes()) for picture in sent}


def run_viva(program: str, sent: list[np.ndarray], *arguments: str) -> tuple[str, dict[str, Any]]:
    """The address of a camera of variable size that sends these, and what a client program wrote of it."""
    pytest.importorskip("viva_genicam")
    with two_hosts() as (camera_host, client_host):
        server = Server.create_with_variable_size(
            tarn.Size2D(640, 480), tarn.ColorModel.Mono, tarn.DataType.Int8BppUnsigned
        )
        server.stream.resend_buffers_count = 8
        with camera_host.inside():
            server.start(camera_host.address)
        with Feeder(Camera(server, camera_host.address), sent):
            facts = run_client(client_host, program, camera_host.address, *arguments)
        server.stop()
    return camera_host.address, facts


def test_viva_genicam_sets_a_size_and_receives() -> None:
    sent = pictures(320, 480)
    address, facts = run_viva("viva_client.py", sent, str(FRAMES))
    assert facts["version"] == documented_version("viva-genicam")
    assert address in facts["found"]
    assert facts["skipped"] == [], "nodes of the description that the client does not understand"
    assert (facts["width"], facts["payload"]) == (320, 320 * 480)
    assert {frame["status"] for frame in facts["frames"]} == {"Complete"}
    check_frames(facts["frames"], sent)


def test_viva_genicam_uses_sets_actions_events_and_chunks() -> None:
    _, facts = run_viva("viva_services.py", pictures(320, 480))
    assert facts["user sets"] == {"sets": ["Default", "UserSet1"], "changed": 160, "loaded": 320}
    assert facts["actions"] == {"acknowledged": [1, 0], "counted": 1}, "the wrong key is for another camera"
    assert facts["frames"]
    for frame in facts["frames"]:
        chunks, event = frame["chunks"], frame["event features"]
        assert (chunks["ChunkFrameID"], chunks["ChunkWidth"]) == (str(frame["block"]), "320")
        assert chunks["ChunkTimestamp"] == str(frame["timestamp"])
        assert frame["event"] == [FRAME_START, frame["block"]]
        assert event["EventFrameStartFrameID"] == str(frame["block"])
        assert int(event["EventFrameStartTimestamp"]) >= frame["timestamp"]


def test_pygigevision_receives(make_camera: MakeCamera) -> None:
    pytest.importorskip("pyGigEVision")
    sent = pictures(640, 480)
    with two_hosts() as (camera_host, client_host):
        camera = make_camera((640, 480), resend=8, start=False)
        with camera_host.inside():
            camera.server.start(camera_host.address)
        arguments = (camera_host.address, client_host.address, str(FRAMES))
        with Feeder(camera, sent):
            facts = run_client(client_host, "pygigevision_client.py", *arguments)
        camera.end()
    assert facts["version"] == documented_version("pyGigEVision")
    assert camera_host.address in facts["found"]
    assert facts["file"].endswith(".xml")
    check_frames(facts["frames"], sent)


def test_gstreamer_plays_the_camera(make_camera: MakeCamera, tmp_path: pathlib.Path) -> None:
    need_tool("gst-launch-1.0")
    camera = make_camera((640, 480), resend=8)
    sink = ["video/x-raw,format=GRAY8,width=640,height=480", "!", "filesink", f"location={tmp_path}/frames"]
    # Once in a while one of the buffers that a busy source counts does not arrive in the file.
    source = ["aravissrc", f"camera-name={camera.address}", f"num-buffers={LONG + 10}", "!"]
    sent = pictures(640, 480)
    with Feeder(camera, sent, rate=100):
        done = subprocess.run(["gst-launch-1.0", "-q", *source, *sink], capture_output=True, timeout=60)
    assert done.returncode == 0, done.stderr.decode()
    received = (tmp_path / "frames").read_bytes()
    size = sent[0].nbytes
    frames = [received[start : start + size] for start in range(0, len(received), size)]
    assert LONG <= len(frames) <= LONG + 10
    assert {zlib.crc32(frame) for frame in frames} <= {zlib.crc32(picture.tobytes()) for picture in sent}

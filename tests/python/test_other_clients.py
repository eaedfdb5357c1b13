"""Clients that share no code with this project or with each other find the camera and receive its images."""

import json
import pathlib
import subprocess
import sys
import zlib
from typing import Any

import pytest

import tarn
from conftest import Camera, MakeCamera, need_tool
from feeding import Feeder, noise
from namespaces import two_hosts
from tarn import PfncFormat
from tarn.gevserver import Server

PROGRAMS = pathlib.Path(__file__).parent
FRAMES = 50
LONG = 300  # frames, at a rate of 100 per second
SIZE = (320, 480)
PICTURES = [noise(SIZE, PfncFormat.Mono8, seed) for seed in range(4)]
SUMS = {zlib.crc32(picture.tobytes()) for picture in PICTURES}


def run_client(server: Server, program: str) -> dict[str, Any]:
    """What a client program wrote that ran on another host, after its frames were checked."""
    server.stream.resend_buffers_count = 8
    with two_hosts() as (camera_host, client_host):
        with camera_host.inside():
            server.start(camera_host.address)
        arguments = (str(PROGRAMS / program), camera_host.address, str(FRAMES))
        command = client_host.command(sys.executable, *arguments)
        with Feeder(Camera(server, camera_host.address), PICTURES):
            done = subprocess.run(command, capture_output=True, text=True, timeout=60)
        server.stop()
    assert done.returncode == 0, done.stdout + done.stderr
    facts: dict[str, Any] = json.loads(done.stdout.splitlines()[-1])
    blocks, *sizes, sums = zip(*(frame[:4] for frame in facts["frames"]), strict=True)
    assert len(blocks) == FRAMES and list(blocks) == sorted(set(blocks))
    assert set(zip(*sizes, strict=True)) == {SIZE} and set(sums) <= SUMS
    return facts


def test_viva_genicam_uses_everything() -> None:
    pytest.importorskip("viva_genicam")
    server = Server.create_with_variable_size_pfnc(tarn.Size2D(640, 480), PfncFormat.Mono8)
    facts = run_client(server, "viva_client.py")
    assert facts["skipped"] == [], "nodes of the description that the client does not understand"
    assert facts["user sets"] == [["Default", "UserSet1"], 160, 320]
    assert facts["actions"] == [1, 0, 1], "the wrong key is for another camera"
    assert {frame[4] for frame in facts["frames"]} == {"Complete"}
    assert len(facts["told"]) == 5
    for block, time, features in facts["told"]:
        chunks = {"ChunkFrameID": str(block), "ChunkWidth": "320", "ChunkTimestamp": str(time)}
        assert features.items() >= (chunks | {"EventFrameStartFrameID": str(block)}).items()
        assert int(features["EventFrameStartTimestamp"]) >= time


def test_pygigevision_receives() -> None:
    pytest.importorskip("pyGigEVision")
    server = Server.create_with_const_size_pfnc(tarn.Size2D(*SIZE), PfncFormat.Mono8)
    facts = run_client(server, "pygigevision_client.py")
    assert facts["found"] and facts["file"].endswith(".xml")


def test_gstreamer_plays_the_camera(make_camera: MakeCamera, tmp_path: pathlib.Path) -> None:
    need_tool("gst-launch-1.0")
    camera = make_camera(SIZE, resend=8)
    sink = [f"video/x-raw,format=GRAY8,width={SIZE[0]},height={SIZE[1]}", "!", "filesink"]
    # Once in a while one of the buffers that a busy source counts does not arrive in the file.
    source = ["aravissrc", f"camera-name={camera.address}", f"num-buffers={LONG + 10}", "!"]
    command = ["gst-launch-1.0", "-q", *source, *sink, f"location={tmp_path}/frames"]
    with Feeder(camera, PICTURES, rate=100):
        done = subprocess.run(command, capture_output=True, timeout=60)
    assert done.returncode == 0, done.stderr.decode()
    received, size = (tmp_path / "frames").read_bytes(), PICTURES[0].nbytes
    frames = [received[start : start + size] for start in range(0, len(received), size)]
    assert LONG <= len(frames) <= LONG + 10
    assert set(map(zlib.crc32, frames)) <= SUMS

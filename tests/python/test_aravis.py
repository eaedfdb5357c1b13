"""An independent client, Aravis, finds the camera, reads and writes its features and takes its frames."""

import json
import os
import pathlib
import subprocess
import sys

import pytest

import tarn
from aravis_tools import camera_test_counts, tool
from conftest import Camera, MakeCamera, free_address
from feeding import Feeder, noise
from tarn import PfncFormat
from tarn.gevserver import State

GRAB = pathlib.Path(__file__).with_name("aravis_grab.py")

pytestmark = pytest.mark.usefixtures("aravis_binding")


@pytest.mark.parametrize("way", ["packet-socket", "udp-socket"])
@pytest.mark.parametrize("packet_size", [1500, 9000])
@pytest.mark.parametrize(
    ("name", "size"),
    [
        ("Mono8", (640, 480)),
        ("Mono8", (637, 211)),
        ("Mono12", (319, 240)),
        ("Mono16", (320, 240)),
        ("RGB8", (301, 200)),
    ],
)
def test_frames_are_byte_for_byte_what_was_sent(
    make_camera: MakeCamera,
    tmp_path: pathlib.Path,
    name: str,
    size: tuple[int, int],
    packet_size: int,
    way: str,
) -> None:
    if way == "packet-socket" and os.geteuid() != 0:
        pytest.skip("packet sockets need root")
    pixel_format = getattr(PfncFormat, name)
    camera = make_camera(size, pixel_format, resend=4)
    pictures = [noise(size, pixel_format, seed) for seed in range(4)]
    out, count = tmp_path / "frames", 12
    command = [sys.executable, str(GRAB), camera.address, str(packet_size), str(count), way, str(out)]
    with Feeder(camera, pictures):
        done = subprocess.run(command, capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    started, *facts = map(json.loads, done.stdout.splitlines())
    assert started["payload"] == pictures[0].nbytes
    assert [fact["status"] for fact in facts] == ["success"] * count
    data = out.read_bytes()
    sent = {picture.tobytes(): index for index, picture in enumerate(pictures)}
    for number, fact in enumerate(facts):
        assert (fact["width"], fact["height"], fact["format"]) == (*size, pixel_format)
        assert fact["bytes"] == pictures[0].nbytes
        frame = data[number * fact["bytes"] : (number + 1) * fact["bytes"]]
        assert sent[frame] == (fact["frame"] - 1) % len(pictures), (
            f"frame {fact['frame']} holds another picture"
        )
    camera.wait_state(State.Disconnected)


def test_tool_lists_reads_and_writes(make_camera: MakeCamera) -> None:
    camera = make_camera((640, 480))
    map_ = camera.server.node_map
    assert camera.address in tool()
    assert "<RegisterDescription" in tool("-a", camera.address, "genicam")
    listed = tool("-a", camera.address, "features")
    for name in ("Width", "Height", "PixelFormat", "PayloadSize", "AcquisitionStart", "GevSCPSPacketSize"):
        assert name in listed
    values = tool("-a", camera.address, "values")
    assert "error" not in values.lower(), values
    read = tool(
        "-a", camera.address, "control", "Width", "Height", "PixelFormat", "PayloadSize", "DeviceModelName"
    )
    for text in ("640", "480", "Mono8", str(640 * 480), map_.model_name):
        assert text in read
    tool("-a", camera.address, "control", "GevSCPSPacketSize=4000", "GevHeartbeatTimeout=7000")
    assert "4000" in tool("-a", camera.address, "control", "GevSCPSPacketSize")
    assert "7000" in tool("-a", camera.address, "control", "GevHeartbeatTimeout")


def test_client_sets_the_size_of_a_variable_camera(tmp_path: pathlib.Path) -> None:
    server = tarn.gevserver.Server.create_with_variable_size_pfnc(tarn.Size2D(640, 480), PfncFormat.Mono8)
    camera = Camera(server, free_address())
    server.start(camera.address)
    try:
        tool("-a", camera.address, "control", "Width=320", "Height=200", "OffsetX=16", "OffsetY=8")
        map_ = server.node_map
        assert (map_.Width.value, map_.Height.value, map_.OffsetX.value, map_.OffsetY.value) == (
            320,
            200,
            16,
            8,
        )
        payload = tool("-a", camera.address, "control", "PayloadSize")
        assert str(320 * 200) in payload
        picture = noise((320, 200), PfncFormat.Mono8, 1)
        out = tmp_path / "frames"
        command = [sys.executable, str(GRAB), camera.address, "1500", "3", "udp-socket", str(out)]
        with Feeder(camera, [picture]):
            done = subprocess.run(command, capture_output=True, text=True, timeout=60)
        assert done.returncode == 0, done.stderr
        assert out.read_bytes() == picture.tobytes() * 3
    finally:
        camera.end()


@pytest.mark.parametrize("way", ["packet-socket", "udp-socket"])
def test_camera_test_program_receives_without_failures(make_camera: MakeCamera, way: str) -> None:
    if way == "packet-socket" and os.geteuid() != 0:
        pytest.skip("packet sockets need root")
    camera = make_camera((640, 480), resend=4)
    options = ["--no-packet-socket"] if way == "udp-socket" else []
    with Feeder(camera, [noise((640, 480), PfncFormat.Mono8, 0)], rate=30):
        counts = camera_test_counts(camera.address, "--duration=4", *options)
    assert counts["n_completed_buffers"] > 60

"""An independent client, Aravis, takes the camera's frames byte for byte, and asks for what a network loses.

The whole measure of loss is ``--lossy-frames 2000``.
"""

import collections
import json
import os
import pathlib

import pytest

from aravis_tools import grab, grab_command, pieces
from camera_program import start
from conftest import MakeCamera
from feeding import Feeder, noise
from namespaces import routed_hosts
from tarn import PfncFormat
from tarn.gevserver import State

SIZE = (640, 480)
# The client looks for what is still missing when packets arrive, once 20 ms have passed since it last asked,
# and gives a frame up 100 ms after the last packet. At this rate it gets its five tries; the camera has to
# keep what it may still ask for.
RATE = 100
KEPT = 32
FORMATS = [
    ("Mono8", (640, 480), 1500),
    ("Mono8", (637, 211), 9000),
    ("Mono12", (319, 240), 1500),
    ("Mono16", (320, 240), 9000),
    ("RGB8", (301, 200), 1500),
]

pytestmark = pytest.mark.usefixtures("aravis_binding")


@pytest.mark.parametrize("way", ["packet-socket", "udp-socket"])
@pytest.mark.parametrize(("name", "size", "packet_size"), FORMATS)
def test_frames_are_what_was_sent(
    make_camera: MakeCamera,
    tmp_path: pathlib.Path,
    way: str,
    name: str,
    size: tuple[int, int],
    packet_size: int,
) -> None:
    if way == "packet-socket" and os.geteuid() != 0:
        pytest.skip("packet sockets need root")
    pixel_format = getattr(PfncFormat, name)
    camera = make_camera(size, pixel_format, resend=4)
    pictures = [noise(size, pixel_format, seed) for seed in range(4)]
    length, out = pictures[0].nbytes, tmp_path / "frames"
    with Feeder(camera, pictures):
        started, *facts = grab(camera.address, packet_size, 12, way, out)
    assert started["payload"] == length
    sent = [picture.tobytes() for picture in pictures]
    for fact, frame in zip(facts, pieces(out, length), strict=True):
        seen = [fact[what] for what in ("status", "width", "height", "format", "bytes")]
        assert seen == ["success", *size, pixel_format, length]
        assert sent.index(frame) == (fact["frame"] - 1) % len(pictures)
    camera.wait_state(State.Disconnected)


@pytest.mark.parametrize(("percent", "whole_share"), [(1, 1.0), (5, 0.999)])
def test_frames_are_whole_in_spite_of_loss(
    pytestconfig: pytest.Config,
    make_camera: MakeCamera,
    tmp_path: pathlib.Path,
    percent: int,
    whole_share: float,
) -> None:
    count = pytestconfig.getoption("--lossy-frames")
    pictures = [noise(SIZE, seed=seed) for seed in range(4)]
    out = tmp_path / "frames"
    with routed_hosts() as (camera_host, router, client_host):
        camera = make_camera(SIZE, resend=KEPT, start=False)
        with camera_host.inside():
            camera.server.start(camera_host.address)
        command = client_host.command(*grab_command(camera_host.address, 1500, count, "udp-socket", out))
        with start(command) as client:
            # The description is read without loss: a lost answer costs half a second.
            assert client.stdout.readline()
            router.lose(percent)
            with Feeder(camera, pictures, rate=RATE):
                *facts, counters = (json.loads(client.stdout.readline()) for _ in range(count + 1))
            lost = router.lost()
            router.lose_nothing()
        resent = camera.server.node_map.DeviceStreamResentPackets.value
        camera.end()
    statuses = collections.Counter(fact["status"] for fact in facts)
    print(f"{percent} % lost: {statuses}, {lost} datagrams lost, {resent} packets sent again, {counters}")
    assert statuses["success"] >= int(whole_share * count)
    assert set(pieces(out, pictures[0].nbytes)) <= {picture.tobytes() for picture in pictures}
    assert lost > count * 210 * percent / 100 * 0.8, "the network lost less than the test is about"
    assert resent > 0
    assert counters["n_resent_packets"] > 0

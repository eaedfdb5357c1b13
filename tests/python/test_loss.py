"""Frames through a network that loses datagrams, with an independent client that asks for them again.

The whole measure is ``--lossy-frames 2000``.
"""

import json
import pathlib
import subprocess
import sys
import zlib
from typing import Any

import pytest

from conftest import MakeCamera
from feeding import Feeder, noise
from namespaces import routed_hosts
from tarn import PfncFormat

pytestmark = pytest.mark.usefixtures("aravis_binding")

COUNT = pathlib.Path(__file__).with_name("aravis_count.py")
SIZE = (640, 480)
# The client looks for what is still missing when packets arrive, once 20 ms have passed since it last asked,
# and gives a frame up 100 ms after the last packet. At this rate it gets its five tries; the camera has to
# keep what it may still ask for.
RATE = 100
KEPT = 32


@pytest.mark.parametrize(("percent", "whole_share"), [(1, 1.0), (5, 0.999)])
def test_frames_are_whole_in_spite_of_loss(
    request: pytest.FixtureRequest, make_camera: MakeCamera, percent: Any, whole_share: Any
) -> None:
    count = request.config.getoption("--lossy-frames")
    pictures = [noise(SIZE, PfncFormat.Mono8, seed) for seed in range(4)]
    with routed_hosts() as (camera_host, router, client_host):
        camera = make_camera(SIZE, resend=KEPT, start=False)
        with camera_host.inside():
            camera.server.start(camera_host.address)
        command = [sys.executable, str(COUNT), camera_host.address, str(count)]
        with subprocess.Popen(client_host.command(*command), stdout=subprocess.PIPE, text=True) as client:
            # The description is read without loss: a lost answer costs half a second.
            assert client.stdout.readline() == "started\n"
            router.lose(percent)
            with Feeder(camera, pictures, rate=RATE):
                result = json.loads(client.stdout.readline())
            lost = router.lost()
            router.lose_nothing()
        resent = camera.server.node_map.DeviceStreamResentPackets.value
        camera.end()
    print(f"{percent} % lost: {result['statuses']}, {lost} datagrams lost, {resent} packets sent again")
    print({name: number for name, number in result["counters"].items() if number})
    assert sum(result["statuses"].values()) == count
    assert result["statuses"]["success"] >= int(whole_share * count)
    assert set(result["contents"]) <= {str(zlib.crc32(picture.tobytes())) for picture in pictures}
    assert lost > count * 210 * percent / 100 * 0.8, "the network lost less than the test is about"
    assert resent > 0
    assert result["counters"]["n_resent_packets"] > 0

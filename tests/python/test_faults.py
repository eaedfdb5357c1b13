"""What goes wrong around a camera: each fault shows in a counter, and the next client is served."""

import contextlib
import os
import pathlib
import subprocess
import sys

import pytest

import tarn
from camera_program import start
from conftest import PACKAGE, Camera, MakeCamera, live_handles, open_stream, wait_until
from feeding import Feeder, noise
from gvcp_client import HEARTBEAT_TIMEOUT
from gvsp_receiver import StreamReceiver
from namespaces import Host, two_hosts
from tarn.gevserver import Server, State
from viewing import streaming, viewing

VANISHING = pathlib.Path(__file__).with_name("vanishing_client.py")
SIZE = (640, 480)
PICTURES = [noise(SIZE, seed=seed) for seed in range(2)]
IMAGE = tarn.WrappedImage.from_buffer(PICTURES[0])


def counted(camera: Camera, name: str) -> int:
    """One of the camera's counters, as the program reads it."""
    return int(getattr(camera.server.node_map, name).value)


def serve_next_client(camera: Camera, host: Host | None = None) -> None:
    """A new client gets whole frames."""
    camera.wait_state(State.Disconnected)
    with streaming(camera.address, host=host) as viewer, Feeder(camera, PICTURES):
        frames = viewer.receiver.wait_frames(5)
    assert {frame.image for frame in frames} <= {picture.tobytes() for picture in PICTURES}
    camera.wait_state(State.Disconnected)


def test_client_killed_in_mid_frame(make_camera: MakeCamera) -> None:
    camera = make_camera(SIZE, resend=1)
    rate = camera.server.node_map.DeviceLinkThroughputLimit
    rate.value = 100_000  # a frame takes three seconds
    paths = {"PYTHONPATH": f"{PACKAGE.parent}:{VANISHING.parent}"}
    with start([sys.executable, str(VANISHING), camera.address], variables=paths) as client:
        camera.wait_running()
        wait_until(lambda: camera.server.stream.try_send(IMAGE, lambda image: None), "the client streams")
        assert client.stdout.readline() == "receiving\n"
        client.kill()
    camera.wait_state(State.Disconnected)
    assert counted(camera, "DeviceHeartbeatTimeouts") == 1
    assert counted(camera, "DeviceStreamUnreachable") > 0
    wait_until(lambda: counted(camera, "DeviceStreamDroppedFrames") == 1, "the frame is given up")
    assert counted(camera, "DeviceStreamFrames") == 0
    rate.value = 125_000_000
    serve_next_client(camera)


def test_network_breaks_and_comes_back() -> None:
    """The stream goes on for the client that stayed; and after a longer break for the next."""
    with two_hosts() as (camera_host, client_host), contextlib.ExitStack() as stack:
        server = Server.create_with_const_size_pfnc(tarn.Size2D(*SIZE), tarn.PfncFormat.Mono8)
        with camera_host.inside():
            server.start(camera_host.address)
        stack.callback(server.stop)
        camera = Camera(server, camera_host.address)
        with streaming(camera.address, host=client_host) as viewer, Feeder(camera, PICTURES):

            def whole() -> int:
                return sum(frame.is_whole for frame in viewer.receiver.frames)

            viewer.receiver.wait_frames(3)
            camera_host.ip("link", "set", "wire", "down")
            wait_until(lambda: counted(camera, "DeviceStreamFailedPackets") > 0, "the fault shows")
            camera_host.ip("link", "set", "wire", "up")
            before = whole()
            wait_until(lambda: whole() > before + 5, "frames come again")
            viewer.client.write_register(HEARTBEAT_TIMEOUT, 500)
            camera_host.ip("link", "set", "wire", "down")
            camera.wait_state(State.Disconnected)
            assert counted(camera, "DeviceHeartbeatTimeouts") == 1
            camera_host.ip("link", "set", "wire", "up")
        serve_next_client(camera, client_host)


def test_wall_clock_is_not_asked() -> None:
    """Its steps cannot matter; nor be made for one process, so this looks at what could be called."""
    command = ["nm", "-D", "--undefined-only", str(PACKAGE / "libTRGevServer.so")]
    called = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    assert "steady_clock" in called
    for wall in ("system_clock", "gettimeofday", "pthread_cond_timedwait", "pthread_mutex_timedlock"):
        assert wall not in called


def test_many_clients_come_and_go(request: pytest.FixtureRequest, camera: Camera) -> None:
    """Clients release control in the middle of acquisition, and nothing is left of them."""
    picture = noise((64, 48))
    image = tarn.WrappedImage.from_buffer(picture)

    def visit(times: int) -> tuple[tuple[int, ...], int]:
        """What the process has afterwards, and its pages of memory."""
        for _ in range(times):
            with camera.client() as visitor, StreamReceiver() as receiver:
                visitor.connect(beat=None)
                open_stream(visitor, receiver)
                visitor.write_register(begin, 1)
                camera.send(image)
                assert receiver.wait_frames(1)[0].image == picture.tobytes()
        open_files, tasks = (len(os.listdir(f"/proc/self/{what}")) for what in ("fd", "task"))
        pages = int(pathlib.Path("/proc/self/statm").read_text().split()[1])
        return (live_handles(), open_files, tasks), pages

    with viewing(camera.address) as viewer:
        begin = viewer.features.register("AcquisitionStart")[0]
    half = request.config.getoption("--visits") // 2
    before, pages_before = visit(half)
    after, pages = visit(half)
    camera.wait_state(State.Disconnected)
    assert after == before
    assert pages - pages_before < 512, "two megabytes"
    assert counted(camera, "DeviceStreamFrames") == 2 * half
    assert counted(camera, "DeviceHeartbeatTimeouts") == 0

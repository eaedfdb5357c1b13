"""What goes wrong around a camera: each fault shows in a counter, and the next client is served."""

import contextlib
import os
import pathlib
import random
import subprocess
import sys
import threading
import time
from collections.abc import Iterator
from typing import Any

import pytest

import tarn
from conftest import PACKAGE, Camera, MakeCamera, live_handles, open_stream, wait_until
from features import Features
from feeding import Feeder, noise
from gvcp_client import ACCESS_DENIED, CCP, CONTROL, HEARTBEAT_TIMEOUT, SCP, SCPS, ControlClient, GvcpError
from gvsp_receiver import StreamReceiver
from namespaces import Host, two_hosts
from tarn import PfncFormat
from tarn.gevserver import State

VANISHING = pathlib.Path(__file__).with_name("vanishing_client.py")
SIZE = (640, 480)
PICTURES = [noise(SIZE, PfncFormat.Mono8, seed) for seed in range(2)]


def counted(camera: Camera, name: str) -> int:
    """One of the camera's counters, as the program reads it."""
    return int(getattr(camera.server.node_map, name).value)


def wait_counted(camera: Camera, name: str) -> None:
    wait_until(lambda: counted(camera, name) > 0, f"{name} shows the fault")


@contextlib.contextmanager
def streaming(camera: Camera, host: Host | None = None) -> Iterator[tuple[ControlClient, StreamReceiver]]:
    """A client, on a host of its own or on this one, that streams."""
    with contextlib.ExitStack() as stack:
        local = host.address if host else "127.0.0.1"
        with host.inside() if host else contextlib.nullcontext():
            receiver = stack.enter_context(StreamReceiver(local=local))
            client = stack.enter_context(ControlClient(camera.address, local=local))
        client.connect()
        open_stream(client, receiver)
        Features(client).execute("AcquisitionStart")
        camera.wait_running()
        yield client, receiver


def serve_next_client(camera: Camera, host: Host | None = None) -> None:
    """A new client gets whole frames."""
    camera.wait_state(State.Disconnected)
    with streaming(camera, host) as (_, receiver), Feeder(camera, PICTURES):
        frames = receiver.wait_frames(5)
    assert {frame.image for frame in frames} <= {picture.tobytes() for picture in PICTURES}
    camera.wait_state(State.Disconnected)


@contextlib.contextmanager
def remote_camera(resend: int = 0) -> Iterator[tuple[Camera, Host, Host]]:
    """A camera on one host, and another host for clients."""
    with two_hosts() as (camera_host, client_host):
        server = tarn.gevserver.Server.create_with_const_size_pfnc(tarn.Size2D(*SIZE), PfncFormat.Mono8)
        server.stream.resend_buffers_count = resend
        with camera_host.inside():
            server.start(camera_host.address)
        camera = Camera(server, camera_host.address)
        try:
            yield camera, camera_host, client_host
        finally:
            camera.end()


def test_client_killed_in_mid_frame(make_camera: MakeCamera) -> None:
    camera = make_camera(SIZE, resend=1)
    # A frame takes three seconds.
    camera.server.node_map.DeviceLinkThroughputLimit.value = 100_000
    environment = os.environ | {"PYTHONPATH": f"{PACKAGE.parent}:{VANISHING.parent}"}
    command = [sys.executable, str(VANISHING), camera.address]
    with subprocess.Popen(command, env=environment, stdout=subprocess.PIPE, text=True) as client:
        camera.wait_running()
        image = tarn.WrappedImage.from_buffer(PICTURES[0])
        wait_until(lambda: camera.server.stream.try_send(image, lambda image: None), "the client streams")
        assert client.stdout.readline() == "receiving\n"
        client.kill()
    camera.wait_state(State.Disconnected)
    assert counted(camera, "DeviceHeartbeatTimeouts") == 1
    assert counted(camera, "DeviceStreamUnreachable") > 0
    wait_until(lambda: counted(camera, "DeviceStreamDroppedFrames") == 1, "the frame is given up")
    assert counted(camera, "DeviceStreamFrames") == 0
    camera.server.node_map.DeviceLinkThroughputLimit.value = 125_000_000
    serve_next_client(camera)


def break_address(camera_host: Host, client_host: Host) -> None:
    camera_host.ip("address", "del", f"{camera_host.address}/24", "dev", "wire")


def mend_address(camera_host: Host, client_host: Host) -> None:
    camera_host.ip("address", "add", f"{camera_host.address}/24", "dev", "wire")


def break_link(camera_host: Host, client_host: Host) -> None:
    camera_host.set_link("down")


def mend_link(camera_host: Host, client_host: Host) -> None:
    camera_host.set_link("up")


@pytest.mark.parametrize(
    ("break_network", "mend_network"),
    [
        pytest.param(break_address, mend_address, id="address removed"),
        pytest.param(break_link, mend_link, id="link down"),
    ],
)
def test_network_breaks_and_comes_back(break_network: Any, mend_network: Any) -> None:
    """The stream goes on for the client that stayed; and after a longer break for the next."""
    with remote_camera() as (camera, camera_host, client_host):
        with streaming(camera, client_host) as (client, receiver), Feeder(camera, PICTURES):
            receiver.wait_frames(3)
            break_network(camera_host, client_host)
            wait_counted(camera, "DeviceStreamFailedPackets")
            mend_network(camera_host, client_host)
            whole = sum(frame.is_whole for frame in receiver.frames)
            wait_until(
                lambda: sum(frame.is_whole for frame in receiver.frames) > whole + 5, "frames come again"
            )
            client.write_register(HEARTBEAT_TIMEOUT, 500)
            break_network(camera_host, client_host)
            camera.wait_state(State.Disconnected)
            assert counted(camera, "DeviceHeartbeatTimeouts") == 1
            mend_network(camera_host, client_host)
        serve_next_client(camera, client_host)


def test_slow_line_makes_the_camera_wait_and_costs_no_packet() -> None:
    """The interface takes a thousandth of what the camera sends."""
    with remote_camera() as (camera, camera_host, client_host):
        camera.server.node_map.DeviceLinkThroughputLimitMode.value = "Off"
        with streaming(camera, client_host) as (_, receiver), Feeder(camera, PICTURES):
            receiver.wait_frames(1)
            camera_host.shape("1mbit")
            image = tarn.WrappedImage.from_buffer(PICTURES[0])
            wait_until(lambda: not camera.server.stream.try_send(image), "earlier images wait for the line")
            camera_host.unshape()
            assert counted(camera, "DeviceStreamFailedPackets") == 0
        serve_next_client(camera, client_host)


def test_nobody_listens_at_the_destination(make_camera: MakeCamera) -> None:
    camera = make_camera(SIZE)
    with camera.client() as client:
        client.connect()
        with StreamReceiver() as receiver:
            open_stream(client, receiver)
        features = Features(client)
        features.execute("AcquisitionStart")
        with Feeder(camera, PICTURES):
            wait_counted(camera, "DeviceStreamUnreachable")
        seen_by_client = client.read_memory(*features.register("DeviceStreamUnreachable"))
        assert 0 < int.from_bytes(seen_by_client, "big") <= counted(camera, "DeviceStreamUnreachable")
        with StreamReceiver() as receiver, Feeder(camera, PICTURES):
            client.write_register(SCP, receiver.port)
            assert receiver.wait_frames(1)[0].is_whole
    serve_next_client(camera)


def test_wall_clock_is_not_asked() -> None:
    """Steps of the wall clock cannot matter: the engine asks for the monotonic clock only, and waits by it.

    The wall clock cannot be stepped for one process alone, so this looks at what the library could call.
    """
    library = PACKAGE / "libTRGevServer.so"
    done = subprocess.run(
        ["nm", "-D", "--undefined-only", library], capture_output=True, text=True, check=True
    )
    called = {line.split()[-1].partition("@")[0] for line in done.stdout.splitlines()}
    assert "_ZNSt6chrono3_V212steady_clock3nowEv" in called
    wall = {"system_clock", "gettimeofday", "pthread_cond_timedwait", "pthread_mutex_timedlock"}
    assert not {name for name in called if any(word in name for word in wall)}


def test_many_clients_come_and_go(request: pytest.FixtureRequest, camera: Camera) -> None:
    """Clients release control in the middle of acquisition, and nothing is left of them."""
    picture = noise((64, 48), PfncFormat.Mono8, 0)
    image = tarn.WrappedImage.from_buffer(picture)
    with camera.client() as client:
        start = Features(client).register("AcquisitionStart")[0]

    def visit() -> None:
        with camera.client() as visitor, StreamReceiver() as receiver:
            visitor.connect(beat=None)
            open_stream(visitor, receiver)
            visitor.write_register(start, 1)
            camera.wait_running()
            camera.send(image)
            assert receiver.wait_frames(1)[0].image == picture.tobytes()

    def belongings() -> tuple[int, ...]:
        return live_handles(), *(len(os.listdir(f"/proc/self/{what}")) for what in ("fd", "task"))

    def resident_pages() -> int:
        return int(pathlib.Path("/proc/self/statm").read_text().split()[1])

    visits = request.config.getoption("--visits")
    for _ in range(visits // 2):
        visit()
    before, pages = belongings(), resident_pages()
    for _ in range(visits // 2):
        visit()
    camera.wait_state(State.Disconnected)
    assert belongings() == before
    assert resident_pages() - pages < 512  # two megabytes
    assert counted(camera, "DeviceStreamFrames") == visits // 2 * 2
    assert counted(camera, "DeviceHeartbeatTimeouts") == 0


def test_two_clients_fight_for_control(make_camera: MakeCamera) -> None:
    """Never both have it, both get it at times, and neither disturbs what the other does meanwhile."""
    camera = make_camera(SIZE)
    ending = time.monotonic() + 2
    holders: list[int] = []
    won, refused = [0, 0], [0, 0]
    faults: list[object] = []

    def fight(me: int) -> None:
        chance = random.Random(me)
        with camera.client() as client:
            while time.monotonic() < ending:
                try:
                    client.write_register(CCP, CONTROL)
                except GvcpError as refusal:
                    if refusal.status != ACCESS_DENIED:
                        faults.append(refusal)
                    refused[me] += 1
                    continue
                holders.append(me)
                size = chance.randrange(600, 1500, 4)
                client.write_register(SCPS, size)
                time.sleep(chance.random() / 100)
                if client.read_register(SCPS) & 0xFFFF != size or holders != [me]:
                    faults.append((me, holders, size))
                won[me] += 1
                holders.remove(me)
                client.write_register(CCP, 0)

    fighters = [threading.Thread(target=fight, args=(me,)) for me in (0, 1)]
    for fighter in fighters:
        fighter.start()
    for fighter in fighters:
        fighter.join()
    assert not faults
    assert min(won) > 0 and min(refused) > 0, (won, refused)
    assert counted(camera, "DeviceRefusedCommands") >= sum(refused)
    serve_next_client(camera)

"""The server's state and endpoints while a client comes, streams, goes and dies."""

import subprocess

import pytest

from conftest import MakeCamera, need_tool, open_stream
from features import Features
from gvcp_client import HEARTBEAT_TIMEOUT, PORT
from gvsp_receiver import StreamReceiver
from tarn.gevserver import State


def udp_sockets() -> set[tuple[str, int]]:
    """Local ends of all UDP sockets, as the system's own tool lists them."""
    listing = subprocess.run(["ss", "-Huan"], capture_output=True, text=True, check=True).stdout
    ends = (line.split()[3].rpartition(":") for line in listing.splitlines())
    return {(address.split("%")[0], int(port)) for address, _, port in ends if port.isdigit()}


def test_state_follows_the_client(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    server = camera.server
    for _ in range(2):  # a stopped server starts again
        assert server.state == State.Configuration
        assert not server.node_map.is_read_only
        server.start(camera.address)
        assert server.state == State.Disconnected
        assert server.node_map.is_read_only
        with StreamReceiver() as receiver, camera.client() as client:
            assert server.state == State.Disconnected  # asking is not connecting
            client.connect()
            assert server.state == State.Connected
            open_stream(client, receiver)
            features = Features(client)
            for _ in range(2):
                features.execute("AcquisitionStart")
                assert server.state == State.AcquisitionEnabled
                assert server.stream.is_running
                features.execute("AcquisitionStop")
                assert server.state == State.Connected
                assert not server.stream.is_running
            features.execute("AcquisitionStart")
            client.disconnect()
            assert server.state == State.Disconnected
            assert not server.stream.is_running
            client.connect(beat=None)
            client.write_register(HEARTBEAT_TIMEOUT, 500)
            open_stream(client, receiver)
            features.execute("AcquisitionStart")
            assert server.state == State.AcquisitionEnabled
            client.close()
            camera.wait_state(State.Disconnected, timeout=2)
        server.stop()


def test_stop_walks_back_from_every_state_and_may_be_repeated(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    server = camera.server
    server.stop()
    for reached in (State.Disconnected, State.Connected, State.AcquisitionEnabled):
        server.start(camera.address)
        with pytest.raises(RuntimeError):
            server.start(camera.address)
        with camera.client() as client:
            if reached >= State.Connected:
                client.connect(beat=None)
            if reached == State.AcquisitionEnabled:
                Features(client).execute("AcquisitionStart")
            assert server.state == reached
            server.stop()
            server.stop()
            assert server.state == State.Configuration
            client.close()


def test_endpoints_agree_with_the_system(make_camera: MakeCamera) -> None:
    need_tool("ss")
    camera = make_camera(start=False)
    server = camera.server
    assert (camera.address, PORT) not in udp_sockets()
    server.start(camera.address)
    assert tuple(server.local_endpoint) == (camera.address, PORT)
    assert (camera.address, PORT) in udp_sockets()
    with StreamReceiver(local="127.0.0.9") as receiver, camera.client(local="127.0.0.9") as client:
        assert tuple(server.remote_endpoint) == ("0.0.0.0", 0)
        client.connect()
        assert tuple(server.remote_endpoint) == client.local
        assert client.local in udp_sockets()
        open_stream(client, receiver)
        Features(client).execute("AcquisitionStart")
        assert tuple(server.remote_endpoint) == client.local
    assert tuple(server.remote_endpoint) == ("0.0.0.0", 0)
    server.stop()
    assert not {end for end in udp_sockets() if end[0] == camera.address}

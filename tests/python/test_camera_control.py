"""The control channel, as a client on the network sees it."""

import threading
from typing import Any

import numpy as np
import pytest

import gvcp_client as gvcp
import tarn
from aravis_tools import tool
from conftest import Camera, address_word, open_stream, wait_until
from features import Features
from gvcp_client import CCP, CONTROL, EXCLUSIVE, SCDA, SCP, SCPD, SCPS, SWITCHOVER, command, words
from gvsp_receiver import StreamReceiver
from tarn.gevserver import State

KEY = 0x1234


def refused(client: gvcp.ControlClient, address: int, value: int) -> bool:
    return client.request(gvcp.WRITEREG, words(address, value)).status == gvcp.ACCESS_DENIED


def test_description_is_served_exactly(camera: Camera) -> None:
    with camera.client() as client:
        name, data = client.description()
        assert name.endswith((".zip", ".xml"))
        url = client.read_memory(gvcp.FIRST_URL, 512).split(b"\0")[0].decode()
        start, size = (int(part, 16) for part in url.split("?")[0].split(";")[1:3])
        # Other pieces give the same bytes. The file fills whole words; nothing behind it can be read.
        pieces = [client.read_memory(start + at, min(132, size - at)) for at in range(0, size, 132)]
        assert b"".join(pieces) == data and size % 4 == 0
        assert client.request(gvcp.READMEM, words(start + size, 4)).status == gvcp.INVALID_ADDRESS


def check(camera: Camera, state: int, remote: tuple[str, int] = ("0.0.0.0", 0)) -> None:
    server = camera.server
    assert (server.state, tuple(server.remote_endpoint)) == (state, remote)
    assert server.stream.is_running == (state == State.AcquisitionEnabled)
    assert server.node_map.is_read_only == (state != State.Configuration)


@pytest.mark.parametrize("how", ["released", "silent", "stopped"])
def test_the_end_of_control_closes_the_channels_and_frees_the_device(camera: Camera, how: str) -> None:
    server = camera.server
    with pytest.raises(RuntimeError):
        server.start(camera.address)
    assert tuple(server.local_endpoint) == (camera.address, gvcp.PORT)
    with StreamReceiver() as receiver, camera.client() as first, camera.client() as second:
        check(camera, State.Disconnected)  # asking is not connecting
        first.connect(beat=0.1)
        check(camera, State.Connected, first.endpoint)
        first.write_register(gvcp.HEARTBEAT_TIMEOUT, 100)
        assert first.read_register(gvcp.HEARTBEAT_TIMEOUT) == 500  # the standard's minimum
        open_stream(first, receiver, packet_size=1000)
        features = Features(first)
        for command in ("AcquisitionStart", "AcquisitionStop", "AcquisitionStart"):
            features.execute(command)
            running = command == "AcquisitionStart"
            check(camera, State.AcquisitionEnabled if running else State.Connected, first.endpoint)
        assert refused(second, SCPD, 0) and refused(second, CCP, CONTROL) and refused(second, CCP, 0)
        if how == "released":
            first.disconnect()
        elif how == "silent":
            first.close()
            wait_until(lambda: second.read_register(CCP) == 0, "control falls free")
        else:
            first.close()
            for _ in range(2):
                server.stop()
                check(camera, State.Configuration)
            server.start(camera.address)
        check(camera, State.Disconnected)
        assert second.read_registers(SCP, gvcp.PRIMARY_PORT, gvcp.PRIMARY_ADDRESS) == (0, 0, 0)
        if how != "stopped":
            assert second.read_register(SCPS) & 0xFFFF == 1000  # other settings stay
        assert refused(second, SCPD, 0)
        second.connect()
        check(camera, State.Connected, second.endpoint)


def test_the_stream_goes_on_while_control_changes_hands(camera: Camera) -> None:
    image = tarn.WrappedImage.from_buffer(np.zeros((48, 64), np.uint8))
    with StreamReceiver() as receiver, camera.client() as first, camera.client(local="127.0.0.2") as second:
        first.connect(beat=None)
        first.write_register(gvcp.SWITCHOVER_KEY, KEY)
        open_stream(first, receiver)
        Features(first).execute("AcquisitionStart")
        camera.wait_running()
        camera.server.stream.send(image)
        assert refused(second, CCP, KEY << 16 | CONTROL)  # not allowed yet
        first.write_register(CCP, CONTROL | SWITCHOVER)
        assert refused(second, CCP, (KEY + 1) << 16 | CONTROL)
        before = second.read_registers(SCP, SCDA)
        second.connect(KEY << 16 | CONTROL)
        check(camera, State.AcquisitionEnabled, second.endpoint)
        address, port = second.endpoint
        seen = second.read_registers(gvcp.PRIMARY_ADDRESS, gvcp.PRIMARY_PORT, SCP, SCDA)
        assert seen == (address_word(address), port, *before)
        camera.server.stream.send(image)
        assert len(receiver.wait_frames(2)) == 2
        assert refused(first, SCPD, 1)
        second.write_register(SCPD, 1)


def test_its_user_names_the_camera_until_the_program_ends(camera: Camera) -> None:
    name = camera.server.node_map.DeviceUserID
    with camera.client() as client:
        assert refused(client, 0x00E8, 0), "only the client in control"
        client.connect()
        client.write_memory(0x00E8, b"left".ljust(16, b"\0"))
    assert (gvcp.discover(camera.address)[0].user_name, name.value) == ("left", "left")
    tool("-a", camera.address, "control", "DeviceUserID=right")
    camera.server.stop()
    camera.server.start(camera.address)
    assert gvcp.discover(camera.address)[0].user_name == "right"


def test_keys_and_control_are_features(camera: Camera) -> None:
    tree = camera.server.node_map
    with camera.client() as client:
        client.connect()
        features = Features(client)
        features.write("GevPrimaryApplicationSwitchoverKey", KEY)
        assert features.read("GevPrimaryApplicationSwitchoverKey") == 0  # nobody reads it
        for wish, shown in (
            (CONTROL | SWITCHOVER, "ControlAccessSwitchoverActive"),
            (EXCLUSIVE, "ExclusiveAccess"),
            (EXCLUSIVE | CONTROL, "ExclusiveAccess"),
            (EXCLUSIVE | SWITCHOVER, "ExclusiveAccessSwitchoverActive"),
        ):
            features.write("GevCCP", wish)
            assert tree.GevCCP.value == shown
        assert tree.GevPrimaryApplicationSocket.value == client.endpoint[1]
        assert (tree.PtpEnable.value, tree.PtpStatus.value) == (False, "Disabled")


@pytest.mark.parametrize(("patience", "told"), [(0, 20), (50, 100)])
def test_a_slow_listener_costs_nobody_the_connection(camera: Camera, patience: int, told: int) -> None:
    """A notice tells twice the time between notices. Others are served meanwhile, a repeat runs it once."""
    calls, gate = [], threading.Event()

    def slow(node: Any) -> None:
        calls.append(node.name_only)
        gate.wait(20)

    tree = camera.server.node_map
    tree.GevGVCPPendingTimeout.value = patience
    tree.AcquisitionStop.register_event_written_updated(slow)
    with camera.client(timeout=5) as client, camera.client() as other:
        address, _ = Features(client).register("AcquisitionStop")
        client.connect(beat=None)
        client.write_registers((gvcp.HEARTBEAT_TIMEOUT, 500), (gvcp.GVCP_CONFIGURATION, 0x2))
        write = command(gvcp.WRITEREG, words(address, 1), request_id=999)
        for _ in range(2):
            client.send_raw(write)
        for _ in range(600 // told * 2):  # longer than the heartbeat may stay away
            notice = client.receive()
            assert (notice.code, notice.payload, notice.ack_id) == (gvcp.PENDING_ACK, words(told), 999)
            assert other.read_register(CCP) & CONTROL
        gate.set()
        while (answer := client.receive()).code == gvcp.PENDING_ACK:
            pass
        assert (answer.status, answer.ack_id) == (gvcp.SUCCESS, 999)
        assert client.read_register(CCP) & CONTROL
        assert calls == ["AcquisitionStop"]

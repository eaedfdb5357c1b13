"""Several cameras on one machine: in one process and in several, each on an address of its own."""

import contextlib
import re
import subprocess
from collections.abc import Iterator

from aravis_tools import tool
from conftest import MakeCamera, free_address, open_stream, run_python, wait_until
from features import Features
from gvcp_client import CCP, CONTROL, SCPS, ControlClient, DeviceInfo, discover
from gvsp_receiver import StreamReceiver

CAMERA = """
import sys
import tarn
from tarn.gevserver import Server
server = Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), tarn.PfncFormat.Mono8)
server.start(sys.argv[1])
print("started", flush=True)
sys.stdin.read()
server.stop()
"""


@contextlib.contextmanager
def cameras_in_processes(count: int) -> Iterator[list[str]]:
    """Cameras in processes of their own; gives their addresses."""
    addresses = [free_address() for _ in range(count)]
    processes: list[subprocess.Popen[str]] = []
    try:
        processes.extend(run_python(CAMERA, address) for address in addresses)
        for process in processes:
            assert process.stdout
            assert process.stdout.readline() == "started\n"
        yield addresses
    finally:
        for process in processes:
            _, errors = process.communicate(timeout=20)  # closes its input: the camera stops
            assert (process.returncode, errors) == (0, "")


def found_by_broadcast(addresses: set[str]) -> dict[str, DeviceInfo]:
    """Those of the addresses that answer one broadcast; there may be other cameras on this machine."""
    return {d.address: d for d in discover("255.255.255.255", wait=1) if d.address in addresses}


def test_one_broadcast_finds_all_each_as_a_device_of_its_own(make_camera: MakeCamera) -> None:
    here = [make_camera().address for _ in range(3)]
    with cameras_in_processes(3) as elsewhere:
        addresses = {*here, *elsewhere}
        devices = found_by_broadcast(addresses)
        assert set(devices) == addresses
        assert len({device.mac for device in devices.values()}) == 6
        assert len({device.serial for device in devices.values()}) == 6
        for address, device in devices.items():
            assert device.source[0] == address
            assert device.mac[0] & 3 == 2  # made up here, for one device
            # Asked alone, each is the same device.
            (alone,) = discover(address, wait=0.2)
            assert alone.payload == device.payload
        listed = set(re.findall(r"127(?:\.\d+){3}", tool()))
        assert listed >= addresses
    wait_until(lambda: set(found_by_broadcast(addresses)) == set(here), "the others are gone")


def test_cameras_keep_their_clients_streams_and_settings_apart(make_camera: MakeCamera) -> None:
    cameras = [make_camera() for _ in range(3)]
    with contextlib.ExitStack() as stack:
        clients: list[ControlClient] = []
        receivers: list[StreamReceiver] = []
        for number, camera in enumerate(cameras):
            client = stack.enter_context(camera.client()).connect()
            receiver = stack.enter_context(StreamReceiver())
            open_stream(client, receiver, packet_size=576 + 4 * number)
            Features(client).execute("AcquisitionStart")
            camera.wait_running()
            clients.append(client)
            receivers.append(receiver)
        assert {client.read_register(SCPS) & 0xFFFF for client in clients} == {576, 580, 584}
        clients.pop().disconnect()
        for client in clients:
            assert client.read_register(CCP) == CONTROL


def test_a_serial_number_survives_a_restart(make_camera: MakeCamera) -> None:
    camera = make_camera()
    (first,) = discover(camera.address, wait=0.2)
    assert camera.server
    camera.server.stop()
    camera.server.start(camera.address)
    (second,) = discover(camera.address, wait=0.2)
    assert second.payload == first.payload

"""Several cameras on one machine: in one process and in several, each on an address of its own."""

import contextlib
import re
from collections.abc import Iterator

from aravis_tools import tool
from conftest import MakeCamera, free_address, run_python, wait_until
from gvcp_client import DeviceInfo, discover

CAMERA = """
import sys, tarn
from tarn.gevserver import Server
server = Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), tarn.PfncFormat.Mono8)
server.start(sys.argv[1])
print("started", flush=True)
sys.stdin.read()
server.stop()
"""


@contextlib.contextmanager
def camera_in_a_process() -> Iterator[str]:
    """Gives its address."""
    address = free_address()
    with run_python(CAMERA, address) as process:
        assert process.stdout.readline() == "started\n"
        yield address
        _, errors = process.communicate(timeout=20)  # closes its input: the camera stops
    assert (process.returncode, errors) == (0, "")


def found_by_broadcast(addresses: set[str], to: str = "255.255.255.255") -> dict[str, DeviceInfo]:
    """Those of the addresses that answer one broadcast; there may be other cameras on this machine."""
    return {device.address: device for device in discover(to) if device.address in addresses}


def test_one_broadcast_finds_all_each_as_a_device_of_its_own(make_camera: MakeCamera) -> None:
    one, other = make_camera(), make_camera()
    with camera_in_a_process() as elsewhere:
        addresses = {one.address, other.address, elsewhere}
        devices = found_by_broadcast(addresses)
        assert set(devices) == set(found_by_broadcast(addresses, "127.255.255.255")) == addresses
        assert len({(device.mac, device.serial) for device in devices.values()}) == 3
        for address, device in devices.items():
            assert device.source[0] == address
            assert device.mac[0] & 3 == 2  # made up here, for one device
            # Asked alone, each is the same device.
            assert [alone.payload for alone in discover(address, wait=0.2)] == [device.payload]
        assert set(re.findall(r"127(?:\.\d+){3}", tool())) >= addresses
    wait_until(lambda: set(found_by_broadcast(addresses)) == addresses - {elsewhere}, "one is gone")
    told, tree = devices[one.address], one.server.node_map
    assert (told.manufacturer, told.model) == (tree.vendor_name, tree.model_name)
    with one.client() as client:
        assert client.read_memory(0, 248) == told.payload
    one.server.stop()
    one.server.start(one.address)
    assert discover(one.address, wait=0.2)[0].payload == told.payload  # a serial number is for ever

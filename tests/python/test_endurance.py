"""More blocks than 16-bit ids can number: ids and time go on, and nothing stays behind."""

import functools
import os
import socket
import struct
from collections.abc import Iterator

import pytest

import tarn
from conftest import MakeCamera, live_handles
from features import Features
from gvcp_client import GVSP_CONFIGURATION, SCDA, SCP, SCPS
from gvsp_receiver import LEADER, PAYLOAD, TRAILER, Packet
from tarn.gevserver import DriverType, Server
from test_memory import resident_kilobytes

LAST_STANDARD_ID = 0xFFFF
BLOCKS = LAST_STANDARD_ID + 2000
BURST = 64  # three datagrams each: they fit a socket's default buffer
WARM_UP = 20 * BURST


def expected(extended: bool) -> Iterator[tuple[int, int]]:
    """Block and kind of each packet: leader, one data packet, trailer."""
    for number in range(1, 2 * BLOCKS):
        block = number if extended else (number - 1) % LAST_STANDARD_ID + 1
        yield from ((block, kind) for kind in (LEADER, PAYLOAD, TRAILER))


@pytest.mark.parametrize(
    ("extended", "driver", "resend"), [(False, DriverType.Socket, 8), (True, DriverType.Filter, 0)]
)
def test_ids_time_and_memory_after_more_blocks_than_short_ids(
    make_camera: MakeCamera, extended: bool, driver: int, resend: int
) -> None:
    kind = functools.partial(Server.create_with_const_size_pfnc, driver_type=driver)
    camera = make_camera((16, 16), resend=resend, start=False, kind=kind)
    camera.server.node_map.DeviceLinkThroughputLimitModeValue.value = 0
    camera.server.start(camera.address)
    image, released = tarn.Image((16, 16)), list[tarn.Image]()
    packets, timestamp = expected(extended), 0
    with camera.client() as client, socket.socket(type=socket.SOCK_DGRAM) as sock:
        sock.bind(("127.0.0.1", 0))
        sock.settimeout(10)
        client.connect()
        client.write_register(GVSP_CONFIGURATION, 0x4000_0000 if extended else 0)
        client.write_registers((SCPS, 1500), (SCDA, 0x7F000001), (SCP, sock.getsockname()[1]))
        Features(client).execute("AcquisitionStart")

        def send_and_read(count: int) -> tuple[int, int]:
            """Handles and file descriptors afterwards."""
            nonlocal timestamp
            for number in range(count // BURST * BURST):
                if number % BURST == 0:
                    for _ in range(BURST):
                        camera.send(image, released.append)
                for place in range(3):
                    packet = Packet.decode(sock.recv(2048))
                    assert (packet.block, packet.kind) == next(packets)
                    assert (packet.status, packet.number, packet.extended) == (0, place, extended)
                    if place == 0:
                        before, (timestamp,) = timestamp, struct.unpack_from(">Q", packet.data, 4)
                        assert timestamp > before
            released.clear()
            return live_handles(), len(os.listdir("/proc/self/fd"))

        before = send_and_read(WARM_UP)
        resident = resident_kilobytes()
        assert send_and_read(BLOCKS) == before
        # The smallest piece of memory lost with each block would be more than this.
        assert resident_kilobytes() - resident < 768

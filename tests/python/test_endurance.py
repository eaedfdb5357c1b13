"""More blocks than 16-bit ids can number: ids and time go on, and nothing stays behind."""

import os
import socket
from typing import Any

import pytest

import tarn
from conftest import Camera, free_address, live_handles, open_stream
from features import Features
from gvcp_client import GVSP_CONFIGURATION
from gvsp_receiver import LEADER, PAYLOAD, TRAILER, Leader, Packet
from tarn.gevserver import DriverType, Server
from test_memory import resident_kilobytes

LAST_STANDARD_ID = 0xFFFF
BLOCKS = LAST_STANDARD_ID + 2000
BURST = 64  # three datagrams each: they fit a socket's default buffer
WARM_UP = 20 * BURST


class Blocks:
    """Reads blocks of one data packet from a socket and checks that each follows the one before."""

    def __init__(self, extended: bool) -> None:
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 0))
        self.socket.settimeout(10)
        self.endpoint = self.socket.getsockname()
        self.port = self.endpoint[1]
        self._extended = extended
        self._block = 0
        self._timestamp = 0

    def read(self, count: int) -> None:
        for _ in range(count):
            self._block = 1 if self._block == LAST_STANDARD_ID and not self._extended else self._block + 1
            for number, kind in enumerate((LEADER, PAYLOAD, TRAILER)):
                packet = Packet.decode(*self.socket.recvfrom(2048))
                found = (packet.status, packet.block, packet.number, packet.kind, packet.extended)
                assert found == (0, self._block, number, kind, self._extended)
                if kind == LEADER:
                    timestamp = Leader.decode(packet.data).timestamp
                    assert timestamp > self._timestamp
                    self._timestamp = timestamp


@pytest.mark.parametrize(
    ("extended", "driver", "resend"), [(False, DriverType.Socket, 8), (True, DriverType.Filter, 0)]
)
def test_ids_time_and_memory_after_more_blocks_than_short_ids(
    extended: Any, driver: Any, resend: Any
) -> None:
    size = tarn.Size2D(16, 16)
    server = Server.create_with_const_size_pfnc(size, tarn.PfncFormat.Mono8, driver)
    server.stream.resend_buffers_count = resend
    server.node_map.DeviceLinkThroughputLimitModeValue.value = 0
    camera = Camera(server, free_address())
    blocks: Any = Blocks(extended)  # a receiver to whoever asks for its endpoint
    released: list[tarn.Image] = []

    def send_and_read(count: int) -> None:
        for _ in range(count // BURST):
            for _ in range(BURST):
                camera.send(image, released.append)
            blocks.read(BURST)
        released.clear()

    try:
        server.start(camera.address)
        image = tarn.Image(size)
        with camera.client() as client:
            client.connect()
            if extended:
                client.write_register(GVSP_CONFIGURATION, 0x4000_0000)
            open_stream(client, blocks)
            Features(client).execute("AcquisitionStart")
            camera.wait_running()

            send_and_read(WARM_UP)
            before = live_handles(), len(os.listdir("/proc/self/fd"))
            resident = resident_kilobytes()
            send_and_read(BLOCKS)
            assert (live_handles(), len(os.listdir("/proc/self/fd"))) == before
            # The smallest piece of memory lost with each block would be more than this.
            assert resident_kilobytes() - resident < 768
    finally:
        camera.end()
        blocks.socket.close()

"""Several cameras in one process, on addresses that follow each other: runs until Ctrl+C."""

import argparse
import contextlib
import ipaddress
import time

import numpy as np

import tarn
from tarn.gevserver import Server

SIZE = tarn.Size2D(320, 240)

if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the first camera")
    parser.add_argument("--count", type=int, default=3, help="of cameras")
    parser.add_argument("--frames", type=int, default=2**62, help="end after so many")
    arguments = parser.parse_args()

    first = ipaddress.IPv4Address(arguments.address)
    servers: list[Server] = []
    try:
        for number in range(arguments.count):
            server = Server.create_with_const_size_pfnc(SIZE, tarn.PfncFormat.Mono8)
            server.node_map.DeviceUserID.value = f"camera {number}"
            server.start(str(first + number))
            servers.append(server)
        with contextlib.suppress(KeyboardInterrupt):
            for frame in range(arguments.frames):
                for number, server in enumerate(servers):
                    if server.stream.is_running:
                        picture = np.full((240, 320), frame + 60 * number, dtype=np.uint32).astype(np.uint8)
                        server.stream.try_send(tarn.WrappedImage.from_buffer(picture))
                time.sleep(1 / 30)
    finally:
        for server in servers:
            server.stop()

"""A camera whose clients choose the part of the sensor that they want: runs until Ctrl+C."""

import argparse
import contextlib
import time

import numpy as np

import tarn
from tarn.gevserver import Server

SENSOR = tarn.Size2D(640, 480)


def wanted(server: Server, sensor: np.ndarray) -> np.ndarray:
    """The part of the picture that the client chose, without a copy."""
    tree = server.node_map
    x, y, width, height = (tree[name].value for name in ("OffsetX", "OffsetY", "Width", "Height"))
    return sensor[y : y + height, x : x + width]


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    parser.add_argument("--frames", type=int, default=2**62, help="end after so many")
    arguments = parser.parse_args()

    server = Server.create_with_variable_size_pfnc(SENSOR, tarn.PfncFormat.Mono8)
    server.start(arguments.address)
    ramp = np.add.outer(np.arange(480), np.arange(640))
    try:
        with contextlib.suppress(KeyboardInterrupt):
            for number in range(arguments.frames):
                if server.stream.is_running:
                    sensor = (ramp + number).astype(np.uint8)
                    server.stream.try_send(tarn.WrappedImage.from_buffer(wanted(server, sensor)))
                time.sleep(1 / 30)
    finally:
        server.stop()

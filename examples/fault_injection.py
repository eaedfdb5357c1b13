"""A camera that misbehaves, to see what a client makes of it: runs until Ctrl+C.

The client chooses the fault by the feature Fault.
"""

import argparse
import contextlib
import time

import numpy as np

import tarn
from tarn.gevserver import Server
from tarn.gevserver.features import Enumeration, FeatureSet, Integer


class Faults(FeatureSet):
    """What goes wrong, and how often."""

    fault = Enumeration(["None", "Skip", "Black", "Noise", "Late"], tool_tip="What becomes of a bad picture")
    every = Integer(10, min=1, max=1000, tool_tip="One picture of so many is bad")

    def spoil(self, picture: np.ndarray, number: int) -> np.ndarray | None:
        """The picture as it is to be sent; None for not at all."""
        if self.fault == "None" or number % self.every:
            return picture
        if self.fault == "Skip":
            return None
        if self.fault == "Black":
            return np.zeros_like(picture)
        if self.fault == "Noise":
            return np.random.default_rng().integers(0, 256, picture.shape, np.uint8)
        time.sleep(0.5)
        return picture


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    parser.add_argument("--frames", type=int, default=2**62, help="end after so many")
    arguments = parser.parse_args()
    server = Server.create_with_const_size_pfnc(tarn.Size2D(320, 240), tarn.PfncFormat.Mono8)
    faults = Faults(server)
    server.start(arguments.address)
    grey = np.full((240, 320), 128, np.uint8)
    try:
        with contextlib.suppress(KeyboardInterrupt):
            for number in range(1, arguments.frames):
                time.sleep(1 / 30)
                picture = faults.spoil(grey, number)
                if picture is not None and server.stream.is_running:
                    server.stream.try_send(tarn.WrappedImage.from_buffer(picture))
    finally:
        server.stop()

"""A camera whose images bring along their exposure and the part they show: runs until Ctrl+C."""

import argparse
import contextlib
import itertools
import time

import numpy as np

import tarn
from tarn.gevserver import Server
from tarn.gevserver.features import FeatureSet, Float, Integer, String


class Inspection(FeatureSet, category="ChunkDataControl"):
    """Features of this category whose names begin with Chunk travel with each image."""

    exposure = Float(name="ChunkExposureTime", unit="us", read_only=True, standard=True)
    part = Integer(0, name="ChunkPartNumber", read_only=True)
    verdict = String(length=8, name="ChunkVerdict", read_only=True)

    def take(self, number: int) -> np.ndarray:
        """Every part is exposed twice as long as the one before, until it would be too bright."""
        self.part = number
        self.exposure = 100.0 * 2 ** (number % 3)
        self.verdict = "good" if number % 10 else "broken"
        return np.full((480, 640), self.exposure / 2, np.uint8)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    address = parser.parse_args().address
    server = Server.create_with_const_size_pfnc(tarn.Size2D(640, 480), tarn.PfncFormat.Mono8)
    inspection = Inspection(server)
    server.start(address)
    try:
        with contextlib.suppress(KeyboardInterrupt):
            for number in itertools.count(1):
                picture = inspection.take(number)
                if server.stream.is_running:
                    # An image takes along what the features hold at this moment.
                    server.stream.try_send(tarn.WrappedImage.from_buffer(picture))
                time.sleep(1 / 30)
    finally:
        server.stop()

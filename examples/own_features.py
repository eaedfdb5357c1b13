"""A camera with features of its own, in the short way: runs until Ctrl+C."""

import argparse
import contextlib
import time

import numpy as np

import tarn
from tarn.gevserver import Server
from tarn.gevserver.features import Boolean, Command, Enumeration, FeatureSet, Float


class Sensor(FeatureSet, category="AnalogControl"):
    """What clients can set, and what happens then."""

    gain = Float(1.0, min=0.0, max=16.0, unit="dB", standard=True, tool_tip="Brightness of the picture")
    invert = Boolean(tool_tip="Shows the negative")
    pattern = Enumeration(["Ramp", "Stripes"], streamable=True)
    uptime = Float(unit="s", read_only=True, polling=1000, category="DeviceControl")
    reset = Command(tool_tip="Sets the gain back to 1")

    @uptime.on_read
    def seconds(self) -> float:
        return time.monotonic()

    @reset.on_execute
    def back(self) -> None:
        self.gain = 1.0

    def picture(self, number: int) -> np.ndarray:
        ramp = np.add.outer(np.arange(480), np.arange(640)) + number
        grey = ramp % 256 if self.pattern == "Ramp" else ramp // 32 % 2 * 255
        bright = np.clip(grey * 10 ** (self.gain / 20), 0, 255).astype(np.uint8)
        return 255 - bright if self.invert else bright


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    parser.add_argument("--frames", type=int, default=2**62, help="end after so many")
    arguments = parser.parse_args()
    server = Server.create_with_const_size_pfnc(tarn.Size2D(640, 480), tarn.PfncFormat.Mono8)
    sensor = Sensor(server)
    server.start(arguments.address)
    try:
        with contextlib.suppress(KeyboardInterrupt):
            for number in range(arguments.frames):
                if server.stream.is_running:
                    server.stream.try_send(tarn.WrappedImage.from_buffer(sensor.picture(number)))
                time.sleep(1 / 30)
    finally:
        server.stop()

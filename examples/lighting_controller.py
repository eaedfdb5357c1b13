"""A controller for four lamps, a GenICam device without images: runs until Ctrl+C."""

import argparse
import contextlib
import random
import threading

from tarn.gevserver import Server
from tarn.gevserver.features import Boolean, Command, Enumeration, FeatureSet, Float, Integer, String


class Lights(FeatureSet):
    """What clients see; lamp and preset choose whose switch and brightness."""

    lamp = Integer(0, min=0, max=3)
    preset = Enumeration(["Day", "Night"])
    lamp_on = Boolean(selector=(lamp, preset))
    brightness = Integer(0, min=0, max=100, step=5, selector=(lamp, preset))
    flash = Command(tool_tip="One pulse of the chosen lamp")
    flash_count = Integer(0, read_only=True)
    temperature = Float(unit="C", read_only=True, polling=1000)
    pulse_length = Float(100.0, min=0.5, max=1e4, unit="us")
    label = String("bench 3", length=32, streamable=True)

    def __init__(self, server: Server) -> None:
        super().__init__(server)
        # All are ordinary nodes: a lamp that is off has no flash, and the pulse of a lit one is not changed.
        self.nodes["flash"].is_available_config = self.nodes["lamp_on"]
        self.nodes["pulse_length"].is_locked_config = self.nodes["lamp_on"]

    @flash.on_execute
    def fire(self) -> None:
        self.flash_count += 1

    @temperature.on_read
    def measure(self) -> float:
        return random.uniform(30, 50)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    parser.add_argument("--seconds", type=float, help="end after this time")
    arguments = parser.parse_args()
    server = Server.create_non_streaming()
    lights = Lights(server)
    server.start(arguments.address)
    try:
        with contextlib.suppress(KeyboardInterrupt):
            threading.Event().wait(arguments.seconds)
    finally:
        server.stop()

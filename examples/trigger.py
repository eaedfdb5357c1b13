"""A camera that takes a picture when its client says so: runs until Ctrl+C.

The client sets TriggerMode to On and executes TriggerSoftware for each picture.
"""

import argparse
import contextlib
import queue
import time

import numpy as np

import tarn
from tarn.gevserver import Server
from tarn.gevserver.features import Command, Enumeration, FeatureSet


class Trigger(FeatureSet, category="AcquisitionControl"):
    """The standard's trigger features, for one kind of trigger."""

    trigger_selector = Enumeration(["FrameStart"], standard=True)
    trigger_mode = Enumeration(["Off", "On"], standard=True, tool_tip="Wait for the trigger?")
    trigger_source = Enumeration(["Software"], standard=True)
    trigger_software = Command(standard=True, tool_tip="Takes a picture")

    def __init__(self, server: Server) -> None:
        super().__init__(server)
        self.fired: queue.SimpleQueue[float] = queue.SimpleQueue()

    @trigger_software.on_execute
    def fire(self) -> None:
        self.fired.put(time.monotonic())

    def wait(self) -> bool:
        """True when a picture is due; False to look again whether the mode was changed."""
        if self.trigger_mode == "Off":
            time.sleep(1 / 30)
            return True
        with contextlib.suppress(queue.Empty):
            return self.fired.get(timeout=0.1) > 0
        return False


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    arguments = parser.parse_args()
    server = Server.create_with_const_size_pfnc(tarn.Size2D(320, 240), tarn.PfncFormat.Mono8)
    trigger = Trigger(server)
    server.start(arguments.address)
    picture = np.zeros((240, 320), np.uint8)
    try:
        with contextlib.suppress(KeyboardInterrupt):
            while True:
                if trigger.wait() and server.stream.is_running:
                    picture += 1
                    server.stream.try_send(tarn.WrappedImage.from_buffer(picture))
    finally:
        server.stop()

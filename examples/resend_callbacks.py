"""A camera with few buffers that are used again when no client can ask for them any more: runs until Ctrl+C.

With resend buffers an image has to stay as it is after `send`. Its callback tells when it is free again.
"""

import argparse
import contextlib
import queue
import time
from collections.abc import Callable

import numpy as np

import tarn
from tarn.gevserver import Server

WIDTH, HEIGHT = 640, 480
RESEND_DEPTH = 4

Buffers = queue.SimpleQueue[np.ndarray]


def put_back(free: Buffers, picture: np.ndarray) -> Callable[[tarn.Image], None]:
    """What the camera calls when it needs the picture no more."""
    return lambda _: free.put(picture)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    parser.add_argument("--frames", type=int, default=2**62, help="end after so many")
    arguments = parser.parse_args()

    server = Server.create_with_const_size_pfnc(tarn.Size2D(WIDTH, HEIGHT), tarn.PfncFormat.Mono8)
    server.stream.resend_buffers_count = RESEND_DEPTH
    server.start(arguments.address)

    # Two more than the camera keeps: one to fill, one on its way out.
    free: Buffers = queue.SimpleQueue()
    for _ in range(RESEND_DEPTH + 2):
        free.put(np.empty((HEIGHT, WIDTH), np.uint8))
    ramp = np.add.outer(np.arange(HEIGHT), np.arange(WIDTH))
    try:
        with contextlib.suppress(KeyboardInterrupt):
            for number in range(arguments.frames):
                time.sleep(1 / 30)
                if not server.stream.is_running:
                    continue
                picture = free.get()
                np.add(ramp, number, out=picture, casting="unsafe")
                image = tarn.WrappedImage.from_buffer(picture)
                if not server.stream.try_send(image, put_back(free, picture)):
                    free.put(picture)
    finally:
        server.stop()

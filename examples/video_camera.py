"""Shows a video file, or a webcam (/dev/video0), as a GigE Vision camera: runs until its end or Ctrl+C.

It needs PyAV: pip install 'tarn[video]'.
"""

import argparse
import contextlib
import time

import av

import tarn
from tarn.gevserver import Server

if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("source", help="a video file, or the device of a webcam")
    parser.add_argument("address", nargs="?", default="127.0.0.1", help="of the network interface")
    arguments = parser.parse_args()
    is_webcam = arguments.source.startswith("/dev/")
    with av.open(arguments.source, format="v4l2" if is_webcam else None) as container:
        stream = container.streams.video[0]
        size = tarn.Size2D(stream.width, stream.height)
        server = Server.create_with_const_size_pfnc(size, tarn.PfncFormat.RGB8)
        server.start(arguments.address)
        start = time.monotonic()
        try:
            with contextlib.suppress(KeyboardInterrupt):
                for frame in container.decode(stream):
                    if not is_webcam:  # a file is read faster than it plays
                        time.sleep(max(0.0, start + (frame.time or 0.0) - time.monotonic()))
                    if server.stream.is_running:
                        picture = frame.to_ndarray(format="rgb24")
                        server.stream.try_send(tarn.WrappedImage.from_buffer(picture))
        finally:
            server.stop()

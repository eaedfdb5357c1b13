"""A GigE Vision camera on 127.0.0.1 that shows a moving grey ramp, until Ctrl+C."""

import time

import numpy as np

import tarn.gevserver

size, grey = tarn.Size2D(640, 480), tarn.DataType.Int8BppUnsigned
server = tarn.gevserver.Server.create_with_const_size(size, tarn.ColorModel.Mono, grey)
server.start("127.0.0.1")
try:
    picture = np.add.outer(np.arange(480), np.arange(640)).astype(np.uint8)
    while True:
        picture += 1
        if server.stream.is_running:
            server.stream.try_send(tarn.WrappedImage.from_buffer(picture))
        time.sleep(1 / 30)
finally:
    server.stop()

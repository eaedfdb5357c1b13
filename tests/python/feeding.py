"""Pictures, videos, and a camera program that sends pictures at a steady rate."""

import pathlib
import threading

import numpy as np
import pytest

import tarn
from conftest import Camera
from tarn import PfncFormat

_DEPTHS = {PfncFormat.Mono12: 12, PfncFormat.Mono16: 16}


def noise(size: tuple[int, ...], pixel_format: int = PfncFormat.Mono8, seed: int = 0) -> np.ndarray:
    """A picture of the shape and depth that the format needs."""
    shape = (size[1], size[0], 3) if pixel_format == PfncFormat.RGB8 else (size[1], size[0])
    depth = _DEPTHS.get(pixel_format, 8)
    return np.random.default_rng(seed).integers(0, 1 << depth, shape, np.uint16 if depth > 8 else np.uint8)


def make_video(path: pathlib.Path, greys: list[int], rate: int) -> None:
    """A video of one colour in each frame, without loss."""
    av = pytest.importorskip("av", reason="videos are an extra")
    with av.open(str(path), "w") as container:
        stream = container.add_stream("ffv1", rate=rate)
        stream.width, stream.height, stream.pix_fmt = 64, 48, "bgr0"
        for grey in greys:
            picture = av.VideoFrame.from_ndarray(np.full((48, 64, 3), grey, np.uint8), "rgb24")
            container.mux(stream.encode(picture))
        container.mux(stream.encode())


def send(camera: Camera, picture: np.ndarray) -> None:
    """Send a picture to the client that streams."""
    camera.send(tarn.WrappedImage.from_buffer(picture), lambda image: None)


class Feeder:
    """Sends pictures in turn, at a steady rate, while a client streams."""

    def __init__(self, camera: Camera, pictures: list[np.ndarray], rate: float = 50) -> None:
        self._camera = camera
        self._pictures = pictures
        self._rate = rate
        self._ending = threading.Event()
        self._thread = threading.Thread(target=self._run)

    def __enter__(self) -> "Feeder":
        self._thread.start()
        return self

    def __exit__(self, *exception: object) -> None:
        self._ending.set()
        self._thread.join()

    def _run(self) -> None:
        stream = self._camera.server.stream
        number = 0
        while not self._ending.wait(1 / self._rate):
            if stream.is_running:
                image = tarn.WrappedImage.from_buffer(self._pictures[number % len(self._pictures)])
                number += stream.try_send(image, lambda image: None)

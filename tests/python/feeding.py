"""Pictures, and a camera program that sends them at a steady rate."""

import threading

import numpy as np

import tarn
from conftest import Camera
from tarn import PfncFormat


def noise(size: tuple[int, int], pixel_format: int, seed: int) -> np.ndarray:
    """A picture of the shape and depth that the format needs."""
    random = np.random.default_rng(seed)
    shape = (size[1], size[0], 3) if pixel_format == PfncFormat.RGB8 else (size[1], size[0])
    depth = {PfncFormat.Mono12: 12, PfncFormat.Mono16: 16}.get(pixel_format, 8)
    return random.integers(0, 1 << depth, shape, np.uint16 if depth > 8 else np.uint8)


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

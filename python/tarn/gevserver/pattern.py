"""A test pattern that moves, made without NumPy so that the demo runs on a bare interpreter."""

_STEPS = 256  # grey values in one period of the ramp


class MovingRamp:
    """Diagonal grey ramp, one byte per pixel, that moves left by `speed` pixels per frame.

    Parameters
    ----------
    width, height : int
        Size in pixels, at least 1.
    speed : int
        Pixels per frame.
    """

    def __init__(self, width: int, height: int, speed: int = 4) -> None:
        self._width = width
        self._height = height
        self._speed = speed
        # Long enough that every line of every frame is one slice of it.
        self._ramp = bytes(range(_STEPS)) * (width // _STEPS + 2)

    def frame(self, number: int) -> memoryview:
        """Frame `number`, counted from 0: ``(height, width)`` uint8, new memory at each call."""
        starts = ((number * self._speed + line) % _STEPS for line in range(self._height))
        lines = b"".join(self._ramp[start : start + self._width] for start in starts)
        return memoryview(lines).cast("B", shape=(self._height, self._width))

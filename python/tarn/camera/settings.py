"""What one camera is made from."""

import dataclasses

from tarn.camera.clock import Clock
from tarn.camera.controls import FILM, Defaults
from tarn.camera.patterns import SCROLLS, Scroll, gradient
from tarn.camera.pictures import Pictures
from tarn.camera.pixels import PixelFormat
from tarn.camera.scene import Film
from tarn.camera.video import Video
from tarn.gevserver import DriverType


@dataclasses.dataclass(frozen=True)
class Identity:
    """Names that clients see; None leaves the library's own."""

    vendor: str | None = None
    model: str | None = None
    serial: str | None = None
    user_id: str | None = None
    user_version: str | None = None


@dataclasses.dataclass(frozen=True)
class Settings:
    """One camera."""

    address: str
    size: tuple[int, int]  # width and height in pixels
    pixel_format: PixelFormat
    film: Pictures | Video | None = None  # what is seen without a test pattern
    resend: int = 4  # frames kept for packet resend
    driver: int = DriverType.Auto
    throughput: float | None = (
        None  # largest rate of the stream in bytes per second; None for the server's own choice
    )
    priority: int = 0  # of the thread that sends, 1 to 99, of SCHED_FIFO; 0 for none
    processors: int = 0  # a bit for each that it may use; 0 for all
    identity: Identity = dataclasses.field(default_factory=Identity)
    defaults: Defaults = dataclasses.field(default_factory=Defaults)
    frames: int | None = None  # to take, then the camera ends; None for no end

    def source(self, name: str) -> Scroll | Film:
        """What the camera sees when it shows `name`, of PATTERN_ENTRIES; without a film a gradient."""
        if name == "clock":
            return Clock(*self.size)
        if name != FILM:
            return SCROLLS[name](*self.size)
        return self.film or gradient(*self.size)

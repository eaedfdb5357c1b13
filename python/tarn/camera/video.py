"""A video file as what the camera looks at."""

import pathlib
from collections.abc import Iterator
from typing import Any

from tarn.camera.pictures import SourceError
from tarn.camera.pixels import Picture


class Video:
    """The frames of a video file, one after the other, from the beginning again at the end.

    Parameters
    ----------
    file : pathlib.Path
        Anything that FFmpeg reads.
    size : tuple of int, optional
        Width and height in pixels to which the frames are scaled; the size of the video if None.

    Raises
    ------
    SourceError
        The package for videos is missing, or the file is no video.
    """

    period = None  # too many frames to keep

    def __init__(self, file: pathlib.Path, size: tuple[int, int] | None) -> None:
        try:
            import av
        except ImportError as error:
            raise SourceError("videos need the package PyAV: pip install 'tarn[video]'") from error
        self._av = av
        self._file = file
        with self._open() as container:
            stream = container.streams.video[0]
            self.size: tuple[int, int] = size or (stream.width, stream.height)
            self.rate: float | None = float(stream.average_rate) if stream.average_rate else None
        self._frames = self._decoded()

    def frame(self, number: int) -> Picture:
        """The next frame, whatever the number: ``(height, width, 3)`` uint8.

        Raises
        ------
        SourceError
            The file cannot be read any more.
        """
        del number
        frame = next(self._frames)
        picture: Picture = frame.reformat(*self.size, format="rgb24").to_ndarray()
        return picture

    def _open(self) -> Any:
        try:
            container = self._av.open(str(self._file))
        except self._av.FFmpegError as error:
            raise SourceError(f"cannot read the video {self._file}: {error.strerror}") from error
        if not container.streams.video:
            container.close()
            raise SourceError(f"{self._file} holds no video")
        return container

    def _decoded(self) -> Iterator[Any]:
        while True:
            shown = 0
            with self._open() as container:
                try:
                    for frame in container.decode(video=0):
                        shown += 1
                        yield frame
                except self._av.FFmpegError as error:
                    raise SourceError(f"cannot read the video {self._file}: {error.strerror}") from error
            if not shown:
                raise SourceError(f"{self._file} holds no frames")

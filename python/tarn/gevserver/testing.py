"""A camera for the tests of client programs: started on a free address, with a record of what clients do.

::

    def test_the_program_sets_the_gain():
        with camera(size=(640, 480)) as cam:
            cam.feed(itertools.repeat(picture))
            program.grab(cam.address, packet_size=1400)
            assert cam.acquisitions == 1
            assert cam.written("GevSCPSPacketSize") == [1400]

With pytest, the fixtures ``gev_camera`` and ``make_gev_camera`` give the same. Addresses are of the loopback
interface, 127.0.0.0/8: tests run side by side, and need neither hardware nor special rights.

What a client did is noted before the client gets its answer: a test that waited for its client need not
wait for the notes.
"""

import contextlib
import functools
import random
import socket
import threading
import time
from collections.abc import Callable, Iterable, Iterator
from types import TracebackType
from typing import Any, NamedTuple, Self, TypeGuard

import tarn
from tarn.gevserver import CategoryNode, EnumEntryNode, Node, Server, Stream, ValueNode

__all__ = ["RunningCamera", "Write", "camera", "free_address"]

_CONTROL_PORT = 3956  # Source: GigE Vision, the port that IANA gives to its control protocol
_TRIES = 1000
_POLL = 0.005  # seconds; the start of a stream tells nobody


class Write(NamedTuple):
    """A client's write to a feature."""

    feature: str  #: its name
    value: Any  #: what it had afterwards, None for a command


def free_address() -> str:
    """A loopback address on which nobody has the control port at the moment.

    Raises
    ------
    OSError
        None was found.
    """
    for _ in range(_TRIES):
        # Not 127.0.x.y, which cameras for other purposes use, and no network or broadcast address.
        address = f"127.{random.randrange(1, 255)}.{random.randrange(256)}.{random.randrange(1, 255)}"
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe, contextlib.suppress(OSError):
            probe.bind((address, _CONTROL_PORT))
            return address
    raise OSError(f"no loopback address with a free port {_CONTROL_PORT}")


@contextlib.contextmanager
def camera(
    server: Server | None = None,
    *,
    size: tuple[int, int] = (64, 48),
    pixel_format: int = tarn.PfncFormat.Mono8,
    resend_buffers: int = 0,
    address: str | None = None,
) -> "Iterator[RunningCamera]":
    """A started camera; stopped when the block ends, and then what failed in the background is raised.

    Parameters
    ----------
    server : tarn.gevserver.Server, optional
        In its configuration state, with whatever features; by default one is made of what follows.
    size : tuple of int, optional
        Width and height in pixels.
    pixel_format : int, optional
        See `tarn.PfncFormat`.
    resend_buffers : int, optional
        Images that are kept for clients that lose packets.
    address : str, optional
        By default a free loopback address.
    """
    if server is None:
        server = Server.create_with_const_size_pfnc(tarn.Size2D(*size), pixel_format)
        server.stream.resend_buffers_count = resend_buffers
    with RunningCamera(server, address or free_address()) as running:
        yield running


class RunningCamera:
    """A started server, its address, and what its clients did. Made by `camera`.

    All methods may be called from any thread. Those that wait raise AssertionError when nothing came of it.
    """

    def __init__(self, server: Server, address: str) -> None:
        self.server = server
        self.address = address
        self._notes = _Notes()
        self._feeds: list[_Feed] = []
        self._cleanup = contextlib.ExitStack()

    def __enter__(self) -> Self:
        with contextlib.ExitStack() as undo:
            for node in self.server.node_map.nodes.values():
                if _is_written_by_clients(node):
                    undo.callback(_listen(node, self._notes.write))
            self.server.start(self.address)
            undo.callback(self.server.stop)
            self._cleanup = undo.pop_all()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        for feed in self._feeds:
            feed.end()
        self._cleanup.close()
        if error is None:
            self._notes.check()

    @property
    def writes(self) -> tuple[Write, ...]:
        """All that clients wrote, in this order.

        A register that several features share counts as a write to each of them.
        """
        return self._notes.writes()

    def written(self, feature: str) -> list[Any]:
        """The values that clients wrote to a feature, or one None for each execution of a command."""
        return [write.value for write in self.writes if write.feature == feature]

    @property
    def acquisitions(self) -> int:
        """How many times clients started acquisition."""
        return len(self.written("AcquisitionStart"))

    @property
    def frames_sent(self) -> int:
        """Images that went out to a client."""
        return self._notes.frames

    def forget(self) -> None:
        """Start the record of writes and frames anew."""
        self._notes.forget()

    def wait_written(self, feature: str, timeout: float = 10.0) -> Any:
        """The last value that a client wrote to a feature, once there is one; `timeout` in seconds."""
        self._notes.wait(lambda: feature in self._notes.names(), timeout, f"a client writes {feature}")
        return self.written(feature)[-1]

    def wait_acquisition(self, timeout: float = 10.0) -> None:
        """Return when a client takes images; `timeout` in seconds."""
        stream = self._stream()
        self._notes.wait(lambda: stream.is_running, timeout, "a client starts acquisition")

    def wait_frames_sent(self, count: int, timeout: float = 10.0) -> None:
        """Return when so many images went out; `timeout` in seconds."""
        self._notes.wait(
            lambda: self._notes.frames - self._unsent() >= count, timeout, f"{count} frames are sent"
        )

    def send(self, picture: object, timeout: float = 10.0) -> None:
        """Send one image, as soon as a client takes images.

        Parameters
        ----------
        picture : buffer
            ``(height, width)`` or ``(height, width, planes)``: an array, a `tarn.Image`. It is copied.
        timeout : float, optional
            In seconds.

        Raises
        ------
        ValueError
            It is no image, or larger than the camera's payload size.
        AssertionError
            No client took images in time.
        """
        image = self._image(picture)
        self._notes.wait(lambda: self._try_send(image), timeout, "a client takes an image")

    def feed(self, pictures: Iterable[object], rate: float = 100.0) -> None:
        """Send images in the background, each once and in order, while clients take them.

        Parameters
        ----------
        pictures : iterable of buffers
            As for `send`; may be endless, but not block for ever. What it raises fails the test: in the
            method that waits, or at the end of the camera.
        rate : float, optional
            Images per second at most.
        """
        if not rate > 0:
            raise ValueError(f"the rate is {rate}, must be above 0")
        sends = (functools.partial(self._try_send, self._image(picture)) for picture in pictures)
        self._feeds.append(_Feed(sends, 1 / rate, self._notes.fail))

    def _unsent(self) -> int:
        """Images that the stream took and that are still on their way out."""
        tree = self.server.node_map
        done: int = tree.DeviceStreamFrames.value + tree.DeviceStreamDroppedFrames.value
        return max(self._notes.taken - done, 0)

    def _stream(self) -> Stream:
        stream: Stream | None = self.server.stream
        if stream is None:
            raise ValueError("the camera was made without a stream")
        return stream

    def _image(self, picture: object) -> tarn.Image:
        """A copy of the picture, of a size that the stream can send."""
        self._stream()  # there has to be one
        image = tarn.WrappedImage.from_buffer(picture).copy()
        size, payload = memoryview(image).nbytes, self.server.node_map.PayloadSizeValue.value
        if size > payload:
            raise ValueError(f"an image of {size} bytes; the camera sends at most {payload}")
        return image

    def _try_send(self, image: tarn.Image) -> bool:
        stream = self._stream()
        if not stream.is_running or not stream.try_send(image, _released):
            return False
        self._notes.frame()
        return True


class _Notes:
    """What clients did; written by the threads of the server and of feeds, read by the test."""

    def __init__(self) -> None:
        self._changed = threading.Condition()
        self._writes: list[Write] = []
        self._failure: Exception | None = None
        self.frames = 0
        self.taken = 0  # frames, also before the record was started anew

    def write(self, node: Any) -> None:
        written = Write(node.name_only, getattr(node, "value", None))
        with self._changed:
            self._writes.append(written)
            self._changed.notify_all()

    def frame(self) -> None:
        with self._changed:
            self.frames += 1
            self.taken += 1
            self._changed.notify_all()

    def fail(self, error: Exception) -> None:
        self._failure = error

    def check(self) -> None:
        """Raise what failed in the background, once."""
        error, self._failure = self._failure, None
        if error:
            raise error

    def writes(self) -> tuple[Write, ...]:
        with self._changed:
            return tuple(self._writes)

    def names(self) -> set[str]:
        return {write.feature for write in self.writes()}

    def forget(self) -> None:
        with self._changed:
            self._writes.clear()
            self.frames = 0

    def wait(self, condition: Callable[[], object], timeout: float, what: str) -> None:
        """Return once `condition()` holds; it is asked without a lock, at every change and now and then."""
        deadline = time.monotonic() + timeout
        while not condition():
            self.check()
            if time.monotonic() > deadline:
                seen = ", ".join(f"{write.feature}={write.value}" for write in self.writes()) or "nothing"
                raise AssertionError(
                    f"not within {timeout} s: {what}; {self.frames} frames sent, written: {seen}"
                )
            with self._changed:
                self._changed.wait(_POLL)


class _Feed:
    """A thread that sends images: each of `sends` is called until it succeeds."""

    def __init__(
        self, sends: Iterable[Callable[[], bool]], pause: float, fail: Callable[[Exception], None]
    ) -> None:
        self._sends = sends
        self._pause = pause
        self._fail = fail
        self._ending = threading.Event()
        self._thread = threading.Thread(target=self._run, name="camera feed", daemon=True)
        self._thread.start()

    def end(self) -> None:
        self._ending.set()
        self._thread.join()

    def _run(self) -> None:
        try:
            for send in self._sends:
                while not send():
                    if self._ending.wait(_POLL):
                        return
                if self._ending.wait(self._pause):
                    return
        except Exception as error:
            self._fail(error)


def _is_written_by_clients(node: Node) -> TypeGuard[ValueNode]:
    has_value = isinstance(node, ValueNode) and not isinstance(node, CategoryNode | EnumEntryNode)
    return has_value and node.is_feature


def _listen(node: ValueNode, listener: Callable[[Node], None]) -> Callable[[], None]:
    cookie = node.register_event_written_updated(listener)
    return lambda: node.unregister_event_written_updated(cookie)


def _released(image: tarn.Image) -> None:
    """Nothing to do: every image is a copy."""

"""A camera to measure, in a process of its own, with the client that makes it stream."""

import contextlib
import ctypes
import itertools
import multiprocessing
import os
import pathlib
import socket
import sys
import time
from collections.abc import Callable, Iterator
from multiprocessing.connection import Connection
from multiprocessing.sharedctypes import RawValue
from typing import Any

from programs import PACKAGE
from silent_link import LOOP, Link

import tarn
from tarn.gevserver import DriverType, Int32RegNode, Server, State, Stream

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "python"))

# The client that the tests use.
from features import Features
from gvcp_client import GVSP_CONFIGURATION, SCDA, SCP, SCPD, SCPS, ControlClient

DRIVERS = {"Socket": DriverType.Socket, "Filter": DriverType.Filter}
IMAGES = {"4 MiB": (2048, 2048), "300 KiB": (640, 480), "4 KiB": (64, 64)}  # Mono8
Cost = tuple[float, float]  # CPU seconds of the sending process, wall seconds
Released = Callable[[tarn.Image], None]

OWN_LIMIT = -1  # the camera keeps the limit that it begins with

HEARD = 0x0010_0010  # a register with a Python listener of reads

_RUNNING_WITHIN = 10.0  # seconds
_PLACE_WITHIN = 10.0  # seconds
_RELEASED_WITHIN = 1.0  # seconds
_POLL = 0.0005  # seconds


class Sending:
    """What a function has that runs in the camera's process.

    Attributes
    ----------
    images : list of tarn.Image
        To be sent, of one size.
    """

    def __init__(self, server: Server, images: list[tarn.Image], pipe: Connection, newest: Any) -> None:
        self.server = server
        self.images = images
        self._pipe = pipe
        self._newest = newest

    @property
    def stream(self) -> Stream:
        return self.server.stream

    @property
    def depth(self) -> int:
        """Of the resend store."""
        return self.stream.resend_buffers_count

    def told_to_end(self) -> bool:
        """Whether the block of `Camera.running` has ended."""
        return self._pipe.poll()

    @property
    def newest(self) -> int:
        """The block that was noted last."""
        return self._newest.value

    def note_newest(self, block: int) -> None:
        """Let the bench know which block went out last."""
        self._newest.value = block


def nothing(image: tarn.Image) -> None:
    """To be called with a released image."""


def send_in_step(stream: Stream, image: tarn.Image, released: Released) -> None:
    """Send as soon as the camera has a place for the image; raises what `send` raises when it has none for
    long."""
    deadline = time.monotonic() + _PLACE_WITHIN
    while not stream.try_send(image, released):
        if time.monotonic() > deadline:
            stream.send(image, released)
            return
        time.sleep(_POLL)


def beats(rate: float, seconds: float) -> Iterator[float]:
    """For each moment of a clock of `rate` Hz, once it is there, how many seconds ago it was."""
    begin = time.perf_counter()
    for number in range(round(rate * seconds)):
        due = begin + number / rate
        if (left := due - time.perf_counter()) > 0:
            time.sleep(left)
        yield time.perf_counter() - due


def _send_images(sending: Sending, count: int) -> Cost:
    """As a program would that has its images ready; done when the last of them is out."""
    done = 0

    def released(image: tarn.Image) -> None:
        nonlocal done
        done += 1

    tree, send = sending.server.node_map, sending.stream.send
    sent_before = tree.DeviceStreamFrames.value
    images = itertools.islice(itertools.cycle(sending.images), count)
    wall, cpu = time.perf_counter(), time.process_time()
    for image in images:
        try:
            send(image, released)
        except RuntimeError:
            send_in_step(sending.stream, image, released)
    # Images wait behind the last call, and the camera keeps as many as its store has places for.
    deadline = time.perf_counter() + _RELEASED_WITHIN
    while (
        tree.DeviceStreamFrames.value - sent_before < count or done < count - sending.depth
    ) and time.perf_counter() < deadline:
        time.sleep(_POLL)
    return time.process_time() - cpu, time.perf_counter() - wall


def _send_until_told(sending: Sending) -> None:
    send = sending.stream.send
    (image,) = sending.images
    # Asking the pipe lets go of the interpreter lock for a moment that is too short for another thread, but
    # starts that thread's wait for its turn anew: asked between all images, no listener would ever run.
    while not sending.told_to_end():
        for _ in range(100):
            try:
                send(image, nothing)
            except RuntimeError:
                send_in_step(sending.stream, image, nothing)


def _belongings(sending: Sending) -> dict[str, int]:
    core = ctypes.CDLL(str(PACKAGE / "libTRCore.so"))
    core.TRCLiveHandleCount.restype = ctypes.c_uint64
    with open("/proc/self/statm") as statm:
        resident = int(statm.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024
    return {
        "handles": core.TRCLiveHandleCount(),
        "descriptors": len(os.listdir("/proc/self/fd")),
        "resident KiB": resident,
    }


def wait_running(server: Server) -> None:
    """Until a client has started acquisition; not for ever."""
    deadline = time.monotonic() + _RUNNING_WITHIN
    while server.state != State.AcquisitionEnabled and time.monotonic() < deadline:
        time.sleep(0.001)


def _wait_running(sending: Sending) -> None:
    wait_running(sending.server)


def image_of(size: tuple[int, int]) -> tarn.Image:
    """Mono8."""
    image = tarn.Image(size)
    # Memory that was never written is one page of zeros, which stays in the cache.
    memoryview(image).cast("B")[:] = b"\x5a" * (size[0] * size[1])
    return image


def _limit(server: Server, rate: int | None) -> None:
    if rate == OWN_LIMIT:
        return
    server.node_map.DeviceLinkThroughputLimitMode.value = "Off" if rate is None else "On"
    if rate is not None:
        server.node_map.DeviceLinkThroughputLimit.value = rate


def _serve(
    pipe: Connection,
    newest: Any,
    address: str,
    driver: int,
    size: tuple[int, int],
    images: int,
    resend: int,
    limit: int | None,
) -> None:
    """The camera's process: calls the functions that it is told, until it is told nothing."""
    server = Server.create_with_const_size_pfnc(tarn.Size2D(*size), tarn.PfncFormat.Mono8, driver)
    server.stream.resend_buffers_count = resend
    _limit(server, limit)
    server.node_map.add_node(Int32RegNode.create("Heard", address=HEARD))
    server.node_map.Heard.register_event_on_read_updated(lambda node: None)
    server.start(address)
    pipe.send(server.driver_type)
    sending = Sending(server, [image_of(size) for _ in range(images)], pipe, newest)
    while order := pipe.recv():
        function, arguments, until_told = order
        result = function(sending, *arguments)
        if until_told:
            pipe.recv()
        pipe.send(result)
    server.stop()


def address_word(address: str) -> int:
    """As registers have it."""
    return int.from_bytes(socket.inet_aton(address), "big")


class Camera:
    """A camera in a process of its own that streams to a socket, controlled from here.

    Parameters
    ----------
    address : str
        Of the camera, one of this host.
    port : int
        Where the stream goes.
    link : silent_link.Link
        That the camera is on, and its client.
    images : int
        That it has in memory, and sends in turn.
    resend : int
        Depth of the resend store.
    extended : bool
        64-bit block ids.
    limit : int, optional
        Of the stream's rate, in bytes per second; OWN_LIMIT for the camera's choice; else there is none.
    packet_delay : int
        From packet to packet, in nanoseconds.
    """

    def __init__(
        self,
        address: str,
        port: int,
        *,
        link: Link = LOOP,
        driver: str = "Socket",
        packet_size: int = 1500,
        size: tuple[int, int] = (64, 64),
        images: int = 1,
        resend: int = 0,
        extended: bool = False,
        limit: int | None = None,
        packet_delay: int = 0,
    ) -> None:
        self.address = address
        self.resend = resend
        self._pipe, theirs = multiprocessing.Pipe()
        self._newest = RawValue(ctypes.c_uint64)
        context = multiprocessing.get_context("spawn")
        arguments = (theirs, self._newest, address, DRIVERS[driver], size, images, resend, limit)
        self._process = context.Process(target=_serve, args=arguments, daemon=True)
        self._process.start()
        in_use = self._pipe.recv()
        if in_use != DRIVERS[driver]:
            raise RuntimeError(f"the camera uses driver {in_use} instead of {driver}")
        with link.at_the_client():
            self.client = ControlClient(address, local=link.destination)
        self.client.connect(beat=1.0)
        if extended:
            self.client.write_register(GVSP_CONFIGURATION, 0x4000_0000)
        self.client.write_register(SCPS, packet_size)
        self.client.write_register(SCPD, packet_delay)
        self.client.write_register(SCDA, address_word(link.destination))
        self.client.write_register(SCP, port)
        Features(self.client).execute("AcquisitionStart")
        self.run(_wait_running)

    @property
    def pid(self) -> int:
        return self._process.pid

    @property
    def newest(self) -> int:
        """The block that a function noted last, see `Sending.note_newest`."""
        return self._newest.value

    def run(self, function: Callable[..., Any], *arguments: object) -> Any:
        """What a function of a bench returns, called in the camera's process with a `Sending` first."""
        self._pipe.send((function, arguments, False))
        return self._pipe.recv()

    @contextlib.contextmanager
    def running(self, function: Callable[..., None], *arguments: object) -> Iterator[None]:
        """Such a function runs for the time of the block; it has to ask `Sending.told_to_end`."""
        self._pipe.send((function, arguments, True))
        yield
        self._pipe.send(None)
        self._pipe.recv()

    def send(self, count: int) -> Cost:
        """Send so many images through the Python call, as fast as it goes."""
        return self.run(_send_images, count)

    def streaming(self) -> contextlib.AbstractContextManager[None]:
        """Sends the image again and again, as fast as it can, for the time of the block."""
        return self.running(_send_until_told)

    def belongings(self) -> dict[str, int]:
        """What must not grow with the number of frames."""
        return self.run(_belongings)

    def end(self) -> None:
        self.client.disconnect()
        self.client.close()
        self._pipe.send(None)
        self._process.join()

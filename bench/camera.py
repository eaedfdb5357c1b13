"""A camera to measure, in a process of its own, with the client that makes it stream."""

import contextlib
import ctypes
import multiprocessing
import os
import pathlib
import sys
import time
from collections.abc import Iterator
from multiprocessing.connection import Connection

from programs import PACKAGE

import tarn
from tarn.gevserver import DriverType, Int32RegNode, Server, State

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "python"))

# The client that the tests use.
from features import Features
from gvcp_client import GVSP_CONFIGURATION, SCDA, SCP, SCPS, ControlClient

DRIVERS = {"Socket": DriverType.Socket, "Filter": DriverType.Filter}
IMAGES = {"4 MiB": (2048, 2048), "300 KiB": (640, 480), "4 KiB": (64, 64)}  # Mono8
Cost = tuple[float, float]  # CPU seconds of the sending process, wall seconds

HEARD = 0x0010_0010  # a register with a Python listener of reads

_RUNNING_WITHIN = 10.0  # seconds


def _released(image: tarn.Image) -> None:
    pass


def _send_images(server: Server, image: tarn.Image, count: int) -> Cost:
    """As a program would that has its image ready."""
    send = server.stream.send
    wall, cpu = time.perf_counter(), time.process_time()
    for _ in range(count):
        send(image, _released)
    return time.process_time() - cpu, time.perf_counter() - wall


def _send_until_told(server: Server, image: tarn.Image, pipe: Connection) -> None:
    send = server.stream.send
    # Asking the pipe lets go of the interpreter lock for a moment that is too short for another thread, but
    # starts that thread's wait for its turn anew: asked between all images, no listener would ever run.
    while not pipe.poll():
        for _ in range(100):
            send(image, _released)
    pipe.recv()


def _belongings() -> dict[str, int]:
    core = ctypes.CDLL(str(PACKAGE / "libTRCore.so"))
    core.TRCLiveHandleCount.restype = ctypes.c_uint64
    with open("/proc/self/statm") as statm:
        resident = int(statm.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024
    return {
        "handles": core.TRCLiveHandleCount(),
        "descriptors": len(os.listdir("/proc/self/fd")),
        "resident KiB": resident,
    }


def _serve(pipe: Connection, address: str, driver: int, size: tuple[int, int], resend: int) -> None:
    """The camera's process: does what it is told until it is told nothing."""
    server = Server.create_with_const_size_pfnc(tarn.Size2D(*size), tarn.PfncFormat.Mono8, driver)
    server.stream.resend_buffers_count = resend
    server.node_map.DeviceLinkThroughputLimitModeValue.value = 0
    server.node_map.add_node(Int32RegNode.create("Heard", address=HEARD))
    server.node_map.Heard.register_event_on_read_updated(lambda node: None)
    server.start(address)
    image = tarn.Image(size)
    # Memory that was never written is one page of zeros, which stays in the cache.
    memoryview(image).cast("B")[:] = b"\x5a" * (size[0] * size[1])
    pipe.send(server.driver_type)
    while order := pipe.recv():
        match order:
            case ["run"]:
                deadline = time.monotonic() + _RUNNING_WITHIN
                while server.state != State.AcquisitionEnabled and time.monotonic() < deadline:
                    time.sleep(0.001)
                pipe.send(None)
            case ["send", count]:
                pipe.send(_send_images(server, image, count))
            case ["send until told"]:
                pipe.send(_send_until_told(server, image, pipe))
            case ["belongings"]:
                pipe.send(_belongings())
    server.stop()


class Camera:
    """A camera in a process of its own that streams to a port of this host, controlled from here.

    Parameters
    ----------
    address : str
        Of the camera, on loopback.
    port : int
        Where the stream goes.
    resend : int
        Depth of the resend store.
    extended : bool
        64-bit block ids.
    """

    def __init__(
        self,
        address: str,
        port: int,
        *,
        driver: str = "Socket",
        packet_size: int = 1500,
        size: tuple[int, int] = (64, 64),
        resend: int = 0,
        extended: bool = False,
    ) -> None:
        self._pipe, theirs = multiprocessing.Pipe()
        context = multiprocessing.get_context("spawn")
        self._process = context.Process(target=_serve, args=(theirs, address, DRIVERS[driver], size, resend))
        self._process.start()
        in_use = self._pipe.recv()
        if in_use != DRIVERS[driver]:
            raise RuntimeError(f"the camera uses driver {in_use} instead of {driver}")
        self.client = ControlClient(address)
        self.client.connect(beat=1.0)
        if extended:
            self.client.write_register(GVSP_CONFIGURATION, 0x4000_0000)
        self.client.write_register(SCPS, packet_size)
        self.client.write_register(SCDA, 0x7F00_0001)
        self.client.write_register(SCP, port)
        Features(self.client).execute("AcquisitionStart")
        self._ask("run")

    def _ask(self, *order: object) -> object:
        self._pipe.send(list(order))
        return self._pipe.recv()

    @property
    def process(self) -> int:
        return self._process.pid

    def send(self, count: int) -> Cost:
        """Send one image `count` times through the Python call."""
        return self._ask("send", count)

    @contextlib.contextmanager
    def streaming(self) -> Iterator[None]:
        """Sends one image after the other, as fast as it can, for the time of the block."""
        self._pipe.send(["send until told"])
        yield
        self._pipe.send(None)
        self._pipe.recv()

    def belongings(self) -> dict[str, int]:
        """What must not grow with the number of frames."""
        return self._ask("belongings")

    @property
    def pid(self) -> int:
        return self._process.pid

    def end(self) -> None:
        self.client.disconnect()
        self.client.close()
        self._pipe.send(None)
        self._process.join()

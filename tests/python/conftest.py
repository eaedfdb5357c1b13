"""Cameras to test on addresses of their own, and the check that a test leaves nothing behind."""

import ctypes
import dataclasses
import gc
import itertools
import os
import pathlib
import random
import shutil
import socket
import subprocess
import sys
import threading
import time
from collections.abc import Callable, Generator, Iterator
from typing import Any

import pytest

import tarn
from gvcp_client import PORT, SCDA, SCP, SCPS, ControlClient
from gvsp_receiver import StreamReceiver
from tarn.gevserver import Server, State

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGE = pathlib.Path(tarn.__file__).parent

_core = ctypes.CDLL(str(PACKAGE / "libTRCore.so"))
_core.TRCLiveHandleCount.restype = ctypes.c_uint64
_hosts = itertools.count(random.randrange(60_000))
_passed = pytest.StashKey[bool]()


def pytest_addoption(parser: pytest.Parser) -> None:
    for name, default, what in (
        ("--random-trees", 25, "random feature trees to check"),
        ("--lossy-frames", 200, "frames through each lossy network"),
        ("--visits", 100, "clients that come, stream and go"),
        ("--arv-test", 1, "runs of the Aravis device test in a row"),
        ("--binding-runs", 15, "runs of random calls of the binding"),
        ("--stress", 3.0, "seconds to read and write under stress"),
    ):
        parser.addoption(name, type=type(default), default=default, help=what)


def pytest_configure(config: pytest.Config) -> None:
    """Workers that run side by side get networks of their own: no client meets a neighbour's camera."""
    if hasattr(config, "workerinput") and os.geteuid() == 0:
        from namespaces import enter_own_network  # which needs this file

        enter_own_network()


def wait_until(condition: Callable[[], object], what: str, timeout: float = 10.0) -> None:
    """Return once `condition()` holds; fail loudly when it does not in time."""
    deadline = time.monotonic() + timeout
    while not condition():
        if time.monotonic() > deadline:
            pytest.fail(f"not within {timeout} s: {what}")
        time.sleep(0.002)


def need_tool(name: str) -> None:
    """Skip the test when a program is not installed."""
    if shutil.which(name) is None:
        pytest.skip(f"{name} is not installed")


def run_python(script: str, *arguments: str, **options: Any) -> Any:
    """Start `script` in an interpreter of its own that finds the package; streams are pipes of text.

    Gives a ``subprocess.Popen[str]``, for type checkers one whose streams are there.
    """
    environment = os.environ | {"PYTHONPATH": str(PACKAGE.parent)}
    pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
    command = [sys.executable, "-c", script, *arguments]
    settings: dict[str, Any] = pipes | options
    return subprocess.Popen(command, env=environment, text=True, **settings)


def address_word(address: str) -> int:
    """An IPv4 address as the number that registers hold."""
    return int.from_bytes(socket.inet_aton(address), "big")


def free_address() -> str:
    """A loopback address on which nobody has the control port."""
    while True:
        host = next(_hosts) % 60_000
        address = f"127.77.{host // 250}.{host % 250 + 1}"
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
            try:
                sock.bind((address, PORT))
            except OSError:
                continue
        return address


def open_stream(client: ControlClient, receiver: StreamReceiver, packet_size: int = 1500) -> None:
    """Point the camera's stream channel at the receiver."""
    client.write_register(SCPS, packet_size)
    client.write_register(SCDA, address_word(receiver.endpoint[0]))
    client.write_register(SCP, receiver.port)


@pytest.fixture(scope="session")
def aravis_binding() -> None:
    """Skip tests whose client programs need the Aravis library's Python binding when it is not there."""
    gi = pytest.importorskip("gi", reason="the Aravis binding (gir1.2-aravis-0.8) is not installed")
    try:
        gi.require_version("Aravis", "0.8")
    except ValueError as error:
        pytest.skip(str(error))


@dataclasses.dataclass
class Camera:
    """A server with the address that it is started on."""

    server: Server | Any  # None after the end
    address: str

    def client(self, **options: Any) -> ControlClient:
        return ControlClient(self.address, **options)

    def wait_state(self, state: int, timeout: float = 10.0) -> None:
        wait_until(lambda: self.server.state == state, f"state {state}", timeout)

    def wait_running(self) -> None:
        """Return once a client has started acquisition."""
        self.wait_state(State.AcquisitionEnabled)

    def send(self, image: tarn.Image, released: Callable[[tarn.Image], None] | None = None) -> None:
        """Send as soon as the stream has a place: on a busy machine images wait for its thread."""
        stream = self.server.stream
        wait_until(lambda: stream.try_send(image, released), "the stream has a place")

    def end(self) -> None:
        if self.server:
            self.server.stop()
            self.server = None


MakeCamera = Callable[..., Camera]


@pytest.fixture
def make_camera() -> Iterator[MakeCamera]:
    """Factory of cameras; `kind` says how the server is made. All are stopped after the test."""
    made: list[Camera] = []

    def make(
        size: tuple[int, int] = (64, 48),
        pixel_format: int = tarn.PfncFormat.Mono8,
        *,
        resend: int = 0,
        start: bool = True,
        kind: Callable[..., Server] = Server.create_with_const_size_pfnc,
    ) -> Camera:
        server = kind(tarn.Size2D(*size), pixel_format)
        server.stream.resend_buffers_count = resend
        camera = Camera(server, free_address())
        made.append(camera)
        if start:
            server.start(camera.address)
        return camera

    yield make
    for camera in made:
        camera.end()


@pytest.fixture
def camera(make_camera: MakeCamera) -> Camera:
    """A started camera of 64x48 Mono8 without resend."""
    return make_camera()


def live_handles() -> int:
    """Objects of the libraries that are alive in this process."""
    return int(_core.TRCLiveHandleCount())


def _belongings() -> dict[str, int]:
    counts = {f"/proc/self/{what}": len(os.listdir(f"/proc/self/{what}")) for what in ("task", "fd")}
    return counts | {"library handles": live_handles()}


@pytest.fixture(scope="session", autouse=True)
def sanitizer_is_awake() -> None:
    """A thread sanitizer starts a thread of its own with the first thread, which no test left behind."""
    thread = threading.Thread(target=int)
    thread.start()
    thread.join()


@pytest.fixture(autouse=True)
def nothing_left_behind(request: pytest.FixtureRequest) -> Iterator[None]:
    """Handles, threads and file descriptors are back to where they were when the test ends."""
    before = _belongings()
    yield
    if not request.node.stash.get(_passed, False):
        return  # a failed test's objects live on in its traceback
    gc.collect()

    def more() -> dict[str, int]:
        return {what: count - before[what] for what, count in _belongings().items() if count > before[what]}

    deadline = time.monotonic() + 5
    while more() and time.monotonic() < deadline:  # a dropped server ends by itself, a little later
        time.sleep(0.01)
    assert not more(), "left behind"


@pytest.hookimpl(wrapper=True)
def pytest_runtest_makereport(item: pytest.Item, call: pytest.CallInfo[Any]) -> Generator[None, Any, Any]:
    report = yield
    if call.when == "call":
        item.stash[_passed] = report.passed
    return report

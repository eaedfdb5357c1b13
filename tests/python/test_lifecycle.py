"""Programs that just end, servers dropped while they work, callbacks that pull the rug."""

import gc
import multiprocessing
import sys
import threading
import weakref
from collections.abc import Iterator
from typing import Any

import pytest

import tarn
from conftest import Camera, MakeCamera, free_address, open_stream, wait_until
from endings import FORK, STATES, program
from features import Features
from gvcp_client import CCP, CONTROL, WRITEREG, ControlClient, command, discover, words
from gvsp_receiver import StreamReceiver
from tarn.gevserver import Server, State

FORKING = [state for state in STATES if "daemon" not in state and "exception" not in state]


@pytest.mark.parametrize(
    ("state", "tail"), [*((state, "") for state in STATES), *((state, FORK) for state in FORKING)]
)
def test_a_program_may_end_and_fork_in_every_state(state: str, tail: str) -> None:
    """Exit code 0, nothing printed, soon; a child leaves the camera and its address to the parent."""
    address = free_address()
    with program(state, address, tail) as process:
        out, error = process.communicate(timeout=20)
    assert (process.returncode, out, error) == (0, "", "")
    assert discover(address, wait=0.05) == []


class Gate:
    """A listener that stays inside until it is let go, or for some seconds."""

    def __init__(self, seconds: float = 10.0) -> None:
        self.calls: list[str] = []
        self.inside, self.open = threading.Event(), threading.Event()
        self._seconds = seconds

    def __call__(self, node: Any) -> None:
        self.calls.append(node.name_only)
        self.inside.set()
        self.open.wait(self._seconds)
        self.calls.append("out")


@pytest.fixture
def client(camera: Camera) -> Iterator[ControlClient]:
    """In control of the camera, which may go away."""
    with camera.client() as client:
        yield client.connect(beat=None)
        client.close()


def stop_acquisition(client: ControlClient) -> None:
    """Without a wait for the answer."""
    address, _ = Features(client).register("AcquisitionStop")
    client.send_raw(command(WRITEREG, words(address, 1)))


def test_a_forked_worker_has_cameras_of_its_own(camera: Camera, client: ControlClient) -> None:
    """The parent's camera goes on while workers come and go, and is nothing to them but a shell."""
    context = multiprocessing.get_context("fork")
    answers: Any = context.SimpleQueue()
    worker = context.Process(target=_work, args=(camera.server, free_address(), answers))
    worker.start()
    worker.join(20)
    assert worker.exitcode == 0
    assert answers.get() == (State.Configuration, State.Disconnected)
    assert client.read_register(CCP) & CONTROL
    assert camera.server.state == State.Connected


def _work(inherited: Server, address: str, answers: Any) -> None:
    own = Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), tarn.PfncFormat.Mono8)
    own.start(address)
    assert discover(address)
    answers.put((inherited.state, own.state))
    own.stop()


@pytest.mark.parametrize("end", ["stop", "drop"])
def test_a_server_may_end_while_its_callback_runs(camera: Camera, client: ControlClient, end: str) -> None:
    """In spite of the interpreter lock: `stop` waits for the callback, the last reference goes at once."""
    gone, gate = weakref.ref(camera.server), Gate(0.1)
    camera.server.node_map.AcquisitionStop.register_event_written_updated(gate)
    stop_acquisition(client)
    assert gate.inside.wait(5)
    if end == "stop":
        camera.server.stop()
        assert gate.calls == ["AcquisitionStop", "out"]
    else:
        camera.server = None
        gc.collect()
        assert gone() is None
        wait_until(lambda: len(gate.calls) == 2, "the callback ends")
    wait_until(lambda: not discover(camera.address, wait=0.02), "the camera is gone")


@pytest.mark.parametrize("from_inside", [False, True])
def test_unregistering_while_the_listener_runs(
    camera: Camera, client: ControlClient, from_inside: bool
) -> None:
    """Afterwards no call starts, and the running one ends in peace."""
    node = camera.server.node_map.AcquisitionStop
    gate, cookies = Gate(), list[tarn.EventCookie]()

    def listen(node: Any) -> None:
        if from_inside:
            node.unregister_event_written_updated(cookies[0])
        gate(node)

    alive = weakref.ref(listen)
    cookies.append(node.register_event_written_updated(listen))
    del listen
    stop_acquisition(client)
    assert gate.inside.wait(5)
    if not from_inside:
        node.unregister_event_written_updated(cookies[0])
    gate.open.set()
    Features(client).execute("AcquisitionStop")
    assert gate.calls == ["AcquisitionStop", "out"]
    wait_until(lambda: gc.collect() is None or alive() is None, "the listener is let go")


def test_a_listener_may_do_anything_and_fail(
    camera: Camera, client: ControlClient, monkeypatch: pytest.MonkeyPatch
) -> None:
    """Read its own node, add a listener, send, in the middle of a client's command; its error is shown."""
    map_, seen, shown = camera.server.node_map, list[Any](), list[Any]()
    monkeypatch.setattr(sys, "unraisablehook", lambda error: shown.append((error.object, error.exc_value)))
    image, fault = tarn.Image((64, 48)), LookupError("not today")

    def listen(node: Any) -> None:
        seen.append((node.name_only, map_.Width.value, camera.server.state))
        node.register_event_written_updated(lambda node: seen.append(node.name_only))
        camera.server.stream.try_send(image)
        raise fault

    map_.AcquisitionStart.register_event_written_updated(listen)
    with StreamReceiver() as receiver:
        open_stream(client, receiver)
        Features(client).execute("AcquisitionStart")
        assert (seen[0], shown) == (("AcquisitionStart", 64, State.AcquisitionEnabled), [(listen, fault)])
        Features(client).execute("AcquisitionStart")
        assert seen[1:].count("AcquisitionStart") >= 1
    assert client.read_register(CCP) & CONTROL


@pytest.mark.parametrize("kind", ["node", "release"])
def test_stop_from_a_callback(camera: Camera, client: ControlClient, kind: str) -> None:
    server, stopped = camera.server, threading.Event()
    node = server.node_map.AcquisitionStop

    def stop(_: Any) -> None:
        server.stop()
        stopped.set()

    with StreamReceiver() as receiver:
        open_stream(client, receiver)
        Features(client).execute("AcquisitionStart")
        if kind == "node":
            cookie = node.register_event_written_updated(stop)
            stop_acquisition(client)
        else:
            camera.send(tarn.Image((64, 48)), stop)
        assert stopped.wait(5)
    if kind == "node":
        node.unregister_event_written_updated(cookie)  # it keeps the server
    wait_until(lambda: server.state == State.Configuration, "the server is stopped")
    server.start(camera.address)
    assert discover(camera.address)


def test_a_dropped_server_tells_the_owners_of_its_images(make_camera: MakeCamera) -> None:
    """Each once, also of those that waited in the resend store, and with the image that was sent."""
    camera = make_camera(resend=2)
    images = [tarn.Image((64, 48)) for _ in range(4)]
    released: list[Any] = []
    with StreamReceiver() as receiver, camera.client() as client:
        client.connect(beat=None)
        open_stream(client, receiver)
        Features(client).execute("AcquisitionStart")
        for image in images:
            camera.send(image, released.append)
        wait_until(lambda: released, "the store lets the first ones go")
        camera.server = None
        gc.collect()
        wait_until(lambda: len(released) >= len(images), "all owners are told")
        client.close()
    assert [id(image) for image in released] == [id(image) for image in images]

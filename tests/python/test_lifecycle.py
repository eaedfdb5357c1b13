"""Programs that just end, servers dropped while they work, callbacks that pull the rug."""

import contextlib
import functools
import gc
import multiprocessing
import sys
import threading
import time
import weakref
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest

import tarn
from conftest import Camera, MakeCamera, free_address, open_stream, wait_until
from endings import FORK, STATES, program
from features import Features
from gvcp_client import CCP, CONTROL, GvcpError, discover
from gvsp_receiver import StreamReceiver
from tarn.gevserver import Server, State


@pytest.mark.parametrize("state", STATES)
def test_a_program_may_end_in_every_state(state: str) -> None:
    """Exit code 0, nothing printed, soon; the client's requests meanwhile meet no crash."""
    address = free_address()
    with program(state, address) as process:
        out, error = process.communicate(timeout=20)
    assert (process.returncode, out, error) == (0, "", "")
    assert discover(address, wait=0.1) == []


@pytest.mark.parametrize(
    "state", [state for state in STATES if "daemon" not in state and "excep" not in state]
)
def test_a_program_may_fork_in_every_state(state: str) -> None:
    """The child ends normally and soon, and leaves the camera and its address to the parent."""
    address = free_address()
    with program(state, address, FORK) as process:
        out, error = process.communicate(timeout=20)
    assert (process.returncode, out, error) == (0, "", "")


def test_a_forked_worker_has_cameras_of_its_own(connected: Any) -> None:
    """The parent's camera goes on while workers come and go, and is nothing to them but a shell."""
    camera, client, _ = connected
    answers: Any = multiprocessing.get_context("fork").SimpleQueue()
    worker = multiprocessing.get_context("fork").Process(
        target=_work, args=(camera.server, free_address(), answers)
    )
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


@pytest.fixture
def connected(make_camera: MakeCamera) -> Iterator[Any]:
    """A camera with resend, a client that controls it, and the client's features."""
    camera = make_camera(resend=2)
    with camera.client(timeout=5) as client:
        client.connect(beat=0.2)
        yield camera, client, Features(client)


def in_background(function: Any, *arguments: Any) -> threading.Thread:
    """Run in a thread; what the client meets when the camera goes away under it is no fault."""

    def run() -> None:
        with contextlib.suppress(GvcpError, OSError):
            function(*arguments)

    thread = threading.Thread(target=run)
    thread.start()
    return thread


def test_dropping_a_running_server_while_its_callback_runs() -> None:
    """The last reference goes with the interpreter lock held; the loop is inside, waiting for that lock."""
    for _ in range(5):
        camera = Camera(
            Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), tarn.PfncFormat.Mono8), free_address()
        )
        gone = weakref.ref(camera.server)
        inside, out = threading.Event(), threading.Event()

        def listen(node: Any, inside: Any = inside, out: Any = out) -> None:
            inside.set()
            time.sleep(0.05)
            out.set()

        camera.server.node_map.AcquisitionStop.register_event_written_updated(listen)
        camera.server.start(camera.address)
        with camera.client(timeout=0.3) as client:
            client.connect(beat=None)
            asking = in_background(Features(client).execute, "AcquisitionStop")
            assert inside.wait(5)
            camera.server = None
            gc.collect()
            assert gone() is None
            assert out.wait(5)
            asking.join()
            client.close()
        address = camera.address
        wait_until(lambda: not discover(address, wait=0.02), "the dropped server is gone")  # noqa: B023


def test_unregistering_while_the_listener_runs(connected: Any) -> None:
    """From another thread and from inside; afterwards no call starts, and the running one ends in peace."""
    camera, _, features = connected
    node = camera.server.node_map.AcquisitionStop
    for from_inside in (False, True):
        calls: list[object] = []
        cookies: list[tarn.EventCookie] = []
        inside, go_on = threading.Event(), threading.Event()

        def listen(
            node: Any,
            calls: Any = calls,
            inside: Any = inside,
            go_on: Any = go_on,
            cookies: Any = cookies,
            from_inside: Any = from_inside,
        ) -> None:
            calls.append(node)
            if from_inside:
                node.unregister_event_written_updated(cookies[0])
            inside.set()
            go_on.wait(5)

        cookies.append(node.register_event_written_updated(listen))
        alive = weakref.ref(listen)
        asking = in_background(features.execute, "AcquisitionStop")
        assert inside.wait(5)
        if not from_inside:
            node.unregister_event_written_updated(cookies[0])
        del listen
        go_on.set()
        asking.join()
        features.execute("AcquisitionStop")
        assert len(calls) == 1
        wait_until(lambda: gc.collect() is None or alive() is None, "the listener is let go")  # noqa: B023


def test_a_listener_may_do_anything(connected: Any) -> None:
    """Read its own node, write another, add a listener, send, in the middle of a client's command."""
    camera, client, features = connected
    map_ = camera.server.node_map
    seen = []

    def listen(node: Any) -> None:
        seen.append((node.name_only, node.is_done, map_.Width.value, camera.server.state))
        node.register_event_written_updated(seen.append)
        seen.append(camera.server.stream.try_send(tarn.Image((64, 48)), lambda image: None))

    map_.AcquisitionStart.register_event_written_updated(listen)
    with StreamReceiver() as receiver:
        open_stream(client, receiver)
        features.execute("AcquisitionStart")
        assert len(seen) >= 2
        assert seen[0][0] == "AcquisitionStart"
        assert seen[0][2] == 64
        features.execute("AcquisitionStop")


def test_listener_errors_stay_in_the_listener_and_are_shown(
    connected: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    camera, client, features = connected
    calls, shown = [], []
    monkeypatch.setattr(
        sys, "unraisablehook", lambda error: shown.append((error.object, str(error.exc_value)))
    )

    def fail(node: Any) -> None:
        calls.append(node.name_only)
        raise LookupError("not today")

    camera.server.node_map.AcquisitionStop.register_event_written_updated(fail)
    for _ in range(3):
        features.execute("AcquisitionStop")
    assert calls == ["AcquisitionStop"] * 3
    assert shown == [(fail, "not today")] * 3
    assert client.read_register(CCP) & CONTROL
    assert camera.server.state == State.Connected


@pytest.mark.parametrize("kind", ["node", "release"])
def test_stop_from_a_callback(connected: Any, kind: Any) -> None:
    camera, client, features = connected
    server = camera.server
    stopped = threading.Event()

    def stop(_: Any) -> None:
        server.stop()
        stopped.set()

    if kind == "node":
        node = server.node_map.AcquisitionStop
        cookie = node.register_event_written_updated(stop)
        in_background(features.execute, "AcquisitionStop").join()
        # Registered listeners are kept, and this one keeps the server.
        node.unregister_event_written_updated(cookie)
    else:
        with StreamReceiver() as receiver:
            open_stream(client, receiver)
            features.execute("AcquisitionStart")
            camera.wait_running()
            camera.send(tarn.Image((64, 48)), stop)

            def send_until_stopped() -> bool:
                server.stream.try_send(tarn.Image((64, 48)), lambda image: None)
                return stopped.is_set()

            wait_until(send_until_stopped, "the first image leaves the store, and the server stops")
    assert stopped.wait(5)
    client.close()
    wait_until(lambda: server.state == State.Configuration, "the server is stopped")
    server.start(camera.address)
    assert server.state == State.Disconnected
    assert discover(camera.address)


def test_stop_waits_for_the_callback_that_runs(connected: Any) -> None:
    """`stop` lets go of the interpreter lock, so the callback can finish; it has when `stop` returns."""
    camera, client, features = connected
    inside, done = threading.Event(), []

    def listen(node: Any) -> None:
        inside.set()
        time.sleep(0.1)
        done.append(node.name_only)

    camera.server.node_map.AcquisitionStop.register_event_written_updated(listen)
    asking = in_background(features.execute, "AcquisitionStop")
    assert inside.wait(5)
    camera.server.stop()
    assert done == ["AcquisitionStop"]
    client.close()
    asking.join()


def test_many_starts_and_stops_under_traffic(make_camera: MakeCamera) -> None:
    """Clients ask all the time while the server comes and goes."""
    camera = make_camera(start=False)
    ending = threading.Event()

    def ask() -> None:
        while not ending.is_set():
            discover(camera.address, wait=0.005)

    askers = [threading.Thread(target=ask) for _ in range(2)]
    for asker in askers:
        asker.start()
    try:
        for _ in range(30):
            camera.server.start(camera.address)
            camera.server.stop()
    finally:
        ending.set()
        for asker in askers:
            asker.join()
    assert camera.server.state == State.Configuration


def test_a_dropped_server_tells_the_owners_of_its_images(connected: Any) -> None:
    """Each once, also of those that waited in the resend store, and with the image that was sent."""
    camera, client, features = connected
    images = [tarn.Image((64, 48)) for _ in range(4)]
    released: list[Any] = []
    with StreamReceiver() as receiver:
        open_stream(client, receiver)
        features.execute("AcquisitionStart")
        camera.wait_running()
        for image in images:
            camera.send(image, released.append)
        wait_until(lambda: released, "the store lets the first ones go")
        camera.server = None
        gc.collect()
        wait_until(lambda: len(released) >= len(images), "all owners are told")
    client.close()
    time.sleep(0.05)
    assert [id(image) for image in released] == [id(image) for image in images]


def test_children_do_not_outlive_their_server() -> None:
    server = Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), tarn.PfncFormat.Mono8)
    map_, stream = server.node_map, server.stream
    node = map_.Width
    del server
    gc.collect()
    for use in (
        lambda: map_.nodes,
        lambda: stream.is_running,
        lambda: stream.send(tarn.WrappedImage.from_buffer(np.zeros((48, 64), np.uint8))),
        functools.partial(getattr, node, "value"),
    ):
        with pytest.raises((ValueError, RuntimeError), match="resource might be gone"):
            use()

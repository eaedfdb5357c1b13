"""Programs that just end, servers dropped while they work, callbacks that pull the rug."""

import contextlib
import functools
import gc
import sys
import threading
import time
import weakref
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest

import tarn
from conftest import Camera, MakeCamera, free_address, open_stream, run_python, wait_until
from features import Features
from gvcp_client import CCP, CONTROL, ControlClient, GvcpError, discover
from gvsp_receiver import StreamReceiver
from tarn.gevserver import Server, State

PRELUDE = """
import sys, time
import tarn
from tarn.gevserver import Server, State

server = Server.create_with_const_size_pfnc(tarn.Size2D(320, 240), tarn.PfncFormat.Mono8)
node = server.node_map.AcquisitionStop

def say(text):
    print(text, flush=True)

def wait(condition):
    deadline = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.001)

def pictures():
    while True:
        yield tarn.Image((320, 240))
"""

# How a program gets to the state in which it simply ends; the client's part is in `_visit`.
ENDINGS = {
    "created": "",
    "created and dropped": "del server",
    "idle": "server.start(sys.argv[1])",
    "idle and dropped": "server.start(sys.argv[1]); del server, node",
    "connected": "server.start(sys.argv[1]); say('up'); wait(lambda: server.state == State.Connected)",
    "streaming": """
server.stream.resend_buffers_count = 3
server.start(sys.argv[1]); say('up')
wait(lambda: server.stream.is_running)
for number, image in zip(range(20), pictures()):
    server.stream.send(image, lambda image: None)
""",
    "sending in a thread": """
import threading
server.stream.resend_buffers_count = 3
server.start(sys.argv[1]); say('up')
wait(lambda: server.stream.is_running)
def feed():
    for image in pictures():
        server.stream.try_send(image, lambda image: None)
threading.Thread(target=feed, daemon=True).start()
time.sleep(0.1)
""",
    "inside a node callback": """
inside = []
def listen(node):
    inside.append(node)
    time.sleep(0.5)
node.register_event_written_updated(listen)
server.start(sys.argv[1]); say('up')
wait(lambda: inside)
""",
    "inside a release callback": """
inside = []
def released(image):
    inside.append(image)
    time.sleep(0.5)
server.stream.resend_buffers_count = 1
server.start(sys.argv[1]); say('up')
wait(lambda: server.stream.is_running)
for number, image in zip(range(3), pictures()):
    server.stream.send(image, released)
wait(lambda: inside)
""",
    "by an exception": "server.start(sys.argv[1]); sys.exit(0)",
}


def _visit(address: str, ending: str, receiver: StreamReceiver) -> ControlClient:
    """A client does what brings the program to its state, and stays."""
    client = ControlClient(address)
    client.connect(beat=None)
    if ending != "connected":
        open_stream(client, receiver)
        features = Features(client)
        if ending == "inside a node callback":
            register, _ = features.register("AcquisitionStop")
            client.send_raw(b"\x42\x01\x00\x82\x00\x08\x77\x77" + register.to_bytes(4, "big") + b"\0\0\0\1")
        else:
            features.execute("AcquisitionStart")
    return client


@pytest.mark.parametrize("ending", ENDINGS)
def test_a_program_may_end_in_every_state(ending: Any) -> None:
    """Exit code 0, nothing printed, soon; the client's requests meanwhile meet no crash."""
    address = free_address()
    script = PRELUDE + ENDINGS[ending]
    with run_python(script, address) as program, StreamReceiver() as receiver:
        client = None
        try:
            if "say('up')" in script:
                assert program.stdout.readline() == "up\n", program.stderr.read()
                client = _visit(address, ending, receiver)
            out, error = program.communicate(timeout=20)
        finally:
            program.kill()
            if client:
                client.close()
    assert (program.returncode, out, error) == (0, "", "")
    assert discover(address, wait=0.1) == []


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
            for number in range(4):
                callback = stop if number == 0 else (lambda image: None)
                server.stream.try_send(tarn.Image((64, 48)), callback)
            assert stopped.wait(5)
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

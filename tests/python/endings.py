"""Programs that end, or fork, in every state of their camera; and the client that brings them there."""

import contextlib
from collections.abc import Iterator
from typing import Any

from conftest import open_stream, run_python
from features import Features
from gvcp_client import WRITEREG, ControlClient, command, words
from gvsp_receiver import StreamReceiver

PRELUDE = """
import os, sys, threading, time
import tarn
from tarn.gevserver import IntegerNode, LogicalNetworkInterface, Server, State

def create():
    return Server.create_with_const_size_pfnc(tarn.Size2D(320, 240), tarn.PfncFormat.Mono8)

server = create()
inside = []

def in_background(*call):
    threading.Thread(target=call[0], args=call[1:], daemon=True).start()

def wait(condition):
    deadline = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.001)

def stay(seconds):
    def callback(_):
        inside.append(True)
        time.sleep(seconds)
    return callback

def begin():
    server.start(sys.argv[1])
    print("up", flush=True)

def begin_stream(count, released):
    server.stream.resend_buffers_count = 3
    begin()
    wait(lambda: server.stream.is_running)
    for _ in range(count):
        image = tarn.Image((320, 240))
        wait(lambda: server.stream.try_send(image, released))

def begin_sending():
    released = []
    in_background(begin_stream, 10**9, released.append)
    wait(lambda: len(released) > 20)

def begin_listening(seconds):
    server.node_map.AcquisitionStop.register_event_written_updated(stay(seconds))
    begin()
    wait(lambda: inside)

def begin_releasing(seconds):  # a sender may be told of releases itself
    in_background(begin_stream, 5, stay(seconds))
    wait(lambda: inside)
"""

#: How a program gets to the state in which it simply ends; the client's part is in ``_visit``.
STATES = {
    "created": "",
    "created and dropped": "del server",
    "idle": "server.start(sys.argv[1])",
    "idle and dropped": "server.start(sys.argv[1]); del server",
    "connected": "begin(); wait(lambda: server.state == State.Connected)",
    "streaming": "begin_stream(20, [].append)",
    "sending in a thread": "begin_sending()",
    "inside a node callback": "begin_listening(0.1)",
    "inside a node callback for ever": "begin_listening(1000)",
    "inside a release callback": "begin_releasing(0.1)",
    "inside a release callback for ever": "begin_releasing(1000)",
    "by an exception": "server.start(sys.argv[1]); sys.exit(0)",
}

#: What a daemon thread may be doing in our frames, over and over, when the program ends. Texts and numbers
#: are objects whose conversion runs Python code, in which threads are changed.
THREADED = {
    "factory": "Server.create_with_const_size_pfnc(tarn.Size2D(Slow(), 8), Slow())",
    "constructor": "LogicalNetworkInterface('10.0.0.1', '255.0.0.0').ip_address = Slow()",
    "property set": "spare.user_version = Slow()",
    "property get": "spare.node_map.Width.value",
    "node map": "spare.node_map.nodes",
    "add and remove": "map.add_node(IntegerNode.create('Gain')); map.remove_node('Gain')",
    "index": "map['Width']; map.Height",
    "image": "tarn.Image((Slow(), 8)); memoryview(tarn.Image((8, 8)))",
    "value": "tarn.Size2D(Slow(), 1) == tarn.Size2D(1, 1); hash(tarn.DataType(Slow()))",
    "send": "spare.stream.try_send(tarn.Image((320, 240)), Slow())",
    "listener": "map.Width.unregister_event_updated(map.Width.register_event_updated(Slow()))",
    "dropped listener": "free = IntegerNode.create('Free'); free.register_event_updated(Slow()); del free",
    "start and stop": "spare.start(sys.argv[1]); spare.stop()",
}
_THREADED = """
class Slow:
    def _work(self, result=None):
        for _ in range(20): time.sleep(0)
        return result
    def __index__(self): return self._work(8)
    __int__ = __index__
    def __float__(self): return self._work(8.0)
    def __str__(self): return self._work("text")
    def __call__(self, *arguments): self._work()
    def __del__(self): self._work()

spare = create()
map = spare.node_map
turns = 0
def work():
    global turns
    while True:
        try:
            {act}
        except Exception:
            pass
        turns += 1
for _ in range(2):
    in_background(work)
wait(lambda: turns > 3)
"""
STATES |= {f"daemon in {name}": _THREADED.format(act=act) for name, act in THREADED.items()}

#: To be put behind a state: the child ends normally, and the parent's address is free for the parent.
FORK = """
import warnings
warnings.simplefilter("ignore", DeprecationWarning)  # newer interpreters warn of every fork beside threads
child = os.fork()
if child == 0:
    sys.exit(0)
assert os.waitpid(child, 0)[1] == 0
if 'server' in globals() and not inside:
    server.stop()
    server.start(sys.argv[1])
"""


def _visit(address: str, state: str, receiver: StreamReceiver) -> ControlClient:
    """Do what brings the program to its state, and stay."""
    client = ControlClient(address).connect(beat=None)
    if state != "connected":
        open_stream(client, receiver)
        features = Features(client)
        if "node callback" in state:
            register, _ = features.register("AcquisitionStop")
            client.send_raw(command(WRITEREG, words(register, 1)))
        else:
            features.execute("AcquisitionStart")
    return client


@contextlib.contextmanager
def program(state: str, address: str, tail: str = "") -> Iterator[Any]:
    """A process that has been brought to a state and ends there; give ``communicate`` a time-out."""
    with run_python(PRELUDE + STATES[state] + tail, address) as process, StreamReceiver() as receiver:
        client = None
        try:
            if "begin" in STATES[state]:
                assert process.stdout.readline() == "up\n", process.stderr.read()
                client = _visit(address, state, receiver)
            yield process
        finally:
            process.kill()
            if client:
                client.close()

"""Programs that end, or fork, in every state of their camera; and the client that brings them there."""

import contextlib
from collections.abc import Iterator
from typing import Any

from conftest import open_stream, run_python
from features import Features
from gvcp_client import ControlClient
from gvsp_receiver import StreamReceiver

PRELUDE = """
import os, sys, threading, time
import tarn
from tarn.gevserver import IntegerNode, Int32RegNode, LogicalNetworkInterface, Server, State

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

def start():
    server.start(sys.argv[1]); say('up')
"""

_STREAMING = """
server.stream.resend_buffers_count = 3
start()
wait(lambda: server.stream.is_running)
for number, image in zip(range(20), pictures()):
    server.stream.send(image, lambda image: None)
"""
_SENDING = """
server.stream.resend_buffers_count = 3
start()
wait(lambda: server.stream.is_running)
def feed():
    for image in pictures():
        server.stream.try_send(image, lambda image: None)
threading.Thread(target=feed, daemon=True).start()
time.sleep(0.1)
"""
_IN_A_LISTENER = """
inside = []
def listen(node):
    inside.append(node)
    time.sleep({seconds})
node.register_event_written_updated(listen)
start()
wait(lambda: inside)
"""
_IN_A_RELEASE = """
inside = []
def released(image):
    inside.append(image)
    time.sleep({seconds})
server.stream.resend_buffers_count = 1
start()
wait(lambda: server.stream.is_running)
def feed():  # a sender may be told of releases itself
    for number, image in zip(range(3), pictures()):
        server.stream.try_send(image, released)
threading.Thread(target=feed, daemon=True).start()
wait(lambda: inside)
"""

#: How a program gets to the state in which it simply ends; the client's part is in ``visit``.
STATES = {
    "created": "",
    "created and dropped": "del server",
    "idle": "server.start(sys.argv[1])",
    "idle and dropped": "server.start(sys.argv[1]); del server, node",
    "connected": "start(); wait(lambda: server.state == State.Connected)",
    "streaming": _STREAMING,
    "sending in a thread": _SENDING,
    "inside a node callback": _IN_A_LISTENER.format(seconds=0.1),
    "inside a node callback for ever": _IN_A_LISTENER.format(seconds=1000),
    "inside a release callback": _IN_A_RELEASE.format(seconds=0.1),
    "inside a release callback for ever": _IN_A_RELEASE.format(seconds=1000),
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
    "start and stop": "spare.start(spare_address); spare.stop()",
}
_THREADED = """
class Slow:
    def _work(self):
        for _ in range(20): time.sleep(0)
    def __int__(self): self._work(); return 8
    def __index__(self): self._work(); return 8
    def __float__(self): self._work(); return 8.0
    def __str__(self): self._work(); return "text"
    def __call__(self, *arguments): self._work()
    def __del__(self): self._work()

spare = Server.create_with_const_size_pfnc(tarn.Size2D(320, 240), tarn.PfncFormat.Mono8)
map = spare.node_map
spare_address = sys.argv[1]
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
    threading.Thread(target=work, daemon=True).start()
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
if 'server' in globals() and 'inside' not in globals():
    server.stop()
    server.start(sys.argv[1])
"""


def _visit(address: str, state: str, receiver: StreamReceiver) -> ControlClient:
    """Do what brings the program to its state, and stay."""
    client = ControlClient(address)
    client.connect(beat=None)
    if state != "connected":
        open_stream(client, receiver)
        features = Features(client)
        if "node callback" in state:
            register, _ = features.register("AcquisitionStop")
            client.send_raw(b"\x42\x01\x00\x82\x00\x08\x77\x77" + register.to_bytes(4, "big") + b"\0\0\0\1")
        else:
            features.execute("AcquisitionStart")
    return client


@contextlib.contextmanager
def program(state: str, address: str, tail: str = "") -> Iterator[Any]:
    """A process that has been brought to a state and ends there; give ``communicate`` a time-out."""
    script = PRELUDE + STATES[state] + tail
    with run_python(script, address) as process, StreamReceiver() as receiver:
        client = None
        try:
            if "\nstart()" in "\n" + STATES[state]:
                assert process.stdout.readline() == "up\n", process.stderr.read()
                client = _visit(address, state, receiver)
            yield process
        finally:
            process.kill()
            if client:
                client.close()

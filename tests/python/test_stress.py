"""A thousand accesses a second by two clients, Python listeners on the node: nothing lost, all in order."""

import threading
import time
from collections.abc import Callable

import pytest

from conftest import Camera
from gvcp_client import GvcpError
from tarn.gevserver import Int32RegNode, IntegerNode, Server

ADDRESS = 0x0010_0000
RATE = 1_000  # accesses a second, of both clients together


class Pace(threading.Thread):
    """Calls `act` with 1, 2, 3, ... at a steady rate for some seconds."""

    def __init__(self, act: Callable[[int], None], rate: float, seconds: float) -> None:
        super().__init__(daemon=True)
        self._act = act
        self._rate = rate
        self._calls = int(rate * seconds)
        self.done = 0
        self.error: Exception | None = None

    def run(self) -> None:
        begin = time.monotonic()
        try:
            for number in range(1, self._calls + 1):
                time.sleep(max(0.0, begin + number / self._rate - time.monotonic()))
                self._act(number)
                self.done = number
        except Exception as error:  # shown by the test's own thread
            self.error = error


def test_listeners_under_stress(make_camera: Callable[..., Camera], request: pytest.FixtureRequest) -> None:
    seconds = request.config.getoption("--stress")
    camera = make_camera(start=False)
    camera.server = Server.create_non_streaming()
    node_map = camera.server.node_map
    register, feature = Int32RegNode.create("Counter", address=ADDRESS), IntegerNode.create("Count")
    for node in (register, feature):
        node_map.add_node(node)
    feature.value_config_as_node = register
    written: list[int] = []
    followed: list[int] = []
    reads: list[int] = []
    register.register_event_written_updated(lambda node: written.append(node.value))
    feature.register_event_written_updated(lambda node: followed.append(node.value))
    register.register_event_on_read_updated(lambda node: reads.append(node.value))
    camera.server.start(camera.address)
    with camera.client(timeout=2.0) as control, camera.client(timeout=2.0) as monitor:
        control.connect()
        seen: list[int] = []
        with pytest.raises(GvcpError):
            monitor.write_register(ADDRESS, 7)
        reads.clear()
        pace = [
            Pace(lambda number: control.write_register(ADDRESS, number), RATE / 2, seconds),
            Pace(lambda _: seen.append(monitor.read_register(ADDRESS)), RATE / 2, seconds),
        ]
        for thread in pace:
            thread.start()
        for thread in pace:
            thread.join(seconds * 10 + 30)
            assert not thread.is_alive() and thread.error is None, thread.error
    everything = list(range(1, pace[0].done + 1))
    assert written == everything
    assert followed == everything
    assert len(reads) == len(seen) == pace[1].done
    assert seen == sorted(seen)  # the monitor never sees an older value after a newer one

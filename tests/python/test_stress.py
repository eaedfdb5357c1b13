"""A thousand accesses a second by two clients, Python listeners on the node: nothing lost, all in order."""

import concurrent.futures
import time
from collections.abc import Callable

import pytest

from conftest import MakeCamera
from node_trees import put
from tarn.gevserver import Int32RegNode, IntegerNode, Server

ADDRESS = 0x0010_0000
RATE = 500  # accesses a second, of each client


def test_listeners_under_stress(make_camera: MakeCamera, request: pytest.FixtureRequest) -> None:
    calls = int(RATE * request.config.getoption("--stress"))
    camera = make_camera(start=False)
    camera.server = Server.create_non_streaming()
    register, feature = Int32RegNode.create("Counter", address=ADDRESS), IntegerNode.create("Count")
    put(camera.server.node_map, register, feature)
    feature.value_config_as_node = register
    written, followed, reads, seen = (list[int]() for _ in range(4))
    register.register_event_written_updated(lambda node: written.append(node.value))
    feature.register_event_written_updated(lambda node: followed.append(node.value))
    register.register_event_on_read_updated(lambda node: reads.append(node.value))
    camera.server.start(camera.address)

    def steadily(act: Callable[[int], None]) -> None:
        begin = time.monotonic()
        for number in range(1, calls + 1):
            time.sleep(max(0.0, begin + number / RATE - time.monotonic()))
            act(number)

    with camera.client(timeout=2.0) as control, camera.client(timeout=2.0) as monitor:
        control.connect()
        with concurrent.futures.ThreadPoolExecutor() as threads:
            writing = threads.submit(steadily, lambda number: control.write_register(ADDRESS, number))
            steadily(lambda number: seen.append(monitor.read_register(ADDRESS)))
        writing.result()
    assert written == followed == list(range(1, calls + 1))
    assert len(reads) == len(seen) == calls
    assert seen == sorted(seen)  # the monitor never sees an older value after a newer one

"""Nodes and listeners come and go without leaving anything behind."""

import gc

from conftest import live_handles
from tarn.gevserver import Int32RegNode, IntegerNode, NodeList, Server


def resident_kilobytes() -> int:
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


def come_and_go(server: Server, pairs: int) -> None:
    """Features over registers, with listeners, in a category; all taken out again."""
    node_map = server.node_map
    for number in range(pairs):
        register, feature = Int32RegNode.create(f"R{number}"), IntegerNode.create(f"F{number}")
        node_map.add_node(register)
        node_map.add_node(feature)
        feature.value_config_as_node = register
        node_map.DeviceControl.add(feature, NodeList.Child)
        register.register_event_written_updated(lambda node: None)
        cookie = feature.register_event_on_read_updated(lambda node: None)
        feature.unregister_event_on_read_updated(cookie)
    for number in range(pairs):
        assert node_map.remove_node(f"F{number}") and node_map.remove_node(f"R{number}")


def test_many_nodes_leave_nothing_behind() -> None:
    server = Server.create_non_streaming()
    for _ in range(3):  # the allocator's first growth, and what is made once
        come_and_go(server, 500)
    gc.collect()
    handles, resident = live_handles(), resident_kilobytes()
    for _ in range(50):
        come_and_go(server, 500)
    gc.collect()
    assert live_handles() == handles
    # The smallest block for each of the nodes would be more than this.
    assert resident_kilobytes() - resident < 1024

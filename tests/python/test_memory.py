"""Nodes and listeners come and go without leaving anything behind."""

import gc

import tarn
from conftest import live_handles
from tarn.gevserver import Int32RegNode, IntegerNode, NodeList, Server

BATCH = 1000
BATCHES = 100


def resident_kilobytes() -> int:
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


def come_and_go(server: Server) -> None:
    """A batch of features over registers, with listeners, in a category; all taken out again."""
    node_map = server.node_map
    for number in range(BATCH // 2):
        register, feature = Int32RegNode.create(f"R{number}"), IntegerNode.create(f"F{number}")
        node_map.add_node(register)
        node_map.add_node(feature)
        feature.value_config_as_node = register
        node_map.DeviceControl.add(feature, NodeList.Child)
        register.register_event_written_updated(lambda node: None)
        cookie = feature.register_event_on_read_updated(lambda node: None)
        feature.unregister_event_on_read_updated(cookie)
    for number in range(BATCH // 2):
        assert node_map.remove_node(f"F{number}")
        assert node_map.remove_node(f"R{number}")


def test_a_hundred_thousand_nodes_leave_nothing_behind() -> None:
    server = Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), tarn.PfncFormat.Mono8)
    for _ in range(3):  # the allocator's first growth, and what is made once
        come_and_go(server)
    gc.collect()
    handles, resident = live_handles(), resident_kilobytes()
    for _ in range(BATCHES):
        come_and_go(server)
    gc.collect()
    assert live_handles() == handles
    # Ten bytes lost with each node would be more than this.
    assert resident_kilobytes() - resident < 1024

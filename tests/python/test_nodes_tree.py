"""Nodes that belong together: categories, entries, selectors, variables, and the map they are in."""

import gc
from typing import Any

import pytest

from conftest import MakeCamera
from node_trees import constant, publish, put, refused, refused_set
from tarn.gevserver import (
    CategoryNode,
    EnumEntryNode,
    EnumerationNode,
    Int32RegNode,
    IntegerNode,
    NameSpace,
    NodeList,
    NodeMap,
    StringNode,
)


@pytest.fixture
def node_map(make_camera: MakeCamera) -> Any:
    return make_camera(start=False).server.node_map


def test_add_links_and_lists(node_map: NodeMap) -> None:
    (group,) = put(node_map, CategoryNode.create("Lamps"))
    held = node_map.nodes
    lamp = IntegerNode.create("Lamp")
    group.add(node=lamp, kind=NodeList.Child)
    assert lamp.node_map is node_map
    assert node_map.Lamp is lamp
    assert "Cust::Lamp" not in held
    assert node_map.nodes["Cust::Lamp"] is lamp
    assert group.nodes == [lamp]
    assert not lamp.is_feature
    publish(node_map, group)
    assert lamp.is_feature
    group.add(lamp, NodeList.Child)
    assert group.nodes == [lamp]
    assert group.remove(lamp, NodeList.Child) is True
    assert group.remove(lamp, NodeList.Child) is False
    assert group.nodes == []
    assert node_map.Lamp is lamp


def test_add_refuses_and_changes_nothing(node_map: NodeMap, make_camera: MakeCamera) -> None:
    (group,) = put(node_map, CategoryNode.create("Lamps"))
    (other,) = put(make_camera(start=False).server.node_map, IntegerNode.create("Elsewhere"))
    refused(RuntimeError, "Added Node must not be nullptr", group.add, None, NodeList.Child)
    different = "Added Node must be in the same node map as this Parent"
    refused(RuntimeError, different, group.add, other, NodeList.Child)
    mismatch = "type miss match - cannot convert object to "
    refused(ValueError, mismatch + "tarn.gevserver.Node", group.add, "Lamp", NodeList.Child)
    refused(ValueError, mismatch + "int", group.add, IntegerNode.create("Lamp"), "x")
    refused(ValueError, "99 is no node list", group.add, IntegerNode.create("Lamp"), 99)
    # The name is taken, in another namespace: neither linked nor listed.
    twin = IntegerNode.create("Width", NameSpace.Private)
    with pytest.raises(ValueError, match="Width"):
        group.add(twin, NodeList.Child)
    assert group.nodes == []
    assert twin.node_map is None
    # What the list cannot take.
    for kind, wrong in ((NodeList.Child, EnumEntryNode), (NodeList.Addresses, IntegerNode)):
        free = wrong.create("Wrong")
        with pytest.raises(RuntimeError):
            group.add(free, kind)
        assert free.node_map is None
    (leaf,) = put(node_map, CategoryNode.create("Leaf"))
    group.add(leaf, NodeList.Child)
    with pytest.raises(ValueError, match="circle"):
        leaf.add(group, NodeList.Child)


def test_entries_join_with_their_enumeration(node_map: NodeMap) -> None:
    color, mood = put(node_map, EnumerationNode.create("Color"), EnumerationNode.create("Mood"))
    entries = [EnumEntryNode.create(name) for name in ("Red", "Green", "Blue")]
    for number, entry in enumerate(entries):
        entry.numeric_value = 10 * number
        color.add(entry, NodeList.Child)
        assert entry.node_map is node_map
    assert color.entries == entries
    assert node_map.nodes["Cust::Green"] is node_map.Green is entries[1]
    color.value = "Green"
    assert (color.value, color.numeric_value) == ("Green", 10)
    color.from_string("Blue")
    assert color.numeric_value == 20
    for text in ("Violet", "", "blue"):
        refused_set(IndexError, f"Color has no entry '{text}'", color, "value", text)
        assert color.value == "Blue"
    # Entries of different enumerations may share a name; within one they may not.
    green = EnumEntryNode.create("Green")
    mood.add(green, NodeList.Child)
    assert mood.entries == [green]
    assert green.node_map is node_map
    assert node_map.Green is entries[1]
    with pytest.raises(ValueError, match="Color has an entry Green already"):
        color.add(EnumEntryNode.create("Green"), NodeList.Child)
    # An entry's symbolic value starts as its name and can differ.
    assert entries[0].symbolic_value == "Red"
    entries[0].symbolic_value = "Crimson"
    color.value_config_as_int = 0
    assert color.value == "Crimson"


def test_entry_wrappers_stay_apart(node_map: NodeMap) -> None:
    """Wrappers are found by their node, so two entries of one name are never mixed up."""
    for name in ("First", "Second"):
        (enumeration,) = put(node_map, EnumerationNode.create(name))
        enumeration.add(EnumEntryNode.create("Same"), NodeList.Child)
    gc.collect()
    first, second = node_map.First.entries[0], node_map.Second.entries[0]
    assert first is not second
    second.tool_tip = "second"
    assert first.tool_tip == ""
    assert node_map.Second.entries[0] is second
    assert node_map.Same is first


@pytest.mark.parametrize("held", [True, False])
def test_removed_enumeration_takes_its_entries(node_map: NodeMap, held: bool) -> None:
    """Whether somebody holds them or not, and also those of the camera itself."""
    before = set(node_map.nodes)
    (enumeration,) = put(node_map, EnumerationNode.create("Color"))
    entries = [EnumEntryNode.create(name) for name in ("Red", "Green")]
    for entry in entries:
        enumeration.add(entry, NodeList.Child)
    if not held:
        del entry
        entries.clear()
    assert node_map.remove_node(enumeration)
    assert node_map.try_get_node("Color") is None
    assert node_map.try_get_node("Red") is None
    assert not hasattr(node_map, "Green") and not node_map.remove_node("Green")
    assert enumeration.node_map is None
    assert all(entry.node_map is None for entry in entries)
    assert set(node_map.nodes) == before
    assert node_map.remove_node("AcquisitionMode")
    assert before - set(node_map.nodes) == {
        "Std::AcquisitionMode",
        "Std::Continuous",
        "Std::SingleFrame",
        "Std::MultiFrame",
    }


def test_a_name_goes_to_the_next_entry_that_has_it(node_map: NodeMap) -> None:
    """When an enumeration loses its entry, by itself or because it goes."""
    first, second = put(node_map, EnumerationNode.create("First"), EnumerationNode.create("Second"))
    same = [EnumEntryNode.create("Same"), EnumEntryNode.create("Same")]
    first.add(same[0], NodeList.Child)
    second.add(same[1], NodeList.Child)
    assert node_map.Same is same[0]
    assert first.remove(same[0], NodeList.Child)
    assert same[0].node_map is None and node_map.Same is same[1] and node_map.nodes["Cust::Same"] is same[1]
    first.add(same[0], NodeList.Child)
    assert same[0].node_map is node_map and node_map.Same is same[1]
    assert node_map.remove_node("Second")
    assert node_map.Same is same[0]


def test_a_refused_addition_takes_nothing_away(node_map: NodeMap, make_camera: MakeCamera) -> None:
    """Neither a node that was there before, nor what an entry needs to join later."""
    lamp = constant(node_map, "Lamp", 1)
    for node in (lamp, node_map.Width):
        refused(ValueError, "9 is no node list", node_map.add_node, node.name_only, node, 9)
        assert node_map[node.name_only] is node
    fresh = IntegerNode.create("Fresh")
    refused(ValueError, "9 is no node list", node_map.add_node, "Fresh", fresh, 9)
    assert node_map.try_get_node("Fresh") is None and fresh.node_map is None

    camera = make_camera()
    features = camera.server.node_map
    entry = EnumEntryNode.create("Burst")
    with pytest.raises(RuntimeError):
        features.AcquisitionMode.add(entry, NodeList.Child)
    camera.server.stop()
    features.AcquisitionMode.add(entry, NodeList.Child)
    assert features.Burst is entry and features.nodes["Cust::Burst"] is entry


def test_selectors(node_map: NodeMap) -> None:
    selector = constant(node_map, "LampSelector", 0)
    assert not selector.is_selector
    assert selector.selected_nodes == []
    power, label = IntegerNode.create("Power"), StringNode.create("Label")
    selector.add(power, NodeList.Selected)
    selector.add(label, NodeList.Selected)
    assert selector.is_selector
    assert selector.selected_nodes == [power, label]
    assert power.node_map is label.node_map is node_map
    assert selector.remove(power, NodeList.Selected)
    assert selector.selected_nodes == [label]


def test_invalidators_and_addresses(node_map: NodeMap) -> None:
    (register,) = put(node_map, Int32RegNode.create("Reg", address=0x30000))
    offset = constant(node_map, "Offset", 0x40)
    register.add(offset, NodeList.Addresses)
    register.add(offset, NodeList.Invalidator)
    assert register.address_nodes == register.invalidator_nodes == [offset]
    assert register.address == 0x30040
    offset.value = 0x44
    assert register.address == 0x30044
    register.remove(offset, NodeList.Addresses)
    assert register.address == 0x30000


def test_nodes_outlive_their_server_only_as_shells(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    node = camera.server.node_map.Width
    camera.end()
    gc.collect()
    with pytest.raises(RuntimeError, match="failed to extract type -  resource might be gone"):
        _ = node.value

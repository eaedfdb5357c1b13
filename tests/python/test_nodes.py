"""Nodes of a camera that is not started: how they are made, set, linked, and what they tell.

What numbers, limits and links are allowed is judged below, in C++; here, that each property reaches its own.
"""

import gc
import itertools
from typing import Any

import pytest

import tarn
from conftest import MakeCamera
from node_trees import GONE, MISMATCH, NO_MATCH, constant, new, put, refused
from tarn import gevserver
from tarn.gevserver import NameSpace, NodeList

gev: Any = gevserver  # called and set wrongly on purpose
NUMBER_REGISTERS = {gev.Int32RegNode: 4, gev.Int64RegNode: 8, gev.Float32RegNode: 4, gev.Float64RegNode: 8}
PLAIN = [gev.IntegerNode, gev.FloatNode, gev.BooleanNode, gev.CommandNode, gev.StringNode]
PLAIN += [gev.EnumerationNode, gev.EnumEntryNode, gev.CategoryNode, gev.IntSwissKnifeNode]
PREFIXED: list[Any] = [("Std::Gizmo", NameSpace.Custom), ("A::B::C",)]
UNMATCHED: list[Any] = [(), (5,), ("Gizmo", "x"), ("Gizmo", 1, 2, 3, 4)]
BIG = 2**63 - 1


@pytest.fixture
def node_map(make_camera: MakeCamera) -> Any:
    return make_camera(start=False).server.node_map


def test_creation_by_name_and_namespace() -> None:
    for kind in (*PLAIN, *NUMBER_REGISTERS):
        node = kind.create("Std::Gizmo")
        assert type(node) is kind and node.display_name == "Gizmo"
        assert (node.name, node.name_only, node.name_space) == ("Std::Gizmo", "Gizmo", NameSpace.Standard)
        for named, name in (
            ({"name": "Gizmo"}, "Cust::Gizmo"),
            ({"name": "Gizmo", "nameSpace": NameSpace.Private}, "Priv::Gizmo"),
            # A prefix anywhere before the separator counts, as loosely as names are looked up.
            ({"name": "Cust::MyStdGain"}, "Std::MyStdGain"),
        ):
            assert kind.create(**named).name == kind.create(*named.values()).name == name
        refused(RuntimeError, "Node name must not be empty", kind.create, "")
        for arguments in PREFIXED:
            refused(RuntimeError, "No namespace prefix allowed", kind.create, *arguments)
        for arguments in UNMATCHED:
            refused(ValueError, NO_MATCH, kind.create, *arguments)
        refused(ValueError, "7 is no name space", kind.create, "Gizmo", 7)
        refused(RuntimeError, GONE, lambda kind=kind: kind().name)


def test_creation_of_registers() -> None:
    for kind, length in NUMBER_REGISTERS.items():
        assert (kind.create("R").address, kind.create("R").length) == (-1, length)
        for arguments in (("R", NameSpace.Private, 0x20000), ("Priv::R", 0x20000)):
            register = kind.create(*arguments[:-1], address=arguments[-1])
            assert (register.name, register.address) == ("Priv::R", 0x20000)
        assert kind.create("R", NameSpace.Private, 0x20000).address == 0x20000
        with pytest.raises(ValueError, match="the address of R is not a multiple of 4"):
            kind.create("R", address=0x20002)
    create = gev.StringRegNode.create
    for text, expected in (
        (create("T", 16), ("Cust::T", -1)),
        (create("T", NameSpace.Standard, 16), ("Std::T", -1)),
        (create("T", length=16, address=0x20000), ("Cust::T", 0x20000)),
        (create("T", NameSpace.Private, 0x20000, 16), ("Priv::T", 0x20000)),
    ):
        assert (text.name, text.address, text.length) == (*expected, 16)
    refused(ValueError, NO_MATCH, create, "T")
    with pytest.raises(ValueError, match=r"register length of 6 bytes .* multiple of four"):
        create("T", 6)


def test_texts_links_and_settings_of_all_kinds() -> None:
    node = gev.StringNode.create("Label")
    assert (node.node_map, node.is_feature, node.event_id, node.is_deprecated) == (None, False, 0, False)
    for name, text in (
        ("display_name", "Display name must not be empty"),
        ("tool_tip", "Tooltip short descriptive text must not be empty"),
        ("description", "Description must not be empty"),
    ):
        setattr(node, name, f"Größe <{name}>")
        refused(RuntimeError, text, setattr, node, name, "")
        refused(ValueError, MISMATCH + "str", setattr, node, name, b"x")
        assert getattr(node, name) == f"Größe <{name}>"
    for name in ("is_implemented_config", "is_available_config", "is_locked_config", "alias_node"):
        other = gev.IntegerNode.create("Other")
        assert getattr(node, name) is None
        setattr(node, name, other)
        refused(RuntimeError, "node to set must not be empty", setattr, node, name, None)
        refused(ValueError, MISMATCH + "tarn.gevserver.Node", setattr, node, name, 5)
        assert getattr(node, name) is other
    assert other.imposed_access_mode is None
    for name, wrong in (("representation", 99), ("imposed_access_mode", 1)):
        with pytest.raises(IndexError):
            setattr(other, name, wrong)
    number, ratio = gev.IntegerNode.create("Number"), gev.FloatNode.create("Ratio")
    for each, name, value in (
        (number, "representation", tarn.NumberRepresentation.HexNumber),
        (number, "is_streamable", True),
        (ratio, "unit", "µs"),
        (ratio, "display_precision", 3),
        (ratio, "representation", tarn.NumberRepresentation.Logarithmic),
        (number, "value", -BIG - 1),
    ):
        setattr(each, name, value)
        assert getattr(each, name) == value
    assert (number.min, number.max, number.increment, number.unit) == (-BIG - 1, BIG, 1, "")
    with pytest.raises(OverflowError):
        number.value = BIG + 1
    with pytest.raises(AttributeError):
        number.visibility = 1


def test_fixed_answers_and_refusals() -> None:
    command, entry, category, knife = (kind.create("A") for kind in (gev.CommandNode, *PLAIN[-3:]))
    for node, kind in ((command, "Command"), (entry, "EnumEntry"), (category, "Category")):
        assert node.is_streamable is False
        refused(RuntimeError, f"{kind} nodes cannot be streamed", setattr, node, "is_streamable", False)
    for node in (entry, category, knife):
        assert (node.access_mode, node.cache_mode, node.polling_time) == (2, 0, 0)
        assert node.is_readable and not node.is_writable
    refused(RuntimeError, "Symbolic values cannot be set as value", entry.from_string, "B")
    refused(RuntimeError, "not implemented", category.from_string, "B")
    refused(RuntimeError, "Parent python node must have node map", category.add, entry, 0)


def test_modes_come_from_the_end_of_the_chain(node_map: Any) -> None:
    kinds = dict.fromkeys((gev.BooleanNode, gev.CommandNode, gev.EnumerationNode), gev.Int32RegNode)
    kinds |= {gev.IntegerNode: gev.Int64RegNode, gev.FloatNode: gev.Float32RegNode}
    for number, (kind, of_source) in enumerate([*kinds.items(), (gev.StringNode, gev.StringRegNode)]):
        length = {"length": 16} if of_source is gev.StringRegNode else {}
        source = of_source.create(f"S{number}", **length)
        feature, outer, _ = put(node_map, kind.create(f"F{number}"), kind.create(f"O{number}"), source)
        assert (feature.value_config_as_node, feature.access_mode, feature.cache_mode) == (None, 4, 0)
        feature.value_config_as_node = source
        for access, cache in itertools.product((2, 3, 4), (0, 1, 2)):
            source.access_mode, source.cache_mode, source.polling_time = access, cache, 250
            assert (source.access_mode, source.cache_mode, source.polling_time) == (access, cache, 250)
            assert (feature.access_mode, feature.cache_mode) == (access, cache)
            assert (feature.is_readable, feature.is_writable) == (access != 3, access != 2)
        empty = "node to set must not be empty"
        refused(RuntimeError, empty, setattr, feature, "value_config_as_node", None)
        for name, value in (("access_mode", 0), ("access_mode", 5), ("cache_mode", 3), ("polling_time", -1)):
            with pytest.raises(IndexError):
                setattr(source, name, value)
        if kind in (gev.IntegerNode, gev.FloatNode, gev.StringNode):
            source.access_mode = tarn.AccessMode.ReadOnly
            outer.value_config_as_node = feature
            assert outer.value_config_as_node is feature and outer.access_mode == tarn.AccessMode.ReadOnly
            with pytest.raises(ValueError, match="circle"):
                feature.value_config_as_node = outer


@pytest.mark.parametrize("suffix", ["int", "float"])
def test_limits_as_constants_and_nodes(node_map: Any, suffix: str) -> None:
    as_int = suffix == "int"
    kind, of_source = (gev.IntegerNode, gev.Int64RegNode) if as_int else (gev.FloatNode, gev.Float64RegNode)
    (node,) = new(node_map, Feature=kind)
    for setting, value in (("min", -4), ("max", 20), ("increment", 2), ("value", 6)):
        as_node, as_constant = f"{setting}_config_as_node", f"{setting}_config_as_{suffix}"
        setattr(node, as_constant, value)
        assert (type(getattr(node, as_constant)) is int) == as_int
        assert getattr(node, as_constant) == getattr(node, setting) == value
        (source,) = new(node_map, **{f"{setting}Source": of_source})
        source.value = value + 2
        setattr(node, as_node, source)
        assert getattr(node, as_node) is source
        assert getattr(node, as_constant) == getattr(node, setting) == value + 2
        wrong = f"{MISMATCH}tarn.gevserver.{kind.__base__.__name__}"
        refused(ValueError, wrong, setattr, node, as_node, gev.StringNode.create("X"))
        setattr(node, as_constant, value)
        assert getattr(node, as_node) is None
    node.from_string("10")
    for value, error in ((22, IndexError), (-6, IndexError), (7, ValueError)):
        with pytest.raises(error):
            node.value = value
    with pytest.raises(ValueError, match="ten"):
        node.from_string("ten")
    with pytest.raises(IndexError, match="increment must be positive"):
        setattr(node, f"increment_config_as_{suffix}", 0)
    assert node.value == 10


def test_conditions(node_map: Any) -> None:
    (register,) = new(node_map, Reg=gev.Int32RegNode)
    register.imposed_access_mode = tarn.AccessMode.ReadOnly
    assert (register.imposed_access_mode, register.is_writable) == (tarn.AccessMode.ReadOnly, False)
    register.imposed_access_mode = None
    assert (register.imposed_access_mode, register.is_writable) == (None, True)
    implemented, available, locked = (constant(node_map, name, 1) for name in ("There", "Ready", "Locked"))
    register.is_implemented_config, register.is_available_config = implemented, available
    register.is_locked_config = locked
    for node, mode in ((None, 2), (locked, 4), (available, 1), (implemented, 0)):
        if node is not None:
            node.value = 0
        assert (register.access_mode, register.is_implemented) == (mode, mode != 0)
        assert (register.is_readable, register.is_writable) == (mode > 1, mode > 2)


def test_booleans_and_commands(node_map: Any) -> None:
    switch, command = new(node_map, Switch=gev.BooleanNode, Fire=gev.CommandNode)
    (register,) = new(node_map, Reg=gev.Int32RegNode)
    switch.value_config_as_node = command.value_config_as_node = register
    switch.on_value, switch.off_value = 7, -3
    assert (switch.on_value, switch.off_value) == (7, -3)
    for text, expected in (("true", True), ("1", False), ("TRUE", True), ("yes", False)):
        switch.from_string(text)
        assert switch.value is expected and register.value == (7 if expected else -3), text
    refused(RuntimeError, "String must not be empty", switch.from_string, "")
    switch.value = [0]
    assert register.value == 7
    command.command_config_as_int = 99
    assert (command.command_config_as_int, command.command_config_as_node) == (99, None)
    assert command.execute() is None and register.value == 99
    command.command_config_as_node = constant(node_map, "CommandValue", 55)
    assert command.command_config_as_node is node_map.CommandValue
    command.from_string("TRUE")
    assert register.value == 55
    register.access_mode = tarn.AccessMode.WriteOnly
    assert command.is_done is True


def test_register_addresses_and_values(node_map: Any) -> None:
    word, single = new(node_map, Word=gev.Int32RegNode, Single=gev.Float32RegNode)
    wide, text = gev.Int64RegNode.create("Wide", address=0x30000), gev.StringRegNode.create("Text", 8)
    put(node_map, wide, text)
    assert 0 < word.address < single.address < text.address
    for address, why in ((0x30004, "taken by Wide"), (0x0A00, "reserved")):
        late = gev.Int32RegNode.create("Late", address=address)
        with pytest.raises(ValueError, match=f"of Late is {why}"):
            node_map.add_node(late)
        assert late.node_map is None
    assert word.is_signed is True and (word.min, word.max) == (-(2**31), 2**31 - 1)
    word.is_signed = gev.NumberSign.Unsigned
    word.value = 2**32 - 1
    with pytest.raises(IndexError):
        word.value = 2**32
    word.is_signed = True
    assert word.value == -1
    wide.value, single.value, text.value = -BIG - 1, 0.1, "größe"
    assert wide.value == -BIG - 1 and single.value != 0.1 and single.value == pytest.approx(0.1, rel=1e-7)
    with pytest.raises(IndexError, match="does not fit"):
        text.value = "123456789"
    assert text.value == "größe" and single.is_signed is True
    with pytest.raises(AttributeError):
        single.is_signed = False
    offset = constant(node_map, "Offset", 0x40)
    wide.add(offset, NodeList.Addresses)
    wide.add(offset, NodeList.Invalidator)
    assert wide.address_nodes == wide.invalidator_nodes == [offset]
    assert wide.address == 0x30040
    assert wide.remove(offset, NodeList.Addresses) and wide.address == 0x30000


def test_formulas(node_map: Any) -> None:
    (knife,) = new(node_map, Knife=gev.IntSwissKnifeNode)
    variables = {name: constant(node_map, name, value) for name, value in (("A", 9), ("B", 4))}
    for variable in variables.values():
        knife.add(variable, NodeList.Child)
    with pytest.raises(RuntimeError, match="Knife has no formula"):
        _ = knife.value
    knife.formula = "A / (B - 2)"
    with pytest.raises(ValueError, match=r"^formula .* at character"):
        knife.formula = "A +"
    assert (knife.variables, knife.formula, knife.value) == (variables, "A / (B - 2)", 4)
    refused(RuntimeError, "Knife has no settable integer value", setattr, knife, "value", 3)
    with pytest.raises(ValueError, match="'B' is no variable"):
        knife.remove(variables["B"], NodeList.Child)
    variables["B"].value = 2
    with pytest.raises(RuntimeError, match="formula"):
        _ = knife.value


def test_categories_and_selectors(node_map: Any, make_camera: MakeCamera) -> None:
    group, leaf = new(node_map, Lamps=gev.CategoryNode, Leaf=gev.CategoryNode)
    selector, lamp = constant(node_map, "LampSelector", 0), gev.IntegerNode.create("Lamp")
    held = node_map.nodes
    for _ in range(2):
        group.add(node=lamp, kind=NodeList.Child)
        assert lamp.node_map is node_map and group.nodes == [lamp]
    assert "Cust::Lamp" not in held and node_map.nodes["Cust::Lamp"] is node_map.Lamp is lamp
    assert group.remove(lamp, NodeList.Child) is True and group.remove(lamp, NodeList.Child) is False
    assert group.nodes == [] and node_map.Lamp is lamp and not selector.is_selector
    for node in (lamp, label := gev.StringNode.create("Label")):
        selector.add(node, NodeList.Selected)
    assert selector.is_selector and selector.selected_nodes == [lamp, label] and label.node_map is node_map
    assert selector.remove(lamp, NodeList.Selected) and selector.selected_nodes == [label]
    group.add(leaf, NodeList.Child)
    (other,) = new(make_camera(start=False).server.node_map, Elsewhere=gev.IntegerNode)
    twin = gev.IntegerNode.create("Width", NameSpace.Private)
    entry = gev.EnumEntryNode.create("Wrong")
    for error, text, arguments in (
        (RuntimeError, "Added Node must not be nullptr", (None, NodeList.Child)),
        (RuntimeError, "Added Node must be in the same node map as this Parent", (other, NodeList.Child)),
        (ValueError, MISMATCH + "tarn.gevserver.Node", ("Lamp", NodeList.Child)),
        (ValueError, MISMATCH + "int", (twin, "x")),
        (ValueError, "99 is no node list", (twin, 99)),
    ):
        refused(error, text, group.add, *arguments)
    for parent, child in ((group, twin), (group, entry), (leaf, group)):
        with pytest.raises((ValueError, RuntimeError), match=r"Width|Wrong|circle"):
            parent.add(child, NodeList.Child)
    assert group.nodes == [leaf] and leaf.nodes == [] and twin.node_map is entry.node_map is None


def entries_of(enumeration: Any, *names: str) -> list[Any]:
    """New entries, with numbers 0, 10, and so on."""
    entries = [gev.EnumEntryNode.create(name) for name in names]
    for number, entry in enumerate(entries):
        entry.numeric_value = 10 * number
        enumeration.add(entry, NodeList.Child)
    return entries


def test_entries_join_with_their_enumeration(node_map: Any, make_camera: MakeCamera) -> None:
    (color,) = new(node_map, Color=gev.EnumerationNode)
    entries = entries_of(color, "Red", "Green", "Blue")
    assert color.entries == entries and all(entry.node_map is node_map for entry in entries)
    assert node_map.nodes["Cust::Green"] is node_map.Green is entries[1]
    color.value = "Green"
    assert (color.value, color.numeric_value) == ("Green", 10)
    color.from_string("Blue")
    refused(IndexError, "Color has no entry 'blue'", setattr, color, "value", "blue")
    assert color.numeric_value == 20
    entries[0].symbolic_value = "Crimson"
    color.value_config_as_int = 0
    assert (color.value, entries[0].numeric_value, entries[0].name_only) == ("Crimson", 0, "Red")
    with pytest.raises(ValueError, match="Color has an entry Green already"):
        entries_of(color, "Green")
    camera = make_camera()
    entry, modes = gev.EnumEntryNode.create("Burst"), camera.server.node_map.AcquisitionMode
    with pytest.raises(RuntimeError):
        modes.add(entry, NodeList.Child)
    camera.server.stop()
    modes.add(entry, NodeList.Child)  # a refusal takes nothing away
    assert camera.server.node_map.Burst is camera.server.node_map.nodes["Cust::Burst"] is entry


def test_entries_of_one_name_stay_apart(node_map: Any) -> None:
    """Wrappers are found by their node; the name goes to the next entry that has it."""
    first, second = new(node_map, First=gev.EnumerationNode, Second=gev.EnumerationNode)
    for enumeration in (first, second):
        entries_of(enumeration, "Same")
    gc.collect()
    same = [first.entries[0], second.entries[0]]
    same[1].tool_tip = "second"
    assert same[0].tool_tip == "" and second.entries[0] is same[1] and node_map.Same is same[0]
    assert first.remove(same[0], NodeList.Child) and same[0].node_map is None
    assert node_map.Same is node_map.nodes["Cust::Same"] is same[1]
    first.add(same[0], NodeList.Child)
    assert node_map.Same is same[1] and same[0].node_map
    assert node_map.remove_node("Second") and node_map.Same is same[0]


def test_removed_enumerations_take_their_entries(node_map: Any) -> None:
    """Whether somebody holds them or not, and also those of the camera itself."""
    before = set(node_map.nodes)
    for held in (True, False):
        (enumeration,) = new(node_map, Color=gev.EnumerationNode)
        entries = entries_of(enumeration, "Red", "Green")[: 2 * held]
        assert node_map.remove_node(enumeration)
        assert enumeration.node_map is None and all(entry.node_map is None for entry in entries)
        assert not hasattr(node_map, "Green") and not node_map.remove_node("Green")
        assert set(node_map.nodes) == before
    assert node_map.remove_node("AcquisitionMode")
    gone = before - set(node_map.nodes)
    assert gone == {f"Std::{name}" for name in ("AcquisitionMode", "Continuous", "SingleFrame", "MultiFrame")}

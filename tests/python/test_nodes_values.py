"""Values of nodes: constants and chains, limits, registers, formulas."""

import itertools
from typing import Any

import pytest

import tarn
from conftest import MakeCamera
from node_trees import constant, put, refused, refused_set
from tarn.gevserver import (
    BooleanNode,
    CommandNode,
    EnumerationNode,
    Float32RegNode,
    Float64RegNode,
    FloatNode,
    Int32RegNode,
    Int64RegNode,
    IntegerNode,
    IntSwissKnifeNode,
    NodeList,
    NodeMap,
    NumberSign,
    StringNode,
    StringRegNode,
)

BIG = 2**63 - 1


@pytest.fixture
def node_map(make_camera: MakeCamera) -> Any:
    return make_camera(start=False).server.node_map


def chains() -> Any:
    """Pairs of a node that takes its value from another, and a register that can supply it."""
    return [
        (IntegerNode.create("Feature"), Int64RegNode.create("Source")),
        (FloatNode.create("Feature"), Float32RegNode.create("Source")),
        (BooleanNode.create("Feature"), Int32RegNode.create("Source")),
        (CommandNode.create("Feature"), Int32RegNode.create("Source")),
        (StringNode.create("Feature"), StringRegNode.create("Source", 16)),
        (EnumerationNode.create("Feature"), Int32RegNode.create("Source")),
    ]


@pytest.mark.parametrize("which", range(6))
def test_modes_come_from_the_end_of_the_chain(node_map: NodeMap, which: Any) -> None:
    feature, source = put(node_map, *chains()[which])
    assert feature.value_config_as_node is None
    assert (feature.access_mode, feature.cache_mode) == (tarn.AccessMode.ReadWrite, tarn.CacheMode.NoCache)
    feature.value_config_as_node = source
    assert feature.value_config_as_node is source
    for access, cache in itertools.product((2, 3, 4), (0, 1, 2)):
        source.access_mode, source.cache_mode = access, cache
        assert (feature.access_mode, feature.cache_mode) == (access, cache)
        assert feature.is_readable == (access != tarn.AccessMode.WriteOnly)
        assert feature.is_writable == (access != tarn.AccessMode.ReadOnly)
    refused_set(RuntimeError, "node to set must not be empty", feature, "value_config_as_node", None)
    assert feature.value_config_as_node is source


def test_longer_chains(node_map: NodeMap) -> None:
    outer, inner, register = put(
        node_map, IntegerNode.create("Outer"), IntegerNode.create("Inner"), Int32RegNode.create("Reg")
    )
    outer.value_config_as_node = inner
    assert outer.access_mode == tarn.AccessMode.ReadWrite
    inner.value_config_as_node = register
    register.access_mode = tarn.AccessMode.ReadOnly
    assert outer.access_mode == tarn.AccessMode.ReadOnly
    register.access_mode = tarn.AccessMode.ReadWrite
    outer.value = -7
    assert (outer.value, inner.value, register.value) == (-7, -7, -7)
    with pytest.raises(ValueError, match="circle"):
        inner.value_config_as_node = outer
    inner.value_config_as_int = 5  # a constant again
    assert inner.value_config_as_node is None
    assert (outer.value, register.value) == (5, -7)
    (knife,) = put(node_map, IntSwissKnifeNode.create("Knife"))
    knife.formula = "6 * 7"
    inner.value_config_as_node = knife
    assert (outer.value, outer.access_mode) == (42, tarn.AccessMode.ReadOnly)


@pytest.mark.parametrize(
    ("node_type", "supplier", "suffix", "kind"),
    [(IntegerNode, Int64RegNode, "int", int), (FloatNode, Float64RegNode, "float", float)],
)
def test_limits_as_constants_and_nodes(
    node_map: NodeMap, node_type: Any, supplier: Any, suffix: Any, kind: Any
) -> None:
    (node,) = put(node_map, node_type.create("Feature"))
    for setting, value in (("min", -4), ("max", 20), ("increment", 2), ("value", 6)):
        as_node, as_constant = f"{setting}_config_as_node", f"{setting}_config_as_{suffix}"
        setattr(node, as_constant, value)
        assert getattr(node, as_node) is None
        assert type(getattr(node, as_constant)) is kind
        assert getattr(node, as_constant) == getattr(node, setting) == value
        (source,) = put(node_map, supplier.create(f"{setting.title()}Source"))
        source.value = value + 2
        setattr(node, as_node, source)
        assert getattr(node, as_node) is source
        assert getattr(node, as_constant) == getattr(node, setting) == value + 2
        wrong = f"type miss match - cannot convert object to tarn.gevserver.{node_type.__base__.__name__}"
        refused_set(ValueError, wrong, node, as_node, StringNode.create("X"))
        setattr(node, as_constant, value)
        assert getattr(node, as_node) is None
    node.value = 8
    for value, error in ((22, IndexError), (-6, IndexError), (7, ValueError)):
        with pytest.raises(error):
            node.value = value
        assert node.value == 8
    node.from_string("10")
    assert node.value == 10
    with pytest.raises(ValueError, match="ten"):
        node.from_string("ten")
    with pytest.raises(IndexError, match="increment must be positive"):
        setattr(node, f"increment_config_as_{suffix}", 0)


def test_plain_settings(node_map: NodeMap) -> None:
    number, ratio = put(node_map, IntegerNode.create("Number"), FloatNode.create("Ratio"))
    assert (number.min, number.max, number.increment, number.unit) == (-BIG - 1, BIG, 1, "")
    number.representation = tarn.NumberRepresentation.HexNumber
    assert number.representation == tarn.NumberRepresentation.HexNumber
    ratio.unit, ratio.display_precision = "µs", 3
    assert (ratio.unit, ratio.display_precision) == ("µs", 3)
    number.is_streamable = True
    assert number.is_streamable is True
    for attribute, value in (("representation", 99), ("imposed_access_mode", 1)):
        with pytest.raises(IndexError):
            setattr(number, attribute, value)
    # Constants take the widest numbers; what has more bits is the interpreter's to refuse.
    number.value = -BIG - 1
    assert number.value == -BIG - 1
    with pytest.raises(OverflowError):
        number.value = BIG + 1


def test_conditions(node_map: NodeMap) -> None:
    (register,) = put(node_map, Int32RegNode.create("Reg"))
    register.imposed_access_mode = tarn.AccessMode.ReadOnly
    assert (register.imposed_access_mode, register.is_writable) == (tarn.AccessMode.ReadOnly, False)
    register.imposed_access_mode = None
    assert (register.imposed_access_mode, register.is_writable) == (None, True)
    switch = constant(node_map, "Switch", 1)
    register.is_implemented_config = register.is_available_config = switch
    assert register.is_implemented
    assert register.access_mode == tarn.AccessMode.ReadWrite
    switch.value = 0
    assert not register.is_implemented
    assert not register.is_readable
    assert not register.is_writable
    switch.value = 1
    register.is_locked_config = switch
    assert (register.is_readable, register.is_writable) == (True, False)


def test_booleans_and_commands(node_map: NodeMap) -> None:
    switch, register = put(node_map, BooleanNode.create("Switch"), Int32RegNode.create("Reg"))
    switch.value_config_as_node = register
    switch.on_value, switch.off_value = 7, -3
    for text, expected in (
        ("true", True),
        ("false", False),
        ("TRUE", True),
        ("1", False),
        ("True", True),
        ("yes", False),
    ):
        switch.from_string(text)
        assert switch.value is expected, text
        assert register.value == (7 if expected else -3)
    refused(RuntimeError, "String must not be empty", switch.from_string, "")
    switch.value = [0]
    assert register.value == 7
    (command,) = put(node_map, CommandNode.create("Fire"))
    command.value_config_as_node = register
    command.command_config_as_int = 99
    assert (command.command_config_as_int, command.command_config_as_node) == (99, None)
    assert command.execute() is None
    assert register.value == 99
    command_value = constant(node_map, "CommandValue", 55)
    command.command_config_as_node = command_value
    assert command.command_config_as_node is command_value
    command.from_string("TRUE")
    assert register.value == 55
    register.access_mode = tarn.AccessMode.WriteOnly
    assert command.is_done is True


def test_automatic_addresses(node_map: NodeMap) -> None:
    registers = put(
        node_map,
        Int32RegNode.create("A"),
        Int64RegNode.create("B"),
        StringRegNode.create("C", 12),
        Float32RegNode.create("D"),
        Float64RegNode.create("E"),
        Int32RegNode.create("F"),
    )
    end = 0
    for register in registers:
        assert register.address >= end, register.name
        assert register.address % (4 if isinstance(register, StringRegNode) else register.length) == 0
        end = register.address + register.length
    # The space below them stays free for addresses that the user chooses, and none is given twice.
    (chosen,) = put(node_map, Int64RegNode.create("Chosen", address=end + 64))
    (filler,) = put(node_map, StringRegNode.create("Filler", 128))
    assert filler.address >= chosen.address + 8 or filler.address + 128 <= chosen.address


def test_explicit_addresses(node_map: NodeMap) -> None:
    (taken,) = put(node_map, Int64RegNode.create("Taken", address=0x30000))
    for register in (
        Int32RegNode.create("Late", address=0x30004),
        StringRegNode.create("Late", address=0x2FFF8, length=12),
        Int32RegNode.create("Late", address=0x0A00),  # control channel privilege
        Int32RegNode.create("Late", address=2**32 - 4),
    ):
        with pytest.raises(ValueError, match=r"of Late is (taken by Taken|reserved)"):
            node_map.add_node(register)
        assert register.node_map is None
    refused_early = "the address of Late (is not a multiple of 4|lies outside)"
    for node_type, address in ((Int32RegNode, 0x30012), (Int64RegNode, 2**32), (Float32RegNode, -2)):
        with pytest.raises(ValueError, match=refused_early):
            node_type.create("Late", address=address)
    put(
        node_map,
        Int32RegNode.create("Before", address=0x2FFFC),
        Int32RegNode.create("After", address=0x30008),
    )
    assert taken.address == 0x30000


def test_register_values(node_map: NodeMap) -> None:
    word, wide, text, single = put(
        node_map,
        Int32RegNode.create("Word"),
        Int64RegNode.create("Wide"),
        StringRegNode.create("Text", 8),
        Float32RegNode.create("Single"),
    )
    assert word.is_signed is True
    assert (word.min, word.max) == (-(2**31), 2**31 - 1)
    word.is_signed = NumberSign.Unsigned
    word.value = 2**32 - 1
    for value in (-1, 2**32):
        with pytest.raises(IndexError):
            word.value = value
    word.is_signed = True
    assert word.value == -1
    wide.value = -BIG - 1
    assert wide.value == -BIG - 1
    for words in ("12345678", "", "größe"):
        text.value = words
        assert text.value == words
    with pytest.raises(IndexError, match="does not fit"):
        text.value = "123456789"
    assert text.value == "größe"
    single.value = 0.1
    assert single.value == pytest.approx(0.1, rel=1e-7)
    assert single.value != 0.1
    assert single.is_signed is True
    with pytest.raises(AttributeError):
        single.is_signed = False
    word.polling_time = 250
    assert word.polling_time == 250
    for attribute, value in (("access_mode", 0), ("access_mode", 5), ("cache_mode", 3), ("polling_time", -1)):
        with pytest.raises(IndexError):
            setattr(word, attribute, value)


FORMULAS = [
    ("2 * (3 / 2)", 2),
    ("3 * 7 + 4 / 2", 23),
    ("-7 / 2", -4),
    ("7 % 4", 3),
    ("2 ** 3", 8),
    ("6 & 3", 2),
    ("2 | 1", 3),
    ("6 ^ 3", 5),
    ("~0", -1),
    ("1 && 0", 0),
    ("0 || 5", 1),
    ("3 <> 3", 0),
    ("3 = 3", 1),
    ("3 > 2", 1),
    ("3 < 2", 0),
    ("2 <= 2", 1),
    ("3 >= 2", 1),
    ("1 << 2", 4),
    ("-8 >> 1", -4),
    ("(A > B) ? A : B", 9),
    ("SGN(42)", 1),
    ("SGN(NEG(42))", -1),
    ("SGN(0)", 0),
    ("NEG(-42)", 42),
    ("0xFF + 1", 256),
    ("((((A))))-(B)", 5),
]


def test_formulas(node_map: NodeMap) -> None:
    (knife,) = put(node_map, IntSwissKnifeNode.create("Knife"))
    with pytest.raises(RuntimeError, match="Knife has no formula"):
        _ = knife.value
    with pytest.raises(ValueError, match="'A' is no variable"):
        knife.formula = "A + B"
    a, b = constant(node_map, "A", 9), constant(node_map, "B", 4)
    knife.add(a, NodeList.Child)
    knife.add(b, NodeList.Child)
    assert knife.variables == {"A": a, "B": b}
    for formula, expected in FORMULAS:
        knife.formula = formula
        assert (knife.formula, knife.value) == (formula, expected)
    for formula in ("", "A +", "A B", "(A", "A == B", "C", "Width", "a", "A ? B", "1.5", "A >", "SGN A"):
        with pytest.raises(ValueError, match=r"^formula .* at character"):
            knife.formula = formula
        assert knife.value == 5
    b.value = 1
    assert knife.value == 8
    refused_set(RuntimeError, "Knife has no settable integer value", knife, "value", 3)
    # Variables go on meaning their nodes when others leave; one in use stays.
    with pytest.raises(ValueError, match="'B' is no variable"):
        knife.remove(b, NodeList.Child)
    knife.formula = "B * 10"
    assert knife.remove(a, NodeList.Child)
    assert knife.variables == {"B": b}
    assert knife.value == 10


def test_formulas_without_a_result(node_map: NodeMap) -> None:
    (knife,) = put(node_map, IntSwissKnifeNode.create("Knife"))
    knife.add(constant(node_map, "A", 0), NodeList.Child)
    for formula in ("1 / A", "1 % A", "1 << (A - 1)", "1 << (A + 64)"):
        knife.formula = formula
        with pytest.raises(RuntimeError, match="formula"):
            _ = knife.value
    knife.formula = "A + 1"
    assert knife.value == 1

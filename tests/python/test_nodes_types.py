"""The node types as types: creation, members, docstrings."""

from typing import Any

import pytest

from conftest import MakeCamera
from node_trees import refused, refused_set
from tarn import gevserver
from tarn.gevserver import (
    BooleanNode,
    CategoryNode,
    CommandNode,
    EnumEntryNode,
    EnumerationNode,
    Float32RegNode,
    Float64RegNode,
    FloatNode,
    Int32RegNode,
    Int64RegNode,
    IntegerNode,
    IntSwissKnifeNode,
    NameSpace,
    Node,
    StringNode,
    StringRegNode,
)

NO_MATCH = "the arguments do not match any of the expected signatures of the function"
RULE = (
    "Set operation is only possible as long as the tarn.gevserver.State is "
    "tarn.gevserver.State.Configuration."
)

PLAIN = [
    IntegerNode,
    FloatNode,
    BooleanNode,
    CommandNode,
    StringNode,
    EnumerationNode,
    EnumEntryNode,
    CategoryNode,
    IntSwissKnifeNode,
]
REGISTERS = [Int32RegNode, Int64RegNode, Float32RegNode, Float64RegNode]

MODES = "access_mode cache_mode polling_time "


def configs(suffix: str, *names: str) -> str:
    return "".join(f"{name}_config_as_node {name}_config_as_{suffix} " for name in names)


# Base and own members of each type; those in capitals have a setter.
TYPES = {
    "Node": (
        "object",
        "add remove node_map TOOL_TIP DESCRIPTION access_mode IMPOSED_ACCESS_MODE is_implemented "
        "IS_IMPLEMENTED_CONFIG IS_AVAILABLE_CONFIG IS_LOCKED_CONFIG is_readable is_writable cache_mode "
        "visibility ALIAS_NODE name name_only name_space event_id is_feature is_deprecated DISPLAY_NAME "
        "register_event_updated unregister_event_updated",
    ),
    "ValueNode": (
        "Node",
        "IS_STREAMABLE polling_time from_string register_event_written_updated "
        "unregister_event_written_updated register_event_on_read_updated unregister_event_on_read_updated",
    ),
    "SelectorNode": ("ValueNode", "is_selector selected_nodes"),
    "IntegerBaseNode": ("SelectorNode", "increment max min REPRESENTATION VALUE from_string unit"),
    "FloatBaseNode": ("SelectorNode", "increment max min REPRESENTATION VALUE from_string"),
    "IntegerNode": (
        "IntegerBaseNode",
        MODES + "create " + configs("int", "increment", "max", "min", "value").upper(),
    ),
    "FloatNode": (
        "FloatBaseNode",
        MODES
        + "create UNIT DISPLAY_PRECISION "
        + configs("float", "increment", "max", "min", "value").upper(),
    ),
    "BooleanNode": (
        "ValueNode",
        MODES + "create VALUE ON_VALUE OFF_VALUE from_string " + configs("int", "value").upper(),
    ),
    "CommandNode": (
        "ValueNode",
        MODES
        + "create execute is_done from_string IS_STREAMABLE "
        + configs("int", "command", "value").upper(),
    ),
    "StringNode": (
        "SelectorNode",
        "access_mode cache_mode create VALUE " + configs("string", "value").upper(),
    ),
    "EnumerationNode": (
        "SelectorNode",
        "create entries VALUE numeric_value from_string " + configs("int", "value").upper(),
    ),
    "EnumEntryNode": (
        "ValueNode",
        MODES + "create NUMERIC_VALUE SYMBOLIC_VALUE IS_STREAMABLE from_string",
    ),
    "CategoryNode": ("ValueNode", MODES + "create nodes from_string IS_STREAMABLE"),
    "IntSwissKnifeNode": ("IntegerBaseNode", MODES + "create variables FORMULA"),
    "IntRegNode": (
        "IntegerBaseNode",
        MODES.upper() + "address address_nodes invalidator_nodes length IS_SIGNED",
    ),
    "Int32RegNode": ("IntRegNode", "create"),
    "Int64RegNode": ("IntRegNode", "create"),
    "FloatRegNode": (
        "FloatBaseNode",
        MODES.upper() + "address address_nodes invalidator_nodes length is_signed",
    ),
    "Float32RegNode": ("FloatRegNode", "create"),
    "Float64RegNode": ("FloatRegNode", "create"),
    "StringRegNode": (
        "StringNode",
        MODES.upper() + "create address address_nodes invalidator_nodes length VALUE",
    ),
}


@pytest.mark.parametrize("name", TYPES)
def test_members(name: str) -> None:
    base, members = TYPES[name]
    node_type = getattr(gevserver, name)
    assert node_type.__base__.__name__ == base
    own = {member: value for member, value in vars(node_type).items() if not member.startswith("_")}
    assert sorted(own) == sorted(members.lower().split())
    for member, value in own.items():
        marked = value.__doc__.startswith("@ro ")
        settable = member.upper() in members.split()
        assert marked != (settable or callable(getattr(node_type, member, None))), member
    assert hasattr(node_type, "create") == (node_type in [*PLAIN, *REGISTERS, StringRegNode])


def test_properties_without_a_setter_refuse(make_camera: MakeCamera) -> None:
    width = make_camera(start=False).server.node_map.Width
    for name in ("visibility", "event_id", "name", "unit", "max", "node_map"):
        with pytest.raises(AttributeError):
            setattr(width, name, 1)


@pytest.mark.parametrize("node_type", PLAIN + REGISTERS)
def test_creation_by_name_and_namespace(node_type: Any) -> None:
    node = node_type.create("Std::Gizmo")
    assert type(node) is node_type
    assert (node.name, node.name_only, node.name_space) == ("Std::Gizmo", "Gizmo", NameSpace.Standard)
    assert node.display_name == "Gizmo"
    assert node_type.create("Gizmo").name == "Cust::Gizmo"
    assert node_type.create("Gizmo", NameSpace.Private).name == "Priv::Gizmo"
    assert node_type.create(nameSpace=NameSpace.Standard, name="Gizmo").name == "Std::Gizmo"
    # A prefix anywhere before the separator counts, as loosely as names are looked up.
    assert node_type.create("Cust::MyStdGain").name == "Std::MyStdGain"
    refused(RuntimeError, "Node name must not be empty", node_type.create, "")
    for arguments in (("Std::Gizmo", NameSpace.Custom), ("A::B::C",)):
        refused(RuntimeError, "No namespace prefix allowed", node_type.create, *arguments)
    for arguments in ((), (5,), ("Gizmo", "x"), ("Gizmo", 1, 2, 3, 4)):
        refused(ValueError, NO_MATCH, node_type.create, *arguments)
    refused(ValueError, "7 is no name space", node_type.create, "Gizmo", 7)
    refused(RuntimeError, "failed to extract type -  resource might be gone", lambda: node_type().name)


def test_creation_of_registers() -> None:
    for node_type, length in zip(REGISTERS, (4, 8, 4, 8), strict=True):
        assert node_type.create("R").address == -1
        for register in (
            node_type.create("R", NameSpace.Private, 0x20000),
            node_type.create("R", NameSpace.Private, address=0x20000),
            node_type.create("Priv::R", address=0x20000),
        ):
            assert (register.name, register.address) == ("Priv::R", 0x20000)
            assert register.length == length
    for text, expected in (
        (StringRegNode.create("T", 16), ("Cust::T", -1)),
        (StringRegNode.create("T", NameSpace.Standard, 16), ("Std::T", -1)),
        (StringRegNode.create("T", length=16, address=0x20000), ("Cust::T", 0x20000)),
        (StringRegNode.create("T", NameSpace.Private, 0x20000, 16), ("Priv::T", 0x20000)),
    ):
        assert (text.name, text.address, text.length) == (*expected, 16)
    refused(ValueError, NO_MATCH, StringRegNode.create, "T")
    for length in (0, 6, -4):
        with pytest.raises(ValueError, match=f"register length of {length} bytes .* multiple of four"):
            StringRegNode.create("T", length)


def test_free_nodes() -> None:
    node = IntegerNode.create("Free")
    assert node.node_map is None
    assert not node.is_feature
    assert (node.event_id, node.imposed_access_mode, node.alias_node) == (0, None, None)
    refused(RuntimeError, "Parent python node must have node map", node.add, IntegerNode.create("A"), 0)


def test_fixed_answers_and_refusals() -> None:
    for node, kind in (
        (CommandNode.create("A"), "Command"),
        (EnumEntryNode.create("A"), "EnumEntry"),
        (CategoryNode.create("A"), "Category"),
    ):
        assert node.is_streamable is False
        for value in (True, False):
            refused_set(RuntimeError, f"{kind} nodes cannot be streamed", node, "is_streamable", value)
    for node in (EnumEntryNode.create("A"), CategoryNode.create("A"), IntSwissKnifeNode.create("A")):
        assert (node.access_mode, node.cache_mode, node.polling_time) == (2, 0, 0)
        assert node.is_readable
        assert not node.is_writable
    refused(
        RuntimeError,
        "Symbolic values cannot be set as value",
        EnumEntryNode.create("A").from_string,
        "B",
    )
    refused(RuntimeError, "not implemented", CategoryNode.create("A").from_string, "B")


def test_texts_and_node_settings() -> None:
    node = StringNode.create("Label")
    for attribute, text in (
        ("display_name", "Display name must not be empty"),
        ("tool_tip", "Tooltip short descriptive text must not be empty"),
        ("description", "Description must not be empty"),
    ):
        setattr(node, attribute, "Größe <&>")
        refused_set(RuntimeError, text, node, attribute, "")
        refused_set(ValueError, "type miss match - cannot convert object to str", node, attribute, b"x")
        assert getattr(node, attribute) == "Größe <&>"
    other = IntegerNode.create("Other")
    for attribute in (
        "is_implemented_config",
        "is_available_config",
        "is_locked_config",
        "alias_node",
    ):
        assert getattr(node, attribute) is None
        setattr(node, attribute, other)
        refused_set(RuntimeError, "node to set must not be empty", node, attribute, None)
        mismatch = "type miss match - cannot convert object to tarn.gevserver.Node"
        refused_set(ValueError, mismatch, node, attribute, 5)
        assert getattr(node, attribute) is other


def test_docstrings() -> None:
    assert (
        Node.__doc__ == "@sec@cls tarn.gevserver.Node\n\nBasic GevServer node for device feature access.\n\n"
    )
    assert IntSwissKnifeNode.__doc__.split("\n\n")[1].startswith("Due to the integer arithmetic")
    assert Node.node_map.__doc__.startswith("@ro Gets the node map of this GevServer node.")
    assert Node.tool_tip.__doc__ == f"Gets or sets the short descriptive text of this node.\n\n{RULE}"
    assert CommandNode.is_streamable.__doc__ == (
        "Commands are never streamable.\n\nIt will always return False."
    )
    assert "3 * (2 / 3) results to 15" in IntSwissKnifeNode.formula.__doc__
    assert r"2 \*\* 3 results to 8" in IntSwissKnifeNode.formula.__doc__
    assert RULE not in IntegerNode.value.__doc__
    calls = {
        Node.add: ["add(self, node: tarn.gevserver.Node, kind: int) -> None:"],
        Node.remove: ["remove(self, node: tarn.gevserver.Node, kind: int) -> bool:"],
        Node.register_event_updated: [
            "register_event_updated(self, handler: Callable[[tarn.gevserver.Node], None])"
            " -> tarn.EventCookie:"
        ],
        CommandNode.execute: ["execute(self) -> None:"],
        IntegerNode.create: [
            "create(name: str, namespace: int) -> tarn.gevserver.IntegerNode:",
            "create(name: str) -> tarn.gevserver.IntegerNode:",
        ],
        Int32RegNode.create: [
            "create(name: str, namespace: int, address: int = -1) -> tarn.gevserver.Int32RegNode:",
            "create(name: str, address: int = -1) -> tarn.gevserver.Int32RegNode:",
        ],
    }
    for method, signatures in calls.items():
        lines = [line for line in method.__doc__.splitlines() if line.startswith("@sec@call ")]
        assert lines == [f"@sec@call def {signature}" for signature in signatures]
    assert (
        "\nReturns\n-------\nbool\n    True if the node was removed, otherwise false.\n"
        in Node.remove.__doc__
    )

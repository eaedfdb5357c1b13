"""The nodes behind declared features: categories, registers, and registers that move with a selector."""

import math
from collections.abc import Sequence
from typing import NamedTuple, TypeVar

import tarn
from tarn.gevserver import (
    CategoryNode,
    EnumEntryNode,
    EnumerationNode,
    Float64RegNode,
    Int32RegNode,
    Int64RegNode,
    IntegerNode,
    IntSwissKnifeNode,
    NameSpace,
    Node,
    NodeList,
    NodeMap,
    StringRegNode,
)

NumberRegister = type[Int32RegNode] | type[Int64RegNode] | type[Float64RegNode]
Register = Int32RegNode | Int64RegNode | Float64RegNode | StringRegNode

_Node = TypeVar("_Node", bound=Node)
_ALIGNMENT = 8  # of registers whose addresses move, for the longest number
_MOST_BYTES = 65536 - _ALIGNMENT  # for the values of one feature: what is reserved as one register


class Selection(NamedTuple):
    """What selects: its feature, the register with its value, and the values that it can have."""

    feature: EnumerationNode | IntegerNode
    register: Int32RegNode | Int64RegNode
    values: range


class RegisterKind(NamedTuple):
    """A type of register, `length` bytes long."""

    type: NumberRegister | type[StringRegNode]
    length: int

    @property
    def stride(self) -> int:
        """From one value of a selected feature to the next, in bytes."""
        return _aligned(self.length)

    def check_count(self, count: int) -> None:
        """Raises ValueError when there is no room for so many values of one feature."""
        if count > _MOST_BYTES // self.stride:
            raise ValueError(
                f"{count} values of {self.stride} bytes are too many, {_MOST_BYTES} bytes at most"
            )

    def create(self, name: str, address: int) -> Register:
        """A register in no map yet; the address -1 means any."""
        if issubclass(self.type, StringRegNode):
            return self.type.create(name, NameSpace.Private, address, self.length)
        return self.type.create(name, NameSpace.Private, address)


class TreeBuilder:
    """Adds nodes to the map of a server that is in its configuration state."""

    def __init__(self, node_map: NodeMap) -> None:
        self._map = node_map

    def has(self, name: str) -> bool:
        """Whether the camera has a node of this name. Entries are their enumeration's."""
        return not isinstance(self._map.try_get_node(name), EnumEntryNode | None)

    def can_be_category(self, name: str) -> bool:
        """Whether this is the name of a category, or of nothing yet."""
        return isinstance(self._map.try_get_node(name), CategoryNode | None)

    def add(self, node: _Node) -> _Node:
        self._map.add_node(node)
        return node

    def publish(self, node: Node, category: str) -> None:
        """Put a feature into a category, which is made below the root when it is not there."""
        group = self._map.try_get_node(category)
        if group is None:
            group = self.add(CategoryNode.create(category))
            self._map.Root.add(group, NodeList.Child)
        group.add(node, NodeList.Child)

    def register(self, name: str, kind: RegisterKind, selections: Sequence[Selection] = ()) -> Register:
        """A register for a feature's value; one for each combination of the selectors' values."""
        if not selections:
            return self.add(kind.create(name, -1))
        place = self._reserve(
            f"{name}Place", kind.stride * math.prod(len(each.values) for each in selections)
        )
        register = self.add(kind.create(name, place))
        offset = self.add(IntSwissKnifeNode.create(f"{name}Offset", NameSpace.Private))
        terms, stride = [], kind.stride
        for selection in selections:
            variable = self._selector_variable(selection)
            offset.add(variable, NodeList.Child)
            terms.append(f"({variable.name_only} - ({selection.values.start})) * {stride}")
            stride *= len(selection.values)
        offset.formula = " + ".join(terms)
        register.add(offset, NodeList.Addresses)
        return register

    def _reserve(self, name: str, length: int) -> int:
        """Address of bytes that no automatic address takes: of a register that had it, and left."""
        placeholder = self.add(StringRegNode.create(name, NameSpace.Private, length + _ALIGNMENT))
        address = placeholder.address
        self._map.remove_node(placeholder)
        return _aligned(address)

    def _selector_variable(self, selection: Selection) -> IntegerNode:
        """The selector's value under a name that a formula can use: capital letters only."""
        name = "SELECTOR"
        while node := self._map.try_get_node(name):
            if isinstance(node, IntegerNode) and node.value_config_as_node is selection.register:
                return node
            name += "X"
        variable = self.add(IntegerNode.create(name, NameSpace.Private))
        variable.value_config_as_node = selection.register
        variable.imposed_access_mode = tarn.AccessMode.ReadOnly  # or clients could select what there is not
        return variable


def _aligned(number: int) -> int:
    return -(-number // _ALIGNMENT) * _ALIGNMENT


def set_up(register: Register, *, read_only: bool, polling: int) -> None:
    """What the registers of all features have in common; `polling` in milliseconds."""
    if read_only:
        register.access_mode = tarn.AccessMode.ReadOnly
    # The program may set a value at any time, and clients do not hear of it.
    register.cache_mode = tarn.CacheMode.NoCache
    register.polling_time = polling

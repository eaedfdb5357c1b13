"""Adds features that clients write: each needs a register, a value node and an entry in a category."""

from collections.abc import Callable, Mapping
from typing import TypeVar

import tarn
from tarn.gevserver import (
    BooleanNode,
    CategoryNode,
    CommandNode,
    EnumEntryNode,
    EnumerationNode,
    Float64RegNode,
    FloatNode,
    Int32RegNode,
    Int64RegNode,
    NameSpace,
    Node,
    NodeList,
    NodeMap,
    ValueNode,
)

_AnyNode = TypeVar("_AnyNode", bound=Node)


class TreeBuilder:
    """Adds features to the tree of a server that is not started.

    Parameters
    ----------
    tree : tarn.gevserver.NodeMap
        Of the server.
    """

    def __init__(self, tree: NodeMap) -> None:
        self._tree = tree

    def category(self, name: str, tool_tip: str, name_space: int = NameSpace.Standard) -> CategoryNode:
        """The category of this name, made under the root if there is none."""
        found = self._tree.try_get_node(name)
        if isinstance(found, CategoryNode):
            return found
        return self._put(CategoryNode.create(name, name_space), self._tree.Root, tool_tip)

    def number(
        self,
        name: str,
        category: CategoryNode,
        value: float,
        limits: tuple[float, float],
        unit: str,
        tool_tip: str,
    ) -> FloatNode:
        """A floating-point feature with the given first value."""
        register = self._register(Float64RegNode, name, category)
        register.value = value
        node = self._put(FloatNode.create(name, category.name_space), category, tool_tip)
        node.value_config_as_node = register
        node.min_config_as_float, node.max_config_as_float = limits
        node.unit = unit
        node.is_streamable = True
        return node

    def switch(self, name: str, category: CategoryNode, value: bool, tool_tip: str) -> BooleanNode:
        """A feature that is on or off."""
        register = self._register(Int32RegNode, name, category)
        node = self._put(BooleanNode.create(name, category.name_space), category, tool_tip)
        node.value_config_as_node = register
        node.is_streamable = True
        node.value = value
        return node

    def choice(
        self, name: str, category: CategoryNode, entries: Mapping[str, int], value: str, tool_tip: str
    ) -> EnumerationNode:
        """A choice of names, with the number that stands in the register for each."""
        register = self._register(Int32RegNode, name, category)
        node = self._put(EnumerationNode.create(name, category.name_space), category, tool_tip)
        node.value_config_as_node = register
        node.is_streamable = True
        for entry_name, number in entries.items():
            entry = EnumEntryNode.create(entry_name, category.name_space)
            node.add(entry, NodeList.Child)
            entry.numeric_value = number
        node.value = value
        return node

    def command(self, name: str, category: CategoryNode, tool_tip: str) -> CommandNode:
        """A command; whoever registers a written listener hears of it."""
        register = self._register(Int32RegNode, name, category)
        register.access_mode = tarn.AccessMode.WriteOnly
        register.cache_mode = tarn.CacheMode.NoCache
        node = self._put(CommandNode.create(name, category.name_space), category, tool_tip)
        node.value_config_as_node = register
        return node

    def counter(self, name: str, category: CategoryNode, tool_tip: str) -> Int64RegNode:
        """A number that only the program writes."""
        node = self._put(Int64RegNode.create(name, category.name_space), category, tool_tip)
        node.access_mode = tarn.AccessMode.ReadOnly
        node.cache_mode = tarn.CacheMode.NoCache
        return node

    def _register(
        self, kind: type[Int32RegNode] | type[Float64RegNode], name: str, category: CategoryNode
    ) -> Int32RegNode | Float64RegNode:
        register = kind.create(f"{name}Value", category.name_space)
        self._tree.add_node(register)
        return register

    def _put(self, node: _AnyNode, parent: CategoryNode, tool_tip: str) -> _AnyNode:
        self._tree.add_node(node)
        node.tool_tip = tool_tip
        parent.add(node, NodeList.Child)
        return node


def on_written(node: ValueNode, action: Callable[[], None]) -> None:
    """Calls `action` after each write by a client, on a thread of the server."""
    node.register_event_written_updated(lambda _: action())

"""Short ways to build feature trees in tests."""

import re
from collections.abc import Callable
from typing import Any

import pytest

from tarn.gevserver import IntegerNode, Node, NodeList, NodeMap


def put(node_map: NodeMap, *nodes: Node) -> tuple[Any, ...]:
    """Add nodes to a map; return them."""
    for node in nodes:
        node_map.add_node(node)
    return nodes


def constant(node_map: NodeMap, name: str, value: int) -> IntegerNode:
    """A new integer node with a constant value, in the map."""
    node = IntegerNode.create(name)
    node_map.add_node(node)
    node.value_config_as_int = value
    return node


def publish(node_map: NodeMap, *nodes: Node) -> None:
    """Make nodes features that clients see."""
    for node in nodes:
        node_map.Root.add(node, NodeList.Child)


def refused(kind: type[Exception], text: str, act: Callable[..., object], *arguments: object) -> None:
    """Expect exactly this error from a call."""
    with pytest.raises(kind, match=f"^{re.escape(text)}$"):
        act(*arguments)


def refused_set(kind: type[Exception], text: str, node: Node, attribute: str, value: object) -> None:
    """Expect exactly this error from an assignment."""
    refused(kind, text, setattr, node, attribute, value)

"""Short ways to build feature trees in tests, and to see what is refused."""

from collections.abc import Callable
from typing import Any

import pytest

from tarn.gevserver import IntegerNode, Node, NodeList, NodeMap

# Texts of the binding.
NO_MATCH = "the arguments do not match any of the expected signatures of the function"
MISMATCH = "type miss match - cannot convert object to "
GONE = "failed to extract type -  resource might be gone"


def put(node_map: NodeMap, *nodes: Node) -> tuple[Any, ...]:
    """Add nodes to a map; return them."""
    for node in nodes:
        node_map.add_node(node)
    return nodes


def new(node_map: NodeMap, **kinds: Any) -> tuple[Any, ...]:
    """Add new nodes to a map, by name and type; return them."""
    return put(node_map, *(kind.create(name) for name, kind in kinds.items()))


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
    with pytest.raises(kind) as caught:
        act(*arguments)
    assert str(caught.value) == text

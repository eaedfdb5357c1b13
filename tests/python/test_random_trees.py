"""Random feature trees: what the camera publishes and what the reference GenApi library makes of it agree."""

import pathlib
import random
from collections.abc import Iterator
from typing import Any

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from conftest import free_address
from features import description
from genapi_peer import check_schema, genapi, node_map
from gvcp_client import ControlClient, GvcpError
from random_trees import FAILS, FLOATS, INTEGERS, TEXTS, RandomTree
from tarn import gevserver as gev
from tarn.gevserver import Node, Server

NUMBERS = (gev.IntegerNode, gev.IntRegNode, gev.FloatBaseNode)
SETTABLE = (*NUMBERS, gev.BooleanNode, gev.CommandNode, gev.StringNode, gev.EnumerationNode)
NOT_READABLE = object()  # the library may not read a node that the value follows from
ROUNDS = 5
WRITES = 8  # in a round


class Pair:
    """A started camera with a random tree, and the library's node map over it."""

    def __init__(self, count: int, seed: int) -> None:
        self.server = Server.create_non_streaming()
        self.tree = RandomTree(self.server.node_map, count, seed)
        self.random = random.Random(seed)
        address = free_address()
        self.server.start(address)
        self.client = ControlClient(address).connect()
        self.peer, self.port = node_map(self.client)

    def __enter__(self) -> "Pair":
        return self

    def __exit__(self, *exception: object) -> None:
        del self.peer, self.port
        self.client.disconnect()
        self.client.close()
        self.server.stop()

    def theirs(self, node: Node) -> Any:
        return self.peer.get_node(node.name_only)

    def forget(self) -> None:
        """Let the library drop what it has read, after a change that it cannot know of."""
        for node in self.tree.nodes:
            self.theirs(node).node.invalidate_node()

    def differences(self) -> Iterator[str]:
        """Where the two differ, among what the library lets its users read."""
        for node in self.tree.nodes:
            theirs = self.theirs(node)
            for name in compared(node) if allows(genapi.is_readable, theirs) else ():
                here, there = (attempt(side, name) for side in (node, theirs))
                if here != there and there is not NOT_READABLE:
                    yield f"{node.name_only}.{name}: camera {here!r}, library {there!r}"

    def write_somewhere(self) -> str:
        """One random write; tells what was done."""
        settable = [node for node in self.tree.of(*SETTABLE) if allows(genapi.is_writable, self.theirs(node))]
        if not settable:
            return "nothing"
        node = self.random.choice(settable)
        theirs = self.theirs(node)
        if isinstance(node, gev.CommandNode):
            theirs.execute()
            assert node.is_done and theirs.is_done(), f"{node.name_only} is not done"
            return f"executed {node.name_only}"
        value = self._new_value(node)
        told = f"{node.name_only} = {value!r}"
        chain = value_chain(node)
        if not hasattr(chain[-1], "address"):  # each side has a constant of its own
            if any(attempt(theirs, name) is NOT_READABLE for name in compared(node)[1:]):
                return f"{told} nowhere: the library cannot tell the limits"
            both = [taken(side, value) for side in (node, theirs)]
            assert both[0] == both[1], f"{told}: camera {both[0]}, library {both[1]}"
            return f"{told} on both sides"
        if self.random.choice((True, False)):
            here = taken(node, value)
            self.forget()
            return f"{told} here: {here}"
        try:
            return f"{told} there: {taken(theirs, value)}"
        except GvcpError as refused:
            # The camera keeps to the limits and locks of all features over a register, whichever was used.
            users = {other for other in self.tree.nodes if value_chain(other)[-1] is chain[-1]}
            if users <= set(chain):
                pytest.fail(f"{told}: {refused}")
            return f"{told} there: {refused}"

    def _new_value(self, node: Node) -> object:
        choice = self.random.choice
        if isinstance(node, gev.BooleanNode):
            return choice((True, False))
        if isinstance(node, gev.EnumerationNode):
            return choice(node.entries).symbolic_value
        if isinstance(node, gev.StringNode):
            return choice(TEXTS)
        near = self.random.randint(-20, 20)
        is_float = isinstance(node, gev.FloatBaseNode)
        return choice((*FLOATS, float(near)) if is_float else (*INTEGERS, near, near))


def allows(access: Any, theirs: object) -> bool:
    """Whether the library allows an access; not, when it may not read what decides about it."""
    try:
        return bool(access(theirs))
    except genapi.AccessException:
        return False


def attempt(side: object, name: str) -> object:
    try:
        return getattr(side, name)
    except genapi.AccessException:
        return NOT_READABLE
    except (genapi.GenericException, RuntimeError):
        return FAILS


def taken(side: Any, value: object) -> bool:
    """Whether a value is accepted as the new one."""
    try:
        side.value = value
    except (genapi.GenericException, RuntimeError, ValueError, IndexError):
        return False
    return True


def compared(node: Node) -> list[str]:
    """The properties, of one name on both sides, in which a node of this kind must agree."""
    if isinstance(node, gev.IntegerBaseNode | gev.FloatBaseNode):
        return ["value", "min", "max"]
    return [] if isinstance(node, gev.CategoryNode | gev.CommandNode) else ["value"]


def value_chain(node: Node) -> list[Node]:
    """The node, and the nodes that its value comes from, up to a register or a constant."""
    chain = [node]
    while (source := getattr(chain[-1], "value_config_as_node", None)) is not None:
        chain.append(source)
    return chain


def test_published_trees_agree(tmp_path: pathlib.Path, request: pytest.FixtureRequest) -> None:
    # What matters of a tree follows from its size and its seed; hypothesis makes the size of a failure small.
    # Each run checks the same trees, so that only a change of ours can break it; more with --random-trees.
    @settings(max_examples=request.config.getoption("--random-trees"), deadline=None, derandomize=True)
    @given(count=st.integers(1, 300), seed=st.integers(0, 2**32 - 1))
    def check(count: int, seed: int) -> None:
        with Pair(count, seed) as pair:
            check_schema(description(pair.client), tmp_path)
            assert not list(pair.differences())
            for _ in range(ROUNDS):
                done = [pair.write_somewhere() for _ in range(WRITES)]
                pair.forget()
                assert not list(pair.differences()), f"after {done}"

    check()

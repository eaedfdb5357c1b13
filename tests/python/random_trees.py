"""Random feature trees that are legal: every link has a kind that fits, and no link closes a circle."""

import contextlib
import random
from typing import Any

import tarn
from tarn import gevserver as gev
from tarn.gevserver import Node, NodeList, NodeMap

FAILS = None  # reading the value is an error

INTEGERS = (1, 0, -1, 2, 3, 7, 100, 255, -128, 65_536, 2**31 - 1, -(2**31), 2**40, -(2**53) - 1)
FLOATS = (0.0, 1.0, -1.5, 0.1, 2.5, 1e-3, 3.4e38, -1e15, 1e300)
TEXTS = ("", "lamp", "a b", "<&>\"'", "Grün µ", "ends with blank ")
BINARY = ("+", "-", "*", "/", "%", "&", "|", "^", "=", "<>", "<", "<=", ">", ">=", "&&", "||", "**")

_VALUE_LINKS = ("value_config_as_node", "min_config_as_node", "max_config_as_node")
_CONDITIONS = ("is_implemented_config", "is_available_config", "is_locked_config")
_SELECTORS = (gev.IntegerNode, gev.Int32RegNode, gev.EnumerationNode)
_CONDITION_KINDS = (*_SELECTORS, gev.BooleanNode)
_VARIABLES = (*_CONDITION_KINDS, gev.Int64RegNode, gev.IntSwissKnifeNode)
_MAX_KNIFE_DEPTH = 3  # a knife of knives reads its variables again and again


class RandomTree:
    """Fills a node map with about `count` nodes, chosen by `seed`.

    Nodes link to nodes made before them only, apart from what selects and what invalidates.
    """

    def __init__(self, node_map: NodeMap, count: int, seed: int) -> None:
        self.map = node_map
        self.random = random.Random(seed)
        self.nodes: list[Any] = []
        self._owned: set[Node] = set()  # registers that belong to one node, and hold only what it can show
        self._depth: dict[Node, int] = {}
        self._open: dict[Node, bool] = {}
        self._categories: list[gev.CategoryNode] = [node_map.Root]
        self._next_address = 0x0010_0000
        makers = [self._integer, self._integer, self._int_register, self._int_register, self._moving_register]
        makers += [self._float, self._float_register, self._boolean, self._command, self._string]
        makers += [self._string_register, self._enumeration, self._knife, self._category]
        while len(self.nodes) < count:
            node = self.random.choice(makers)()
            self._describe(node)
            self._publish(node)
        self._inform()

    def of(self, *kinds: type[Node]) -> list[Any]:
        """The nodes made so far of some kinds, without registers that belong to one node."""
        return [node for node in self.nodes if isinstance(node, kinds) and node not in self._owned]

    # Making nodes.

    def _chance(self, of_ten: int) -> bool:
        return self.random.randrange(10) < of_ten

    def _new(self, kind: Any, *arguments: int) -> Any:
        name = f"{kind.__name__.removesuffix('Node')}{len(self.nodes)}"
        name_space = self.random.choice((gev.NameSpace.Standard, gev.NameSpace.Custom, gev.NameSpace.Private))
        node = kind.create(name, name_space, *arguments)
        self.map.add_node(node)
        self.nodes.append(node)
        return node

    def _pick(self, *kinds: type[Node]) -> Any:
        found = self.of(*kinds)
        return self.random.choice(found) if found and self._chance(7) else None

    def _owned_register(self, value: int) -> Any:
        register = self._new(gev.Int32RegNode)
        register.cache_mode = self.random.choice((0, 2))
        register.value = value
        self._owned.add(register)
        return register

    @staticmethod
    def _over(source: Any, node: Any, suffix: str, constant: object) -> Any:
        """The node, with its value from `source`, or a constant where there is none."""
        if source is not None:
            node.value_config_as_node = source
        else:
            setattr(node, f"value_config_as_{suffix}", constant)
        return node

    def _integer(self) -> Any:
        limits = [self._pick(gev.IntegerBaseNode) if self._chance(4) else None for _ in range(2)]
        limits = [limit if limit is not None and own_value(limit) is not FAILS else None for limit in limits]
        source, constant = self._pick(gev.IntegerBaseNode), self.random.choice(INTEGERS)
        node = self._over(source, self._new(gev.IntegerNode), "int", constant)
        self._limit(node, *limits)
        if self._chance(2):
            # The library's distance from the lowest number overflows, so a minimum is needed.
            node.min_config_as_int = min(0, own_value(node, "max"))
            node.increment_config_as_int = self.random.choice((1, 2, 3, 10))
        return node

    def _limit(self, node: Any, low: Any, high: Any) -> None:
        """Limits that are no contradiction at the start."""
        if low is not None:
            node.min_config_as_node = low
        elif self._chance(3):
            node.min_config_as_int = self.random.choice((-1000, 0, 1))
        if high is not None:
            node.max_config_as_node = high
        elif self._chance(3):
            node.max_config_as_int = self.random.choice((10, 1000, 2**31 - 1))
        if own_value(node, "min") > own_value(node, "max"):
            node.min_config_as_int, node.max_config_as_int = -5, 2**20

    def _filled(self, node: Any, value: object) -> Any:
        """A register in one of its modes; what is too large or too long leaves it zero."""
        with contextlib.suppress(IndexError, ValueError, RuntimeError):
            node.value = value
        node.cache_mode = self.random.choice((0, 1, 2))
        if self._chance(2):
            node.access_mode = self.random.choice((tarn.AccessMode.ReadOnly, tarn.AccessMode.WriteOnly))
        return node

    def _int_register(self) -> Any:
        node = self._new(self.random.choice((gev.Int32RegNode, gev.Int64RegNode)))
        node.is_signed = self._chance(5)
        return self._filled(node, self.random.choice(INTEGERS))

    def _moving_register(self) -> Any:
        """A register whose address follows a selector among four."""
        kind, length = self.random.choice(((gev.Int32RegNode, 4), (gev.Int64RegNode, 8)))
        register = self._owned_register(0) if self._chance(5) else None
        selector = self._over(register, self._new(gev.IntegerNode), "int", 0)
        selector.min_config_as_int, selector.max_config_as_int = 0, 3
        offset = self._new(gev.IntSwissKnifeNode)
        offset.add(selector, NodeList.Child)
        offset.formula = f"{selector.name_only} * {length}"
        node = self._new(kind, self._next_address)
        self._next_address += 0x100
        node.is_signed = self._chance(5)
        node.add(offset, NodeList.Addresses)
        selector.add(node, NodeList.Selected)
        return node

    def _float(self) -> Any:
        source, constant = self._pick(gev.FloatBaseNode), self.random.choice(FLOATS)
        node = self._over(source, self._new(gev.FloatNode), "float", constant)
        if self._chance(3):
            node.min_config_as_float, node.max_config_as_float = -2.5, 1e6
        return node

    def _float_register(self) -> Any:
        kind = self.random.choice((gev.Float32RegNode, gev.Float64RegNode))
        return self._filled(self._new(kind), self.random.choice(FLOATS))

    def _boolean(self) -> Any:
        on, off = self.random.choice(((1, 0), (0, 1), (5, 3), (255, 1)))
        register = self._owned_register(self.random.choice((on, off))) if self._chance(7) else None
        node = self._new(gev.BooleanNode)
        node.on_value, node.off_value = on, off
        return self._over(register, node, "int", off)

    def _command(self) -> Any:
        node = self._over(self._owned_register(0), self._new(gev.CommandNode), "int", 0)
        node.command_config_as_int = self.random.choice((1, 7, 2**31 - 1))
        return node

    def _string(self) -> Any:
        source, constant = self._pick(gev.StringNode), self.random.choice(TEXTS[1:])
        return self._over(source, self._new(gev.StringNode), "string", constant)

    def _string_register(self) -> Any:
        node = self._new(gev.StringRegNode, self.random.choice((4, 8, 16, 64)))
        return self._filled(node, self.random.choice(TEXTS))

    def _enumeration(self) -> Any:
        numbers = self.random.sample(range(20), self.random.randint(1, 5))
        register = self._owned_register(numbers[-1]) if self._chance(7) else None
        node = self._new(gev.EnumerationNode)
        for number in numbers:
            unique = f"Of{node.name_only}" if self._chance(5) else ""
            entry = gev.EnumEntryNode.create(f"Entry{number}{unique}")
            entry.numeric_value = number
            node.add(entry, NodeList.Child)
        return self._over(register, node, "int", numbers[0])

    def _knife(self) -> Any:
        candidates = [node for node in self.of(*_VARIABLES) if self._knives_below(node) < _MAX_KNIFE_DEPTH]
        variables = self.random.sample(candidates, min(len(candidates), self.random.randint(0, 3)))
        node = self._new(gev.IntSwissKnifeNode)
        for variable in variables:
            node.add(variable, NodeList.Child)
        node.formula = self._term([variable.name_only for variable in variables], self.random.randint(0, 4))
        return node

    def _term(self, names: list[str], depth: int) -> str:
        if depth == 0:
            return self.random.choice([*names, *names, "1", "2", "0x1F", "1000"])
        first, second = (self._term(names, depth - 1) for _ in range(2))
        shape = self.random.randrange(8)
        if shape == 0:
            return f"({first} > {second} ? {first} : {second})"
        if shape == 1:
            return f"{self.random.choice(('SGN', 'NEG', '-', '~'))}({first})"
        if shape == 2:
            return f"({first}) {self.random.choice(('<<', '>>'))} (({second}) & 63)"
        operator = self.random.choice(BINARY)
        return f"{first} {operator} ({second})" if self._chance(5) else f"({first}) {operator} {second}"

    def _category(self) -> Any:
        node = self._new(gev.CategoryNode)
        self._categories.append(node)
        return node

    # What nodes depend on.

    def _links(self, node: Any) -> list[Any]:
        """The nodes that the node's value follows from; they stay the same once others can link to it."""
        linked: list[Any] = list(node.variables.values()) if isinstance(node, gev.IntSwissKnifeNode) else []
        linked += [getattr(node, config, None) for config in _VALUE_LINKS]
        linked += getattr(node, "address_nodes", [])
        return [other for other in linked if other is not None]

    def _is_open(self, node: Any) -> bool:
        """Whether clients can always read the value."""
        if node not in self._open:
            conditions = (node.is_implemented_config, node.is_available_config, node.imposed_access_mode)
            readable = not hasattr(node, "address") or node.access_mode != tarn.AccessMode.WriteOnly
            readable = readable and all(condition is None for condition in conditions)
            readable = readable and own_value(node) is not FAILS
            self._open[node] = readable and all(map(self._is_open, self._links(node)))
        return self._open[node]

    def _knives_below(self, node: Any) -> int:
        """Most knives on a path from the node on."""
        if node not in self._depth:
            below = max(map(self._knives_below, self._links(node)), default=0)
            self._depth[node] = below + isinstance(node, gev.IntSwissKnifeNode)
        return self._depth[node]

    # What all kinds have.

    def _describe(self, node: Any) -> None:
        if self._chance(3):
            node.tool_tip = self.random.choice(TEXTS[1:])
        if self._chance(2):
            node.imposed_access_mode = self.random.choice((2, 3, 4))
        if isinstance(node, gev.CategoryNode):
            return
        for config in _CONDITIONS:
            if self._chance(1):
                others = (other for other in self.of(*_CONDITION_KINDS) if other is not node)
                before = list(filter(self._is_open, others))
                if before:
                    setattr(node, config, self.random.choice(before))

    def _publish(self, node: Any) -> None:
        if isinstance(node, gev.CategoryNode) or not self._chance(3):
            parents = [parent for parent in self._categories if parent is not node]
            self.random.choice(parents).add(node, NodeList.Child)

    def _inform(self) -> None:
        """Links that carry no value: what selects what, what invalidates what, aliases."""
        plain = [node for node in self.nodes if not isinstance(node, gev.CategoryNode | gev.CommandNode)]
        for place, node in enumerate(plain):
            later, other = plain[place + 1 :], self.random.choice(plain)
            if later and isinstance(node, _SELECTORS) and self._chance(1):
                node.add(self.random.choice(later), NodeList.Selected)
            if other is not node and self._chance(1):
                node.add(other, NodeList.Invalidator)
            if self._chance(1):
                node.alias_node = other


def own_value(node: Any, attribute: str = "value") -> Any:
    """A value as the camera has it."""
    try:
        return getattr(node, attribute)
    except RuntimeError:
        return FAILS

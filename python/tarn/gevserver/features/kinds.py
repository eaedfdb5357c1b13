"""The kinds of features."""

import operator
from collections.abc import Callable, Iterable, Iterator, Mapping
from typing import Any, Self, Unpack, overload

from tarn.gevserver import (
    BooleanNode,
    CommandNode,
    EnumEntryNode,
    EnumerationNode,
    Float64RegNode,
    FloatNode,
    Int32RegNode,
    Int64RegNode,
    IntegerNode,
    NodeList,
    StringNode,
    StringRegNode,
    ValueNode,
)
from tarn.gevserver.features.declaration import (
    Act,
    Feature,
    NodeOwner,
    Options,
    ValueFeature,
    ValueOptions,
    check_name,
)
from tarn.gevserver.features.tree import Register, RegisterKind, TreeBuilder, set_up

_INT32 = range(-(2**31), 2**31)
_UINT32 = range(2**32)
_INT64 = range(-(2**63), 2**63)


class Integer(ValueFeature[int]):
    """A whole number.

    Parameters
    ----------
    default : int
    min, max : int, optional
        Limits; -2**63 and 2**63 - 1 by default.
    step : int
        A value is `min` plus a multiple of it.
    options
        See `ValueOptions`.
    """

    def __init__(
        self,
        default: int = 0,
        *,
        min: int = _INT64[0],
        max: int = _INT64[-1],
        step: int = 1,
        **options: Unpack[ValueOptions],
    ) -> None:
        first, low, high, increment = map(operator.index, (default, min, max, step))
        if increment < 1:
            raise ValueError(f"the step is {increment}, must be at least 1")
        if low not in _INT64 or high not in _INT64 or first not in range(low, high + 1, increment):
            raise ValueError(f"{first} is not within {low} to {high} in steps of {increment}, of 64 bits")
        self._limits = range(low, high + 1)
        self._step = increment
        self._unsigned = low in _UINT32 and high in _UINT32
        short = self._unsigned or (low in _INT32 and high in _INT32)
        super().__init__(
            first, RegisterKind(Int32RegNode, 4) if short else RegisterKind(Int64RegNode, 8), options
        )

    def _make_over(self, register: Register, tree: TreeBuilder, name_space: int) -> IntegerNode:
        assert isinstance(register, Int32RegNode | Int64RegNode)
        register.is_signed = not self._unsigned
        node = tree.add(IntegerNode.create(self.name, name_space))
        node.value_config_as_node = register
        node.min_config_as_int = self._limits[0]
        node.max_config_as_int = self._limits[-1]
        node.increment_config_as_int = self._step
        return node

    def selects(self) -> range:
        return self._limits


class Float(ValueFeature[float]):
    """A number with a fraction; limits are those of 64 bits by default. `unit` is a text for people."""

    def __init__(
        self,
        default: float = 0.0,
        *,
        min: float | None = None,
        max: float | None = None,
        unit: str = "",
        **options: Unpack[ValueOptions],
    ) -> None:
        if (min is not None and not min <= default) or (max is not None and not default <= max):
            raise ValueError(f"{default} is not within {min} to {max}")
        self._min, self._max, self._unit = min, max, unit
        super().__init__(default, RegisterKind(Float64RegNode, 8), options)

    def _make_over(self, register: Register, tree: TreeBuilder, name_space: int) -> FloatNode:
        node = tree.add(FloatNode.create(self.name, name_space))
        node.value_config_as_node = register
        if self._min is not None:
            node.min_config_as_float = self._min
        if self._max is not None:
            node.max_config_as_float = self._max
        node.unit = self._unit
        return node


class Boolean(ValueFeature[bool]):
    """True or false."""

    def __init__(self, default: bool = False, **options: Unpack[ValueOptions]) -> None:
        super().__init__(default, RegisterKind(Int32RegNode, 4), options)

    def _make_over(self, register: Register, tree: TreeBuilder, name_space: int) -> BooleanNode:
        node = tree.add(BooleanNode.create(self.name, name_space))
        node.value_config_as_node = register
        return node


class String(ValueFeature[str]):
    """A text of at most `length` bytes of UTF-8: a multiple of 4, 4 to 65536."""

    def __init__(self, default: str = "", *, length: int = 64, **options: Unpack[ValueOptions]) -> None:
        if length not in range(4, 65537, 4):
            raise ValueError(f"the length is {length}, must be a multiple of 4, 4 to 65536")
        if len(default.encode()) > length:
            raise ValueError(f"{default!r} has more than {length} bytes")
        super().__init__(default, RegisterKind(StringRegNode, length), options)

    def _make_over(self, register: Register, tree: TreeBuilder, name_space: int) -> StringNode:
        node = tree.add(StringNode.create(self.name, name_space))
        node.value_config_as_node = register
        return node


class Enumeration(ValueFeature[str]):
    """A choice among names.

    Parameters
    ----------
    entries : mapping of str to int, or iterable of str
        Names, with the numbers that stand for them on the wire; counted from 0 by default.
    default : str, optional
        By default the first entry.
    options
        See `ValueOptions`.
    """

    def __init__(
        self,
        entries: Mapping[str, int] | Iterable[str],
        default: str | None = None,
        **options: Unpack[ValueOptions],
    ) -> None:
        self._entries = (
            dict(entries)
            if isinstance(entries, Mapping)
            else {name: value for value, name in enumerate(entries)}
        )
        if not self._entries or len({*self._entries.values()}) < len(self._entries):
            raise ValueError("an enumeration needs entries of different values")
        for name, value in self._entries.items():
            check_name(name)
            if value not in _INT32:
                raise ValueError(f"the value {value} of {name} has more than 32 bits")
        if default is None:
            default = next(iter(self._entries))
        if default not in self._entries:
            raise ValueError(f"{default!r} is none of {', '.join(self._entries)}")
        super().__init__(default, RegisterKind(Int32RegNode, 4), options)

    def _make_over(self, register: Register, tree: TreeBuilder, name_space: int) -> EnumerationNode:
        node = tree.add(EnumerationNode.create(self.name, name_space))
        for name, value in self._entries.items():
            entry = EnumEntryNode.create(name, name_space)
            node.add(entry, NodeList.Child)
            entry.numeric_value = value
        node.value_config_as_node = register
        return node

    def selects(self) -> range:
        return range(min(self._entries.values()), max(self._entries.values()) + 1)


class Command(Feature):
    """A command that clients can execute. On a feature set the attribute is its node."""

    def __init__(self, **options: Unpack[Options]) -> None:
        super().__init__(options)
        self._execute: Callable[[Any], None] | None = None

    @overload
    def __get__(self, features: None, owner: type) -> Self: ...
    @overload
    def __get__(self, features: NodeOwner, owner: type) -> CommandNode: ...
    def __get__(self, features: NodeOwner | None, owner: type) -> Any:
        return self if features is None else features.nodes[self.attribute]

    def __set__(self, features: NodeOwner, value: object) -> None:
        raise AttributeError(f"{self.attribute} is a command and has no value")

    def on_execute(self, hook: Callable[[Any], None]) -> Callable[[Any], None]:
        """Decorate the method that does it. The command is done, for clients, when the method returns."""
        self._only_one(self._execute)
        self._execute = hook
        return hook

    def listeners(self) -> Iterator[tuple[str, Act]]:
        if hook := self._execute:
            yield "written", lambda features, _: hook(features)

    def _make(self, features: NodeOwner, tree: TreeBuilder, name_space: int) -> ValueNode:
        register = tree.register(f"{self.name}Value", RegisterKind(Int32RegNode, 4))
        set_up(register, read_only=False, polling=0)
        node = tree.add(CommandNode.create(self.name, name_space))
        node.value_config_as_node = register
        node.command_config_as_int = 1
        return node

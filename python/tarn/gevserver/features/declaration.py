"""What a feature is to be, declared before there is a server to put it into."""

import itertools
import math
import re
from collections.abc import Callable, Iterator, Mapping, Sequence
from typing import Any, Generic, Protocol, Self, TypedDict, TypeVar, overload

from tarn.gevserver import NameSpace, NodeList, ValueNode
from tarn.gevserver.features.tree import Register, RegisterKind, Selection, TreeBuilder, set_up

Value = TypeVar("Value")


class NodeOwner(Protocol):
    """A feature set, as far as its declarations need one."""

    @property
    def nodes(self) -> Mapping[str, Any]:
        """The nodes that clients see, by the names of the attributes."""


Act = Callable[[Any, Any], None]  # what to do with a feature set and a node of it


class Options(TypedDict, total=False):
    """What every feature can have."""

    name: str  #: that clients see; by default exposure_time becomes ExposureTime
    display_name: str  #: what viewers show instead of the name
    tool_tip: str  #: a few words
    description: str  #: as much as there is to say
    category: str  #: by default that of the class
    standard: bool  #: in the standard name space, for features that have their name from the SFNC


class ValueOptions(Options, total=False):
    """What every feature with a value can have."""

    read_only: bool  #: for clients; the program may set it
    polling: int  #: milliseconds after which viewers read it again; 0 for never
    streamable: bool  #: clients save it with the settings of the camera
    selector: "Selector | tuple[Selector, ...]"  #: there is a value for each of the selectors' values


class Feature:
    """A declaration: what a node is to be, before there is a server to put it into."""

    _options_known = Options.__optional_keys__

    def __init__(self, options: Options) -> None:
        unknown = ", ".join(options.keys() - self._options_known)
        if unknown:
            raise TypeError(f"{type(self).__name__} has no option {unknown}")
        self.options = options
        self.selectors: tuple[Selector, ...] = ()
        self.name = options.get("name", "")

    def __set_name__(self, owner: type, attribute: str) -> None:
        self.attribute = attribute
        self.name = self.name or "".join(word[:1].upper() + word[1:] for word in attribute.split("_"))

    def add_to(self, features: NodeOwner, tree: TreeBuilder, category: str) -> ValueNode:
        """Make the nodes of this feature; return the one that clients see."""
        node = self._make(
            features, tree, NameSpace.Standard if self.options.get("standard") else NameSpace.Custom
        )
        for text in ("display_name", "tool_tip", "description"):
            if text in self.options:
                setattr(node, text, self.options.get(text))
        tree.publish(node, category)
        return node

    def listeners(self) -> Iterator[tuple[str, Act]]:
        """Kinds of events, and what to do with the feature's node then."""
        raise NotImplementedError

    def _make(self, features: NodeOwner, tree: TreeBuilder, name_space: int) -> ValueNode:
        raise NotImplementedError

    def _only_one(self, hook: object) -> None:
        if hook:
            raise TypeError(f"{self.name} has this hook already")


class ValueFeature(Feature, Generic[Value]):
    """A feature with a value; on a feature set the attribute is the value."""

    _options_known = ValueOptions.__optional_keys__

    def __init__(self, default: Value, kind: RegisterKind, options: ValueOptions) -> None:
        super().__init__(options)
        self._default = default
        self._kind = kind
        self._value_options = options
        selector = options.get("selector", ())
        self.selectors = selector if isinstance(selector, tuple) else (selector,)
        kind.check_count(math.prod(each.selects().stop - each.selects().start for each in self.selectors))
        self._read: Callable[[Any], Value] | None = None
        self._written: Callable[[Any, Value], None] | None = None

    @overload
    def __get__(self, features: None, owner: type) -> Self: ...
    @overload
    def __get__(self, features: NodeOwner, owner: type) -> Value: ...
    def __get__(self, features: NodeOwner | None, owner: type) -> Any:
        return self if features is None else self._node_of(features).value

    def __set__(self, features: NodeOwner, value: Value) -> None:
        self._node_of(features).value = value

    def on_read(self, hook: Callable[[Any], Value]) -> Callable[[Any], Value]:
        """Decorate the method that gives the value when a client reads it. It has to keep the limits."""
        self._only_one(self._read)
        self._read = hook
        return hook

    def on_write(self, hook: Callable[[Any, Value], None]) -> Callable[[Any, Value], None]:
        """Decorate the method that is called with the value after a client wrote it."""
        self._only_one(self._written)
        self._written = hook
        return hook

    def listeners(self) -> Iterator[tuple[str, Act]]:
        if read := self._read:
            yield "on_read", lambda features, node: setattr(node, "value", read(features))
        if written := self._written:
            yield "written", lambda features, node: written(features, node.value)

    def _node_of(self, features: NodeOwner) -> Any:
        return features.nodes[self.attribute]

    def _make(self, features: NodeOwner, tree: TreeBuilder, name_space: int) -> ValueNode:
        options = self._value_options
        selections = [selector.selection(features) for selector in self.selectors]
        register = tree.register(f"{self.name}Value", self._kind, selections)
        set_up(register, read_only=options.get("read_only", False), polling=options.get("polling", 0))
        node = self._make_over(register, tree, name_space)
        node.is_streamable = options.get("streamable", False)
        for selection in selections:
            selection.feature.add(node, NodeList.Selected)
        self._set_defaults(node, selections)
        return node

    def _make_over(self, register: Register, tree: TreeBuilder, name_space: int) -> ValueNode:
        """The node that clients see, over the register with its value."""
        raise NotImplementedError

    def _set_defaults(self, node: Any, selections: Sequence[Selection]) -> None:
        """The same for all values of the selectors, which are as before in the end."""
        registers = [selection.register for selection in selections]
        present = tuple(register.value for register in registers)
        for values in (*itertools.product(*(selection.values for selection in selections)), present):
            for register, value in zip(registers, values, strict=True):
                register.value = value
            node.value = self._default

    def selection(self, features: NodeOwner) -> Selection:
        """This feature as the selector of others, after its own nodes were made."""
        node = self._node_of(features)
        return Selection(node, node.value_config_as_node, self.selects())

    def selects(self) -> range:
        """From the smallest to the largest value by which this feature can select."""
        raise TypeError("only integers and enumerations select")


Selector = ValueFeature[int] | ValueFeature[str]


def check_name(name: str) -> None:
    """Raises ValueError for what clients take for no name."""
    if not re.fullmatch("[A-Za-z][0-9A-Za-z_]*", name):
        raise ValueError(f"{name!r} is no name for clients: a letter, then letters, digits, '_'")

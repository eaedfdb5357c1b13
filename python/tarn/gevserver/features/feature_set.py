"""A feature set: declared features on a server, with their values and hooks."""

import weakref
from collections.abc import Callable, Mapping
from types import MappingProxyType, TracebackType
from typing import Any, Self

from tarn.gevserver import Server, ValueNode
from tarn.gevserver.features.declaration import Act, Feature, check_name
from tarn.gevserver.features.tree import TreeBuilder

_OWN_ATTRIBUTES = frozenset({"close", "nodes", "server"})


class FeatureSet:
    """Base of the classes that declare features.

    Parameters
    ----------
    server : tarn.gevserver.Server
        In its configuration state. The set keeps it alive, not the other way round.

    Raises
    ------
    ValueError
        The camera has a feature of that name; nothing was added then.
    RuntimeError
        The server is not in its configuration state.

    Notes
    -----
    ``class Lamp(FeatureSet, category="Light")`` names the category of the features, which is called like the
    class else. Features of base classes come first. Attributes may be used from any thread.
    """

    _category = ""

    def __init_subclass__(cls, *, category: str = "", **rest: object) -> None:
        super().__init_subclass__(**rest)
        cls._category = category or cls.__name__
        for attribute, value in vars(cls).items():
            if isinstance(value, Feature):
                if attribute in _OWN_ATTRIBUTES:
                    raise TypeError(
                        f"{cls.__name__}.{attribute} is not free; use another and name={value.name!r}"
                    )
                check_name(value.name)

    def __init__(self, server: Server) -> None:
        self.server = server
        self._nodes: dict[str, ValueNode] = {}
        registrations: list[Callable[[], None]] = []
        self._unregister = weakref.finalize(self, _end_all, registrations)
        self._unregister.atexit = False
        declared = self._declared()
        tree = TreeBuilder(server.node_map)
        _check(declared, tree)
        for feature, category in declared:
            node = feature.add_to(self, tree, category)
            self._nodes[feature.attribute] = node
            for event, act in feature.listeners():
                registrations.append(_listen(node, event, _while_alive(self, act)))

    @classmethod
    def _declared(cls) -> list[tuple[Feature, str]]:
        """Features with their categories, those of the bases first, without what a derived class replaced."""
        found: dict[str, tuple[Feature, str]] = {}
        for base in reversed(cls.__mro__):
            for attribute, value in vars(base).items():
                if isinstance(value, Feature) and issubclass(base, FeatureSet):
                    found[attribute] = value, value.options.get("category", base._category)
                else:
                    found.pop(attribute, None)
        return list(found.values())

    @property
    def nodes(self) -> Mapping[str, Any]:
        """The nodes that clients see, by the names of the attributes; each of the type for its kind."""
        return MappingProxyType(self._nodes)

    def close(self) -> None:
        """Unregister the hooks; one that runs meanwhile may still be at work. Comes twice without harm."""
        self._unregister()

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()


def _check(declared: list[tuple[Feature, str]], tree: TreeBuilder) -> None:
    """Raises ValueError before anything was added to a tree that cannot take these features."""
    earlier: set[Feature] = set()
    names: set[str] = set()
    for feature, _ in declared:
        if not earlier.issuperset(feature.selectors):
            raise ValueError(f"a selector of {feature.name} is no earlier feature of the same set")
        for name in (feature.name, f"{feature.name}Value"):
            if name in names or tree.has(name):
                raise ValueError(f"the camera has a node named {name} already")
            names.add(name)
        earlier.add(feature)
    for _, category in declared:
        if category in names or not tree.can_be_category(category):
            raise ValueError(f"the category {category} has the name of something else")


def _while_alive(features: FeatureSet, act: Act) -> Callable[[Any], None]:
    """A listener that does not keep the feature set, and with it the server, alive."""
    owner = weakref.ref(features)

    def listener(node: Any) -> None:
        living = owner()
        if living is not None:
            act(living, node)

    return listener


def _listen(node: ValueNode, event: str, listener: Callable[[Any], None]) -> Callable[[], None]:
    """Register a listener; return what unregisters it."""
    cookie = getattr(node, f"register_event_{event}_updated")(listener)
    return lambda: getattr(node, f"unregister_event_{event}_updated")(cookie)


def _end_all(registrations: list[Callable[[], None]]) -> None:
    while registrations:
        registrations.pop()()

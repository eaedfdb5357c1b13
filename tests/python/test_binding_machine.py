"""Whatever Python code hands to the binding, the process goes on and node maps agree with themselves.

Random calls of all that the server module offers, with arguments that lie, die, raise and call back.
"""

import contextlib
import gc
import inspect
import sys
import weakref
from collections.abc import Callable
from typing import Any
from unittest.mock import Mock

import numpy as np
import pytest
from hypothesis import HealthCheck, settings
from hypothesis import strategies as st
from hypothesis.stateful import RuleBasedStateMachine, initialize, invariant, rule, run_state_machine_as_test

import tarn
from tarn import gevserver
from tarn.gevserver import NodeMap, Server


class HostileError(Exception):
    """What hostile objects raise beside the kinds that failures have."""


#: What a call may raise: the kinds that failures have, and what the interpreter itself says of a wrong use.
FAILURES: tuple[type[Exception], ...] = (ValueError, RuntimeError, LookupError, OverflowError, MemoryError)
FAILURES += (TypeError, AttributeError, BufferError, HostileError)
VALUES = [tarn.Size2D, tarn.Point2D, tarn.DataType, tarn.GenApiVersion, tarn.NetworkConnection, tarn.Image]
KINDS = [*(getattr(gevserver, name) for name in gevserver.__all__), *VALUES]
NODE_KINDS = [kind for kind in KINDS if hasattr(kind, "create")]
NAMES = ["Gain", "Lamp", "Color", "Red", "Width", "AcquisitionMode", "Root"]
NAMES += ["Std::Height", "Priv::A", "Ba\x00r", "é", ""]
SPECIAL = [f"__{name}__" for name in ("getitem", "getattribute", "eq", "hash", "repr", "iter", "init", "str")]


class Hostile:
    """An argument whose every conversion does something else first, then raises or gives something odd."""

    def __init__(self, act: Callable[[], object], answer: Any) -> None:
        self._act, self._answer = act, answer

    def _convert(self, *_: object) -> Any:
        with contextlib.suppress(Exception):
            self._act()
        if isinstance(self._answer, Exception):
            raise self._answer
        return self._answer

    __int__ = __index__ = __float__ = __str__ = __bool__ = __len__ = __call__ = __del__ = _convert
    __eq__ = __lt__ = __buffer__ = __iter__ = __getitem__ = _convert
    __hash__ = object.__hash__


class Liar:
    """Claims to be an instance of another type."""

    def __init__(self, kind: type) -> None:
        self._kind = kind

    def __getattribute__(self, name: str) -> Any:
        return object.__getattribute__(self, "_kind" if name == "__class__" else name)


def new_server() -> Server:
    return Server.create_with_const_size_pfnc(tarn.Size2D(8, 8), tarn.PfncFormat.Mono8)


class BindingMachine(RuleBasedStateMachine):
    """A pool of objects that call each other at random. Whatever happens, the interpreter goes on."""

    def __init__(self) -> None:
        super().__init__()
        # Collections happen where a rule says so: a run is to be the same when it is repeated.
        gc.collect()
        gc.disable()
        self.pool: list[Any] = []
        self.servers: list[Server] = []

    @initialize()
    def begin(self) -> None:
        self.add_server(True)

    @rule(streaming=st.booleans())
    def add_server(self, streaming: bool) -> None:
        server = new_server() if streaming else Server.create_non_streaming()
        self.servers.append(server)
        map_ = server.node_map
        self.pool += [server, map_, server.stream, map_.DeviceUserID, map_.Root]
        self.pool += [tarn.Image((8, 8)), tarn.WrappedImage.from_buffer(np.zeros((8, 8), np.uint8))]
        self.pool += [tarn.Size2D(8, 8), tarn.Point2D(1, 1), tarn.DataType(8), tarn.GenApiVersion(1, 2, 3)]

    @rule(data=st.data())
    def add_node(self, data: st.DataObject) -> None:
        """A node of any kind, in a map, in a category, in an enumeration, or free."""
        kind, name = data.draw(st.sampled_from(NODE_KINDS)), data.draw(st.sampled_from(NAMES))
        with contextlib.suppress(*FAILURES):
            node = kind.create(name, length=8) if kind is gevserver.StringRegNode else kind.create(name)
            self.pool.append(node)
            parent = self._object(data)
            if isinstance(parent, NodeMap):
                parent.add_node(node)
            elif isinstance(parent, gevserver.Node):
                parent.add(node, data.draw(st.integers(-1, 4)))

    @rule(data=st.data())
    def call(self, data: st.DataObject) -> None:
        """A method or an operator, of the object's own type or of another one."""
        target = self._object(data)
        owner = data.draw(st.sampled_from([type(target), *KINDS]))
        # Starting would leave the process with more than a run can clean up.
        offered = [name for name in dir(owner) if not name.startswith("_") and name != "start"]
        name = data.draw(st.sampled_from([*offered, *SPECIAL]))
        arguments = [self._argument(data) for _ in range(data.draw(st.integers(0, 4)))]
        with contextlib.suppress(*FAILURES):
            called = getattr(target if owner is type(target) else owner, name)
            self.pool.append(called(*arguments) if callable(called) else called)
            del self.pool[:-60]

    @rule(data=st.data())
    def assign(self, data: st.DataObject) -> None:
        target = self._object(data)
        settable = [name for name, _ in inspect.getmembers(type(target), inspect.isdatadescriptor)]
        settable = [name for name in settable if name != "__class__"]
        if settable:
            with contextlib.suppress(*FAILURES):
                setattr(target, data.draw(st.sampled_from(settable)), self._argument(data))

    @rule(data=st.data())
    def listen(self, data: st.DataObject) -> None:
        """Register something that holds, and when it goes touches, other objects."""
        target = self._object(data)
        if isinstance(target, gevserver.ValueNode):
            with contextlib.suppress(*FAILURES):
                self.pool.append(target.register_event_updated(self._hostile(data)))

    @rule(data=st.data())
    def drop(self, data: st.DataObject) -> None:
        """Forget an object, often the last one that holds it, or a server with all its children."""
        if data.draw(st.booleans()) and self.servers:
            server = self.servers.pop(data.draw(st.integers(0, len(self.servers) - 1)))
            self.pool = [each for each in self.pool if each is not server]
        elif self.pool:
            self.pool.pop(data.draw(st.integers(0, len(self.pool) - 1)))

    @rule()
    def collect(self) -> None:
        gc.collect()

    @invariant()
    def maps_agree_with_themselves(self) -> None:
        """Every name that a living server's map lists can be looked up, and means the node that is listed."""
        for server in self.servers[-1:]:
            map_ = server.node_map
            for name, node in map_.nodes.items():
                assert map_.try_get_node(name) is node, name
                assert node.node_map is map_

    def teardown(self) -> None:
        self.pool.clear()
        self.servers.clear()
        gc.enable()
        gc.collect()

    def _object(self, data: st.DataObject) -> Any:
        return data.draw(st.sampled_from(self.pool)) if self.pool else None

    def _hostile(self, data: st.DataObject) -> Hostile:
        """Weakly: a listener that holds its server keeps it for good, which is no fault to look for here."""
        try:
            victim: Any = weakref.ref(self._object(data))
        except TypeError:
            victim = lambda: None  # noqa: E731
        acts: list[Callable[[], object]] = [
            gc.collect,
            self.servers.clear,
            self.pool.clear,
            lambda: victim().nodes,
            lambda: victim().remove_node("Gain"),
            lambda: victim().entries,
            lambda: victim().node_map.Width,
            lambda: victim().stop(),
        ]
        answers = [7, 2.5, "Width", True, None, ValueError("hostile"), HostileError("hostile"), 2**80, b"x"]
        return Hostile(data.draw(st.sampled_from(acts)), data.draw(st.sampled_from(answers)))

    def _argument(self, data: st.DataObject) -> Any:
        plain: list[Any] = [None, 0, 1, -1, 2**31, 2**63, 2**70, 2.5, float("nan"), 1e300, True, b"", [], {}]
        kind = data.draw(st.integers(0, 8))
        if kind <= 2:
            return self._object(data)
        if kind == 3:
            return data.draw(st.sampled_from(NAMES))
        if kind == 4:
            return self._hostile(data)
        if kind == 5:
            with contextlib.suppress(TypeError):
                return weakref.proxy(self._object(data))
        if kind in (6, 7):
            pretend = Liar if kind == 6 else lambda real: Mock(spec=real)
            return pretend(data.draw(st.sampled_from(KINDS)))
        return data.draw(st.sampled_from(plain))


@pytest.fixture(autouse=True)
def nothing_left_behind() -> None:
    """Not here: what is registered at random may hold its own server, which then stays, as documented."""


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")  # of hostile objects that go
def test_random_calls_with_hostile_arguments(
    request: pytest.FixtureRequest, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(sys, "unraisablehook", lambda error: None)
    runs = request.config.getoption("--binding-runs")
    checks = list(HealthCheck)
    options = settings(max_examples=runs, stateful_step_count=40, deadline=None, suppress_health_check=checks)
    run_state_machine_as_test(BindingMachine, settings=options)


def test_what_only_looks_like_one_of_ours_is_refused() -> None:
    """By its real type, before its memory is read: as an argument, in a comparison, in a slot."""
    server = new_server()
    tree, width = server.node_map, server.node_map.Width
    size, image = tarn.Size2D(1, 2), tarn.Image((8, 8))
    takers: list[tuple[object, Callable[[Any], object]]] = [
        (size, tarn.Image),
        (size, tarn.Size2D.__iter__),
        (tarn.DataType(8), tarn.DataType.__hash__),
        (tarn.GenApiVersion(1), lambda fake: setattr(tree, "xml_file_version", fake)),
        (width.register_event_updated(print), width.unregister_event_updated),
        (image, lambda fake: server.stream.try_send(fake, print)),
        (image, tarn.Image.__repr__),
        (width, tree.add_node),
        (width, lambda fake: setattr(width, "alias_node", fake)),
        (tree, lambda fake: NodeMap.__getitem__(fake, "Width")),
        (tree, lambda fake: NodeMap.__getattribute__(fake, "Width")),
        (gevserver.State, lambda fake: type(vars(gevserver.State)["Connected"]).__get__(fake, None)),
    ]
    for real, take in takers:
        for fake in (weakref.proxy(real), Mock(spec=real), Liar(type(real))):
            with pytest.raises((ValueError, TypeError)):
                take(fake)
    assert size == weakref.proxy(size)  # proxies compare what they stand for
    fakes: list[Any] = [Mock(spec=size), Liar(tarn.Size2D)]
    assert all(size != fake for fake in fakes)

"""Nodes of a started camera: clients read and write them, listeners hear of it."""

import functools
import gc
from collections.abc import Callable
from typing import Any

import pytest

import tarn
from conftest import MakeCamera
from features import Features
from gvcp_client import GvcpError
from node_trees import constant, publish, put
from tarn.gevserver import (
    BooleanNode,
    CommandNode,
    EnumEntryNode,
    EnumerationNode,
    Float64RegNode,
    Int32RegNode,
    IntegerNode,
    IntSwissKnifeNode,
    Node,
    NodeList,
    NodeMap,
    StringRegNode,
)


@pytest.fixture
def power(make_camera: MakeCamera) -> Any:
    """A camera with a feature over a register, started."""
    camera: Any = make_camera(start=False)
    node_map = camera.server.node_map
    feature, register = put(node_map, IntegerNode.create("Power"), Int32RegNode.create("PowerValue"))
    feature.value_config_as_node = register
    publish(node_map, feature)
    camera.server.start(camera.address)
    camera.feature, camera.register = feature, register
    return camera


class Heard:
    """Makes listeners that take notes: their name and the node."""

    def __init__(self) -> None:
        self.calls: list[tuple[str, object]] = []

    def __call__(self, name: str) -> Callable[[Node], None]:
        return lambda node: self.calls.append((name, node))


def test_listeners_hear_clients(power: Any) -> None:
    heard = Heard()
    for node in (power.feature, power.register):
        node.register_event_written_updated(heard("written"))
        node.register_event_updated(heard("updated"))
        node.register_event_on_read_updated(handler=heard("read"))
    with power.client() as client:
        features = Features(client)
        client.connect()
        heard.calls.clear()
        features.write("Power", 321)
        written = list(heard.calls)
        assert power.feature.value == power.register.value == 321
        heard.calls.clear()
        assert features.read("Power") == 321
        read = list(heard.calls)
    for node in (power.feature, power.register):
        assert [name for name, heard_node in written if heard_node is node] == ["written", "updated"]
        assert [name for name, heard_node in read if heard_node is node] == ["read"]
    assert len(written) == 4
    assert len(read) == 2


def test_a_read_sees_what_its_listener_sets(power: Any) -> None:
    counter = iter(range(100, 200))

    def refresh(node: Any) -> None:
        node.value = next(counter)

    power.feature.register_event_on_read_updated(refresh)
    with power.client() as client:
        features = Features(client)
        assert [features.read("Power") for _ in range(3)] == [100, 101, 102]


def test_unregistering(power: Any) -> None:
    heard = Heard()
    node = power.feature
    cookies = [node.register_event_written_updated(heard(str(number))) for number in range(3)]
    assert all(isinstance(cookie, tarn.EventCookie) for cookie in cookies)
    assert len({*cookies, *cookies}) == 3
    assert cookies[0] == cookies[0] != cookies[1]
    node.unregister_event_written_updated(cookies[1])

    def only_once(_node: Any) -> None:
        heard.calls.append(("once", _node))
        node.unregister_event_written_updated(event_cookie=own)

    own = node.register_event_written_updated(only_once)
    with power.client() as client:
        features = Features(client)
        client.connect()
        for value in (1, 2):
            features.write("Power", value)
    assert [name for name, _ in heard.calls] == ["0", "2", "once", "0", "2"]
    gone = pytest.raises(RuntimeError, match=r"^no such callable for this id$")
    for cookie in (cookies[1], own):
        with gone:
            node.unregister_event_written_updated(cookie)
    with gone:  # another event's registration
        node.unregister_event_on_read_updated(cookies[0])
    with pytest.raises(RuntimeError, match=r"^callable object required$"):
        node.register_event_updated(5)
    with pytest.raises(ValueError, match=r"cannot convert object to tarn\.EventCookie$"):
        node.unregister_event_updated(5)


def test_listeners_of_dropped_wrappers_go_on(make_camera: MakeCamera) -> None:
    """A wrapper with listeners that nobody else holds is kept by its map, from when it is in one."""
    camera = make_camera(start=False)
    node_map = camera.server.node_map
    heard = Heard()
    early = Int32RegNode.create("Early")
    early.register_event_updated(heard("early"))
    node_map.Root.add(early, NodeList.Child)
    del early
    publish(node_map, *put(node_map, Int32RegNode.create("Late")))
    gc.collect()
    node_map.Late.register_event_updated(heard("late"))
    gc.collect()
    camera.server.start(camera.address)
    with camera.client() as client:
        features = Features(client)
        client.connect()
        features.write("Early", 3)
        features.write("Late", 4)
    assert heard.calls == [("early", node_map.Early), ("late", node_map.Late)]


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
def test_a_failing_listener_harms_nobody(power: Any) -> None:
    heard = Heard()

    def fail(node: Any) -> None:
        raise ValueError("not today")

    for listener in (fail, heard("after")):
        power.feature.register_event_written_updated(listener)
        power.feature.register_event_on_read_updated(listener)
    with power.client() as client:
        features = Features(client)
        client.connect()
        features.write("Power", 8)
        assert features.read("Power") == 8
    assert [name for name, _ in heard.calls] == ["after", "after"]


def test_python_values_reach_clients(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    node_map = camera.server.node_map
    gain, gain_value = put(node_map, IntegerNode.create("Level"), Int32RegNode.create("LevelValue"))
    label = StringRegNode.create("Label", 16)
    ratio = Float64RegNode.create("Ratio")
    put(node_map, label, ratio)
    gain.value_config_as_node = gain_value
    publish(node_map, gain, label, ratio)
    camera.server.start(camera.address)
    gain.value, label.value, ratio.value = -2, "lamp", 0.5
    with camera.client() as client:
        features = Features(client)
        assert features.read("Level") == 2**32 - 2
        assert client.read_memory(*features.register("Label")) == b"lamp".ljust(16, b"\0")
        data = client.read_memory(*features.register("Ratio"))
        assert data in (bytes.fromhex("3fe0000000000000"), bytes.fromhex("000000000000e03f"))


def test_clients_are_refused_as_configured(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    node_map = camera.server.node_map
    lock = constant(node_map, "Lock", 1)
    read_only, locked = put(node_map, Int32RegNode.create("Fixed"), Int32RegNode.create("Locked"))
    read_only.access_mode = tarn.AccessMode.ReadOnly
    locked.is_locked_config = lock
    publish(node_map, read_only, locked)
    camera.server.start(camera.address)
    with camera.client() as client:
        features = Features(client)
        client.connect()
        for name in ("Fixed", "Locked"):
            with pytest.raises(GvcpError):
                features.write(name, 5)
        lock.value = 0
        features.write("Locked", 6)
    assert (read_only.value, locked.value) == (0, 6)


def test_commands_and_enumerations_of_clients(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    node_map = camera.server.node_map
    fire, fire_value = put(node_map, CommandNode.create("Fire"), Int32RegNode.create("FireValue"))
    fire.value_config_as_node, fire.command_config_as_int = fire_value, 77
    mode, mode_value = put(node_map, EnumerationNode.create("Mode"), Int32RegNode.create("ModeValue"))
    mode.value_config_as_node = mode_value
    for number, name in enumerate(("Dark", "Bright")):
        entry = EnumEntryNode.create(name)
        entry.numeric_value = number
        mode.add(entry, NodeList.Child)
    publish(node_map, fire, mode)
    camera.server.start(camera.address)
    fired = []
    fire.register_event_written_updated(lambda node: fired.append((node, fire_value.value, node.is_done)))
    with camera.client() as client:
        features = Features(client)
        client.connect()
        features.execute("Fire")
        features.write("Mode", 1)
    assert fired == [(fire, 77, False)]  # done as soon as its listeners have run
    assert fire.is_done
    assert (mode.value, mode.numeric_value) == ("Bright", 1)


def descriptions(node_map: NodeMap) -> Any:
    """Calls that change the description of a node."""
    integer, boolean, knife, register = node_map.Number, node_map.Switch, node_map.Knife, node_map.Reg
    entry, command, text = node_map.Entry, node_map.Fire, node_map.Text
    settings = [
        (integer, "tool_tip", "tip"),
        (integer, "display_name", "name"),
        (integer, "description", "long"),
        (integer, "imposed_access_mode", 2),
        (integer, "is_locked_config", register),
        (integer, "alias_node", register),
        (integer, "is_streamable", True),
        (integer, "representation", 1),
        (integer, "max_config_as_int", 5),
        (integer, "value_config_as_node", register),
        (boolean, "on_value", 5),
        (command, "command_config_as_int", 5),
        (entry, "numeric_value", 5),
        (entry, "symbolic_value", "Other"),
        (knife, "formula", "2"),
        (register, "access_mode", 2),
        (register, "cache_mode", 2),
        (register, "polling_time", 5),
        (register, "is_signed", False),
        (text, "cache_mode", 1),
    ]
    calls: list[Callable[[], object]] = [functools.partial(setattr, *row) for row in settings]
    calls += [
        lambda: integer.add(text, NodeList.Selected),
        lambda: node_map.Root.remove(integer, NodeList.Child),
        lambda: node_map.Root.add(IntegerNode.create("Late"), NodeList.Child),
    ]
    return calls


def test_descriptions_are_fixed_while_started(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    server = camera.server
    node_map = server.node_map
    integer, boolean, choice, command, knife, _, _ = put(
        node_map,
        IntegerNode.create("Number"),
        BooleanNode.create("Switch"),
        EnumerationNode.create("Choice"),
        CommandNode.create("Fire"),
        IntSwissKnifeNode.create("Knife"),
        Int32RegNode.create("Reg"),
        StringRegNode.create("Text", 8),
    )
    choice.add(EnumEntryNode.create("Entry"), NodeList.Child)
    knife.formula = "1"
    publish(node_map, integer)
    calls = descriptions(node_map)
    server.start(camera.address)
    for number, call in enumerate(calls):
        with pytest.raises(RuntimeError, match="only while the server is not started"):
            pytest.fail(f"call {number} was not refused: {call()}")
    assert node_map.try_get_node("Late") is None
    integer.value, node_map.Reg.value, node_map.Text.value, boolean.value = 9, 8, "seven", True
    choice.value = "Entry"
    command.execute()
    assert (integer.value, node_map.Reg.value, node_map.Text.value) == (9, 8, "seven")
    server.stop()
    for call in calls:
        call()

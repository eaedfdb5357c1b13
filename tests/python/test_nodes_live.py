"""Nodes of a started camera: listeners hear clients, and descriptions are fixed."""

import functools
import inspect
from collections.abc import Callable, Iterator
from typing import Any

import pytest

import tarn
from conftest import MakeCamera
from features import Features
from node_trees import MISMATCH, new, publish, put, refused
from tarn import gevserver as gev
from tarn.gevserver import NodeList


@pytest.fixture
def power(make_camera: MakeCamera) -> Any:
    """A camera with a feature over a register and a command, started."""
    camera: Any = make_camera(start=False)
    node_map = camera.server.node_map
    feature, register = new(node_map, Power=gev.IntegerNode, PowerValue=gev.Int32RegNode)
    fire, fire_value = new(node_map, Fire=gev.CommandNode, FireValue=gev.Int32RegNode)
    feature.value_config_as_node, fire.value_config_as_node = register, fire_value
    fire.command_config_as_int = 77
    publish(node_map, feature, fire)
    camera.server.start(camera.address)
    camera.feature, camera.register, camera.fire, camera.heard = feature, register, fire, []
    return camera


def noting(heard: list[Any], what: str) -> Callable[[Any], None]:
    """A listener that takes notes."""
    return lambda node: heard.append((what, node, node.value if hasattr(node, "value") else node.is_done))


def test_listeners_hear_clients(power: Any) -> None:
    feature, register, fire, heard = power.feature, power.register, power.fire, power.heard
    for node in (feature, register):
        node.register_event_written_updated(noting(heard, "written"))
        node.register_event_updated(noting(heard, "updated"))
        node.register_event_on_read_updated(handler=noting(heard, "read"))
    fire.register_event_written_updated(noting(heard, "fired"))
    with power.client() as client:
        client.connect()
        features = Features(client)
        features.write("Power", 321)
        for node in (feature, register):
            assert [row for row in heard if row[1] is node] == [
                ("written", node, 321),
                ("updated", node, 321),
            ]
        heard.clear()
        assert features.read("Power") == 321
        assert len(heard) == 2 and {("read", feature, 321), ("read", register, 321)} == set(heard)
        heard.clear()
        features.execute("Fire")
        assert heard == [("fired", fire, False)]  # done as soon as its listeners have run
        assert fire.is_done
        counter = iter(range(100, 200))
        feature.register_event_on_read_updated(lambda node: setattr(node, "value", next(counter)))
        assert [features.read("Power") for _ in range(3)] == [100, 101, 102]


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
def test_listeners_go_when_they_are_unregistered_and_harm_nobody(power: Any) -> None:
    node, heard = power.feature, power.heard

    def only_once(_: Any) -> None:
        heard.append(("once", 0, 0))
        for cookie in (own, next_one):  # whose turn would be in this call
            node.unregister_event_written_updated(event_cookie=cookie)
        raise ValueError("not today")

    cookies = [node.register_event_written_updated(noting(heard, str(number))) for number in range(2)]
    own = node.register_event_written_updated(only_once)
    next_one = node.register_event_written_updated(noting(heard, "never"))
    cookies += [own, node.register_event_written_updated(noting(heard, "last"))]
    assert all(isinstance(cookie, tarn.EventCookie) for cookie in cookies) and len({*cookies, *cookies}) == 4
    node.unregister_event_written_updated(cookies[1])
    with power.client() as client:
        client.connect()
        features = Features(client)
        for value in (1, 2):
            features.write("Power", value)
    assert [what for what, *_ in heard] == ["0", "once", "last", "0", "last"]
    gone = "no such callable for this id"
    for unregister, cookie in (
        (node.unregister_event_written_updated, cookies[1]),
        (node.unregister_event_written_updated, own),
        (node.unregister_event_on_read_updated, cookies[0]),  # another event's registration
        (node.unregister_event_updated, cookies[0]),
    ):
        refused(RuntimeError, gone, unregister, cookie)
    refused(RuntimeError, "callable object required", node.register_event_updated, 5)
    refused(ValueError, MISMATCH + "tarn.EventCookie", node.unregister_event_updated, 5)


def settings(node: Any, link: Any) -> Iterator[tuple[str, Any]]:
    """What describes the node, with a value for each that could be set: its own, where it has one."""
    for name, member in inspect.getmembers(type(node), inspect.isgetsetdescriptor):
        if not (name.startswith("_") or name in ("value", "is_streamable") or "@ro " in str(member.__doc__)):
            missing = {None: 2 if name == "imposed_access_mode" else link, "": "1"}
            present = getattr(node, name)
            yield name, missing.get(present, present)


def test_descriptions_are_fixed_while_started(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    node_map: Any = camera.server.node_map
    register, ratio = new(node_map, Reg=gev.Int32RegNode, Ratio=gev.Float32RegNode)
    (text,) = put(node_map, gev.StringRegNode.create("Text", 8))
    links = {gev.FloatNode: ratio, gev.StringNode: text, gev.StringRegNode: text}
    kinds = [gev.IntegerNode, gev.BooleanNode, gev.CommandNode, gev.EnumerationNode, gev.IntSwissKnifeNode]
    nodes = new(node_map, **{f"My{kind.__name__}": kind for kind in (*kinds, gev.FloatNode, gev.StringNode)})
    number, switch, command, choice, knife, *_ = nodes
    entry, late = gev.EnumEntryNode.create("Entry"), gev.IntegerNode.create("Late")
    choice.add(entry, NodeList.Child)
    knife.formula = "1"
    publish(node_map, number)
    calls: list[Callable[[], object]] = [
        lambda: number.add(switch, NodeList.Selected),
        lambda: node_map.Root.remove(number, NodeList.Child),
        lambda: node_map.Root.add(late, NodeList.Child),
        lambda: node_map.add_node(late),
        lambda: node_map.remove_node(number),
    ]
    for node in (*nodes, register, ratio, text, entry):
        for name, value in settings(node, links.get(type(node), register)):
            calls.append(functools.partial(setattr, node, name, value))
    camera.server.start(camera.address)
    assert len(calls) > 100
    for call in calls:
        with pytest.raises(RuntimeError, match="only while the server is not started"):
            pytest.fail(f"not refused: {call}, {call()}")
    assert (late.node_map, number.tool_tip, number.is_feature) == (None, "", True)
    number.value, register.value, text.value, switch.value, choice.value = 9, 8, "seven", True, "Entry"
    command.execute()
    assert (number.value, register.value, text.value, choice.value) == (9, 8, "seven", "Entry")

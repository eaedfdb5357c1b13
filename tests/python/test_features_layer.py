"""Features declared as attributes: what clients see of them, hooks, selectors, and who keeps what alive."""

import gc
import itertools
import json
import pathlib
import re
import struct
import subprocess
import sys
import weakref
from collections.abc import Iterator
from typing import Any, cast

import pytest

from conftest import Camera, MakeCamera, free_address, live_handles, wait_until
from features import Features, description
from genapi_peer import check_agreement, check_schema, in_control, told_by_python
from gvcp_client import WRITEREG, GvcpError, command
from tarn.gevserver import IntegerNode, Server
from tarn.gevserver.features import Boolean, Command, Enumeration, FeatureSet, Float, Integer, String

ARAVIS = pathlib.Path(__file__).with_name("aravis_features.py")


class Lights(FeatureSet):
    """One feature of each kind, two of them for each lamp."""

    lamp = Integer(0, min=0, max=3)
    level = Integer(50, min=0, max=100, step=5, selector=lamp, tool_tip="How bright")
    mode = Enumeration({"Steady": 1, "Flash": 4}, default="Flash", streamable=True)
    on = Boolean(selector=(lamp, mode))
    pulse_length = Float(2.5, min=0.5, max=9.5, unit="us", display_name="Length of a pulse", standard=True)
    owner = String("nobody", length=16, selector=mode, category="DeviceControl")
    count = Integer(2**40, read_only=True)
    temperature = Float(read_only=True, polling=500)
    fire = Command(description="One flash of all lamps")

    def __init__(self, server: Server) -> None:
        super().__init__(server)
        self.heard: list[object] = []

    @temperature.on_read
    def measure(self) -> float:
        return 20.0 + len(self.heard)

    @level.on_write
    def dim(self, level: int) -> None:
        self.heard.append((self.lamp, level))

    @mode.on_write
    def choose(self, mode: str) -> None:
        self.heard.append(mode)

    @fire.on_execute
    def flash(self) -> None:
        self.heard.append("fire")
        self.count += 1


@pytest.fixture
def camera(make_camera: MakeCamera) -> Camera:
    return make_camera(start=False)


@pytest.fixture
def lights(camera: Camera) -> Iterator[Any]:
    lights = Lights(camera.server)
    camera.server.start(camera.address)
    yield lights
    lights.close()
    vars(lights).clear()  # what a fixture gave is kept until all of them are torn down


@pytest.fixture
def peer(camera: Camera, lights: Any) -> Iterator[Any]:
    """The reference library in control of the lights."""
    with in_control(camera) as nodes:
        yield nodes


def test_clients_see_what_was_declared(
    camera: Camera, lights: Any, peer: Any, tmp_path: pathlib.Path
) -> None:
    check_agreement(peer, camera.server.node_map)
    with camera.client() as client:
        check_schema(description(client), tmp_path)
    level, pulse, fire = peer.Level, peer.PulseLength, peer.Fire.node
    assert (level.value, level.min, level.max, level.inc, level.node.tooltip) == (50, 0, 100, 5, "How bright")
    assert (pulse.value, pulse.min, pulse.max, pulse.unit) == (2.5, 0.5, 9.5, "us")
    assert (pulse.node.display_name, pulse.node.name_space) == ("Length of a pulse", 1)
    assert (fire.description, fire.name_space) == ("One flash of all lamps", 0)
    assert (peer.Mode.value, peer.Mode.get_int_value(), peer.Mode.node.is_streamable()) == ("Flash", 4, True)
    assert (peer.Count.value, peer.get_node("TemperatureValue").node.polling_time) == (2**40, 500)
    names = [feature.node.name for feature in peer.Lights.features]
    assert names == ["Lamp", "Level", "Mode", "On", "PulseLength", "Count", "Temperature", "Fire"]
    assert "Owner" in [feature.node.name for feature in peer.DeviceControl.features]


def test_values_move_both_ways_and_hooks_hear_clients_only(lights: Any, peer: Any) -> None:
    tree = lights.server.node_map
    assert (lights.nodes["level"], lights.fire) == (tree.Level, tree.Fire)
    lights.level, lights.mode, lights.pulse_length = 30, "Steady", 4.5
    with pytest.raises(ValueError, match="32 is not 0 plus a multiple of 5"):
        lights.level = 32
    assert (peer.Level.value, peer.Mode.value, peer.PulseLength.value) == (30, "Steady", 4.5)
    assert lights.heard == []
    peer.Level.value, peer.Mode.value = 35, "Flash"
    assert peer.Temperature.value == 22.0
    peer.Fire.execute()
    assert lights.heard == [(0, 35), "Flash", "fire"]
    assert (lights.level, lights.mode, lights.temperature) == (35, "Flash", 22.0)
    assert peer.Count.value == 2**40 + 1 and peer.Fire.is_done()
    with lights as same:
        assert same is lights
    lights.close()
    peer.Level.value = 45
    assert len(lights.heard) == 3 and lights.level == 45


def test_a_selector_gives_each_of_its_values_its_own(lights: Any, peer: Any) -> None:
    """At places that no other feature's register shares, which is seen by moving the selectors."""
    registers = [feature.value_config_as_node for feature in lights.nodes.values()]
    spans = set()
    for lamp, mode in itertools.product(range(4), ("Steady", "Flash")):
        peer.Lamp.value, peer.Mode.value = lamp, mode
        spans |= {(node.address, node.length, node.name_only) for node in registers}
        assert (peer.On.value, peer.Owner.value) == (False, "nobody" if lamp == 0 else f"owner of {mode}")
        assert peer.Level.value == (50 if mode == "Steady" else lamp * 10)
        peer.Level.value, peer.On.value, peer.Owner.value = lamp * 10, lamp % 2 == 1, f"owner of {mode}"
    assert len(spans) == len(registers) - 3 + 4 + 4 * 2 + 2
    assert all(one[0] + one[1] <= other[0] for one, other in itertools.pairwise(sorted(spans)))
    for lamp, mode in itertools.product((2, 0, 3, 1), ("Steady", "Flash")):
        lights.lamp, lights.mode = lamp, mode
        assert (lights.level, lights.on, lights.owner) == (lamp * 10, lamp % 2 == 1, f"owner of {mode}")


def test_clients_cannot_select_what_there_is_not(camera: Camera, lights: Any) -> None:
    with camera.client() as client:
        features = Features(client.connect())
        for selector, wrong in (("Lamp", 4), ("Mode", 7)):
            with pytest.raises(GvcpError):
                features.write(selector, wrong)


def test_aravis_agrees(camera: Camera, lights: Any, aravis_binding: None) -> None:
    requests: list[Any] = [["set", "Lamp", 3], ["set", "Mode", "Steady"], ["set", "Level", 60]]
    requests += [["set", "PulseLength", 8.5], ["set", "Owner", "attic"], ["set", "On", True]]
    requests.append(["execute", "Fire"])
    nodes = camera.server.node_map.Lights.nodes
    program = [sys.executable, str(ARAVIS), camera.address]
    lines = [json.dumps(request) for request in (*requests, *(["facts", node.name_only] for node in nodes))]
    text = "\n".join([*lines, ""])
    done = subprocess.run(program, input=text, stdout=subprocess.PIPE, text=True, timeout=60, check=True)
    assert lights.heard == ["Steady", (3, 60), "fire"]
    assert (lights.pulse_length, lights.owner, lights.on) == (8.5, "attic", True)
    for node, line in zip(nodes, done.stdout.splitlines()[len(requests) :], strict=True):
        seen, told = json.loads(line), told_by_python(node) | {"visibility": "beginner"}
        told["entries"] = [list(entry) for entry in told.get("entries", [])]
        told = {fact: told[fact] for fact in seen if fact in told}
        assert {fact: seen[fact] for fact in told} == told, node.name
        assert "value" in told or node.name_only == "Fire"


def test_neither_set_nor_server_outlives_its_last_reference() -> None:
    """Not even when it is dropped by a hook, on the server's own thread."""

    class Shy(FeatureSet):
        leave = Command()

        @leave.on_execute
        def drop(self) -> None:
            held.clear()

    before = live_handles()
    camera = Camera(Server.create_non_streaming(), free_address())
    held = [camera.server, Shy(camera.server)]
    gone = weakref.ref(held[1])
    camera.server.start(camera.address)
    camera.server = None
    gc.collect()
    assert gone() is not None
    with camera.client() as client:
        client.connect()
        register, _ = Features(client).register("Leave")
        client.send_raw(command(WRITEREG, struct.pack(">II", register, 1)))
        wait_until(lambda: gone() is None, "the set is gone")
        wait_until(lambda: live_handles() == before, "the server is gone")


@pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")
def test_a_failing_hook_harms_nobody(camera: Camera) -> None:
    class Broken(FeatureSet):
        sound = Integer(7, min=0, max=9)

        @sound.on_read
        def beyond(self) -> int:
            return 10

        @sound.on_write
        def fail(self, value: int) -> None:
            raise OSError("no loudspeaker")

    broken = Broken(camera.server)
    camera.server.start(camera.address)
    with camera.client() as client:
        client.connect()
        features = Features(client)
        assert features.read("Sound") == 7
        features.write("Sound", 3)
        assert broken.sound == 3


def test_features_of_bases_come_first_and_can_be_replaced() -> None:
    class Base(FeatureSet, category="Common"):
        first = Integer(1)
        second = Integer(2)

    class Derived(Base):
        second = String("two", name="SecondText")  # type: ignore[assignment]
        third = Boolean(True)

    server = Server.create_non_streaming()
    features = Derived(server)
    assert list(features.nodes) == ["first", "second", "third"]
    assert (features.first, features.second, features.third) == (1, "two", True)
    assert [node.name_only for node in server.node_map.Common.nodes] == ["First"]
    assert [node.name_only for node in server.node_map.Derived.nodes] == ["SecondText", "Third"]


def test_integers_take_the_shortest_register_that_holds_their_limits() -> None:
    for default, low, high, length in (
        (2**32 - 1, 0, 2**32 - 1, 4),
        (-(2**31), -(2**31), 2**31 - 1, 4),
        (-1, -1, 2**31, 8),
        (0, 0, 2**32, 8),
        (-(2**63), -(2**63), 2**63 - 1, 8),
    ):
        attributes = {"number": Integer(default, min=low, max=high)}
        features: Any = type("Set", (FeatureSet,), attributes)(Server.create_non_streaming())
        register = features.nodes["number"].value_config_as_node
        assert (register.length, features.number) == (length, default), (low, high)


DECLARATIONS: list[tuple[Any, str]] = [
    (lambda: Integer(5, min=0, max=4), "5 is not within 0 to 4 in steps of 1"),
    (lambda: Integer(3, min=0, max=4, step=2), "3 is not within 0 to 4 in steps of 2"),
    (lambda: Integer(step=0), "the step is 0, must be at least 1"),
    (lambda: Integer(2**63), "of 64 bits"),
    (lambda: Integer(min=cast(Any, None)), "cannot be interpreted as an integer"),
    (lambda: Float(-0.5, min=0), "-0.5 is not within 0 to None"),
    (lambda: Float(float("nan"), max=1), "nan is not within"),
    (lambda: String("äöü", length=4), "'äöü' has more than 4 bytes"),
    (lambda: String(length=6), "the length is 6, must be a multiple of 4"),
    (lambda: Enumeration([]), "entries of different values"),
    (lambda: Enumeration({"A": 1, "B": 1}), "entries of different values"),
    (lambda: Enumeration(["A", "B C"]), "'B C' is no name"),
    (lambda: Enumeration({"A": 2**31}), "has more than 32 bits"),
    (lambda: Enumeration(["A"], default="B"), "'B' is none of A"),
    (lambda: type("Set", (FeatureSet,), {"a": Boolean(name="2nd")}), "'2nd' is no name"),
    (lambda: Integer(selector=Integer(0, min=0, max=10_000)), "10001 values of 8 bytes are too many"),
    (lambda: Integer(selector=Integer()), f"{2**64} values of 8 bytes are too many"),
    (lambda: cast(Any, Integer)(minimum=3), "Integer has no option minimum"),
    (lambda: cast(Any, Command)(polling=3), "Command has no option polling"),
    (lambda: Integer(selector=cast(Any, Float())), "only integers and enumerations select"),
    (lambda: type("Set", (FeatureSet,), {"nodes": Integer()}), "Set.nodes is not free"),
    (lambda: Lights.level.on_write(print), "Level has this hook already"),
    (lambda: Lights.temperature.on_read(float), "Temperature has this hook already"),
]


@pytest.mark.parametrize(("declare", "text"), DECLARATIONS, ids=[text for _, text in DECLARATIONS])
def test_declarations_that_cannot_be(declare: Any, text: str) -> None:
    with pytest.raises((ValueError, TypeError), match=re.escape(text)):
        declare()


@pytest.mark.parametrize(
    ("attributes", "text"),
    [
        ({"good": Integer(), "taken": Integer()}, "the camera has a node named Taken already"),
        ({"a": Integer(name="Same"), "b": Integer(name="Same")}, "the camera has a node named Same already"),
        ({"good": Integer(), "other": Integer(name="DeviceUserID")}, "node named DeviceUserID already"),
        ({"good": Integer(category="Taken")}, "the category Taken has the name of something else"),
        ({"good": Integer(category="Good")}, "the category Good has the name of something else"),
        ({"good": Integer(selector=Lights.lamp)}, "a selector of Good is no earlier feature of the same set"),
    ],
)
def test_what_a_camera_cannot_take_leaves_it_as_it_was(attributes: dict[str, Any], text: str) -> None:
    server = Server.create_non_streaming()
    server.node_map.add_node(IntegerNode.create("Taken"))
    before = set(server.node_map.nodes)
    with pytest.raises(ValueError, match=text):
        type("Set", (FeatureSet,), attributes)(server)
    assert set(server.node_map.nodes) == before

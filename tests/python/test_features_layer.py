"""Features declared as attributes: what clients see of them, hooks, selectors, and who keeps what alive."""

import gc
import importlib.util
import itertools
import pathlib
import re
import struct
import weakref
from collections.abc import Iterator
from typing import Any, cast

import numpy as np
import pytest

import tarn
from conftest import ROOT, Camera, MakeCamera, free_address, live_handles, wait_until
from features import Features, description
from gvcp_client import WRITEREG, ControlClient, command
from tarn.gevserver import CategoryNode, IntegerNode, Server
from tarn.gevserver.features import Boolean, Command, Enumeration, FeatureSet, Float, Integer, String


class Lights(FeatureSet):
    """One feature of each kind, two of them for each lamp."""

    camera: Camera

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
def lights(make_camera: MakeCamera) -> Iterator[Any]:
    camera = make_camera(start=False)
    lights = Lights(camera.server)
    lights.camera = camera
    camera.server.start(camera.address)
    yield lights
    lights.close()
    vars(lights).clear()  # what a fixture gave is kept until all of them are torn down


@pytest.fixture
def peer(lights: Any) -> Iterator[Any]:
    """The reference library in control of the lights."""
    genapi_peer = pytest.importorskip("genapi_peer")
    with lights.camera.client() as client:
        client.connect()
        nodes, port = genapi_peer.node_map(client)
        yield nodes
        del nodes, port


def test_clients_see_what_was_declared(lights: Any, peer: Any, tmp_path: pathlib.Path) -> None:
    import genapi_peer

    genapi_peer.check_agreement(peer, lights.server.node_map)
    with lights.camera.client() as client:
        genapi_peer.check_schema(description(client), tmp_path)
    level, pulse = peer.Level, peer.PulseLength
    assert (level.value, level.min, level.max, level.inc, level.node.tooltip) == (50, 0, 100, 5, "How bright")
    assert (pulse.value, pulse.min, pulse.max, pulse.unit) == (2.5, 0.5, 9.5, "us")
    assert (pulse.node.display_name, pulse.node.name_space) == ("Length of a pulse", 1)
    assert (peer.Mode.value, peer.Mode.get_int_value(), peer.Mode.node.is_streamable()) == ("Flash", 4, True)
    assert (peer.Count.value, peer.get_node("TemperatureValue").node.polling_time) == (2**40, 500)
    names = [feature.node.name for feature in peer.Lights.features]
    assert names == ["Lamp", "Level", "Mode", "On", "PulseLength", "Count", "Temperature", "Fire"]
    assert "Owner" in [feature.node.name for feature in peer.DeviceControl.features]


def test_everything_stays_reachable_as_nodes(lights: Any) -> None:
    tree = lights.server.node_map
    assert tree.Level is lights.nodes["level"]
    assert lights.fire is tree.Fire
    assert tree.Level.value_config_as_node is tree.LevelValue
    assert isinstance(tree.Lights, CategoryNode)
    lights.level = 75
    assert tree.Level.value == tree.LevelValue.value == 75
    with pytest.raises(ValueError, match="77 is not 0 plus a multiple of 5"):
        lights.level = 77
    assert lights.level == 75


def test_values_move_both_ways_and_hooks_hear_clients_only(lights: Any, peer: Any) -> None:
    lights.level, lights.mode, lights.pulse_length = 30, "Steady", 4.5
    assert (peer.Level.value, peer.Mode.value, peer.PulseLength.value) == (30, "Steady", 4.5)
    assert lights.heard == []
    peer.Level.value = 35
    peer.Mode.value = "Flash"
    assert peer.Temperature.value == 22.0
    peer.Fire.execute()
    assert lights.heard == [(0, 35), "Flash", "fire"]
    assert (lights.level, lights.mode, lights.temperature) == (35, "Flash", 22.0)
    assert peer.Count.value == 2**40 + 1
    assert peer.Fire.is_done()


def test_a_selector_gives_each_of_its_values_its_own(lights: Any, peer: Any) -> None:
    defaults = set()
    for lamp in range(4):
        peer.Lamp.value = lamp
        defaults.add((peer.Level.value, peer.On.value))
        peer.Level.value, peer.On.value = lamp * 10, lamp % 2 == 1
    assert defaults == {(50, False)}
    for lamp in (2, 0, 3, 1):
        peer.Lamp.value = lamp
        assert (peer.Level.value, peer.On.value) == (lamp * 10, lamp % 2 == 1)
        assert (lights.lamp, lights.level, lights.on) == (lamp, lamp * 10, lamp % 2 == 1)
    for mode in ("Steady", "Flash"):
        peer.Mode.value = mode
        assert peer.Owner.value == "nobody"
        peer.Owner.value = f"owner of {mode}"
    lights.mode = "Steady"
    assert (peer.Owner.value, lights.owner) == ("owner of Steady",) * 2


def test_registers_of_selected_features_meet_no_others(lights: Any) -> None:
    """Where a selector leads is found by moving it: no two registers may share a byte."""
    registers = [feature.value_config_as_node for feature in lights.nodes.values()]
    assert [node.name_only for node in registers if node.address_nodes] == [
        "LevelValue",
        "OnValue",
        "OwnerValue",
    ]
    spans = set()
    for lamp, mode in itertools.product(range(4), ("Steady", "Flash")):
        lights.lamp, lights.mode = lamp, mode
        spans |= {(node.address, node.length, node.name_only) for node in registers}
    assert len(spans) == len(registers) - 3 + 4 + 4 * 2 + 2
    ordered = sorted(spans)
    assert all(one[0] + one[1] <= other[0] for one, other in itertools.pairwise(ordered)), ordered


def test_close_ends_the_hooks_and_nothing_else(lights: Any, peer: Any) -> None:
    peer.Level.value = 40
    lights.close()
    lights.close()
    peer.Level.value = 45
    assert lights.heard == [(0, 40)]
    assert (lights.level, peer.Level.value) == (45, 45)


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
def test_a_failing_hook_harms_nobody(make_camera: MakeCamera) -> None:
    class Broken(FeatureSet):
        sound = Integer(7, min=0, max=9)

        @sound.on_read
        def beyond(self) -> int:
            return 10

        @sound.on_write
        def fail(self, value: int) -> None:
            raise OSError("no loudspeaker")

    camera = make_camera(start=False)
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
    class Numbers(FeatureSet):
        byte = Integer(0, min=0, max=255)
        unsigned = Integer(2**32 - 1, min=0, max=2**32 - 1)
        signed = Integer(-(2**31), min=-(2**31), max=0)
        long = Integer(-1, min=-1, max=2**32)
        widest = Integer(-(2**63))

    features = Numbers(Server.create_non_streaming())
    assert [features.nodes[name].value_config_as_node.length for name in features.nodes] == [4, 4, 4, 8, 8]
    assert (features.unsigned, features.signed, features.widest) == (2**32 - 1, -(2**31), -(2**63))


def test_declarations_that_cannot_be() -> None:
    for declare, text in (
        (lambda: Integer(5, min=0, max=4), "5 is not within 0 to 4 in steps of 1"),
        (lambda: Integer(3, min=0, max=4, step=2), "3 is not within 0 to 4 in steps of 2"),
        (lambda: Integer(step=0), "the step is 0, must be at least 1"),
        (lambda: Integer(2**63), "of 64 bits"),
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
    ):
        with pytest.raises((ValueError, TypeError), match=re.escape(text)):
            declare()
    feature = Integer(name="Twice")
    feature.on_read(lambda _: 1)
    with pytest.raises(TypeError, match="Twice has this hook already"):
        feature.on_read(lambda _: 2)


def test_what_a_camera_cannot_take_leaves_it_as_it_was() -> None:
    server = Server.create_non_streaming()
    server.node_map.add_node(IntegerNode.create("Taken"))
    before = set(server.node_map.nodes)
    elsewhere = Integer(0, min=0, max=1)
    for attributes, text in (
        ({"good": Integer(), "taken": Integer()}, "the camera has a node named Taken already"),
        ({"a": Integer(name="Same"), "b": Integer(name="Same")}, "the camera has a node named Same already"),
        (
            {"good": Integer(), "device_user_id": Integer(name="DeviceUserID")},
            "node named DeviceUserID already",
        ),
        ({"good": Integer(category="Taken")}, "the category Taken has the name of something else"),
        ({"good": Integer(category="Good")}, "the category Good has the name of something else"),
        ({"good": Integer(selector=elsewhere)}, "a selector of Good is no earlier feature of the same set"),
    ):
        with pytest.raises(ValueError, match=text):
            type("Set", (FeatureSet,), attributes)(server)
        assert set(server.node_map.nodes) == before


def test_the_documentation_does_what_it_says() -> None:
    text = (ROOT / "docs" / "features_layer.md").read_text()
    camera, relation = re.findall(r"```python\n(.*?)```", text, re.DOTALL)
    address = free_address()
    names: dict[str, Any] = {"__name__": "documented"}
    exec(camera.replace("127.0.0.1", address).replace("server.start(", f"{relation}server.start("), names)
    try:
        with ControlClient(address) as client:
            client.connect()
            assert Features(client).read("Level") == 20
            assert not names["server"].node_map.PulseLength.is_locked_config.value
    finally:
        names["server"].stop()
        names["lamps"].close()


def test_the_example_does_what_it_says() -> None:
    path = ROOT / "examples" / "own_features.py"
    spec = importlib.util.spec_from_file_location("own_features", path)
    assert spec and spec.loader
    example = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(example)
    server = Server.create_with_const_size_pfnc(tarn.Size2D(640, 480), tarn.PfncFormat.Mono8)
    camera = Camera(server, free_address())
    with example.Sensor(server) as sensor:
        server.start(camera.address)
        try:
            assert sensor.picture(0).shape == (480, 640)
            dark = sensor.picture(0).mean()
            with camera.client() as client:
                client.connect()
                features = Features(client)
                features.write("Invert", 1)
                assert sensor.picture(0).mean() == pytest.approx(255 - dark)
                sensor.gain = 6.0
                features.execute("Reset")
                assert sensor.gain == 1.0
                features.write("Pattern", 1)
                assert np.array_equal(np.unique(sensor.picture(0)), [0, 255])
        finally:
            camera.end()

"""User sets: clients keep whole configurations in the camera, and get them back."""

import json
import pathlib
import subprocess
import sys
from collections.abc import Iterator
from typing import Any

import pytest

import tarn
from conftest import Camera, free_address
from features import Features
from gvcp_client import BUSY, ControlClient, GvcpError
from node_trees import publish, put
from tarn.gevserver import Float64RegNode, FloatNode, Int32RegNode, IntegerNode, Server, StringRegNode

ARAVIS = pathlib.Path(__file__).with_name("aravis_features.py")
DEFAULT, USER_SET = 0, 1


@pytest.fixture
def camera() -> Iterator[Camera]:
    """A started camera of variable size; its program adds two streamable features, and one that is not."""
    server = Server.create_with_variable_size_pfnc(tarn.Size2D(640, 480), tarn.PfncFormat.Mono8)
    camera = Camera(server, free_address())
    node_map = server.node_map
    exposure, exposure_value = put(
        node_map, FloatNode.create("ExposureTime"), Float64RegNode.create("ExposureTimeValue")
    )
    exposure.value_config_as_node = exposure_value
    exposure.is_streamable = True
    (owner,) = put(node_map, StringRegNode.create("Owner", length=16))
    owner.is_streamable = True
    passing, passing_value = put(node_map, IntegerNode.create("Passing"), Int32RegNode.create("PassingValue"))
    passing.value_config_as_node = passing_value
    publish(node_map, exposure, owner, passing)
    exposure.value, owner.value = 1000.0, "nobody"
    server.start(camera.address)
    yield camera
    camera.end()


@pytest.fixture
def client(camera: Camera) -> Iterator[ControlClient]:
    with camera.client() as client:
        client.connect()
        yield client


def change(camera: Camera, features: Features) -> None:
    """Move every kind of value away from where it begins."""
    for name, value in (("Width", 320), ("OffsetX", 320), ("AcquisitionMode", 2), ("GevSCPD", 500)):
        features.write(name, value)
    camera.server.node_map.ExposureTime.value = 250.0
    camera.server.node_map.Owner.value = "somebody"
    features.write("Passing", 9)


def values(camera: Camera) -> tuple[Any, ...]:
    map_ = camera.server.node_map
    names = ("Width", "OffsetX", "AcquisitionMode", "GevSCPD", "ExposureTime", "Owner")
    return tuple(getattr(map_, name).value for name in names)


BEGINNING = (640, 0, "Continuous", 0, 1000.0, "nobody")
CHANGED = (320, 320, "MultiFrame", 500, 250.0, "somebody")


def load(features: Features, number: int) -> None:
    features.write("UserSetSelector", number)
    features.execute("UserSetLoad")


def test_values_come_back(camera: Camera, client: ControlClient) -> None:
    features = Features(client)
    before = values(camera)
    assert before[:2] == BEGINNING[:2]
    change(camera, features)
    changed = values(camera)
    assert changed[:2] == CHANGED[:2]
    features.write("UserSetSelector", USER_SET)
    features.execute("UserSetSave")
    for number, expected in ((DEFAULT, before), (USER_SET, changed), (DEFAULT, before)):
        load(features, number)
        assert values(camera) == expected
        assert features.read("PayloadSize") == expected[0] * 480
        assert features.read("Passing") == 9  # belongs to no set


def test_default_cannot_be_replaced(camera: Camera, client: ControlClient) -> None:
    features = Features(client)
    before = values(camera)
    change(camera, features)
    with pytest.raises(GvcpError) as refused:
        features.execute("UserSetSave")
    assert refused.value.status == BUSY
    camera.server.node_map.UserSetSave.execute()  # not even by the program
    load(features, USER_SET)  # was never saved, so it is what the camera began with
    assert values(camera) == before


def test_a_zero_is_no_command(camera: Camera, client: ControlClient) -> None:
    features = Features(client)
    features.write("UserSetSelector", USER_SET)
    before = values(camera)
    change(camera, features)
    changed = values(camera)
    features.write("UserSetLoad", 0)
    assert values(camera) == changed
    features.write("UserSetSave", 0)
    features.execute("UserSetLoad")
    assert values(camera) == before  # nothing was saved


def test_a_number_of_no_set_does_nothing(camera: Camera, client: ControlClient) -> None:
    features, map_ = Features(client), camera.server.node_map
    change(camera, features)
    changed = values(camera)
    map_.UserSetSelectorValue.value = 1000  # which no client could write
    for command in ("UserSetLoad", "UserSetSave"):
        getattr(map_, command).execute()
        features.execute(command)
    assert values(camera) == changed


def test_listeners_hear_what_a_client_loads(camera: Camera, client: ControlClient) -> None:
    features = Features(client)
    change(camera, features)
    heard: list[tuple[str, object]] = []
    map_ = camera.server.node_map
    for name in ("ExposureTimeValue", "Width", "Passing", "UserSetLoad"):
        getattr(map_, name).register_event_written_updated(
            lambda node: heard.append((node.name_only, map_.ExposureTime.value))
        )
    features.write("UserSetSelector", DEFAULT)
    map_.UserSetLoad.execute()
    assert heard == []  # the program knows what it does
    change(camera, features)
    heard.clear()
    features.execute("UserSetLoad")
    # All values are in place before the first hears of any.
    assert sorted(heard) == [("ExposureTimeValue", 1000.0), ("UserSetLoad", 1000.0), ("Width", 1000.0)]


def test_what_read_listeners_supply_is_saved(camera: Camera, client: ControlClient) -> None:
    features = Features(client)
    map_ = camera.server.node_map
    map_.ExposureTimeValue.register_event_on_read_updated(lambda node: setattr(node, "value", 42.0))
    map_.Owner.register_event_on_read_updated(lambda node: setattr(node, "value", "reader"))
    features.write("UserSetSelector", USER_SET)
    features.execute("UserSetSave")
    map_.ExposureTime.value, map_.Owner.value = 7.0, "other"
    features.execute("UserSetLoad")
    assert (map_.ExposureTime.value, map_.Owner.value) == (42.0, "reader")


def test_is_refused_while_streaming(camera: Camera, client: ControlClient) -> None:
    features = Features(client)
    change(camera, features)
    changed = values(camera)
    features.execute("AcquisitionStart")
    camera.wait_running()
    with pytest.raises(GvcpError) as refused:
        features.execute("UserSetLoad")
    assert refused.value.status == BUSY
    camera.server.node_map.UserSetLoad.execute()
    assert values(camera) == changed
    features.write("UserSetSelector", USER_SET)
    features.execute("UserSetSave")  # changes nothing of the stream
    features.execute("AcquisitionStop")
    features.write("Width", 100)
    load(features, USER_SET)
    assert values(camera) == changed


def test_sets_outlive_clients_and_the_servers_stop(camera: Camera) -> None:
    with camera.client() as client:
        client.connect()
        before, features = values(camera), Features(client)
        change(camera, features)
        changed = values(camera)
        features.write("UserSetSelector", USER_SET)
        features.execute("UserSetSave")
        load(features, DEFAULT)
    camera.server.stop()
    (late, late_value) = put(
        camera.server.node_map, IntegerNode.create("Late"), Int32RegNode.create("LateValue")
    )
    late.value_config_as_node, late.is_streamable, late.value = late_value, True, 4
    publish(camera.server.node_map, late)
    camera.server.node_map.Owner.value = "between"
    camera.server.start(camera.address)
    with camera.client() as client:
        client.connect()
        features = Features(client)
        features.write("Late", 5)
        load(features, USER_SET)
        assert (values(camera), features.read("Late")) == (changed, 4)
        features.write("Late", 6)
        load(features, DEFAULT)
        assert (values(camera), features.read("Late")) == (before, 4)


def test_reference_library_reads_again_what_was_loaded(camera: Camera, client: ControlClient) -> None:
    pytest.importorskip("genicam", reason="the Python package genicam is not installed")
    from genapi_peer import genapi, node_map

    nodes, port = node_map(client)
    exposure, width, selector, save = (
        nodes.get_node(name) for name in ("ExposureTime", "Width", "UserSetSelector", "UserSetSave")
    )
    assert save.get_access_mode() == genapi.EAccessMode.NA  # Default is selected
    selector.value = "UserSet1"
    assert save.get_access_mode() == genapi.EAccessMode.WO
    width.value, exposure.value = 320, 250.0
    save.execute()
    width.value, exposure.value = 200, 1.0
    for name, expected in (("Default", (640, 1000.0)), ("UserSet1", (320, 250.0))):
        selector.value = name
        nodes.get_node("UserSetLoad").execute()
        assert (width.value, exposure.value) == expected
    del port


def test_every_value_behind_a_selector_comes_back(camera: Camera, client: ControlClient) -> None:
    pytest.importorskip("genicam", reason="the Python package genicam is not installed")
    from genapi_peer import node_map

    nodes, port = node_map(client)

    def write(selected: dict[str, bool]) -> None:
        for chunk, enabled in selected.items():
            nodes.get_node("ChunkSelector").value = chunk
            nodes.get_node("ChunkEnable").value = enabled

    def read() -> dict[str, bool]:
        seen = {}
        for chunk in before:
            nodes.get_node("ChunkSelector").value = chunk
            seen[chunk] = nodes.get_node("ChunkEnable").value
        return seen

    before = dict.fromkeys(("Timestamp", "FrameID", "Width"), True)
    changed = {"Timestamp": False, "FrameID": True, "Width": False}
    nodes.get_node("ChunkModeActive").value = True
    write(changed)
    nodes.get_node("UserSetSelector").value = "UserSet1"
    nodes.get_node("UserSetSave").execute()
    for name, expected in (("Default", before), ("UserSet1", changed)):
        nodes.get_node("UserSetSelector").value = name
        nodes.get_node("UserSetLoad").execute()
        assert read() == expected
        with_chunks = nodes.get_node("PayloadSize").value > 640 * 480
        assert with_chunks == (name == "UserSet1")
    del port


def test_aravis_reads_again_what_was_loaded(camera: Camera) -> None:
    pytest.importorskip("gi", reason="the Aravis binding (gir1.2-aravis-0.8) is not installed")
    command = [sys.executable, str(ARAVIS), camera.address]
    requests = [["set", "Width", 320], ["set", "UserSetSelector", "Default"], ["execute", "UserSetLoad"]]
    lines = "".join(json.dumps(request) + "\n" for request in [*requests, ["facts", "Width"]])
    done = subprocess.run(command, input=lines, capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    assert json.loads(done.stdout.splitlines()[-1])["value"] == 640

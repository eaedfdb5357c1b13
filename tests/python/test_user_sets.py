"""User sets: clients keep whole configurations in the camera, and get them back."""

from collections.abc import Iterator
from typing import Any

import pytest

import tarn
from conftest import Camera, free_address
from features import Features
from gvcp_client import BUSY, GvcpError
from node_trees import publish, put
from tarn.gevserver import Float64RegNode, FloatNode, Int32RegNode, Server, StringRegNode

DEFAULT, USER_SET = 0, 1
NAMES = ("Width", "OffsetX", "AcquisitionMode", "GevSCPD", "ExposureTime", "Owner", "PayloadSize")
BEGINNING = [640, 0, "Continuous", 0, 1000.0, "nobody", 640 * 480]
CHANGED = [320, 320, "MultiFrame", 500, 250.0, "somebody", 320 * 480]


@pytest.fixture
def camera() -> Iterator[Camera]:
    """A started camera of variable size; its program adds two streamable features, and one that is not."""
    server = Server.create_with_variable_size_pfnc(tarn.Size2D(640, 480), tarn.PfncFormat.Mono8)
    camera = Camera(server, free_address())
    exposure, owner = FloatNode.create("ExposureTime"), StringRegNode.create("Owner", 16)
    passing = Int32RegNode.create("Passing")
    put(server.node_map, exposure, owner, passing)
    (exposure.value_config_as_node,) = put(server.node_map, Float64RegNode.create("ExposureTimeValue"))
    exposure.is_streamable = owner.is_streamable = True
    publish(server.node_map, exposure, owner, passing)
    exposure.value, owner.value = 1000.0, "nobody"
    server.start(camera.address)
    yield camera
    camera.end()


def change(camera: Camera, features: Features) -> None:
    """Move every kind of value away from where it begins."""
    for name, value in (("Width", 320), ("OffsetX", 320), ("AcquisitionMode", 2), ("GevSCPD", 500)):
        features.write(name, value)
    camera.server.node_map.ExposureTime.value = 250.0
    camera.server.node_map.Owner.value = "somebody"
    features.write("Passing", 9)


def values(camera: Camera) -> list[Any]:
    return [getattr(camera.server.node_map, name).value for name in NAMES]


def use(features: Features, number: int, command: str) -> None:
    features.write("UserSetSelector", number)
    features.execute(f"UserSet{command}")


def refused(features: Features, command: str) -> bool:
    with pytest.raises(GvcpError) as refusal:
        features.execute(command)
    return refusal.value.status == BUSY


def test_values_come_back_over_connections_and_starts(camera: Camera) -> None:
    with camera.client() as client:
        features = Features(client.connect())
        change(camera, features)
        assert refused(features, "UserSetSave")  # the default cannot be replaced,
        camera.server.node_map.UserSetSave.execute()  # not even by the program
        use(features, USER_SET, "Load")
        assert values(camera) == BEGINNING  # it was never saved
        change(camera, features)
        features.write("UserSetLoad", 0)  # a zero is no command
        features.execute("UserSetSave")
        use(features, DEFAULT, "Load")
    camera.server.stop()
    camera.server.node_map.Owner.value = "between"
    camera.server.start(camera.address)
    with camera.client() as client:
        features = Features(client.connect())
        for number, expected in ((DEFAULT, BEGINNING), (USER_SET, CHANGED), (DEFAULT, BEGINNING)):
            use(features, number, "Load")
            assert values(camera) == expected
            assert features.read("Passing") == 9  # belongs to no set


def test_nothing_is_loaded_while_streaming_or_from_no_set(camera: Camera) -> None:
    map_ = camera.server.node_map
    with camera.client() as client:
        features = Features(client.connect())
        change(camera, features)
        features.execute("AcquisitionStart")
        camera.wait_running()
        assert refused(features, "UserSetLoad")
        map_.UserSetLoad.execute()
        use(features, USER_SET, "Save")  # changes nothing of the stream
        features.execute("AcquisitionStop")
        map_.UserSetSelectorValue.value = 1000  # which no client could write
        for command in ("UserSetLoad", "UserSetSave"):
            getattr(map_, command).execute()
            features.execute(command)
        assert values(camera) == CHANGED
        features.write("Width", 100)
        use(features, USER_SET, "Load")
        assert values(camera) == CHANGED


def test_listeners_hear_what_a_client_loads_and_supply_what_it_saves(camera: Camera) -> None:
    map_, heard = camera.server.node_map, list[tuple[str, object]]()
    map_.Owner.register_event_on_read_updated(lambda node: setattr(node, "value", "reader"))
    with camera.client() as client:
        features = Features(client.connect())
        use(features, USER_SET, "Save")
        change(camera, features)
        for name in ("ExposureTimeValue", "Width", "Passing", "UserSetLoad"):
            getattr(map_, name).register_event_written_updated(
                lambda node: heard.append((node.name_only, map_.ExposureTime.value))
            )
        map_.UserSetLoad.execute()
        assert heard == []  # the program knows what it does
        features.write("Width", 320)
        map_.ExposureTime.value = 250.0
        heard.clear()
        features.execute("UserSetLoad")
    # All values are in place before the first hears of any.
    assert sorted(heard) == [("ExposureTimeValue", 1000.0), ("UserSetLoad", 1000.0), ("Width", 1000.0)]
    assert map_.Owner.value == "reader"


def test_reference_library_reads_again_what_was_loaded(camera: Camera) -> None:
    pytest.importorskip("genicam", reason="the Python package genicam is not installed")
    from genapi_peer import genapi, node_map

    with camera.client() as client:
        nodes, port = node_map(client.connect())
        names = ("ExposureTime", "UserSetSelector", "UserSetSave", "UserSetLoad")
        exposure, user_set, save, load = (nodes.get_node(name) for name in names)
        assert save.get_access_mode() == genapi.EAccessMode.NA  # Default is selected
        user_set.value = "UserSet1"
        assert save.get_access_mode() == genapi.EAccessMode.WO
        exposure.value = 250.0
        save.execute()
        exposure.value = 1.0
        for user_set.value, expected in (("Default", 1000.0), ("UserSet1", 250.0)):
            load.execute()
            assert exposure.value == expected
        del port

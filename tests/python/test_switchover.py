"""Control goes from one client to another without a gap, for those who know the key."""

import numpy as np

import tarn
from conftest import Camera, address_word, open_stream
from features import Features
from gvcp_client import (
    ACCESS_DENIED,
    CCP,
    CONTROL,
    EXCLUSIVE,
    PRIMARY_ADDRESS,
    PRIMARY_PORT,
    SCDA,
    SCP,
    SCPD,
    SWITCHOVER,
    SWITCHOVER_KEY,
    WRITEREG,
)
from gvsp_receiver import StreamReceiver
from tarn.gevserver import State
from test_camera_control import words

KEY = 0x1234
WITH_KEY = KEY << 16 | CONTROL


def send(camera: Camera) -> None:
    camera.send(tarn.WrappedImage.from_buffer(np.zeros((48, 64), np.uint8)))


def test_the_stream_goes_on_while_control_changes_hands(camera: Camera) -> None:
    with StreamReceiver() as receiver, camera.client() as first, camera.client(local="127.0.0.2") as second:
        first.connect(beat=None)
        first.write_register(SWITCHOVER_KEY, KEY)
        open_stream(first, receiver)
        Features(first).execute("AcquisitionStart")
        camera.wait_running()
        send(camera)
        assert second.request(WRITEREG, words(CCP, WITH_KEY)).status == ACCESS_DENIED  # not allowed yet
        first.write_register(CCP, CONTROL | SWITCHOVER)
        for wish in (CONTROL, (KEY + 1) << 16 | CONTROL, KEY << 16):
            assert second.request(WRITEREG, words(CCP, wish)).status == ACCESS_DENIED, hex(wish)
        before = second.read_registers(SCP, SCDA)

        second.connect(WITH_KEY)
        assert camera.server.state == State.AcquisitionEnabled
        assert str(camera.server.remote_endpoint.address) == "127.0.0.2"
        address, port = second.local
        assert second.read_registers(PRIMARY_ADDRESS, PRIMARY_PORT) == (address_word(address), port)
        assert second.read_registers(SCP, SCDA) == before
        assert second.read_register(CCP) == CONTROL  # the new holder did not allow it again
        send(camera)
        assert len(receiver.wait_frames(2)) == 2
        for request in ((SCPD, 1), (CCP, WITH_KEY), (CCP, 0)):
            assert first.request(WRITEREG, words(*request)).status == ACCESS_DENIED, request
        second.write_register(SCPD, 1)


def test_keys_and_control_are_features(camera: Camera) -> None:
    with camera.client() as client:
        client.connect()
        features = Features(client)
        features.write("GevPrimaryApplicationSwitchoverKey", KEY)
        assert features.read("GevPrimaryApplicationSwitchoverKey") == 0  # nobody reads it
        features.write("GevCCP", CONTROL | SWITCHOVER)
        tree = camera.server.node_map
        assert tree.GevCCP.value == "ControlAccessSwitchoverActive"
        for wish in (EXCLUSIVE, EXCLUSIVE | CONTROL):
            features.write("GevCCP", wish)
            assert tree.GevCCP.value == "ExclusiveAccess"
        features.write("GevCCP", EXCLUSIVE | SWITCHOVER)
        assert tree.GevCCP.value == "ExclusiveAccessSwitchoverActive"
        assert tree.GevPrimaryApplicationSocket.value == client.local[1]
        assert (tree.PtpEnable.value, tree.PtpStatus.value) == (False, "Disabled")

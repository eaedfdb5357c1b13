"""Uses what a camera offers through the client library viva-genicam.

A program of its own, so that the client shares nothing with the camera's process and can run on another host.

usage: viva_client.py address frames

Finds the camera by discovery, saves and loads a user set, sends actions, receives frames, then frames with
chunks and events; writes what it saw as JSON.
"""

import itertools
import json
import sys
import zlib
from typing import Any

import viva_genicam
from viva_genicam import Camera

DEVICE_KEY, GROUP_KEY, GROUP_MASK = 0x1234, 7, 1


def user_sets(camera: Camera) -> list[Any]:
    """The sets, the width after a change, and after the set from before it is loaded."""
    camera.set_integer("Width", 320)
    camera.save_user_set("UserSet1")
    camera.set_integer("Width", 160)
    changed = camera.get_integer("Width")
    camera.load_user_set("UserSet1")
    return [camera.user_sets(), changed, camera.get_integer("Width")]


def actions(camera: Camera, address: str) -> list[int]:
    """Who acknowledges an action with the right and with a wrong key, and what the camera counted."""
    for name, value in (
        ("Selector", 1),
        ("DeviceKey", DEVICE_KEY),
        ("GroupKey", GROUP_KEY),
        ("GroupMask", 1),
    ):
        camera.set_integer(f"Action{name}", value)
    keys = (DEVICE_KEY, DEVICE_KEY + 1)
    sent = [viva_genicam.send_action(key, GROUP_KEY, GROUP_MASK, destination=address) for key in keys]
    return [*(action.acks for action in sent), camera.get_integer("ActionCount1")]


def frames(camera: Camera, count: int) -> list[tuple[Any, ...]]:
    with camera.stream() as stream:
        return [
            (frame.block_id, frame.width, frame.height, zlib.crc32(frame.payload()), frame.status.value)
            for frame in itertools.islice(stream, count)
        ]


def told(camera: Camera, count: int) -> list[tuple[Any, ...]]:
    """Of frames their ids and times, and what their chunks and the events of their start tell."""
    camera.configure_chunks(["Timestamp", "FrameID", "Width"])
    seen = []
    with camera.events(["FrameStart"]) as events, camera.stream() as stream:
        for frame in itertools.islice(stream, count):
            event = events.next_event(5000)
            while event.block_id < frame.block_id:  # of a frame that was lost
                event = events.next_event(5000)
            features = camera.chunk_features(frame) | camera.event_features(event)
            seen.append((frame.block_id, frame.ts_dev, {name: str(features[name]) for name in features}))
    return seen


def main(address: str, count: str) -> None:
    found = {device.ip: device for device in viva_genicam.discover(timeout_ms=1000)}
    with viva_genicam.connect_gige(found[address]) as camera:
        facts = {
            "skipped": [str(node) for node in camera.skipped()],
            "user sets": user_sets(camera),
            "actions": actions(camera, address),
            "frames": frames(camera, int(count)),
            "told": told(camera, 5),
        }
    print(json.dumps(facts))


main(*sys.argv[1:])

"""Uses what a camera offers beside plain images, through the client library viva-genicam.

usage: viva_services.py address

Saves and loads a user set, sends actions, receives events and frames with chunks; writes what it saw as
JSON.
"""

import json
import sys
from typing import Any

import viva_genicam
from viva_genicam import Camera

DEVICE_KEY, GROUP_KEY, GROUP_MASK = 0x1234, 7, 1
FRAMES = 5


def user_sets(camera: Camera) -> dict[str, Any]:
    """The width after a change, and after the set from before it is loaded."""
    camera.set_integer("Width", 320)
    camera.save_user_set("UserSet1")
    camera.set_integer("Width", 160)
    changed = camera.get_integer("Width")
    camera.load_user_set("UserSet1")
    return {"sets": camera.user_sets(), "changed": changed, "loaded": camera.get_integer("Width")}


def actions(camera: Camera, address: str) -> dict[str, Any]:
    """Who acknowledges an action with the right and with a wrong key, and what the camera counted."""
    camera.set_integer("ActionDeviceKey", DEVICE_KEY)
    camera.set_integer("ActionSelector", 1)
    camera.set_integer("ActionGroupKey", GROUP_KEY)
    camera.set_integer("ActionGroupMask", GROUP_MASK)
    acknowledged = [
        viva_genicam.send_action(key, GROUP_KEY, GROUP_MASK, destination=address).acks
        for key in (DEVICE_KEY, DEVICE_KEY + 1)
    ]
    return {"acknowledged": acknowledged, "counted": camera.get_integer("ActionCount1")}


def frames(camera: Camera) -> list[dict[str, Any]]:
    """Frames with their chunks, each with the event that told of its start."""
    camera.configure_chunks(["Timestamp", "FrameID", "Width"])
    seen = []
    with camera.events(["FrameStart"]) as events, camera.stream() as stream:
        for frame in stream:
            event = events.next_event(5000)
            while event.block_id < frame.block_id:  # of a frame that was lost
                event = events.next_event(5000)
            seen.append(
                {
                    "block": frame.block_id,
                    "timestamp": frame.ts_dev,
                    "chunks": {name: str(value) for name, value in camera.chunk_features(frame).items()},
                    "event": [event.id, event.block_id],
                    "event features": {
                        name: str(value) for name, value in camera.event_features(event).items()
                    },
                }
            )
            if len(seen) == FRAMES:
                return seen
    return seen


def main(address: str) -> None:
    (found,) = (device for device in viva_genicam.discover(timeout_ms=1000) if device.ip == address)
    with viva_genicam.connect_gige(found) as camera:
        facts = {
            "user sets": user_sets(camera),
            "actions": actions(camera, address),
            "frames": frames(camera),
        }
    print(json.dumps(facts))


main(*sys.argv[1:])

"""Uses a camera through the client library viva-genicam.

A program of its own, so that the client shares nothing with the camera's process and can run on another host.

usage: viva_client.py address frames

Finds the camera by discovery, reads and writes features, receives frames; writes what it saw as JSON.
"""

import json
import sys
import zlib
from importlib.metadata import version

import viva_genicam


def main(address: str, count: str) -> None:
    found = {device.ip: device for device in viva_genicam.discover(timeout_ms=1000)}
    with viva_genicam.connect_gige(found[address]) as camera:
        camera.set_integer("Width", 320)
        facts = {
            "version": version("viva-genicam"),
            "found": sorted(found),
            "model": camera.get("DeviceModelName"),
            "skipped": [str(node) for node in camera.skipped()],
            "width": camera.get_integer("Width"),
            "payload": camera.get_integer("PayloadSize"),
        }
        frames = []
        with camera.stream() as stream:
            for frame in stream:
                frames.append(
                    {
                        "block": frame.block_id,
                        "size": [frame.width, frame.height],
                        "status": frame.status.value,
                        "sum": zlib.crc32(frame.payload()),
                    }
                )
                if len(frames) == int(count):
                    break
    print(json.dumps(facts | {"frames": frames}))


main(*sys.argv[1:])

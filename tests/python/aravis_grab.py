"""Takes frames from a camera through the Aravis library.

A program of its own, so that the client shares nothing with the camera's process.

usage: aravis_grab.py address packet_size count packet-socket|udp-socket file

Writes the frames' bytes one after the other to the file and a line of facts for each to standard output.
"""

import json
import sys

import gi

gi.require_version("Aravis", "0.8")
from gi.repository import Aravis  # noqa: E402

_WAIT = 10_000_000  # microseconds


def main(address: str, packet_size: str, count: str, way: str, path: str) -> None:
    camera = Aravis.Camera.new(address)
    if way == "udp-socket":
        camera.gv_set_stream_options(Aravis.GvStreamOption.PACKET_SOCKET_DISABLED)
    camera.gv_set_packet_size(int(packet_size))
    stream = camera.create_stream(None, None)
    payload = camera.get_payload()
    for _ in range(8):
        stream.push_buffer(Aravis.Buffer.new_allocate(payload))
    camera.start_acquisition()
    print(json.dumps({"state": "started", "payload": payload}), flush=True)
    with open(path, "wb") as file:
        for _ in range(int(count)):
            buffer = stream.timeout_pop_buffer(_WAIT)
            if buffer is None:
                print(json.dumps({"status": "no buffer"}), flush=True)
                break
            data = buffer.get_data()
            file.write(data)
            facts = {
                "status": buffer.get_status().value_nick,
                "width": buffer.get_image_width(),
                "height": buffer.get_image_height(),
                "format": buffer.get_image_pixel_format() & 0xFFFF_FFFF,
                "frame": buffer.get_frame_id(),
                "bytes": len(data),
            }
            print(json.dumps(facts), flush=True)
            stream.push_buffer(buffer)
    camera.stop_acquisition()


main(*sys.argv[1:])

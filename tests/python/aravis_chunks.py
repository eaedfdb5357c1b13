"""Takes frames with chunks from a camera through the Aravis library.

usage: aravis_chunks.py address chunk,chunk... count

Writes a line of facts for each whole frame to standard output.
"""

import json
import sys

import gi

gi.require_version("Aravis", "0.8")
from gi.repository import Aravis  # noqa: E402

_WAIT = 10_000_000  # microseconds
_FLOATS, _TEXTS = {"ExposureTime"}, {"Label"}


def main(address: str, names: str, count: str) -> None:
    camera = Aravis.Camera.new(address)
    camera.set_chunks(names)
    assert all(camera.get_chunk_state(name) for name in names.split(","))
    parser = camera.create_chunk_parser()
    stream = camera.create_stream(None, None)
    payload = camera.get_payload()
    for _ in range(8):
        stream.push_buffer(Aravis.Buffer.new_allocate(payload))
    camera.start_acquisition()
    whole = 0
    while whole < int(count):
        buffer = stream.timeout_pop_buffer(_WAIT)
        # On a busy machine the library may give a frame up.
        if buffer.get_status() != Aravis.BufferStatus.SUCCESS:
            stream.push_buffer(buffer)
            continue
        whole += 1
        facts = {
            "has_chunks": buffer.has_chunks(),
            "width": buffer.get_image_width(),
            "height": buffer.get_image_height(),
            "frame": buffer.get_frame_id(),
            "timestamp": buffer.get_timestamp(),
            "image": bytes(buffer.get_image_data()).hex(),
        }
        for name in names.split(","):
            read = parser.get_integer_value
            if name in _FLOATS:
                read = parser.get_float_value
            elif name in _TEXTS:
                read = parser.get_string_value
            facts[f"Chunk{name}"] = read(buffer, f"Chunk{name}")
        print(json.dumps(facts), flush=True)
        stream.push_buffer(buffer)
    camera.stop_acquisition()


main(*sys.argv[1:])

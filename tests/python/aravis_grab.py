"""Takes frames from a camera through the Aravis library.

A program of its own, so that the client shares nothing with the camera's process.

usage: aravis_grab.py address packet_size count packet-socket|udp-socket file [chunk,chunk...]

Writes the frames' bytes one after the other to the file and lines of JSON to standard output: one when
acquisition runs, one of facts for each frame, and at the end the stream's own counters.
"""

import json
import sys

import gi

gi.require_version("Aravis", "0.8")
from gi.repository import Aravis  # noqa: E402

_WAIT = 10_000_000  # microseconds
_SOCKET_BUFFER = 4 << 20  # bytes
_BUFFERS = 64


def chunks_of(parser: Aravis.ChunkParser, buffer: Aravis.Buffer, names: list[str]) -> dict[str, object]:
    kinds = {"ExposureTime": "float", "Label": "string"}
    readers = {name: getattr(parser, f"get_{kinds.get(name, 'integer')}_value") for name in names}
    return {name: read(buffer, f"Chunk{name}") for name, read in readers.items()}


def main(address: str, packet_size: str, count: str, way: str, path: str, chunks: str = "") -> None:
    camera = Aravis.Camera.new(address)
    if way == "udp-socket":
        camera.gv_set_stream_options(Aravis.GvStreamOption.PACKET_SOCKET_DISABLED)
    camera.gv_set_packet_size(int(packet_size))
    if chunks:
        camera.set_chunks(chunks)
    parser = camera.create_chunk_parser()
    stream = camera.create_stream(None, None)
    # Networks may lose packets, but not a client that the machine does not let run for some milliseconds.
    stream.set_property("socket-buffer", Aravis.GvStreamSocketBuffer.FIXED)
    stream.set_property("socket-buffer-size", _SOCKET_BUFFER)
    # Where the system allows no such buffer, a whole frame may have to be asked for.
    stream.set_property("packet-request-ratio", 1.0)
    payload = camera.get_payload()
    for _ in range(_BUFFERS):
        stream.push_buffer(Aravis.Buffer.new_allocate(payload))
    camera.start_acquisition()
    print(json.dumps({"payload": payload}), flush=True)
    with open(path, "wb") as file:
        for _ in range(int(count)):
            buffer = stream.timeout_pop_buffer(_WAIT)
            if buffer is None:
                sys.exit("no frame came")
            status = buffer.get_status().value_nick
            facts: dict[str, object] = {"status": status}
            if status == "success":
                data = buffer.get_data()
                file.write(data)
                facts |= {"width": buffer.get_image_width(), "height": buffer.get_image_height()}
                facts |= {"frame": buffer.get_frame_id(), "timestamp": buffer.get_timestamp()}
                facts |= {"format": buffer.get_image_pixel_format() & 0xFFFF_FFFF, "bytes": len(data)}
                facts |= {"chunks": chunks_of(parser, buffer, chunks.split(","))} if chunks else {}
            print(json.dumps(facts), flush=True)
            stream.push_buffer(buffer)
    names = map(stream.get_info_name, range(stream.get_n_infos()))
    counters = {name: stream.get_info_uint64_by_name(name) for name in names if name.startswith("n_")}
    print(json.dumps(counters), flush=True)
    camera.stop_acquisition()


main(*sys.argv[1:])

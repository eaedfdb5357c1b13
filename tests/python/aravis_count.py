"""Takes frames from a camera through the Aravis library and counts what became of them.

A program of its own, so that the client shares nothing with the camera's process.

usage: aravis_count.py address count

Prints "started" when acquisition runs, and at the end one line of JSON: frames by status, the CRC-32 of whole
frames with their numbers, and the stream's own counters.
"""

import collections
import json
import sys
import zlib

import gi

gi.require_version("Aravis", "0.8")
from gi.repository import Aravis  # noqa: E402

_WAIT = 5_000_000  # microseconds
_SOCKET_BUFFER = 4 << 20  # bytes


def main(address: str, count: str) -> None:
    camera = Aravis.Camera.new(address)
    camera.gv_set_stream_options(Aravis.GvStreamOption.PACKET_SOCKET_DISABLED)
    camera.gv_set_packet_size(1500)
    stream = camera.create_stream(None, None)
    # The network is to lose packets, not a client that the machine does not let run for some milliseconds.
    stream.set_property("socket-buffer", Aravis.GvStreamSocketBuffer.FIXED)
    stream.set_property("socket-buffer-size", _SOCKET_BUFFER)
    # Where the system allows no such buffer, a whole frame may have to be asked for.
    stream.set_property("packet-request-ratio", 1.0)
    for _ in range(64):
        stream.push_buffer(Aravis.Buffer.new_allocate(camera.get_payload()))
    camera.start_acquisition()
    print("started", flush=True)
    statuses: collections.Counter[str] = collections.Counter()
    contents: collections.Counter[int] = collections.Counter()
    for _ in range(int(count)):
        buffer = stream.timeout_pop_buffer(_WAIT)
        if buffer is None:
            break
        status = buffer.get_status()
        statuses[status.value_nick] += 1
        if status == Aravis.BufferStatus.SUCCESS:
            contents[zlib.crc32(buffer.get_data())] += 1
        stream.push_buffer(buffer)
    names = [stream.get_info_name(index) for index in range(stream.get_n_infos())]
    counters = {name: stream.get_info_uint64_by_name(name) for name in names if name.startswith("n_")}
    print(json.dumps({"statuses": statuses, "contents": contents, "counters": counters}), flush=True)
    camera.stop_acquisition()


main(*sys.argv[1:])

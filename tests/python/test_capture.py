"""Every command and every payload type on the wire, as tshark's dissectors read them."""

import contextlib
import itertools
import pathlib
import socket
import struct
import threading
from collections.abc import Mapping
from typing import NamedTuple

import numpy as np

import gvcp_client as gvcp
from conftest import Camera, MakeCamera, address_word, need_tool
from features import Features
from feeding import noise, send
from gvsp_receiver import CHUNKED, FILE, IMAGE, RAW_DATA, Frame
from tarn import PfncFormat
from tshark import Expected, Fields, assert_reads, capturing, dissected, faults, numbers, show
from viewing import streaming

SIZE = (64, 48)
FRAMES = 3
FIRST_ID, LAST_ID = 0x4000, 0x4FFF
FILE_NAME = "image.raw"
ACTION_KEYS = (0x11223344, 0x55667788, 0x99AABBCC)
ACTION_REGISTERS = (gvcp.ACTION_DEVICE_KEY, gvcp.ACTION_GROUPS, gvcp.ACTION_GROUPS + 4)
ACTION_FIELDS = [f"gvcp.cmd.action.{key}" for key in ("devicekey", "groupkey", "groupmask")]
FAR_FUTURE = 120 * 10**9  # ticks since the camera was made: two minutes


class Asked(NamedTuple):
    """A command as it is sent, and what is to be read in it and in its answer; None for silence."""

    code: int
    flags: int
    payload: bytes
    asked: Expected
    answered: Expected | None


def words(*values: int) -> bytes:
    return struct.pack(f">{len(values)}I", *values)


def conversation(address: str) -> dict[str, Asked]:
    """Every command that clients send, by name."""
    mac = (0x0254 << 32 | address_word(address)).to_bytes(6, "big")
    colons, netmask = mac.hex(":"), "255.0.0.0"
    force = struct.pack(">H6s12x4s12x4s12x4x", 0, mac, socket.inet_aton(address), socket.inet_aton(netmask))
    addresses: Expected = {"ip": address, "subnetmask": netmask, "defaultgateway": "0.0.0.0"}
    forced = {f"gvcp.cmd.forceip.{key}": value for key, value in (addresses | {"macaddress": colons}).items()}
    device: Expected = {
        "gvcp.cmd.discovery.devicemacaddress": colons,
        "gvcp.bootstrap.currentip": address,
        "gvcp.bootstrap.modelname": "TRGevServer",
        "gvcp.bootstrap.serialnumber": mac.hex().upper(),
    }
    settings: Expected = {
        "gvcp.cmd.writereg.bootstrapregister": [gvcp.HEARTBEAT_TIMEOUT, gvcp.SCPS],
        "gvcp.bootstrap.heartbeattimeout": 5000,
        "gvcp.bootstrap.scpsx.packetsize": 1400,
    }
    written = words(gvcp.HEARTBEAT_TIMEOUT, 5000, gvcp.SCPS, 1400)
    registers: Expected = {"gvcp.cmd.readreg.bootstrapregister": [gvcp.CCP, gvcp.SCPS]}
    values: Expected = {
        "gvcp.bootstrap.control.controlaccess": 1,
        "gvcp.bootstrap.control.exclusiveaccess": 0,
        "gvcp.bootstrap.scpsx.packetsize": 1400,
    }
    part: Expected = {"gvcp.cmd.readmem.bootstrapregister": 0x48, "gvcp.cmd.readmem.count": 32}
    name: Expected = {"gvcp.cmd.readmem.address": 0x48, "gvcp.bootstrap.manufacturername": "NORDHAVNOPTICS"}
    packets: Expected = {"gvcp.cmd.resend.firstpacketid": 3, "gvcp.cmd.resend.lastpacketid": 0x77}
    resend = struct.pack(">HHII", 0, 0x1122, 3, 0x77)
    long_resend = struct.pack(">HHIIQ", 0, 0, 3, 0x77, 0x11223344556677)
    long_id: Expected = {"gvcp.cmd.resend.extendedblockid": 0x11223344556677}
    keys: Expected = dict(zip(ACTION_FIELDS, ACTION_KEYS, strict=True))
    scheduled = words(*ACTION_KEYS) + struct.pack(">Q", FAR_FUTURE)
    local = words(gvcp.SCDA, address_word("127.0.0.1"))
    return {
        "DISCOVERY": Asked(gvcp.DISCOVERY, 0x11, b"", {"gvcp.cmd.flag.allowbroadcastacq": 1}, device),
        # Nobody answers, since somebody is in control.
        "FORCEIP": Asked(gvcp.FORCEIP, 1, force, forced, None),
        "WRITEREG": Asked(gvcp.WRITEREG, 1, written, settings, {"gvcp.cmd.writereg.dataindex": 2}),
        "READREG": Asked(gvcp.READREG, 1, words(gvcp.CCP, gvcp.SCPS), registers, registers | values),
        "WRITEMEM": Asked(gvcp.WRITEMEM, 1, local, {}, {"gvcp.cmd.writemem.dataindex": 4}),
        "READMEM": Asked(gvcp.READMEM, 1, struct.pack(">IHH", 0x48, 0, 32), part, name),
        "PACKETRESEND": Asked(
            gvcp.PACKETRESEND, 0, resend, packets | {"gvcp.cmd.resend.blockid": 0x1122}, None
        ),
        "PACKETRESEND, extended": Asked(gvcp.PACKETRESEND, 0x10, long_resend, packets | long_id, None),
        "ACTION": Asked(gvcp.ACTION, 1, words(*ACTION_KEYS), keys, {}),
        "ACTION, scheduled": Asked(
            gvcp.ACTION, 0x81, scheduled, keys | {"gvcp.cmd.action.time": FAR_FUTURE}, {}
        ),
    }


def test_every_command_reads_as_it_was_meant(camera: Camera, tmp_path: pathlib.Path) -> None:
    need_tool("tshark")
    path = tmp_path / "commands.pcapng"
    rows = conversation(camera.address)
    gate = threading.Event()
    camera.server.node_map.AcquisitionStop.register_event_written_updated(lambda node: gate.wait(10))
    with capturing(camera.address, path), camera.client() as client:
        client.connect(beat=None)
        client.write_registers(*zip(ACTION_REGISTERS, ACTION_KEYS, strict=True))
        for number, row in enumerate(rows.values(), FIRST_ID):
            client.send_raw(gvcp.command(row.code, row.payload, number, row.flags))
            ack = client.receive(5) if row.answered is not None else None
            assert row.answered is None or (ack and ack.status == 0)
        client.write_register(gvcp.GVCP_CONFIGURATION, 0x2)
        address, _ = Features(client).register("AcquisitionStop")
        client.send_raw(gvcp.command(gvcp.WRITEREG, words(address, 1), LAST_ID))
        pending = client.receive(5)
        gate.set()
        while (latest := client.receive(5)) and latest.code == gvcp.PENDING_ACK:
            pass
    assert not faults(path)
    exchanged = dissected(path, "gvcp", f"gvcp.cmd.req_id >= {FIRST_ID} && gvcp.cmd.req_id <= {LAST_ID}")
    for number, (name, row) in enumerate(rows.items(), FIRST_ID):
        packets = [packet for packet in exchanged if numbers(packet, "gvcp.cmd.req_id") == [number]]
        assert len(packets) == (1 if row.answered is None else 2), name
        asked: Expected = {"gvcp.cmd.command": row.code, "gvcp.cmd.flags": row.flags}
        assert_reads(packets[0], asked | row.asked, name)
        if row.answered is not None:
            answered: Expected = {"gvcp.ack": row.code + 1, "gvcp.cmd.status": 0}
            assert_reads(packets[1], answered | row.answered, f"answer to {name}")
    assert pending and pending.code == gvcp.PENDING_ACK
    time: Expected = {"gvcp.ack.pendingack.timetocompletion": struct.unpack_from(">H", pending.payload, 2)[0]}
    (packet,) = (packet for packet in exchanged if numbers(packet, "gvcp.ack") == [gvcp.PENDING_ACK])
    assert_reads(packet, time, "PENDING_ACK")


def judge_block(block: Mapping[int, Fields], frame: Frame, sent: bytes, extended: bool, what: str) -> None:
    """The judge reads in a block's packets what the receiver understood and what was sent."""
    form = 0x80 if extended else 0  # the format field is shown with the bit that marks 64-bit ids
    width, height = SIZE
    kind = frame.payload_type & ~CHUNKED
    leader: Expected = {"gvsp.format": form | 1, "gvsp.payloadtype": frame.payload_type}
    trailer: Expected = {"gvsp.format": form | 2, "gvsp.payloadtype": frame.payload_type}
    if kind == IMAGE:
        geometry = {"sizex": width, "sizey": height, "offsetx": 0, "offsety": 0, "paddingx": 0, "paddingy": 0}
        leader |= {f"gvsp.{field}": value for field, value in geometry.items()}
        leader |= {"gvsp.pixel": PfncFormat.Mono8, "gvsp.timestamp": frame.leader.timestamp}
        trailer |= {"gvsp.sizey": height}
    else:
        leader |= {"gvsp.payloaddatasize": len(frame.payload), "gvsp.timestamp": frame.data_leader.timestamp}
        leader |= {"gvsp.filename": FILE_NAME} if kind == FILE else {}
    last = frame.trailer
    assert last
    assert_reads(block[0], leader, f"{what}, leader")
    assert_reads(block[last], trailer, f"{what}, trailer")
    data = [block[number] for number in range(1, last)]
    assert {number for packet in data for number in numbers(packet, "gvsp.format")} == {form | 3}, what
    text = "".join(value for packet in data for name, value in packet if name == "gvsp.payloaddata")
    read = bytes.fromhex(text.replace(":", ""))
    assert read == frame.payload, what
    assert read.startswith(sent), what


class Session(NamedTuple):
    """What a client saw of one stream."""

    name: str
    port: int
    extended: bool
    frames: list[Frame]


def stream_once(
    sockets: contextlib.ExitStack, camera: Camera, sent: np.ndarray, kind: int, chunks: bool, extended: bool
) -> Session:
    """A client's whole session: some frames of the payload type, with packets that are asked for again.

    Its sockets live as long as `sockets`: the capture is read by port, so no port may be used twice.
    """

    def lost(block: int, number: int, copies: int) -> bool:
        return copies == 0 and number == block

    settings = {"PayloadType": kind, "ChunkModeActive": chunks, "GevGVSPExtendedIDMode": extended}
    viewer = sockets.enter_context(streaming(camera.address, 576, drop=lost, settings=settings))
    for _ in range(FRAMES):
        send(camera, sent)
    frames = viewer.receiver.wait_frames(FRAMES)
    viewer.client.disconnect()
    name = f"type {kind}{' with chunks' * chunks}{', 64-bit ids' * extended}"
    assert all(frame.is_whole and frame.asked for frame in frames), name
    return Session(name, viewer.receiver.port, extended, frames)


def test_every_payload_type_reads_as_it_was_sent(make_camera: MakeCamera, tmp_path: pathlib.Path) -> None:
    need_tool("tshark")
    camera = make_camera(SIZE, resend=FRAMES)
    path = tmp_path / "streams.pcapng"
    sent = noise(SIZE)
    with capturing(camera.address, path), contextlib.ExitStack() as sockets:
        ways = itertools.product([IMAGE, RAW_DATA, FILE], [False, True], [False, True])
        sessions = [stream_once(sockets, camera, sent, *way) for way in ways]
    decode_as = " ".join(f"udp.port=={session.port},gvsp" for session in sessions)
    assert not faults(path, decode_as)
    packets: dict[tuple[int, int], dict[int, Fields]] = {}
    long_ids = {session.port: session.extended for session in sessions}
    for packet in dissected(path, "gvsp", "gvsp", decode_as):
        (port,) = numbers(packet, "udp.dstport")
        if port not in long_ids:
            continue  # a command from a socket on another address, whose port is that of a session
        names = ("blockid64", "packetid32") if long_ids[port] else ("blockid16", "packetid24")
        (block,), (number,) = (numbers(packet, f"gvsp.{name}") for name in names)
        assert numbers(packet, "gvsp.status") == [0]
        packets.setdefault((port, block), {}).setdefault(number, packet)
    for session in sessions:
        for frame in session.frames:
            what = f"{session.name}, block {frame.block}"
            judge_block(packets[session.port, frame.block], frame, sent.tobytes(), session.extended, what)
    assert len(show(path, f"gvcp.cmd.command == {gvcp.PACKETRESEND}")) >= FRAMES * len(sessions)

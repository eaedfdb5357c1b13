"""Every command and every payload type on the wire, as tshark's dissectors read them."""

import contextlib
import dataclasses
import itertools
import pathlib
import socket
import struct
import threading
from collections.abc import Mapping

import numpy as np

import tarn
from conftest import Camera, MakeCamera, address_word, need_tool, open_stream
from features import Features
from feeding import noise
from gvcp_client import (
    CCP,
    DISCOVERY,
    FORCEIP,
    GVCP_CONFIGURATION,
    HEARTBEAT_TIMEOUT,
    PACKETRESEND,
    PENDING_ACK,
    READMEM,
    READREG,
    SCDA,
    SCPS,
    WRITEMEM,
    WRITEREG,
    command,
)
from gvsp_receiver import CHUNKED, FILE, IMAGE, RAW_DATA, Frame, StreamReceiver
from tarn import PfncFormat
from tshark import Expected, Fields, assert_reads, capturing, dissected, faults, numbers, show

SIZE = (64, 48)
FRAMES = 3
FILE_NAME = "image.raw"
ACTION = 0x0100
ACTION_KEYS = (0x11223344, 0x55667788, 0x99AABBCC)
ACTION_REGISTERS = (0x090C, 0x9800, 0x9804)
ACTION_FIELDS = [f"gvcp.cmd.action.{key}" for key in ("devicekey", "groupkey", "groupmask")]
FAR_FUTURE = 120 * 10**9  # ticks since the camera was made: two minutes


@dataclasses.dataclass(frozen=True)
class Asked:
    """A command as it is sent, and what is to be read in it and in its answer; None for silence."""

    code: int
    payload: bytes
    asked: Expected
    answered: Expected | None
    flags: int = 1


def words(*values: int) -> bytes:
    return struct.pack(f">{len(values)}I", *values)


def conversation(address: str) -> dict[str, Asked]:
    """Every command that clients send, by name."""
    mac = (0x0254 << 32 | address_word(address)).to_bytes(6, "big")
    here = socket.inet_aton(address)
    colons = mac.hex(":")
    return {
        "DISCOVERY": Asked(
            DISCOVERY,
            b"",
            {"gvcp.cmd.flag.allowbroadcastacq": 1},
            {
                "gvcp.cmd.discovery.devicemacaddress": colons,
                "gvcp.bootstrap.currentip": address,
                "gvcp.bootstrap.modelname": "TRGevServer",
                "gvcp.bootstrap.serialnumber": mac.hex().upper(),
            },
            flags=0x11,
        ),
        "FORCEIP": Asked(
            FORCEIP,
            struct.pack(">H6s12x4s12x4s12x4x", 0, mac, here, socket.inet_aton("255.0.0.0")),
            {
                "gvcp.cmd.forceip.macaddress": colons,
                "gvcp.cmd.forceip.ip": address,
                "gvcp.cmd.forceip.subnetmask": "255.0.0.0",
                "gvcp.cmd.forceip.defaultgateway": "0.0.0.0",
            },
            None,  # somebody is in control
        ),
        "WRITEREG": Asked(
            WRITEREG,
            words(HEARTBEAT_TIMEOUT, 5000, SCPS, 1400),
            {
                "gvcp.cmd.writereg.bootstrapregister": [HEARTBEAT_TIMEOUT, SCPS],
                "gvcp.bootstrap.heartbeattimeout": 5000,
                "gvcp.bootstrap.scpsx.packetsize": 1400,
            },
            {"gvcp.cmd.writereg.dataindex": 2},
        ),
        "READREG": Asked(
            READREG,
            words(CCP, SCPS),
            {"gvcp.cmd.readreg.bootstrapregister": [CCP, SCPS]},
            {
                "gvcp.cmd.readreg.bootstrapregister": [CCP, SCPS],
                "gvcp.bootstrap.control.controlaccess": 1,
                "gvcp.bootstrap.control.exclusiveaccess": 0,
                "gvcp.bootstrap.scpsx.packetsize": 1400,
            },
        ),
        "WRITEMEM": Asked(
            WRITEMEM, words(SCDA, address_word("127.0.0.1")), {}, {"gvcp.cmd.writemem.dataindex": 4}
        ),
        "READMEM": Asked(
            READMEM,
            struct.pack(">IHH", 0x48, 0, 32),
            {"gvcp.cmd.readmem.bootstrapregister": 0x48, "gvcp.cmd.readmem.count": 32},
            {"gvcp.cmd.readmem.address": 0x48, "gvcp.bootstrap.manufacturername": "NORDHAVNOPTICS"},
        ),
        "PACKETRESEND": Asked(
            PACKETRESEND,
            struct.pack(">HHII", 0, 0x1122, 3, 0x77),
            {
                "gvcp.cmd.resend.blockid": 0x1122,
                "gvcp.cmd.resend.firstpacketid": 3,
                "gvcp.cmd.resend.lastpacketid": 0x77,
            },
            None,
            flags=0,
        ),
        "PACKETRESEND, extended": Asked(
            PACKETRESEND,
            struct.pack(">HHIIQ", 0, 0, 3, 0x77, 0x11223344556677),
            {
                "gvcp.cmd.resend.extendedblockid": 0x11223344556677,
                "gvcp.cmd.resend.firstpacketid": 3,
                "gvcp.cmd.resend.lastpacketid": 0x77,
            },
            None,
            flags=0x10,
        ),
        "ACTION": Asked(
            ACTION,
            words(*ACTION_KEYS),
            {field: key for field, key in zip(ACTION_FIELDS, ACTION_KEYS, strict=True)},
            {},
        ),
        "ACTION, scheduled": Asked(
            ACTION,
            words(*ACTION_KEYS) + struct.pack(">Q", FAR_FUTURE),
            {**dict(zip(ACTION_FIELDS, ACTION_KEYS, strict=True)), "gvcp.cmd.action.time": FAR_FUTURE},
            {},
            flags=0x81,
        ),
    }


def test_every_command_reads_as_it_was_meant(camera: Camera, tmp_path: pathlib.Path) -> None:
    need_tool("tshark")
    path = tmp_path / "commands.pcapng"
    rows = conversation(camera.address)
    first_id = 0x4000
    with capturing(camera.address, path), camera.client() as client:
        client.connect(beat=None)
        client.write_registers(*zip(ACTION_REGISTERS, ACTION_KEYS, strict=True))
        for number, row in enumerate(rows.values(), first_id):
            datagram = command(row.code, row.payload, number, row.flags)
            if row.answered is None:
                client.send_raw(datagram)
            else:
                ack = client.exchange(datagram)
                assert ack and ack.status == 0
    assert not faults(path)
    exchanged = dissected(path, "gvcp", f"gvcp.cmd.req_id >= {first_id} && gvcp.cmd.req_id < 0x5000")
    for number, (name, row) in enumerate(rows.items(), first_id):
        packets = [packet for packet in exchanged if numbers(packet, "gvcp.cmd.req_id") == [number]]
        assert len(packets) == (1 if row.answered is None else 2), name
        asked: Expected = {"gvcp.cmd.command": row.code, "gvcp.cmd.flags": row.flags}
        assert_reads(packets[0], asked | row.asked, name)
        if row.answered is not None:
            answered: Expected = {"gvcp.ack": row.code + 1, "gvcp.cmd.status": 0}
            assert_reads(packets[1], answered | row.answered, f"answer to {name}")


def test_pending_acknowledge_reads_as_it_was_meant(camera: Camera, tmp_path: pathlib.Path) -> None:
    need_tool("tshark")
    path = tmp_path / "pending.pcapng"
    gate = threading.Event()
    camera.server.node_map.AcquisitionStop.register_event_written_updated(lambda node: gate.wait(10))
    with capturing(camera.address, path), camera.client() as client:
        client.connect(beat=None)
        client.write_register(GVCP_CONFIGURATION, 0x2)
        address, _ = Features(client).register("AcquisitionStop")
        client.send_raw(command(WRITEREG, words(address, 1), 0x4000))
        answers = [client.receive(5)]
        gate.set()
        while (latest := answers[-1]) and latest.code == PENDING_ACK:
            answers.append(client.receive(5))
    pending = answers[0]
    assert pending and pending.code == PENDING_ACK
    assert not faults(path)
    packets = dissected(path, "gvcp", f"gvcp.ack == {PENDING_ACK}")
    milliseconds = struct.unpack_from(">H", pending.payload, 2)[0]
    assert_reads(
        packets[0],
        {"gvcp.cmd.req_id": 0x4000, "gvcp.ack.pendingack.timetocompletion": milliseconds},
        "PENDING_ACK",
    )


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


@dataclasses.dataclass(frozen=True)
class Session:
    """What a client saw of one stream."""

    name: str
    port: int
    extended: bool
    frames: list[Frame]


def stream_once(
    sockets: contextlib.ExitStack, camera: Camera, sent: np.ndarray, kind: str, chunks: bool, extended: bool
) -> Session:
    """A client's whole session: some frames of the payload type, with packets that are asked for again.

    Its sockets live as long as `sockets`: the capture is read by port, so no port may be used twice.
    """

    def lost(block: int, number: int, copies: int) -> bool:
        return copies == 0 and number == block

    receiver = sockets.enter_context(StreamReceiver(drop=lost, resend_from=camera.address))
    client = sockets.enter_context(camera.client())
    client.connect()
    features = Features(client)
    features.write("PayloadType", {"Image": IMAGE, "RawData": RAW_DATA, "File": FILE}[kind])
    features.write("ChunkModeActive", chunks)
    features.write("GevGVSPExtendedIDMode", extended)
    open_stream(client, receiver, 576)
    features.execute("AcquisitionStart")
    camera.wait_running()
    for _ in range(FRAMES):
        camera.send(tarn.WrappedImage.from_buffer(sent), lambda image: None)
    frames = receiver.wait_frames(FRAMES)
    features.execute("AcquisitionStop")
    client.disconnect()
    name = f"{kind}{' with chunks' * chunks}{', 64-bit ids' * extended}"
    assert all(frame.is_whole and frame.asked for frame in frames), name
    return Session(name, receiver.port, extended, frames)


def test_every_payload_type_reads_as_it_was_sent(make_camera: MakeCamera, tmp_path: pathlib.Path) -> None:
    need_tool("tshark")
    camera = make_camera(SIZE, resend=FRAMES)
    path = tmp_path / "streams.pcapng"
    sent = noise(SIZE, PfncFormat.Mono8, 0)
    with capturing(camera.address, path), contextlib.ExitStack() as sockets:
        ways = itertools.product(["Image", "RawData", "File"], [False, True], [False, True])
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
    assert len(show(path, f"gvcp.cmd.command == {PACKETRESEND}")) >= FRAMES * len(sessions)

"""A whole session on the wire, judged by tshark's GigE Vision dissectors."""

import collections
import contextlib
import dataclasses
import json
import pathlib
import socket
import struct
import subprocess
import threading
from collections.abc import Iterator, Mapping

import numpy as np
import pytest

import tarn
from conftest import Camera, address_word, need_tool, open_stream, wait_until
from features import Features
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
    discover,
)
from gvsp_receiver import Frame, StreamReceiver
from tarn import PfncFormat

Fields = list[tuple[str, str]]  # of one packet, by tshark's names, in wire order
Expected = Mapping[str, int | str | list[int]]


@contextlib.contextmanager
def capturing(address: str, path: pathlib.Path) -> Iterator[None]:
    """Record the address's UDP traffic on the loopback interface."""
    command = ["tshark", "-Q", "-i", "lo", "-f", f"udp and host {address}", "-w", str(path)]
    tshark = subprocess.Popen(command, stderr=subprocess.PIPE, text=True)
    try:

        def listening() -> bool:
            assert tshark.poll() is None, tshark.stderr.read()
            discover(address, wait=0.05)
            return path.exists() and path.stat().st_size > 1000

        wait_until(listening, "tshark records", 30)
        yield
        discover(address, wait=0.1)  # a last packet, so that the wait below knows the end
        wait_until(lambda: bool(show(path, "gvcp.cmd.command == 0x0002")), "the capture is written")
    finally:
        tshark.terminate()
        tshark.wait(10)
        tshark.stderr.close()


def show(path: pathlib.Path, condition: str, *fields: str, decode_as: str = "") -> list[str]:
    """Packets of a capture that meet a display condition, one line of fields each."""
    decode = ["-d", decode_as] if decode_as else []
    wanted = [part for field in ("frame.number", *fields) for part in ("-e", field)]
    command = ["tshark", "-r", str(path), *decode, "-Y", condition, "-T", "fields", *wanted]
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.splitlines()


def flattened(layer: object) -> Iterator[tuple[str, str]]:
    """Names and values of a dissected packet's fields, whatever groups they stand in."""
    for name, value in layer:
        if isinstance(value, str):
            yield name, value
        elif isinstance(value, list):
            yield from flattened(value)


def dissected(path: pathlib.Path, protocol: str, condition: str, decode_as: str = "") -> list[Fields]:
    """What a protocol's dissector says of each packet that meets the condition."""
    decode = ["-d", decode_as] if decode_as else []
    command_line = ["tshark", "-r", str(path), *decode, "-Y", condition, "-T", "json"]
    done = subprocess.run(command_line, capture_output=True, text=True, check=True)
    packets = json.loads(done.stdout, object_pairs_hook=list)
    layers = (dict(dict(packet)["_source"])["layers"] for packet in packets)
    return [list(flattened(dict(layer)[protocol])) for layer in layers]


def faults(path: pathlib.Path, decode_as: str = "") -> list[str]:
    """Packets that tshark calls malformed or warns about."""
    condition = "_ws.malformed || _ws.expert.severity >= 0x600000"  # warnings and errors
    return show(path, condition, "frame.protocols", "_ws.expert.message", decode_as=decode_as)


def numbers(packet: Fields, name: str) -> list[int]:
    """All values of a field, in wire order."""
    return [int(text, 0) for field, text in packet if field == name]


def assert_reads(packet: Fields, expected: Expected, what: str) -> None:
    """Fields have these values: numbers, texts, or the numbers of a field that repeats."""
    for name, value in expected.items():
        if isinstance(value, str):
            assert [text for field, text in packet if field == name] == [value], f"{what}: {name}"
        else:
            assert numbers(packet, name) == (value if isinstance(value, list) else [value]), f"{what}: {name}"


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
            {},
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
    }


def test_every_command_reads_as_it_was_meant(camera, tmp_path):
    need_tool("tshark")
    path = tmp_path / "commands.pcapng"
    rows = conversation(camera.address)
    first_id = 0x4000
    with capturing(camera.address, path), camera.client() as client:
        client.connect(beat=None)
        for number, row in enumerate(rows.values(), first_id):
            datagram = command(row.code, row.payload, number, row.flags)
            if row.answered is None:
                client.send_raw(datagram)
            else:
                assert client.exchange(datagram).status == 0
    assert not faults(path)
    exchanged = dissected(path, "gvcp", f"gvcp.cmd.req_id >= {first_id} && gvcp.cmd.req_id < 0x5000")
    for number, (name, row) in enumerate(rows.items(), first_id):
        packets = [packet for packet in exchanged if numbers(packet, "gvcp.cmd.req_id") == [number]]
        assert len(packets) == (1 if row.answered is None else 2), name
        assert_reads(
            packets[0], {"gvcp.cmd.command": row.code, "gvcp.cmd.flags": row.flags} | row.asked, name
        )
        if row.answered is not None:
            answer = {"gvcp.ack": row.code + 1, "gvcp.cmd.status": 0} | row.answered
            assert_reads(packets[1], answer, f"answer to {name}")


def test_pending_acknowledge_reads_as_it_was_meant(camera, tmp_path):
    need_tool("tshark")
    path = tmp_path / "pending.pcapng"
    gate = threading.Event()
    camera.server.node_map.AcquisitionStop.register_event_written_updated(lambda node: gate.wait(10))
    with capturing(camera.address, path), camera.client() as client:
        client.connect(beat=None)
        client.write_register(GVCP_CONFIGURATION, 0x2)
        address, _ = Features(client).register("AcquisitionStop")
        client.send_raw(command(WRITEREG, words(address, 1), 0x4000))
        pending = client.receive(5)
        gate.set()
        while client.receive(5).code == PENDING_ACK:
            pass
    assert pending.code == PENDING_ACK
    assert not faults(path)
    packets = dissected(path, "gvcp", f"gvcp.ack == {PENDING_ACK}")
    milliseconds = struct.unpack_from(">H", pending.payload, 2)[0]
    assert_reads(
        packets[0],
        {"gvcp.cmd.req_id": 0x4000, "gvcp.ack.pendingack.timetocompletion": milliseconds},
        "PENDING_ACK",
    )


def judge_stream(
    path: pathlib.Path, port: int, frames: list[Frame], picture: np.ndarray, extended: bool
) -> None:
    """Each stream packet says to the judge what the receiver understood, and the pixels are the picture's."""
    block_id, packet_id = (
        ("gvsp.blockid64", "gvsp.packetid32") if extended else ("gvsp.blockid16", "gvsp.packetid24")
    )
    long_form = 0x80 if extended else 0  # the format field is shown with the bit that marks 64-bit ids
    packets = dissected(path, "gvsp", f"gvsp && udp.dstport == {port}", f"udp.port=={port},gvsp")
    by_place: dict[tuple[int, int], Fields] = {}
    for packet in packets:
        (block,), (number,) = numbers(packet, block_id), numbers(packet, packet_id)
        by_place.setdefault((block, number), packet)
        assert numbers(packet, "gvsp.status") == [0]
    height, width = picture.shape
    for frame in frames:
        last = frame.trailer
        assert_reads(
            by_place[frame.block, 0],
            {
                "gvsp.format": long_form | 1,
                "gvsp.payloadtype": 1,
                "gvsp.timestamp": frame.leader.timestamp,
                "gvsp.pixel": PfncFormat.Mono8,
                "gvsp.sizex": width,
                "gvsp.sizey": height,
                "gvsp.offsetx": 0,
                "gvsp.offsety": 0,
                "gvsp.paddingx": 0,
                "gvsp.paddingy": 0,
            },
            f"leader of block {frame.block}",
        )
        trailer = {"gvsp.format": long_form | 2, "gvsp.payloadtype": 1, "gvsp.sizey": height}
        assert_reads(by_place[frame.block, last], trailer, f"trailer of block {frame.block}")
        data = [by_place[frame.block, number] for number in range(1, last)]
        assert {form for packet in data for form in numbers(packet, "gvsp.format")} == {long_form | 3}
        text = ":".join(value for packet in data for name, value in packet if name == "gvsp.payloaddata")
        assert bytes.fromhex(text.replace(":", "")) == picture.tobytes(), f"block {frame.block}"


@pytest.mark.parametrize("extended", [False, True])
def test_a_session_has_no_malformed_packet_and_no_warning(make_camera, tmp_path, extended):
    need_tool("tshark")
    camera: Camera = make_camera((320, 240), resend=20)
    path = tmp_path / "session.pcapng"
    picture = np.arange(320 * 240, dtype=np.uint32).astype(np.uint8).reshape(240, 320)

    def lost(block: int, number: int, copies: int) -> bool:
        return copies == 0 and number == block

    with capturing(camera.address, path):
        assert discover(camera.address)
        with (
            StreamReceiver(drop=lost, resend_from=camera.address) as receiver,
            camera.client() as client,
        ):
            client.connect()
            features = Features(client)
            if extended:
                features.write("GevGVSPExtendedIDMode", 1)
            open_stream(client, receiver)
            port = receiver.port
            features.execute("AcquisitionStart")
            camera.wait_running()
            for _ in range(20):
                camera.server.stream.send(tarn.WrappedImage.from_buffer(picture), lambda image: None)
            frames = receiver.wait_frames(20)
            features.execute("AcquisitionStop")
        assert all(frame.is_whole for frame in frames)

    found = faults(path, f"udp.port=={port},gvsp")
    assert not found, "\n".join(found[:20])
    judge_stream(path, port, frames, picture, extended)
    codes = collections.Counter(
        code
        for line in show(path, "gvcp", "gvcp.cmd.command", "gvcp.ack")
        for code in line.split("\t")[1:]
        if code
    )
    for code, at_least in {
        DISCOVERY: 1,
        DISCOVERY + 1: 1,
        PACKETRESEND: 20,
        READMEM: 10,
        READMEM + 1: 10,
    }.items():
        assert codes[f"0x{code:04x}"] >= at_least, f"{code:#x}: {codes}"

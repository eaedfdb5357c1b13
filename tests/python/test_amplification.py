"""What somebody gains who sends commands in another's name: nothing but what the standard wants answered."""

import socket
import struct
import time

import pytest

from conftest import MakeCamera
from gvcp_client import (
    ACTION,
    CCP,
    CONTROL,
    DISCOVERY,
    EXCLUSIVE,
    FIRST_URL,
    FORCEIP,
    PORT,
    READMEM,
    READREG,
    SCPD,
    SCPS,
    WRITEMEM,
    WRITEREG,
    command,
    resend_command,
)

HEADERS = 28  # IP and UDP
UNAVOIDABLE = {"DISCOVERY", "READMEM"}  # the standard makes the answer long, and open to everybody


def words(*values: int) -> bytes:
    return struct.pack(f">{len(values)}I", *values)


def answers(sock: socket.socket, address: str, datagrams: list[bytes], wait: float = 0.2) -> list[int]:
    """Sizes of all that comes back, until nothing more came for a while."""
    for datagram in datagrams:
        sock.sendto(datagram, (address, PORT))
    sizes = []
    sock.settimeout(wait)
    while True:
        try:
            sizes.append(len(sock.recv(2048)))
        except TimeoutError:
            return sizes


def strangers_commands(mac: bytes) -> dict[str, bytes]:
    forced = struct.pack(">2x6s12x4s12x4s12x4s", mac, b"\x0a\0\0\1", b"\xff\0\0\0", bytes(4))
    return {
        "DISCOVERY": command(DISCOVERY, flags=0x11),
        "FORCEIP": command(FORCEIP, forced, flags=0x11),
        "READREG, one": command(READREG, words(SCPS)),
        "READREG, all": command(READREG, words(*[SCPS] * 135)),
        "READREG, refused": command(READREG, words(0x100)),
        "READMEM": command(READMEM, struct.pack(">IHH", FIRST_URL, 0, 512)),
        "WRITEREG": command(WRITEREG, words(SCPD, 1)),
        "WRITEREG, control": command(WRITEREG, words(CCP, CONTROL)),
        "WRITEMEM": command(WRITEMEM, words(SCPD, 1)),
        "ACTION": command(ACTION, words(0, 0, 0xFFFF_FFFF)),
        "PACKETRESEND": resend_command(1, 0, 0xFF_FFFF, extended=False),
        "PACKETRESEND, long ids": resend_command(1, 0, 0xFFFF_FFFF, extended=True),
        "unknown": command(0x0077),
        "broken": b"\x42\x01\x00\x80\x00\x08\x00\x01",
    }


def test_answers_to_strangers_are_no_longer_than_questions(make_camera: MakeCamera) -> None:
    camera = make_camera(resend=4)
    with camera.client() as client, socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger:
        stranger.bind(("127.0.0.2", 0))
        client.connect()
        mac = client.read_memory(0x08, 8)[2:]  # of this camera, so that it feels addressed
        print(f"\n{'command':24} {'bytes in':>8} {'bytes out':>9} {'ratio':>6} {'with headers':>13}")
        for name, datagram in strangers_commands(mac).items():
            out = answers(stranger, camera.address, [datagram])
            ratio = sum(out) / len(datagram)
            whole = sum(size + HEADERS for size in out) / (len(datagram) + HEADERS)
            print(f"{name:24} {len(datagram):8} {sum(out):9} {ratio:6.2f} {whole:13.2f}")
            assert len(out) <= 1, name
            if name not in UNAVOIDABLE:
                assert ratio <= 1, name
        client.write_register(CCP, EXCLUSIVE)
        out = answers(stranger, camera.address, [strangers_commands(mac)["READMEM"]])
        assert sum(out) == 8  # refused, and told so in fewer bytes


def test_discovery_is_answered_a_few_times_a_second_for_each_source(make_camera: MakeCamera) -> None:
    camera = make_camera()
    with (
        socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as victim,
        socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as other,
    ):
        victim.bind(("127.0.0.2", 0))
        other.bind(("127.0.0.3", 0))
        flood = [command(DISCOVERY, flags=0x11)] * 1000
        began = time.monotonic()
        count = len(answers(victim, camera.address, flood))
        lasted = time.monotonic() - began
        print(f"\ndiscoveries: 1000 in {lasted:.1f} s, {count} answered")
        assert 20 <= count <= 64 + 50 * lasted + 1
        # Nobody else suffers, and the victim of the forgery finds the camera again in a moment.
        assert len(answers(other, camera.address, flood[:20])) == 20
        deadline = time.monotonic() + 10
        while not answers(victim, camera.address, flood[:1]):
            assert time.monotonic() < deadline


@pytest.mark.parametrize("controls", [False, True])
def test_monitors_load_the_description_at_full_speed(make_camera: MakeCamera, controls: bool) -> None:
    """Reads are bounded far above what a client loads: two million bytes come without a repeated command."""
    camera = make_camera()
    with camera.client() as client:
        client.TRIES = 1  # a datagram that was dropped is a failure
        if controls:
            client.connect()
        size = len(client.description()[1])
        for _ in range(2_000_000 // size + 1):
            client.description()


def test_forged_reads_are_bounded(make_camera: MakeCamera) -> None:
    camera = make_camera()
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as forger, camera.client() as client:
        forger.bind(("127.0.0.2", 0))
        forger.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        read = command(READMEM, struct.pack(">IHH", FIRST_URL, 0, 512))
        began, out, sent = time.monotonic(), 0, 0
        for _ in range(600):
            out += sum(answers(forger, camera.address, [read] * 50, wait=0.001))
            sent += 50 * len(read)
        lasted = time.monotonic() - began
        print(f"\nreads: {sent} bytes in, {out} bytes out in {lasted:.1f} s")
        assert out - sent <= 8_000_000 + 1_000_000 * lasted + 100_000
        assert client.read_register(SCPS) > 0  # others are served

"""What somebody gains who sends commands in another's name: nothing but what the standard wants answered."""

import contextlib
import socket
import struct
import time

import gvcp_client as gvcp
from conftest import Camera, MakeCamera, wait_until
from gvcp_client import CCP, READREG, SCPD, SCPS, WRITEREG, command, resend_command, words

UNAVOIDABLE = {"DISCOVERY", "READMEM"}  # the standard makes the answer long, and open to everybody


def answers(local: str, address: str, datagrams: list[bytes]) -> list[int]:
    """Sizes of all that comes back, until nothing more came for a while."""
    sizes: list[int] = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.bind((local, 0))
        for datagram in datagrams:
            sock.sendto(datagram, (address, gvcp.PORT))
        sock.settimeout(0.1)
        with contextlib.suppress(TimeoutError):
            while True:
                sizes.append(len(sock.recv(2048)))
    return sizes


def test_answers_to_strangers_are_no_longer_than_questions(make_camera: MakeCamera) -> None:
    camera = make_camera(resend=4)
    with camera.client() as client:
        client.connect()
        mac = client.read_memory(0x08, 8)[2:]  # of this camera, so that it feels addressed
        forced = struct.pack(">2x6s12x4s12x4s12x4s", mac, b"\x0a\0\0\1", b"\xff\0\0\0", bytes(4))
        commands = {
            "DISCOVERY": command(gvcp.DISCOVERY, flags=0x11),
            "FORCEIP": command(gvcp.FORCEIP, forced, flags=0x11),
            "READREG, one": command(READREG, words(SCPS)),
            "READREG, all": command(READREG, words(*[SCPS] * 135)),
            "READREG, refused": command(READREG, words(0x100)),
            "READMEM": command(gvcp.READMEM, words(gvcp.FIRST_URL, 512)),
            "WRITEREG": command(WRITEREG, words(SCPD, 1)),
            "WRITEREG, control": command(WRITEREG, words(CCP, gvcp.CONTROL)),
            "WRITEMEM": command(gvcp.WRITEMEM, words(SCPD, 1)),
            "ACTION": command(gvcp.ACTION, words(0, 0, 0xFFFF_FFFF)),
            "PACKETRESEND": resend_command(1, 0, 0xFF_FFFF, extended=False),
            "PACKETRESEND, long ids": resend_command(1, 0, 0xFFFF_FFFF, extended=True),
            "unknown": command(0x0077),
            "broken": b"\x42\x01\x00\x80\x00\x08\x00\x01",
        }
        for name, datagram in commands.items():
            out = answers("127.0.0.2", camera.address, [datagram])
            assert len(out) <= 1, name
            assert sum(out) <= len(datagram) or name in UNAVOIDABLE, name
        client.write_register(CCP, gvcp.EXCLUSIVE)
        assert answers("127.0.0.2", camera.address, [commands["READMEM"]]) == [8]  # refused


def test_discovery_is_answered_a_few_times_a_second_for_each_source(camera: Camera) -> None:
    flood = [command(gvcp.DISCOVERY, flags=0x11)] * 1000
    began = time.monotonic()
    count = len(answers("127.0.0.2", camera.address, flood))
    assert 20 <= count <= 64 + 50 * (time.monotonic() - began) + 1
    # Nobody else suffers, and the victim of the forgery finds the camera again in a moment.
    assert len(answers("127.0.0.3", camera.address, flood[:20])) == 20
    wait_until(lambda: answers("127.0.0.2", camera.address, flood[:1]), "the victim is answered again")

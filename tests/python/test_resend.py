"""Packets that a client asks for again: what comes, to whom, and how much."""

import contextlib
import dataclasses
import socket
import struct
import time
from collections.abc import Callable, Iterator

import pytest

import tarn
from conftest import Camera, MakeCamera, address_word, wait_until
from features import Features
from feeding import noise
from gvcp_client import (
    GVCP_CONFIGURATION,
    GVSP_CONFIGURATION,
    PORT,
    SCDA,
    SCP,
    SCPS,
    ControlClient,
    resend_command,
)
from gvsp_receiver import TRAILER, Packet
from tarn import PfncFormat

SIZE = (320, 240)
STATUS_CODES, STATUS_CODES_2 = 1 << 31 - 29, 1 << 31 - 13  # of the control configuration
EXTENDED_IDS = 0x4000_0000
CHANNEL_CAPABILITY, CHANNEL_CONFIGURATION, TO_REQUESTER = 0x0D20, 0x0D24, 1 << 31 - 28
RESENT, UNAVAILABLE, NOT_YET, EARLIER_GONE, GONE = 0x0100, 0x800C, 0x8010, 0x8011, 0x8012
RESEND, BEYOND = 0x0001, 0x0004
TO_THE_END = 0xFFFFFFFF


@dataclasses.dataclass
class Session:
    """A client that streams, and looks at every datagram."""

    camera: Camera
    client: ControlClient
    endpoint: socket.socket
    extended: bool

    def send(self, *seeds: int) -> list[bytes]:
        """Send a picture for each seed; return all their datagrams."""
        assert self.camera.server
        for seed in seeds:
            image = tarn.WrappedImage.from_buffer(noise(SIZE, PfncFormat.Mono8, seed))
            self.camera.send(image, lambda image: None)
        return self.arrived(lambda datagrams: trailers(datagrams) == len(seeds))

    def ask(self, block: int, first: int, last: int, *, extended: bool | None = None) -> None:
        wide = self.extended if extended is None else extended
        self.endpoint.sendto(resend_command(block, first, last, extended=wide), (self.camera.address, PORT))

    def arrived(
        self, complete: Callable[[list[bytes]], int] | int = 0, sock: socket.socket | None = None
    ) -> list[bytes]:
        """What comes until it is complete, or so many datagrams, and what follows on their heels."""
        enough = complete if callable(complete) else lambda datagrams: len(datagrams) >= complete
        source = sock or self.endpoint
        datagrams: list[bytes] = []
        with contextlib.suppress(TimeoutError):
            while True:
                source.settimeout(0.1 if enough(datagrams) else 10)
                datagrams.append(source.recv(65536))
        return datagrams


def packet(datagram: bytes) -> Packet:
    return Packet.decode(datagram, ("", 0))


def trailers(datagrams: list[bytes]) -> int:
    return sum(packet(datagram).kind == TRAILER for datagram in datagrams)


def stream_socket() -> socket.socket:
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 8 << 20)
    sock.bind(("127.0.0.1", 0))
    return sock


@contextlib.contextmanager
def session(camera: Camera, *, extended: bool = False, codes: int = 0, channel: int = 0) -> Iterator[Session]:
    with stream_socket() as sock, camera.client() as client:
        client.connect()
        client.write_register(GVSP_CONFIGURATION, EXTENDED_IDS if extended else 0)
        client.write_register(GVCP_CONFIGURATION, codes)
        client.write_register(CHANNEL_CONFIGURATION, channel)
        client.write_register(SCPS, 1500)
        client.write_register(SCDA, address_word("127.0.0.1"))
        client.write_register(SCP, sock.getsockname()[1])
        features = Features(client)
        features.execute("AcquisitionStart")
        camera.wait_running()
        yield Session(camera, client, sock, extended)
        features.execute("AcquisitionStop")


@pytest.mark.parametrize("codes", [0, STATUS_CODES, STATUS_CODES_2])
@pytest.mark.parametrize("extended", [False, True])
def test_resent_packets_are_the_first_ones_but_for_the_marks(
    make_camera: MakeCamera, extended: bool, codes: int
) -> None:
    with session(make_camera(SIZE, resend=2), extended=extended, codes=codes) as stream:
        first = stream.send(1, 2)
        count = len(first) // 2
        trailer = count - 1
        for block in (1, 2):
            sent = first[(block - 1) * count : block * count]
            for asked, flags in {
                (0, 0): RESEND,
                (trailer, trailer): RESEND,
                (3, 7): RESEND,
                (5, TO_THE_END if extended else 0xFFFFFF): RESEND,
                (trailer - 1, trailer + 9): RESEND | BEYOND,
            }.items():
                stream.ask(block, *asked)
                status = RESENT if codes else 0
                marks = struct.pack(">HH", status, flags if extended else block)
                expected = [marks + datagram[4:] for datagram in sent[asked[0] : asked[1] + 1]]
                assert stream.arrived(len(expected)) == expected, asked


@pytest.mark.parametrize("extended", [False, True])
def test_refusals_say_why(make_camera: MakeCamera, extended: bool) -> None:
    camera = make_camera(SIZE, resend=2)
    for codes in (0, STATUS_CODES):
        with session(camera, extended=extended, codes=codes) as stream:
            trailer = len(stream.send(1, 2, 3)) // 3 - 1
            reasons = {(1, 2, 5): EARLIER_GONE, (3, trailer + 1, trailer + 9): GONE, (4, 0, 0): NOT_YET}
            for asked, status in reasons.items():
                stream.ask(*asked)
                (answer,) = [packet(datagram) for datagram in stream.arrived(1)]
                assert answer.status == (status if codes else UNAVAILABLE), asked
                assert (answer.block, answer.number, answer.kind, answer.data) == (*asked[:2], 3, b"")
            stream.ask(3, 1, 1, extended=not extended)
            stream.ask(3, 5, 4)
            assert not stream.arrived()


def test_a_new_packet_size_ends_resends_of_older_blocks(make_camera: MakeCamera) -> None:
    camera = make_camera(SIZE, resend=4)
    with session(camera, extended=True, codes=STATUS_CODES) as stream:
        stream.send(1)
        features = Features(stream.client)
        features.execute("AcquisitionStop")
        stream.client.write_register(SCPS, 9000)
        stream.ask(1, 1, 1)
        assert packet(stream.arrived(1)[0]).number == 1  # still as it was sent
        features.execute("AcquisitionStart")
        camera.wait_running()
        larger = stream.send(2)
        assert max(map(len, larger)) == 9000 - 28
        stream.ask(1, 1, 1)
        assert packet(stream.arrived(1)[0]).status == EARLIER_GONE
        stream.ask(2, 1, 1)
        assert packet(stream.arrived(1)[0]).data == packet(larger[1]).data


def test_requests_are_no_way_to_make_a_flood(make_camera: MakeCamera) -> None:
    """However often a block is asked for: it comes twice, then requests get less than they cost."""
    with session(make_camera(SIZE, resend=2)) as stream:
        packets = len(stream.send(1))
        resent = 0
        for _ in range(20):
            time.sleep(0.005)  # longer than repeats are dropped for
            stream.ask(1, 0, 0xFFFFFF)
            resent += sum(not packet(datagram).status for datagram in stream.arrived(1))
        assert resent == 2 * packets
        for number in range(100):
            stream.ask(1, number % packets, packets)
        answers = stream.arrived(1)
        assert len(answers) <= 100
        assert {(packet(answer).status, len(answer)) for answer in answers} == {(UNAVAILABLE, 8)}


def test_resends_go_where_the_channel_is_told(make_camera: MakeCamera) -> None:
    camera = make_camera(SIZE, resend=2)
    for channel in (0, TO_REQUESTER):
        with session(camera, channel=channel) as stream, stream_socket() as other:
            assert stream.client.read_register(CHANNEL_CAPABILITY) & TO_REQUESTER
            sent = stream.send(1)
            request = resend_command(1, 2, 2, extended=False)
            other.sendto(request, (camera.address, PORT))
            goal = other if channel else stream.endpoint
            assert stream.arrived(1, goal) == [sent[2]]
            came = stream.arrived(0, other), stream.arrived()
            assert came == ([], [])
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as stranger:
                stranger.bind(("127.0.0.9", 0))
                stranger.sendto(request, (camera.address, PORT))
                assert (stream.arrived(0, stranger), stream.arrived()) == ([], [])
    silent = make_camera(SIZE)
    with silent.client() as client:
        assert not client.read_register(CHANNEL_CAPABILITY) & TO_REQUESTER


def test_what_is_asked_for_too_early_comes_in_its_turn(make_camera: MakeCamera) -> None:
    with session(make_camera(SIZE, resend=2), codes=STATUS_CODES) as stream:
        Features(stream.client).write("GevSCPD", 2_000_000)  # a tenth of a second for each image
        assert stream.camera.server
        image = tarn.WrappedImage.from_buffer(noise(SIZE, PfncFormat.Mono8, 1))
        stream.camera.send(image, lambda image: None)
        stream.endpoint.recv(65536)
        stream.ask(1, 40, 45)
        came = stream.arrived(trailers)
        packets = [packet(datagram) for datagram in came]
        assert [answer.number for answer in packets if answer.status == NOT_YET] == [40]
        assert [one.number for one in packets if one.status == 0] == list(range(1, len(packets)))
        wait_until(lambda: stream.client.read_register(SCP) != 0, "the camera serves on")

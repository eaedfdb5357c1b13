"""The control channel, as a client on the network sees it."""

import functools
import random
import re
import socket
import struct
import threading
from typing import Any

import pytest

import tarn
from conftest import Camera, MakeCamera, address_word, open_stream, wait_until
from features import Features, description
from gvcp_client import (
    ACCESS_DENIED,
    BAD_ALIGNMENT,
    CCP,
    CONTROL,
    DISCOVERY,
    EXCLUSIVE,
    FIRST_URL,
    FORCEIP,
    GVCP_CAPABILITY,
    GVCP_CONFIGURATION,
    HEARTBEAT_TIMEOUT,
    INVALID_ADDRESS,
    INVALID_HEADER,
    INVALID_PARAMETER,
    NOT_IMPLEMENTED,
    PACKETRESEND,
    PENDING_ACK,
    PORT,
    PRIMARY_ADDRESS,
    PRIMARY_PORT,
    READMEM,
    READREG,
    SCDA,
    SCP,
    SCPD,
    SCPS,
    SECOND_URL,
    SUCCESS,
    TICK_FREQUENCY_LOW,
    WRITE_PROTECT,
    WRITEMEM,
    WRITEREG,
    command,
    discover,
)
from gvsp_receiver import StreamReceiver
from tarn.gevserver import State

NOWHERE = 0x0000_0100  # reserved, between bootstrap registers
USER_NAME = 0x00E8


def words(*values: int) -> bytes:
    return struct.pack(f">{len(values)}I", *values)


def test_discovery_finds_the_camera_by_unicast_and_broadcast(make_camera: MakeCamera) -> None:
    first, second = make_camera(), make_camera()
    for target in (first.address, "127.255.255.255", "255.255.255.255"):
        found = {device.address: device for device in discover(target)}
        assert first.address in found, target
        assert (second.address in found) == (target != first.address)
        device = found[first.address]
        assert device.source == (first.address, PORT)
        assert device.version[0] == 2
        assert device.mode == 0x8000_0001  # big-endian transmitter, UTF-8
        assert any(device.mac)
        assert device.serial
        reserved = [*range(8, 10), *range(24, 36), *range(40, 52), *range(56, 68)]
        assert not any(device.payload[offset] for offset in reserved)
        assert device.manufacturer == first.server.node_map.vendor_name
        assert device.model == first.server.node_map.model_name
    devices = [
        device for device in discover("255.255.255.255") if device.address in (first.address, second.address)
    ]
    assert len({device.serial for device in devices}) == len({device.mac for device in devices}) == 2


def test_discovery_acknowledge_equals_the_registers(camera: Camera) -> None:
    with camera.client() as client:
        (device,) = discover(camera.address)
        assert client.read_memory(0, 248) == device.payload


def test_both_ways_of_reading_agree_on_every_standard_register(camera: Camera) -> None:
    mandatory = [0x0, 0x4, 0x8, 0xC, 0x10, 0x14, 0x24, 0x34, 0x44, 0x600, 0x900, 0x904, 0x92C, 0x930]
    mandatory += [
        GVCP_CAPABILITY,
        HEARTBEAT_TIMEOUT,
        0x93C,
        TICK_FREQUENCY_LOW,
        0x954,
        0x960,
        0x964,
        0x968,
        CCP,
    ]
    mandatory += [SCP, SCPS, SCPD, SCDA, 0xD1C, 0xD20, 0xD24]
    with camera.client() as client:
        for address in mandatory:
            by_register = client.read_register(address)
            assert client.read_memory(address, 4) == words(by_register), hex(address)
        assert client.read_registers(*mandatory) == tuple(map(client.read_register, mandatory))
        assert client.read_register(TICK_FREQUENCY_LOW) > 0
        assert client.read_register(HEARTBEAT_TIMEOUT) == 3000
        # One network interface; one stream channel; URL texts readable as wholes.
        assert client.read_registers(0x600, 0x904) == (1, 1)
        assert client.read_memory(FIRST_URL, 512).rstrip(b"\0").lower().startswith(b"local:")
        assert len(client.read_memory(SECOND_URL, 512)) == 512


def test_description_is_served_exactly(camera: Camera) -> None:
    with camera.client() as client:
        name, data = client.description()
        assert name.lower().endswith((".zip", ".xml"))
        url = client.read_memory(FIRST_URL, 512).split(b"\0")[0].decode()
        start, size = (int(part, 16) for part in url.split("?")[0].split(";")[1:3])
        # Other piece sizes give the same bytes. The file fills whole words; nothing behind it can be read.
        odd = b"".join(client.read_memory(start + at, min(132, size - at)) for at in range(0, size, 132))
        assert odd == data
        assert size % 4 == 0
        assert client.exchange(command(READMEM, words(start + size, 4))).status == INVALID_ADDRESS
        xml = description(client)
        assert xml.lstrip().startswith(b"<?xml")
        names = {node.get("Name") for node in Features(client).xml.iter()}
        assert names >= {
            "Width",
            "Height",
            "PixelFormat",
            "PayloadSize",
            "AcquisitionMode",
            "AcquisitionStart",
            "AcquisitionStop",
            "GevSCPSPacketSize",
            "TLParamsLocked",
            "Device",
        }


def test_who_may_do_what(camera: Camera) -> None:
    """One row per state of the control channel; the asker is a second client."""
    read, write, claim = (READREG, words(SCPS)), (WRITEREG, words(SCPD, 0)), (WRITEREG, words(CCP, CONTROL))
    with camera.client() as primary, camera.client() as other:
        rows = {
            "free": (None, {read: SUCCESS, write: ACCESS_DENIED}),
            "control": (CONTROL, {read: SUCCESS, write: ACCESS_DENIED, claim: ACCESS_DENIED}),
            "exclusive": (EXCLUSIVE, {read: ACCESS_DENIED, write: ACCESS_DENIED, claim: ACCESS_DENIED}),
            "both": (CONTROL | EXCLUSIVE, {read: ACCESS_DENIED, write: ACCESS_DENIED, claim: ACCESS_DENIED}),
        }
        for state, (privilege, expected) in rows.items():
            if privilege is not None:
                primary.write_register(CCP, privilege)
            for request, status in expected.items():
                assert other.request(*request).status == status, f"{state}: {request}"
            assert discover(camera.address, wait=0.1), state
            if privilege is not None:
                # A stranger's release changes nothing, the holder's own requests all pass.
                assert other.request(WRITEREG, words(CCP, 0)).status == ACCESS_DENIED, state
                assert primary.read_register(CCP) & (CONTROL | EXCLUSIVE), state
                primary.write_register(SCPD, 0)
                primary.write_register(CCP, 0)
        other.write_register(CCP, CONTROL)
        assert primary.request(*claim).status == ACCESS_DENIED
        other.write_register(CCP, 0)


def test_primary_is_known_by_address_and_port(camera: Camera) -> None:
    with camera.client() as primary, camera.client(local="127.0.0.2") as other:
        assert other.read_registers(PRIMARY_ADDRESS, PRIMARY_PORT) == (0, 0)
        primary.connect()
        address, port = primary.local
        assert other.read_registers(PRIMARY_ADDRESS, PRIMARY_PORT) == (address_word(address), port)
        primary.disconnect()
        assert other.read_registers(PRIMARY_ADDRESS, PRIMARY_PORT) == (0, 0)


@pytest.mark.parametrize("how", ["released", "silent"])
def test_end_of_control_closes_the_channels_and_frees_the_device(camera: Camera, how: Any) -> None:
    with StreamReceiver() as receiver, camera.client() as first, camera.client() as second:
        first.connect(beat=0.1)
        first.write_register(HEARTBEAT_TIMEOUT, 100)
        assert first.read_register(HEARTBEAT_TIMEOUT) == 500  # the standard's minimum
        open_stream(first, receiver, packet_size=1000)
        Features(first).execute("AcquisitionStart")
        camera.wait_running()
        for _ in range(10):  # others do not keep the holder alive, the heartbeat does
            second.read_register(CCP)
        if how == "released":
            first.disconnect()
        else:
            first.close()
        wait_until(lambda: second.read_register(CCP) == 0, "control falls free")
        camera.wait_state(State.Disconnected)
        assert second.read_registers(SCP, PRIMARY_PORT, PRIMARY_ADDRESS) == (0, 0, 0)
        assert second.read_register(SCPS) & 0xFFFF == 1000  # other settings stay
        second.connect()
        camera.wait_state(State.Connected)


def test_silence_within_the_timeout_is_forgiven(camera: Camera) -> None:
    with camera.client() as primary, camera.client() as other:
        primary.connect(beat=None)
        primary.write_register(HEARTBEAT_TIMEOUT, 3000)
        for _ in range(20):
            other.read_register(CCP)
        assert camera.server.state == State.Connected
        assert primary.read_register(CCP) & CONTROL


def test_refusals_have_their_status(camera: Camera) -> None:
    too_many_reads = words(*([SCPS] * 136))
    rows = [
        ("unknown command", 0x0077, b"", NOT_IMPLEMENTED),
        ("read of nothing", READREG, words(NOWHERE), INVALID_ADDRESS),
        ("read far away", READREG, words(0xFFFF_FFF0), INVALID_ADDRESS),
        ("odd address", READREG, words(SCPS + 1), BAD_ALIGNMENT),
        ("one bad of two", READREG, words(SCPS, NOWHERE), INVALID_ADDRESS),
        ("half an address", READREG, words(SCPS)[:2], INVALID_HEADER),
        ("no address", READREG, b"", INVALID_HEADER),
        ("half a pair", WRITEREG, words(SCPD), INVALID_HEADER),
        ("write to a constant", WRITEREG, words(0, 1), WRITE_PROTECT),
        ("write to nothing", WRITEREG, words(NOWHERE, 1), INVALID_ADDRESS),
        ("odd write", WRITEREG, words(SCPD + 2, 1), BAD_ALIGNMENT),
        ("odd memory address", READMEM, struct.pack(">IHH", 2, 0, 4), BAD_ALIGNMENT),
        ("odd memory count", READMEM, struct.pack(">IHH", 0, 0, 6), BAD_ALIGNMENT),
        ("memory of nothing", READMEM, struct.pack(">IHH", 0xE000_0000, 0, 4), INVALID_ADDRESS),
        (
            "memory beyond the end of the space",
            READMEM,
            struct.pack(">IHH", 0xFFFF_FFFC, 0, 8),
            INVALID_ADDRESS,
        ),
        ("too much memory", READMEM, struct.pack(">IHH", FIRST_URL, 0, 540), INVALID_PARAMETER),
        ("short memory read", READMEM, words(0), INVALID_HEADER),
        ("write to constant memory", WRITEMEM, words(0, 1), WRITE_PROTECT),
        ("write inside a text", WRITEMEM, words(USER_NAME + 4, 1), WRITE_PROTECT),
        ("odd memory write", WRITEMEM, words(SCPD) + b"\0\0", BAD_ALIGNMENT),
        ("empty memory write", WRITEMEM, words(SCPD), INVALID_HEADER),
        ("too many reads", READREG, too_many_reads, INVALID_PARAMETER),
    ]
    with camera.client() as client:
        client.connect()
        before = client.read_memory(0, 248), client.read_registers(SCP, SCPS, SCPD, SCDA)
        for what, code, payload, status in rows:
            ack = client.request(code, payload)
            assert ack.status == status, f"{what}: {ack}"
            if code in (READREG, READMEM):
                assert ack.payload == b"", what
        assert (client.read_memory(0, 248), client.read_registers(SCP, SCPS, SCPD, SCDA)) == before


def test_writes_stop_at_the_first_failure(camera: Camera) -> None:
    with camera.client() as client:
        client.connect()
        ack = client.request(WRITEREG, words(SCPD, 11, 0, 1, SCPD, 22))
        assert (ack.status, ack.payload) == (WRITE_PROTECT, struct.pack(">HH", 0, 1))
        assert client.read_register(SCPD) == 11
        assert client.write_registers((SCPD, 33), (SCDA, 0x7F000001)) == 2
        assert client.read_registers(SCPD, SCDA) == (33, 0x7F000001)
        assert client.write_memory(SCPD, words(44)) == 4
        assert client.read_register(SCPD) == 44


def test_texts_written_as_memory_are_kept_over_the_connection(make_camera: MakeCamera) -> None:
    camera = make_camera(start=False)
    note = tarn.gevserver.StringRegNode.create("Note", length=16)
    camera.server.node_map.add_node(note)
    camera.server.node_map.DeviceUserID.value = "Käfer"
    camera.server.start(camera.address)
    text = "Küche".encode().ljust(16, b"\0")
    with camera.client() as client:
        client.connect()
        assert client.write_memory(note.address, text) == 16
        # The name of the device is the program's to give: it could not be kept for a client.
        assert client.exchange(command(WRITEMEM, words(USER_NAME) + text)).status == WRITE_PROTECT
    with camera.client() as client:
        assert client.read_memory(note.address, 16) == text
    assert note.value == "Küche"
    assert discover(camera.address)[0].user_name == "Käfer"


def test_a_repeated_command_is_answered_again_but_runs_once(camera: Camera) -> None:
    calls: list[Any] = []
    node = camera.server.node_map.AcquisitionStop
    node.register_event_written_updated(calls.append)
    with camera.client() as client, camera.client() as other:
        address, _ = Features(client).register("AcquisitionStop")
        client.connect(beat=None)
        write = functools.partial(command, WRITEREG, words(address, 1))
        acks = [client.exchange(write(request_id=4711)) for _ in range(3)]
        assert {(ack.status, ack.code, ack.ack_id, ack.payload) for ack in acks} == {
            (SUCCESS, WRITEREG + 1, 4711, struct.pack(">HH", 0, 1))
        }
        assert len(calls) == 1
        # Another command, another id, another client are no repeats; an id of 0 is served although forbidden.
        assert client.exchange(command(READREG, words(CCP), request_id=4711)).payload == words(CONTROL)
        assert other.exchange(command(READREG, words(SCPS), request_id=4711)).payload != words(CONTROL)
        assert client.exchange(write(request_id=4712)).status == SUCCESS
        assert client.exchange(write(request_id=0)).ack_id == 0
        assert len(calls) == 3


@pytest.mark.parametrize(("patience", "told"), [(0, 20), (50, 100)])
def test_notices_keep_a_distance_whatever_the_program_asks_for(
    camera: Camera, patience: int, told: int
) -> None:
    """A notice says when to expect the next sign at the latest: after twice the time between notices."""
    gate = threading.Event()
    tree = camera.server.node_map
    tree.GevGVCPPendingTimeout.value = patience
    tree.AcquisitionStop.register_event_written_updated(lambda node: gate.wait(10))
    with camera.client() as client:
        address, _ = Features(client).register("AcquisitionStop")
        client.connect()
        client.write_register(GVCP_CONFIGURATION, 0x2)
        client.send_raw(command(WRITEREG, words(address, 1), request_id=999))
        notice = client.receive(5)
        gate.set()
        assert notice
        assert (notice.code, notice.payload) == (PENDING_ACK, words(told))
        while (answer := client.receive(5)) and answer.code == PENDING_ACK:
            pass
        assert answer
        assert answer.status == SUCCESS


@pytest.mark.parametrize("pending", [False, True])
def test_a_slow_listener_costs_nobody_the_connection(camera: Camera, pending: Any) -> None:
    """A listener outlasts the heartbeat timeout; others are served meanwhile, repeats run it once."""
    calls = []
    gate = threading.Event()

    def slow(node: Any) -> None:
        calls.append(node.name_only)
        gate.wait(10)

    camera.server.node_map.AcquisitionStop.register_event_written_updated(slow)
    with camera.client(timeout=2) as client, camera.client() as other:
        address, _ = Features(client).register("AcquisitionStop")
        client.connect(beat=None)
        client.write_register(HEARTBEAT_TIMEOUT, 500)
        client.write_register(GVCP_CONFIGURATION, 0x2 if pending else 0)
        opener = threading.Timer(1.5, gate.set)
        opener.start()
        client.write_register(address, 1)
        assert gate.is_set(), "acknowledged before the listener was through"
        opener.join()
        assert (client.pending_acks > 0) == pending
        assert client.read_register(CCP) & CONTROL
        assert camera.server.state == State.Connected
        # The same with a client that repeats and a second one that asks meanwhile.
        gate.clear()
        datagram = command(WRITEREG, words(address, 1), request_id=999)
        client.send_raw(datagram)
        wait_until(lambda: len(calls) == 2, "the listener is called")
        client.send_raw(datagram)
        for _ in range(20):
            assert other.read_register(CCP) & CONTROL
        gate.set()
        acks = []
        while (ack := client.receive(0.5)) is not None:
            acks.append(ack)
        assert acks
        assert {ack.ack_id for ack in acks} == {999}
        assert calls == ["AcquisitionStop"] * 2


def test_what_is_no_command_is_not_answered(camera: Camera) -> None:
    read = command(READREG, words(CCP))
    other_mac = struct.pack(">2x6s12x4s12x4s12x4s", bytes(6), *[bytes(4)] * 3)
    silent = [
        b"",
        *(read[:size] for size in range(8)),
        b"\x43" + read[1:],
        struct.pack(">HHHH", 0, READREG + 1, 0, 1),
        struct.pack(">HHHH", 0x8003, READREG + 1, 0, 1),
        command(READREG, words(CCP), flags=0),
        command(0x0077, flags=0),
        command(WRITEREG, words(SCPD, 1), flags=0),
        command(PACKETRESEND, struct.pack(">HHII", 0, 1, 0, 9)),
        command(FORCEIP, other_mac),
    ]
    with camera.client() as client:
        for datagram in silent:
            assert client.exchange(datagram, timeout=0.05) is None, datagram.hex(" ")
        client._socket.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        client._socket.sendto(read, ("127.255.255.255", PORT))
        assert client.receive(0.1) is None, "a read by broadcast was answered"
        client.connect()
        # Without the acknowledge flag a write is carried out in silence, a failing one too.
        for datagram in (
            command(WRITEREG, words(SCPD, 77), flags=0),
            command(WRITEREG, words(0, 1), flags=0),
        ):
            assert client.exchange(datagram, timeout=0.05) is None
        assert client.read_register(SCPD) == 77


def test_forced_address_does_not_touch_the_machine(camera: Camera) -> None:
    (device,) = discover(camera.address)
    payload = struct.pack(">2x6s12x4s12x4s12x4s", device.mac, b"\x7f\x4e\x00\x01", b"\xff\0\0\0", bytes(4))
    with camera.client() as client:
        answer = client.exchange(command(FORCEIP, payload, flags=0x11), timeout=0.3)
        assert answer is None or answer.status == ACCESS_DENIED
        assert discover(camera.address)[0].address == camera.address


def test_any_bytes_get_at_most_one_fitting_answer(camera: Camera) -> None:
    """Mutated commands from a primary; each is followed by a read whose answer marks the end of the wait."""
    random_ = random.Random(7)
    good = [
        command(DISCOVERY),
        command(READREG, words(CCP, SCPS)),
        command(WRITEREG, words(SCPD, 5)),
        command(READMEM, struct.pack(">IHH", FIRST_URL, 0, 64)),
        command(WRITEMEM, words(SCPD, 5)),
        command(PACKETRESEND, struct.pack(">HHII", 0, 1, 0, 0xFFFFFF)),
        command(FORCEIP, bytes(56)),
    ]
    with camera.client() as client:
        client.connect(beat=None)
        for number in range(3000):
            datagram = bytearray(random_.choice(good))
            for _ in range(random_.randrange(4)):
                datagram[random_.randrange(len(datagram))] = random_.randrange(256)
            if random_.random() < 0.3:
                datagram = datagram[: random_.randrange(len(datagram))] + random_.randbytes(
                    random_.randrange(8)
                )
            datagram[6:8] = b"\x12\x34"[: max(0, len(datagram) - 6)]
            client.send_raw(bytes(datagram))
            client.send_raw(command(READREG, words(SCPS), request_id=0x4000 + number))
            answers = []
            while (ack := client.receive(2)) is not None and ack.ack_id != 0x4000 + number:
                answers.append(ack)
            where = f"{number}: {datagram.hex(' ')}"
            assert ack is not None, f"the camera fell silent after {where}"
            assert len(answers) <= 1, where
            for answer in answers:
                flags, code = datagram[1], int.from_bytes(datagram[2:4], "big")
                assert datagram[0] == 0x42, where
                assert flags & 1, where
                assert (answer.ack_id, answer.code) == (0x1234, code + 1 & 0xFFFF), where
                assert len(answer.payload) <= 540, where
            if client.read_register(CCP) == 0:  # the mutation was a valid release
                client.write_register(CCP, CONTROL)
    assert camera.server.state in (State.Connected, State.Disconnected)


def test_start_reports_what_the_machine_refuses(make_camera: MakeCamera) -> None:
    camera = make_camera()
    twin = make_camera(start=False)
    with pytest.raises(RuntimeError, match=rf"{re.escape(camera.address)} port {PORT}.*in use"):
        twin.server.start(camera.address)
    with pytest.raises(RuntimeError, match=r"203\.0\.113\.77.*(assign|available)"):
        twin.server.start("203.0.113.77")  # a documentation address, on no interface here
    assert twin.server.state == State.Configuration
    twin.server.start(twin.address)
    assert twin.server.state == State.Disconnected
    assert discover(twin.address)

"""Every capability bit tells the truth: what is set works, and what is clear is refused."""

import struct
from collections.abc import Callable

import pytest

from conftest import Camera, MakeCamera, open_stream
from features import Features
from gvcp_client import (
    ACTION,
    ACTION_DEVICE_KEY,
    ACTION_GROUPS,
    ACTION_SIGNALS,
    CCP,
    CONTROL,
    DISCOVERY_DELAY,
    EXCLUSIVE,
    GVCP_CAPABILITY,
    GVCP_CONFIGURATION,
    GVSP_CAPABILITY,
    GVSP_CONFIGURATION,
    HEARTBEAT_TIMEOUT,
    INVALID_ADDRESS,
    MESSAGE_CAPABILITY,
    PENDING_TIMEOUT,
    PRIMARY_ADDRESS,
    PRIMARY_PORT,
    READREG,
    SCC,
    SCCFG,
    SCPD,
    SCPS,
    SCSP,
    SUCCESS,
    SWITCHOVER,
    SWITCHOVER_KEY,
    WRITE_PROTECT,
    WRITEMEM,
    WRITEREG,
    ControlClient,
    discover,
)
from gvsp_receiver import StreamReceiver

LINK_SPEED, MESSAGE_CHANNELS, MCSP = 0x0670, 0x0900, 0x0B1C
IP_CAPABILITY, IP_CONFIGURATION = 0x0010, 0x0014
LINK_CAPABILITY, LINK_CONFIGURATION = 0x0964, 0x0968
SERIAL_NUMBER, USER_NAME, MANIFEST = 0x00D8, 0x00E8, 0x9000


def words(*values: int) -> bytes:
    return struct.pack(f">{len(values)}I", *values)


def mask(bit: int) -> int:
    """The standard counts from the most significant bit."""
    return 1 << 31 - bit


def reads(client: ControlClient, *addresses: int) -> bool:
    """Whether the registers are there, each of them or none."""
    statuses = {client.request(READREG, words(address)).status for address in addresses}
    assert len(statuses) == 1
    assert statuses <= {SUCCESS, INVALID_ADDRESS}
    return statuses == {SUCCESS}


def keeps(client: ControlClient, address: int, value: int) -> bool:
    """Whether bits that are set in a register stay set; they are put back."""
    (before,) = client.read_registers(address)
    ack = client.request(WRITEREG, words(address, before | value))
    kept = ack.status == SUCCESS and client.read_register(address) & value == value
    client.request(WRITEREG, words(address, before))
    return kept


def configures(bit: int) -> Callable[[ControlClient], bool]:
    return lambda client: keeps(client, GVCP_CONFIGURATION, mask(bit))


def hands_over(client: ControlClient) -> bool:
    with ControlClient(client.device[0]) as other:
        if not reads(client, SWITCHOVER_KEY) or not keeps(client, CCP, SWITCHOVER):
            return False
        client.write_registers((SWITCHOVER_KEY, 7), (CCP, CONTROL | SWITCHOVER))
        other.write_register(CCP, 7 << 16 | CONTROL | SWITCHOVER)
        client.write_register(CCP, 7 << 16 | CONTROL)
    return client.read_register(CCP) == CONTROL


def takes_actions(client: ControlClient) -> bool:
    if not reads(client, ACTION_SIGNALS, ACTION_DEVICE_KEY, ACTION_GROUPS, ACTION_GROUPS + 4):
        return client.request(ACTION, words(0, 0, 1)).status != SUCCESS
    client.write_registers((ACTION_GROUPS, 0), (ACTION_GROUPS + 4, 1))
    assert client.read_register(ACTION_SIGNALS) > 0
    # The last signal that is counted exists, and none behind it.
    end = ACTION_GROUPS + 0x10 * client.read_register(ACTION_SIGNALS)
    assert reads(client, end - 0x10)
    assert not reads(client, end)
    return client.request(ACTION, words(0, 0, 1)).status == SUCCESS


def schedules_actions(client: ControlClient) -> bool:
    if not reads(client, 0x0970):
        return False
    client.write_registers((ACTION_GROUPS, 0), (ACTION_GROUPS + 4, 1))
    payload = words(0, 0, 1) + struct.pack(">Q", 120 * 10**9)  # two minutes after the camera was made
    return client.request(ACTION, payload, flags=0x81).status == SUCCESS


def fires_test_data(client: ControlClient) -> bool:
    with StreamReceiver() as receiver:
        open_stream(client, receiver)
        client.write_register(SCPS, mask(0) | 1000)
        (packet,) = receiver.wait_test_packets(1, 5)
        return any(packet[8:])


# What a set bit lets a client do; for a clear one the same must fail. By register and bit.
CONTROL_BITS: dict[int, Callable[[ControlClient], bool]] = {
    0: lambda client: client.request(WRITEMEM, words(USER_NAME, 1)).status != WRITE_PROTECT,
    1: lambda client: client.read_memory(SERIAL_NUMBER, 16).rstrip(b"\0") != b"",
    2: configures(31),
    3: lambda client: client.read_register(LINK_SPEED) > 0,
    4: lambda client: reads(client, PRIMARY_PORT, PRIMARY_ADDRESS),
    5: lambda client: reads(client, MANIFEST),
    6: fires_test_data,
    7: lambda client: reads(client, DISCOVERY_DELAY),
    8: lambda client: keeps(client, DISCOVERY_DELAY, 1),
    9: configures(29),
    10: hands_over,
    11: configures(28),
    12: lambda client: reads(client, 0x096C) or keeps(client, GVCP_CONFIGURATION, mask(12)),
    13: configures(13),
    14: schedules_actions,
    15: lambda client: reads(client, 0x0974),
    25: takes_actions,
    26: lambda client: configures(30)(client) and client.read_register(PENDING_TIMEOUT) > 0,
    28: lambda client: client.read_register(MESSAGE_CHANNELS) == 1,
    30: lambda client: client.write_memory(SCPD, words(5)) == 4,
    31: lambda client: client.write_registers((SCPD, 6), (SCPD, 7)) == 2,
}
BITS: dict[int, dict[int, Callable[[ControlClient], bool]]] = {
    GVCP_CAPABILITY: CONTROL_BITS,
    GVSP_CAPABILITY: {
        0: lambda client: reads(client, SCSP),
        1: lambda client: client.read_register(GVSP_CONFIGURATION) & mask(1) == 0,
        2: lambda client: reads(client, 0x0D34, 0x0D38),
        3: lambda client: reads(client, 0x0D3C),
    },
    MESSAGE_CAPABILITY: {0: lambda client: reads(client, MCSP), 1: lambda client: reads(client, 0x0B20)},
    # The host manages its addresses: what is on cannot be switched off, what is off not on.
    IP_CAPABILITY: {
        bit: lambda client, bit=bit: client.read_register(IP_CONFIGURATION) & mask(bit) != 0
        for bit in (29, 30)
    }
    | {
        31: lambda client: reads(client, 0x064C, 0x065C, 0x066C) or keeps(client, IP_CONFIGURATION, 1),
        0: lambda client: keeps(client, IP_CONFIGURATION, mask(0)),
        1: lambda client: keeps(client, IP_CONFIGURATION, mask(1)),
    },
    LINK_CAPABILITY: {
        31: lambda client: client.read_register(LINK_CONFIGURATION) == 0,
        30: lambda client: keeps(client, LINK_CONFIGURATION, 1),
        29: lambda client: keeps(client, LINK_CONFIGURATION, 2),
        28: lambda client: keeps(client, LINK_CONFIGURATION, 3),
    },
    SCC: {
        0: lambda client: keeps(client, SCPS, mask(2)),
        23: lambda client: reads(client, 0x0D30),
        27: lambda client: reads(client, 0x0D28, 0x0D2C),
    }
    | {bit: lambda client, bit=bit: keeps(client, SCCFG, mask(bit)) for bit in (24, 25, 26, 28, 29, 30, 31)},
}
# What these allow comes on the stream and the message channel, whose tests ask for it.
ELSEWHERE = {GVCP_CAPABILITY: {27, 29}}


@pytest.mark.parametrize("resend", [0, 4])
@pytest.mark.parametrize("register", BITS, ids=hex)
def test_each_bit_is_true(make_camera: MakeCamera, register: int, resend: int) -> None:
    camera = make_camera(resend=resend)
    with camera.client() as client:
        client.connect()
        capability = client.read_register(register)
        for bit, works in BITS[register].items():
            assert works(client) == (capability & mask(bit) != 0), f"bit {bit}"
        known = set(BITS[register]) | ELSEWHERE.get(register, set())
        others = [bit for bit in range(32) if capability & mask(bit) and bit not in known]
        assert not others, "set, but not tried here"


def test_resends_come_where_the_bit_says_so(make_camera: MakeCamera) -> None:
    for resend in (0, 4):
        with make_camera(resend=resend).client() as client:
            assert (client.read_register(GVCP_CAPABILITY) & mask(29) != 0) == (resend > 0)


def test_switched_off_heartbeat_and_longest_timeout_keep_a_silent_client(camera: Camera) -> None:
    with camera.client() as client, camera.client() as other:
        client.connect(beat=None)
        client.write_registers((GVCP_CONFIGURATION, mask(31)), (HEARTBEAT_TIMEOUT, 500))
        assert other.receive(0.8) is None  # nobody says anything
        assert other.read_register(CCP) == CONTROL
        # A timeout counts from the last sign of life, whenever it was written.
        client.write_registers((HEARTBEAT_TIMEOUT, 0xFFFF_FFFF), (GVCP_CONFIGURATION, 0))
        assert other.receive(0.8) is None
        assert other.read_register(CCP) == CONTROL
        assert client.read_register(HEARTBEAT_TIMEOUT) == 0xFFFF_FFFF


def test_a_delayed_discovery_holds_up_nothing_else(camera: Camera) -> None:
    with camera.client() as client:
        client.connect()
        client.write_register(DISCOVERY_DELAY, 0xFFFF)
        assert client.read_register(DISCOVERY_DELAY) == 1000  # the longest that the standard allows
        assert discover(camera.address, wait=0.2), "asked alone, a camera answers at once"
        answered = [device.address for device in discover("127.255.255.255", wait=1.5)]
        assert answered.count(camera.address) == 1
        client.write_register(CCP, EXCLUSIVE)
        assert Features(client).read("GevDiscoveryAckDelay") == 1000

"""Every capability bit tells the truth: what is set works, and what is clear is refused."""

import struct
from collections.abc import Callable

import pytest

import gvcp_client as gvcp
from conftest import MakeCamera, open_stream
from gvcp_client import CCP, CONTROL, GVCP_CONFIGURATION, SCPD, SCPS, SUCCESS, ControlClient, words
from gvsp_receiver import StreamReceiver

LINK_SPEED, MESSAGE_CHANNELS = 0x0670, 0x0900
IP_CAPABILITY, IP_CONFIGURATION = 0x0010, 0x0014
LINK_CAPABILITY, LINK_CONFIGURATION = 0x0964, 0x0968
SERIAL_NUMBER, USER_NAME, MANIFEST = 0x00D8, 0x00E8, 0x9000

Works = Callable[[ControlClient], bool]


def mask(bit: int) -> int:
    """The standard counts from the most significant bit."""
    return 1 << 31 - bit


def exist(*addresses: int) -> Works:
    """Whether the registers are there, each of them or none."""

    def read(client: ControlClient) -> bool:
        statuses = {client.request(gvcp.READREG, words(address)).status for address in addresses}
        assert statuses in ({SUCCESS}, {gvcp.INVALID_ADDRESS})
        return statuses == {SUCCESS}

    return read


def keeps(address: int, value: int) -> Works:
    """Whether bits that are set in a register stay set; they are put back."""

    def write(client: ControlClient) -> bool:
        before = client.read_register(address)
        ack = client.request(gvcp.WRITEREG, words(address, before | value))
        kept = ack.status == SUCCESS and client.read_register(address) & value == value
        client.request(gvcp.WRITEREG, words(address, before))
        return kept

    return write


def holds(address: int, test: Callable[[int], object]) -> Works:
    """Whether a register's value passes a test."""
    return lambda client: bool(test(client.read_register(address)))


def both(one: Works, other: Works) -> Works:
    return lambda client: one(client) and other(client)


def hands_over(client: ControlClient) -> bool:
    if not exist(gvcp.SWITCHOVER_KEY)(client) or not keeps(CCP, gvcp.SWITCHOVER)(client):
        return False
    with ControlClient(client.device[0]) as other:
        client.write_registers((gvcp.SWITCHOVER_KEY, 7), (CCP, CONTROL | gvcp.SWITCHOVER))
        other.write_register(CCP, 7 << 16 | CONTROL | gvcp.SWITCHOVER)
        client.write_register(CCP, 7 << 16 | CONTROL)
    return client.read_register(CCP) == CONTROL


def takes_actions(client: ControlClient) -> bool:
    groups, signals = gvcp.ACTION_GROUPS, gvcp.ACTION_SIGNALS
    if not exist(signals, gvcp.ACTION_DEVICE_KEY, groups, groups + 4)(client):
        return client.request(gvcp.ACTION, words(0, 0, 1)).status != SUCCESS
    client.write_registers((groups, 0), (groups + 4, 1))
    # The last signal that is counted exists, and none behind it.
    end = groups + 0x10 * client.read_register(signals)
    assert exist(end - 0x10)(client) and not exist(end)(client)
    return client.request(gvcp.ACTION, words(0, 0, 1)).status == SUCCESS


def schedules_actions(client: ControlClient) -> bool:
    if not exist(0x0970)(client):
        return False
    client.write_registers((gvcp.ACTION_GROUPS, 0), (gvcp.ACTION_GROUPS + 4, 1))
    payload = words(0, 0, 1) + struct.pack(">Q", 120 * 10**9)  # two minutes after the camera was made
    return client.request(gvcp.ACTION, payload, flags=0x81).status == SUCCESS


def fires_test_data(client: ControlClient) -> bool:
    with StreamReceiver() as receiver:
        open_stream(client, receiver)
        client.write_register(SCPS, mask(0) | 1000)
        (packet,) = receiver.wait_test_packets(1, 5)
        return any(packet[8:])


# What a set bit lets a client do; for a clear one the same must fail. By register and bit.
BITS: dict[int, dict[int, Works]] = {
    gvcp.GVCP_CAPABILITY: {
        0: lambda client: client.request(gvcp.WRITEMEM, words(USER_NAME, 1)).status != gvcp.WRITE_PROTECT,
        1: lambda client: client.read_memory(SERIAL_NUMBER, 16).rstrip(b"\0") != b"",
        2: keeps(GVCP_CONFIGURATION, mask(31)),
        3: holds(LINK_SPEED, bool),
        4: exist(gvcp.PRIMARY_PORT, gvcp.PRIMARY_ADDRESS),
        5: exist(MANIFEST),
        6: fires_test_data,
        7: exist(gvcp.DISCOVERY_DELAY),
        8: keeps(gvcp.DISCOVERY_DELAY, 1),
        9: keeps(GVCP_CONFIGURATION, mask(29)),
        10: hands_over,
        11: keeps(GVCP_CONFIGURATION, mask(28)),
        12: lambda client: exist(0x096C)(client) or keeps(GVCP_CONFIGURATION, mask(12))(client),
        13: keeps(GVCP_CONFIGURATION, mask(13)),
        14: schedules_actions,
        15: exist(0x0974),
        25: takes_actions,
        26: both(keeps(GVCP_CONFIGURATION, mask(30)), holds(gvcp.PENDING_TIMEOUT, bool)),
        28: holds(MESSAGE_CHANNELS, bool),
        30: lambda client: client.write_memory(SCPD, words(5)) == 4,
        31: lambda client: client.write_registers((SCPD, 6), (SCPD, 7)) == 2,
    },
    gvcp.GVSP_CAPABILITY: {
        0: exist(gvcp.SCSP),
        1: holds(gvcp.GVSP_CONFIGURATION, lambda value: value & mask(1) == 0),
        2: exist(0x0D34, 0x0D38),
        3: exist(0x0D3C),
    },
    gvcp.MESSAGE_CAPABILITY: {0: exist(gvcp.MCSP), 1: exist(0x0B20)},
    # The host manages its addresses: what is on cannot be switched off, what is off not on.
    IP_CAPABILITY: {
        29: holds(IP_CONFIGURATION, lambda value: value & mask(29)),
        30: holds(IP_CONFIGURATION, lambda value: value & mask(30)),
        31: lambda client: exist(0x064C, 0x065C, 0x066C)(client) or keeps(IP_CONFIGURATION, 1)(client),
        0: keeps(IP_CONFIGURATION, mask(0)),
        1: keeps(IP_CONFIGURATION, mask(1)),
    },
    LINK_CAPABILITY: {
        31: holds(LINK_CONFIGURATION, lambda value: value == 0),
        **{30 - way: keeps(LINK_CONFIGURATION, way + 1) for way in range(3)},
    },
    gvcp.SCC: {
        0: keeps(SCPS, mask(2)),
        23: exist(0x0D30),
        27: exist(0x0D28, 0x0D2C),
        **{bit: keeps(gvcp.SCCFG, mask(bit)) for bit in (24, 25, 26, 28, 29, 30, 31)},
    },
}
# What these allow comes on the stream and the message channel, whose tests ask for it.
ELSEWHERE = {gvcp.GVCP_CAPABILITY: {27, 29}}


@pytest.mark.parametrize("resend", [0, 4])
def test_each_bit_is_true(make_camera: MakeCamera, resend: int) -> None:
    with make_camera(resend=resend).client() as client:
        client.connect()
        assert (client.read_register(gvcp.GVCP_CAPABILITY) & mask(29) != 0) == (resend > 0)
        for register, bits in BITS.items():
            capability = client.read_register(register)
            for bit, works in bits.items():
                assert works(client) == (capability & mask(bit) != 0), f"{register:#x} bit {bit}"
            known = set(bits) | ELSEWHERE.get(register, set())
            others = [bit for bit in range(32) if capability & mask(bit) and bit not in known]
            assert not others, f"{register:#x}: set, but not tried here"

"""All at once on two cameras of one program: applications, a stranger, slow listeners, a program that stores.

Two applications control one camera each and watch the other, a third one watches both, the stranger sends
whatever comes to mind, and the program stores without a pause.
"""

import concurrent.futures
import functools
import itertools
import json
import random
import threading
import time

import pytest

import gvcp_client as gvcp
from conftest import free_address, run_python, wait_until
from features import Features
from gvcp_client import CCP, CONTROL, READREG, SUCCESS, WRITEREG, Ack, ControlClient, command, words

COUNTED, TICKET, SLOW_WRITE, SLOW_READ = range(0x0010_0000, 0x0010_0010, 4)
LEVEL = 0x9100  # an event that each store into a register sends
KEY = 0x1234
NEVER = 0xBAD  # what only those without control write
STEPS = (  # of the application in control: addresses, and whether it wants an answer
    *((COUNTED, 1), (CCP, 1), (COUNTED, 0), (COUNTED, 0), (SLOW_WRITE, 1)),
    *((SLOW_READ, 1), (COUNTED, 1), (CCP, 1), (COUNTED, 1)),
)
SETTINGS = ((gvcp.GVCP_CONFIGURATION, 2), (gvcp.SWITCHOVER_KEY, KEY))  # pending acknowledges are wanted
ACTIONS = ((gvcp.ACTION_DEVICE_KEY, 1), (gvcp.ACTION_GROUPS, 1), (gvcp.ACTION_GROUPS + 4, 1))
IDEAS = (  # of the stranger
    *((READREG, words(address)) for address in (TICKET, SLOW_READ, CCP, 0x0004_0000)),
    *((gvcp.READMEM, words(0, count)) for count in (4, 536, 3, 0)),
    *((WRITEREG, words(CCP, wish)) for wish in (0, CONTROL, (KEY + 1) << 16 | CONTROL)),
    *((WRITEREG, words(COUNTED, NEVER, SLOW_WRITE, NEVER)), (gvcp.WRITEMEM, words(COUNTED, NEVER))),
    *((gvcp.ACTION, words(1, 1, 1)), (gvcp.DISCOVERY, b""), (gvcp.PACKETRESEND, words(0, 1, 2))),
)

# Cameras, until the input ends; then prints what clients had them execute, and ends where it stands.
PROGRAM = f"""
import itertools, json, sys, threading, time
from tarn.gevserver import Int32RegNode, IntegerNode, NodeList, Server

def draw(ticket):
    ticket.value += 1

def camera(address):
    server, executed = Server.create_non_streaming(), []
    names = ("Counted", "Ticket", "SlowWrite", "SlowRead", "Stored")
    registers = [Int32RegNode.create(name, address={COUNTED} + 4 * n) for n, name in enumerate(names)]
    event, level = IntegerNode.create("EventLevel"), IntegerNode.create("EventLevelValue")
    for node in (*registers, event, level):
        server.node_map.add_node(node)
    counted, ticket, slow_write, slow_read, stored = registers
    event.value_config_as_int, level.value_config_as_node = {LEVEL}, stored
    for node in (event, level):
        server.node_map.EventControl.add(node, NodeList.Child)
    counted.register_event_written_updated(lambda node: executed.append(node.value))
    ticket.register_event_on_read_updated(draw)
    slow_write.register_event_written_updated(lambda node: time.sleep(0.05))
    slow_read.register_event_on_read_updated(lambda node: time.sleep(0.05))
    server.start(address)
    return server, executed, stored

def store():
    for number, (_, _, node) in enumerate(itertools.cycle(cameras)):
        node.value = number % 1000

cameras = [camera(address) for address in sys.argv[1:]]
threading.Thread(target=store, daemon=True).start()
print("started", flush=True)
sys.stdin.read()
timeouts = [server.node_map.DeviceHeartbeatTimeouts.value for server, _, _ in cameras]
print(json.dumps([timeouts, [executed for _, executed, _ in cameras]]))
"""


def converse(client: ControlClient, *datagrams: bytes, patience: float) -> dict[int, Ack]:
    """Send without a wait in between; the final answers, each once and in order, by their ids."""
    waited = {int.from_bytes(datagram[6:8], "big"): datagram for datagram in datagrams if datagram[1]}
    answers: dict[int, Ack] = {}
    end = time.monotonic() + patience
    for datagram in datagrams:
        client.send_raw(datagram)
    while len(answers) < len(waited) and (left := end - time.monotonic()) > 0:
        ack = client.receive(left)
        if ack and ack.code != gvcp.PENDING_ACK and ack.ack_id in waited:
            assert ack.ack_id not in answers
            answers[ack.ack_id] = ack
    others = [ident for ident in answers if waited[ident][8:] != words(CCP)]  # which heartbeats may pass
    assert others == sorted(others)
    return answers


def control(device: str, local: str, ending: threading.Event) -> int:
    """Counts upwards in a register with a listener, and beats in between; how far it came.

    Some commands at once, two of them without acknowledge; then the last one again.
    """
    sent, ids = 0, itertools.count(1000)
    with ControlClient(device, local=local, timeout=2.0) as client, gvcp.EventReceiver(local) as events:
        client.write_registers((CCP, CONTROL | gvcp.SWITCHOVER), *SETTINGS, *ACTIONS)
        events.open_channel(client)
        client.write_register(Features(client).register("EventNotification")[0] + 4 * LEVEL, 1)
        while not ending.is_set():
            datagrams = []
            for address, flags in STEPS:
                sent += address == COUNTED
                write = address in (COUNTED, SLOW_WRITE)
                code, payload = (WRITEREG, words(address, sent)) if write else (READREG, words(address))
                datagrams.append(command(code, payload, next(ids), flags))
            answers = converse(client, *datagrams, patience=10).values()
            assert [ack.status for ack in answers] == [SUCCESS] * sum(flags for _, flags in STEPS)
            (again,) = converse(client, datagrams[-1], patience=10).values()
            assert again.status == SUCCESS
    return sent


def look_on(device: str, local: str, ending: threading.Event) -> int:
    """Draws tickets, whose numbers ascend, and asks who is there; the number of answers."""
    answered, ids = 0, itertools.count(1000)
    with ControlClient(device, local=local) as client:
        while not ending.wait(0.2):
            converse(client, command(gvcp.DISCOVERY, request_id=next(ids)), patience=1.0)
            reads = {next(ids): address for address in (TICKET, TICKET, SLOW_READ, TICKET, CCP)}
            datagrams = [command(READREG, words(address), ident) for ident, address in reads.items()]
            answers = converse(client, *datagrams, patience=1.0)  # cameras may drop what is too much
            values = [(reads[ident], int.from_bytes(ack.payload, "big")) for ident, ack in answers.items()]
            tickets = [value for address, value in values if address == TICKET]
            assert tickets == sorted(set(tickets))
            assert all(value & CONTROL for address, value in values if address == CCP)
            answered += len(answers)
    return answered


def disturb(device: str, local: str, ending: threading.Event) -> None:
    """Sends whatever comes to mind, as fast as the camera takes it in."""
    with ControlClient(device, local=local) as client:
        while not ending.is_set():
            for _ in range(30):
                code, payload = random.choice(IDEAS)
                said = command(code, payload, random.randrange(1, 1000), flags=random.choice((0, 1)))
                client.send_raw(random.choice((said, said, said, said[:-3], random.randbytes(40))))
            # The kernel's queue of the camera never fills up.
            asked = command(READREG, words(gvcp.HEARTBEAT_TIMEOUT), 1000)
            converse(client, asked, patience=1.0)


def test_nothing_is_lost_under_load(request: pytest.FixtureRequest) -> None:
    devices = [free_address(), free_address()]
    one, other, third, strange = (f"127.0.0.{host}" for host in (2, 3, 4, 5))
    calm, leave, silence = threading.Event(), threading.Event(), threading.Event()
    with run_python(PROGRAM, *devices) as program, concurrent.futures.ThreadPoolExecutor(8) as pool:
        assert program.stdout.readline() == "started\n"
        try:
            ends = zip(devices, (one, other), strict=True)
            primaries = [pool.submit(control, device, local, leave) for device, local in ends]
            for device in devices:
                with ControlClient(device) as client:
                    wait_until(functools.partial(client.read_register, CCP), "control is taken")
            ends = zip(devices * 2, (other, one, third, third), strict=True)
            monitors = [pool.submit(look_on, device, local, calm) for device, local in ends]
            strangers = [pool.submit(disturb, device, strange, silence) for device in devices]
            time.sleep(request.config.getoption("--stress"))
            calm.set()
            assert any([monitor.result() for monitor in monitors])
            leave.set()  # who is in control beats to the last
            sent = [primary.result() for primary in primaries]
            out, errors = program.communicate(timeout=60)  # ends in the middle of the flood
        finally:
            for event in (calm, leave, silence):
                event.set()
        for stranger in strangers:
            stranger.result()
    assert (program.returncode, errors) == (0, "")
    timeouts, executed = json.loads(out)
    assert timeouts == [0, 0]
    assert executed == [list(range(1, count + 1)) for count in sent]

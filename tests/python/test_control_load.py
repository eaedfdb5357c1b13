"""All at once on two cameras of one program: applications, a stranger, slow listeners, a program that stores.

Two applications control one camera each and watch the other, a third one watches both, the stranger sends
whatever comes to mind, and the program stores without a pause.
"""

import abc
import collections
import contextlib
import itertools
import json
import random
import statistics
import threading
import time
from collections.abc import Sequence

import pytest

import gvcp_client as gvcp
from conftest import free_address, run_python
from features import Features
from gvcp_client import CCP, CONTROL, READREG, SUCCESS, WRITEREG, Ack, ControlClient, EventReceiver, command
from test_camera_control import words

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

# Cameras, until the input ends; then prints what clients had them execute, and ends where it stands.
PROGRAM = f"""
import json, sys, threading, time
from tarn.gevserver import Int32RegNode, IntegerNode, NodeList, Server

def draw(ticket):
    ticket.value += 1

def camera(address):
    server = Server.create_non_streaming()
    tree = server.node_map
    names = ("Counted", "Ticket", "SlowWrite", "SlowRead", "Stored", "Level")
    registers = [Int32RegNode.create(name, address={COUNTED} + 4 * n) for n, name in enumerate(names)]
    event, level = IntegerNode.create("EventLevel"), IntegerNode.create("EventLevelValue")
    for node in (*registers, event, level):
        tree.add_node(node)
    event.value_config_as_int, level.value_config_as_node = {LEVEL}, registers[-1]
    for node in (event, level):
        tree.EventControl.add(node, NodeList.Child)
    executed = []
    counted, ticket, slow_write, slow_read, *stored = registers
    counted.register_event_written_updated(lambda node: executed.append(node.value))
    ticket.register_event_on_read_updated(draw)
    slow_write.register_event_written_updated(lambda node: time.sleep(0.05))
    slow_read.register_event_on_read_updated(lambda node: time.sleep(0.05))
    server.start(address)
    return server, executed, stored

def store(nodes):
    number = 0
    while True:
        number = (number + 1) % 1000
        for node in nodes:
            node.value = number

cameras = [camera(address) for address in sys.argv[1:]]
nodes = [node for _, _, stored in cameras for node in stored]
threading.Thread(target=store, args=(nodes,), daemon=True).start()
print("started", flush=True)
sys.stdin.read()
timeouts = [server.node_map.DeviceHeartbeatTimeouts.value for server, _, _ in cameras]
print(json.dumps([timeouts, [executed for _, executed, _ in cameras]]))
"""

Faults = collections.Counter[str]


class Party(abc.ABC):
    """Somebody with a socket towards a camera, who acts again and again on a thread until the end."""

    @abc.abstractmethod
    def act(self) -> None: ...

    def __init__(self, device: str, local: str) -> None:
        self.client = ControlClient(device, local=local, timeout=2.0)
        self.ids = itertools.count(1000)
        self.faults: Faults = collections.Counter()
        self.stop = threading.Event()
        self.thread = threading.Thread(target=self._play)

    def _play(self) -> None:
        try:
            while not self.stop.is_set():
                self.act()
        except Exception as error:
            self.faults[f"{type(self).__name__}: {error!r}"] += 1

    def converse(self, *datagrams: bytes, patience: float) -> list[tuple[Ack, float]]:
        """Send without a wait in between; the final answers, and the seconds they took."""
        waited = [int.from_bytes(datagram[6:8], "big") for datagram in datagrams if datagram[1]]
        answers: list[tuple[Ack, float]] = []
        begin = time.monotonic()
        for datagram in datagrams:
            self.client.send_raw(datagram)
        while len(answers) < len(waited) and (left := begin + patience - time.monotonic()) > 0:
            ack = self.client.receive(left)
            if ack and ack.code != gvcp.PENDING_ACK and ack.ack_id in waited:
                answers.append((ack, time.monotonic() - begin))
        beats = {int.from_bytes(datagram[6:8], "big") for datagram in datagrams if datagram[8:] == words(CCP)}
        ids = [ack.ack_id for ack, _ in answers if ack.ack_id not in beats]  # which may pass the others
        self.faults["answers come out of order"] += ids != sorted(ids)
        self.faults["answers come twice"] += len(ids) - len(set(ids))
        return answers


def end(parties: Sequence[Party]) -> None:
    for party in parties:
        party.stop.set()
    for party in parties:
        party.thread.join()
        party.client.close()


class Primary(Party):
    """The application in control: counts upwards in a register with a listener, and beats in between."""

    def __init__(self, device: str, local: str) -> None:
        super().__init__(device, local)
        self.events = EventReceiver(local)
        self.client.write_registers((CCP, CONTROL | gvcp.SWITCHOVER), *SETTINGS, *ACTIONS)
        self.events.open_channel(self.client)
        self.client.write_register(Features(self.client).register("EventNotification")[0] + 4 * LEVEL, 1)
        self.sent = 0
        self.acknowledged: set[int] = set()
        self.beats: list[float] = []

    def act(self) -> None:
        """Some commands at once, two of them without acknowledge; then the last one again."""
        asked, datagrams = {}, []
        for address, flags in STEPS:
            self.sent += address == COUNTED
            ident = next(self.ids)
            asked[ident] = address, self.sent
            write = address in (COUNTED, SLOW_WRITE)
            payload = words(address, self.sent) if write else words(address)
            datagrams.append(command(WRITEREG if write else READREG, payload, ident, flags))
        answers = self.converse(*datagrams, patience=10)
        self.faults["commands in control are not answered"] += sum(flags for _, flags in STEPS) - len(answers)
        for ack, seconds in answers:
            address, number = asked[ack.ack_id]
            self.faults["commands in control are refused"] += ack.status != SUCCESS
            if address == COUNTED:
                self.acknowledged.add(number)
            elif address == CCP:
                self.beats.append(seconds)
                self.faults["control is lost"] += not int.from_bytes(ack.payload, "big") & CONTROL
        again = self.converse(datagrams[-1], patience=10)
        self.faults["a repeat is not answered"] += [ack.status for ack, _ in again] != [SUCCESS]

    def check(self, executed: list[int], timeouts: int) -> None:
        times = collections.Counter(executed)
        self.faults["heartbeats time out"] += timeouts
        self.faults["somebody without control has written"] += times[NEVER]
        self.faults["writes are executed out of order"] += executed != sorted(executed)
        for number in range(1, self.sent + 1):
            kind = "acknowledged" if number in self.acknowledged else "unacknowledged"
            self.faults[f"{kind} writes are not executed just once"] += times[number] != 1


class Monitor(Party):
    """An application that looks on: draws tickets, whose numbers ascend, and asks who is there."""

    asked = answered = 0

    def act(self) -> None:
        self.converse(command(gvcp.DISCOVERY, request_id=next(self.ids)), patience=1.0)
        reads = {next(self.ids): address for address in (TICKET, TICKET, SLOW_READ, TICKET, CCP)}
        datagrams = [command(READREG, words(address), ident) for ident, address in reads.items()]
        answers = self.converse(*datagrams, patience=1.0)  # cameras may drop what is too much
        self.asked += len(reads)
        self.answered += len(answers)
        values = [
            (reads[ack.ack_id], int.from_bytes(ack.payload, "big")) for ack, _ in answers if ack.payload
        ]
        tickets = [value for address, value in values if address == TICKET]
        self.faults["reads are executed out of order"] += tickets != sorted(set(tickets))
        self.faults["control is lost"] += any(a == CCP and not value & CONTROL for a, value in values)
        time.sleep(0.2)


IDEAS = (
    *((READREG, words(address)) for address in (TICKET, SLOW_READ, CCP, 0x0004_0000)),
    *((gvcp.READMEM, words(0, count)) for count in (4, 536, 3, 0)),
    *((WRITEREG, words(CCP, wish)) for wish in (0, CONTROL, (KEY + 1) << 16 | CONTROL)),
    *((WRITEREG, words(COUNTED, NEVER, SLOW_WRITE, NEVER)), (gvcp.WRITEMEM, words(COUNTED, NEVER))),
    *((gvcp.ACTION, words(1, 1, 1)), (gvcp.DISCOVERY, b""), (gvcp.PACKETRESEND, words(0, 1, 2))),
)


class Stranger(Party):
    """Sends whatever comes to mind, as fast as the camera takes it in."""

    def act(self) -> None:
        for _ in range(30):
            code, payload = random.choice(IDEAS)
            said = command(code, payload, random.randrange(1, 1000), flags=random.choice((0, 1)))
            self.client.send_raw(random.choice((said, said, said, said[:-3], random.randbytes(40))))
        ident = next(self.ids)
        begin = time.monotonic()  # the kernel's queue of the camera never fills up
        self.client.send_raw(command(READREG, words(gvcp.HEARTBEAT_TIMEOUT), ident))
        while (left := begin + 1 - time.monotonic()) > 0 and (ack := self.client.receive(left)):
            if ack.ack_id == ident:
                return


def test_nothing_is_lost_under_load(
    request: pytest.FixtureRequest, capsys: pytest.CaptureFixture[str]
) -> None:
    devices = [free_address(), free_address()]
    one, other, third, strange = (f"127.0.0.{host}" for host in (2, 3, 4, 5))
    with contextlib.ExitStack() as stack:
        program = stack.enter_context(run_python(PROGRAM, *devices))
        assert program.stdout.readline() == "started\n"
        primaries = [Primary(device, local) for device, local in zip(devices, (one, other), strict=True)]
        monitors = [Monitor(*ends) for ends in zip(devices * 2, (other, one, third, third), strict=True)]
        strangers = [Stranger(device, strange) for device in devices]
        for primary in primaries:
            stack.enter_context(primary.events)
        everybody = [*monitors, *primaries, *strangers]
        for party in everybody:
            party.thread.start()
        stack.callback(end, everybody)
        time.sleep(request.config.getoption("--stress"))
        for applications in (monitors, primaries):  # who is in control beats to the last
            end(applications)
        out, errors = program.communicate(timeout=60)  # ends in the middle of the flood
    assert (program.returncode, errors) == (0, "")
    for primary, timeouts, executed in zip(primaries, *json.loads(out), strict=True):
        primary.check(executed, timeouts)
    faults = sum((party.faults for party in everybody), collections.Counter())
    beats = statistics.quantiles((seconds for primary in primaries for seconds in primary.beats), n=100)
    answered = sum(monitor.answered for monitor in monitors) / sum(monitor.asked for monitor in monitors)
    with capsys.disabled():
        print(f" heartbeats within {beats[98] * 1e3:.0f} ms (99 %), others answered {answered:.0%}", end=" ")
    assert not +faults
    assert answered > 0

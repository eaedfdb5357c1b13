"""tshark and its dissectors of the control and the stream protocol judge what goes over the network."""

import contextlib
import json
import pathlib
import socket
import subprocess
from collections.abc import Iterator
from typing import Any

from conftest import wait_until
from gvcp_client import DISCOVERY, PORT, command, discover

Fields = list[tuple[str, str]]  # of one packet, by tshark's names, in wire order
Expected = dict[str, int | str | list[int]]

_LAST_ID = 0xFFFE  # request id of the packet that ends a capture


@contextlib.contextmanager
def capturing(address: str, path: pathlib.Path) -> Iterator[None]:
    """Record the address's UDP traffic on the loopback interface."""
    recorder = ["tshark", "-Q", "-i", "lo", "-f", f"udp and host {address}", "-w", str(path)]
    tshark = subprocess.Popen(recorder, stderr=subprocess.DEVNULL)
    try:

        def listening() -> bool:
            assert tshark.poll() is None, "tshark ended"
            discover(address, wait=0.05)
            return path.exists() and path.stat().st_size > 1000

        wait_until(listening, "tshark records", 30)
        yield
        with socket.socket(type=socket.SOCK_DGRAM) as last:
            last.sendto(command(DISCOVERY, request_id=_LAST_ID), (address, PORT))
        wait_until(lambda: bool(show(path, f"gvcp.cmd.req_id == {_LAST_ID}")), "the capture is written")
    finally:
        tshark.terminate()
        tshark.wait(10)


def _read(path: pathlib.Path, condition: str, decode_as: str, *options: str) -> str:
    """What tshark prints of packets that meet a display condition.

    `decode_as` holds protocols of ports, as tshark's option ``-d`` takes them, parted by blanks.
    """
    decode = [part for rule in decode_as.split() for part in ("-d", rule)]
    command_line = ["tshark", "-r", str(path), *decode, "-Y", condition, *options]
    return subprocess.run(command_line, capture_output=True, text=True, check=False).stdout


def show(path: pathlib.Path, condition: str, *fields: str, decode_as: str = "") -> list[str]:
    """Packets of a capture that meet a display condition, one line of fields each."""
    wanted = [part for field in ("frame.number", *fields) for part in ("-e", field)]
    return _read(path, condition, decode_as, "-T", "fields", *wanted).splitlines()


def flattened(layer: Any) -> Iterator[tuple[str, str]]:
    """Names and values of a dissected packet's fields, whatever groups they stand in."""
    for name, value in layer:
        if isinstance(value, str):
            yield name, value
        elif isinstance(value, list):
            yield from flattened(value)


def dissected(path: pathlib.Path, protocol: str, condition: str, decode_as: str = "") -> list[Fields]:
    """What the dissectors of UDP and of `protocol` say of each packet that meets the condition."""
    packets = json.loads(_read(path, condition, decode_as, "-T", "json"), object_pairs_hook=list)
    layers = (dict(dict(packet)["_source"])["layers"] for packet in packets)
    return [[*flattened(dict(layer)["udp"]), *flattened(dict(layer)[protocol])] for layer in layers]


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

"""Networks of their own: hosts are network namespaces, joined by virtual cables, with a lossy router at will.

Everything goes with the context that made it. What a thread opens inside a host stays there, so cameras and
clients of the test's own process can live on different hosts; other programs are started there by `command`.
"""

import contextlib
import ctypes
import dataclasses
import itertools
import os
import subprocess
from collections.abc import Iterator

import pytest

from conftest import need_tool

_CLONE_NEWNET = 0x4000_0000
_libc = ctypes.CDLL(None)
_numbers = itertools.count(1)


def _run(*command: str, text: str | None = None) -> str:
    done = subprocess.run(command, input=text, capture_output=True, text=True)
    assert done.returncode == 0, f"{' '.join(command)}: {done.stderr}"
    return done.stdout


@dataclasses.dataclass(frozen=True)
class Host:
    """One namespace, by its name, with one interface, `wire`, that has the IPv4 address."""

    name: str
    address: str  # in a network of 256

    def ip(self, *arguments: str) -> str:
        """Run `ip` in the namespace."""
        return _run("ip", "-n", self.name, *arguments)

    def command(self, *command: str) -> list[str]:
        """The command line that runs a program on this host."""
        return ["ip", "netns", "exec", self.name, *command]

    @contextlib.contextmanager
    def inside(self) -> Iterator[None]:
        """Sockets and threads that the calling thread makes meanwhile belong to this host."""
        with open("/proc/thread-self/ns/net") as home, open(f"/run/netns/{self.name}") as there:
            assert _libc.setns(there.fileno(), _CLONE_NEWNET) == 0
            try:
                yield
            finally:
                assert _libc.setns(home.fileno(), _CLONE_NEWNET) == 0


def enter_own_network() -> None:
    """A network with nothing but loopback, for the calling thread and what it starts from now on."""
    if _libc.unshare(_CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    _run("ip", "link", "set", "lo", "up")


def need_namespaces() -> None:
    """Skip the test when it may not make namespaces."""
    need_tool("ip")
    if os.geteuid() != 0:
        pytest.skip("network namespaces need root")


@contextlib.contextmanager
def _namespace() -> Iterator[str]:
    name = f"tarn-{os.getpid()}-{next(_numbers)}"
    _run("ip", "netns", "add", name)
    try:
        _run("ip", "-n", name, "link", "set", "lo", "up")
        yield name
    finally:
        _run("ip", "netns", "delete", name)


def _cable(host: Host, other: str, other_end: str, other_address: str) -> None:
    """From the host's interface to one of another namespace; both get their addresses."""
    peer = ("peer", "name", other_end, "netns", other)
    host.ip("link", "add", "wire", "type", "veth", *peer)
    for name, end, address in ((host.name, "wire", host.address), (other, other_end, other_address)):
        _run("ip", "-n", name, "address", "add", f"{address}/24", "broadcast", "+", "dev", end)
        _run("ip", "-n", name, "link", "set", end, "up")


@contextlib.contextmanager
def two_hosts() -> Iterator[tuple[Host, Host]]:
    """Two hosts on one cable: the camera's and the client's."""
    need_namespaces()
    with _namespace() as one, _namespace() as other:
        hosts = Host(one, "10.77.1.1"), Host(other, "10.77.1.2")
        _cable(hosts[0], other, "wire", hosts[1].address)
        yield hosts


@dataclasses.dataclass(frozen=True)
class Router:
    """The host in the middle; passes everything on until it is told to lose some."""

    name: str

    def lose(self, percent: int) -> None:
        """From now on each UDP datagram, in either direction, is lost with this probability."""
        rule = f"meta l4proto udp numgen random mod 100 < {percent} counter drop"
        self._nft(f"table ip loss {{ chain pass {{ type filter hook forward priority 0; {rule}; }}; }}\n")

    def lose_nothing(self) -> None:
        self._nft("delete table ip loss\n")

    def lost(self) -> int:
        """Datagrams lost so far."""
        rules = self._nft("list table ip loss\n").split()
        return int(rules[rules.index("packets") + 1])

    def _nft(self, text: str) -> str:
        return _run("ip", "netns", "exec", self.name, "nft", "-f", "-", text=text)


@contextlib.contextmanager
def routed_hosts() -> Iterator[tuple[Host, Router, Host]]:
    """The camera's host, a router, and the client's host."""
    need_namespaces()
    need_tool("nft")
    with _namespace() as camera, _namespace() as router, _namespace() as client:
        hosts = Host(camera, "10.77.1.2"), Host(client, "10.77.2.2")
        for number, host in enumerate(hosts, 1):
            _cable(host, router, f"eth{number}", gateway := f"10.77.{number}.1")
            host.ip("route", "add", "default", "via", gateway)
        _run("ip", "netns", "exec", router, "sysctl", "-q", "-w", "net.ipv4.ip_forward=1")
        yield hosts[0], Router(router), hosts[1]

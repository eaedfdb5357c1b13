"""Links that nobody receives on, so that no receive path is on the sender's account.

On loopback a sender pays for the way through the receiving stack, too, up to the socket that drops: with
trains (``UDP_SEGMENT``) most of its time, as trains are cut only there. Of the devices that a kernel has
without hardware, these were tried with the bare loop and images of 4 MiB in packets of 1500 bytes:

======================  ======================  ======================
MB per CPU second       single packets          trains
======================  ======================  ======================
loopback                573                     2215
veth, far end drops     643                     7864
ifb                     918                     8619
======================  ======================  ======================

The intermediate functional block (``ifb``) is best: it frees what it is given in its transmit function,
unless traffic control sent it there, and counts packets and bytes; nothing is queued for a softirq, and no
other thread works for it. What is left is what a sender pays with a network card, but for the card's own
descriptors. It keeps the queueing discipline that it gets by default, which lets packets pass while none
waits, as a card's does; without one it is not faster. A bridge without ports comes to much the same, by a way
that is no card's. Behind a veth pair each packet is queued to the far end and taken out again, on the same
core and mostly on the sender's account. Its far end drops what is not for its hardware address, first thing
in the IP layer; a rule of the packet filter is no faster.

Where a device drops for a wrong reason, without a route or a neighbour, a sender looks ten times as fast:
`Link.udp_payload` tells how much the device was given.

``silent`` takes whole trains, as cards do that cut them (``tx-udp-segmentation``). For ``silent-cut`` the
kernel cuts them just ahead of the device, as for cards that do not.

A camera sends to nobody but the address of the client that controls it. So the client is a host of its own,
behind a virtual cable for commands, and a rule of the camera's host leads all but the answers to commands
onto the silent link instead. Both hosts are network namespaces without a name, which end with the process
and its children.

`open_cable` makes two such hosts with nothing but the cable, for benches whose client receives.
"""

import argparse
import contextlib
import ctypes
import dataclasses
import os
import pathlib
import subprocess
import sys
from collections.abc import Iterator

from programs import LOOPBACK

NOBODY = 4000  # the port for what nobody receives
_PORT = 3956  # of commands
_CLONE_NEWNET = 0x4000_0000  # Source: Linux, sched.h
_NOBODY = "02:00:00:00:00:02"  # a hardware address that no device has
_LARGEST_MTU = 65535
_HEADERS = 14 + 20 + 8  # Ethernet, IP and UDP: of what is handed to the device, a packet or a train
_RECEIVE_BYTES, _RECEIVE_PACKETS, _SEND_BYTES, _SEND_PACKETS = 0, 1, 8, 9  # columns of /proc/net/dev

_libc = ctypes.CDLL(None, use_errno=True)


@dataclasses.dataclass(frozen=True)
class Link:
    """What a stream goes out on.

    Parameters
    ----------
    device : str
        The interface.
    network : str
        That of the cameras' addresses, the first three numbers.
    destination : str
        The client's address; on a silent link nobody receives what is sent to it.
    client_host : int, optional
        Descriptor of the client's network namespace, when it is another.
    silent : bool
        Nobody receives the stream.
    """

    device: str
    network: str
    destination: str
    client_host: int | None = None
    silent: bool = False

    @contextlib.contextmanager
    def at_the_client(self) -> Iterator[None]:
        """Sockets that the calling thread makes meanwhile are the client's."""
        if self.client_host is None:
            yield
            return
        home = _own_host()
        _checked(_libc.setns(self.client_host, _CLONE_NEWNET))
        try:
            yield
        finally:
            _checked(_libc.setns(home, _CLONE_NEWNET))
            os.close(home)

    def camera_address(self, number: int) -> str:
        """An address for a camera; `number` from 3 to 254."""
        return f"{self.network}.{number}"

    def udp_payload(self) -> int:
        """Bytes of UDP payload that the device was given so far, however they were joined to trains."""
        lines = pathlib.Path("/proc/net/dev").read_text().splitlines()
        (words,) = (line.split(":")[1].split() for line in lines if line.split(":")[0].strip() == self.device)
        counts = list(map(int, words))
        # An ifb counts what it is given as received.
        columns = (
            (_SEND_BYTES, _SEND_PACKETS) if counts[_SEND_PACKETS] else (_RECEIVE_BYTES, _RECEIVE_PACKETS)
        )
        return counts[columns[0]] - _HEADERS * counts[columns[1]]


LOOP = Link("lo", "127.88.0", LOOPBACK)
NAMES = ("loopback", "silent", "silent-cut", "veth")


def add_link_option(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("--link", choices=NAMES, default="loopback", help="what the stream goes out on")


def open_link(name: str) -> Link:
    """The link of that name, made for this process and its children, in a network of their own.

    To be called before there are threads. Ends the program with a word when it has no right to do that.
    """
    if name == "loopback":
        return LOOP
    link = _two_hosts(name, silent=True)
    _join("control", link)
    _ip("route", "add", link.destination, "dev", "control", "table", "100")
    _ip("rule", "add", "ipproto", "udp", "sport", _PORT, "lookup", "100")
    _make_silent(name)
    _give_addresses(link)
    _ip("neighbour", "add", link.destination, "lladdr", _NOBODY, "dev", name, "nud", "permanent")
    return link


def open_cable(rate: str | None = None) -> Link:
    """A virtual cable between camera and client, for everything, as `open_link` makes links.

    Parameters
    ----------
    rate : str, optional
        What it carries from the camera, as `tc` writes it; the queue in front holds 2 MB.
    """
    link = _two_hosts("cable", silent=False)
    _join(link.device, link)
    _give_addresses(link)
    if rate:
        shaper = ("tbf", "rate", rate, "burst", "64k", "limit", "2m")
        _run("tc", "qdisc", "add", "dev", link.device, "root", *shaper)
    return link


def _two_hosts(device: str, *, silent: bool) -> Link:
    """Moves this process to the camera's; the link between them is still to be made."""
    try:
        link = Link(device, "10.88.1", "10.88.1.2", _new_host(), silent)
        _new_host()
    except OSError as error:
        sys.exit(f"skipped: no network of its own ({error}); run as root, or under `unshare -rn`")
    return link


def _join(device: str, link: Link) -> None:
    """A virtual cable from a new device here to the client's."""
    there = f"/proc/{os.getpid()}/fd/{link.client_host}"
    _ip("link", "add", device, "type", "veth", "peer", "name", "far", "netns", there)
    with link.at_the_client():
        _ip("address", "add", f"{link.destination}/24", "dev", "far")
        _ip("link", "set", "far", "up")
    _ip("link", "set", device, "up")


def _give_addresses(link: Link) -> None:
    for number in (1, *range(3, 10)):
        _ip("address", "add", f"{link.camera_address(number)}/24", "dev", link.device)


def _make_silent(name: str) -> None:
    if name == "veth":
        _ip("link", "add", name, "type", "veth", "peer", "name", "drop")
        _ip("link", "set", "drop", "mtu", _LARGEST_MTU, "up")
    else:
        _ip("link", "add", name, "type", "ifb")
        _run("ethtool", "-K", name, "tx-udp-segmentation", "off" if name == "silent-cut" else "on")
    _ip("link", "set", name, "addrgenmode", "none", "mtu", _LARGEST_MTU, "up")  # no IPv6 chatter


def _new_host() -> int:
    """Move this process to a new network namespace; returns a descriptor of it."""
    _checked(_libc.unshare(_CLONE_NEWNET))
    _ip("link", "set", "lo", "up")
    return _own_host()


def _own_host() -> int:
    return os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)


def _checked(result: int) -> None:
    if result != 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number))


def _ip(*arguments: object) -> None:
    _run("ip", *arguments)


def _run(*command: object) -> None:
    words = [str(word) for word in command]
    try:
        done = subprocess.run(words, capture_output=True, text=True)
    except FileNotFoundError:
        sys.exit(f"skipped: there is no program `{words[0]}`")
    if done.returncode != 0:
        sys.exit(f"skipped: {' '.join(words)}: {done.stderr.strip()}")

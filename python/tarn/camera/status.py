"""Why frames flow or do not, in words."""

import collections
import dataclasses
import socket
import time
from typing import NamedTuple

from tarn.camera.camera import Camera
from tarn.gevserver import State

_HAS_CLIENT = (State.Connected, State.AcquisitionEnabled)
_IP_MTU = 14  # socket option that tells the largest datagram of the path. Source: ip(7)


# By DeviceStreamState.
_TROUBLES = {
    2: "the link of {address} is down",
    3: "no way leads from {address} to {to}",
    4: "a firewall of this machine forbids packets to {to}",
    5: "nobody listens at {to}",
    6: "the system does not take packets to {to}",
}


@dataclasses.dataclass(frozen=True)
class Status:
    """One look at a camera."""

    reason: str | None  # why no frames flow; None when they do
    destination: str  # where the stream goes: a client's address or a group, or ""
    rate: float  # frames per second
    throughput: float  # image bits per second
    sent: int  # frames
    resent: int  # packets that a client asked for again
    left_out: int  # frames for which the stream had no place
    dropped: int  # frames, on purpose

    @property
    def summary(self) -> str:
        """What changes seldom: for a line in a log."""
        if self.reason:
            return f"no frames: {self.reason}"
        return f"streaming to {self.destination}"

    @property
    def line(self) -> str:
        """Everything: for a line that is written again and again."""
        parts = [self.summary]
        if not self.reason:
            parts += [f"{self.rate:.1f} frames/s", f"{self.throughput / 1e9:.3f} Gbit/s"]
        parts.append(f"{self.sent} sent")
        if self.resent:
            parts.append(f"{self.resent} packets resent")
        if self.left_out:
            parts.append(f"{self.left_out} left out: the stream was busy")
        if self.dropped:
            parts.append(f"{self.dropped} dropped on purpose")
        return "  ".join(parts)


class _Look(NamedTuple):
    """The counters at one moment."""

    when: float
    frames: int
    bytes: int


class Watcher:
    """Looks at a camera again and again.

    Parameters
    ----------
    camera : Camera
        Started.
    """

    def __init__(self, camera: Camera) -> None:
        self._camera = camera
        # Rates are those since the oldest of these, so that slow cameras have steady ones.
        self._looks = collections.deque([self._count()], maxlen=5)

    def look(self) -> Status:
        """What there is to say now."""
        camera = self._camera
        now, before, first = self._count(), self._looks[-1], self._looks[0]
        self._looks.append(now)
        elapsed = max(now.when - first.when, 1e-3)
        tree = camera.server.node_map
        return Status(
            reason=_reason(camera, now.frames - before.frames),
            destination=_text(tree.GevSCDAValue.value) if camera.server.state in _HAS_CLIENT else "",
            rate=(now.frames - first.frames) / elapsed,
            throughput=(now.bytes - first.bytes) * 8 / elapsed,
            sent=now.frames,
            resent=tree.DeviceStreamResentPackets.value,
            left_out=camera.counters.left_out,
            dropped=camera.controls.dropped,
        )

    def _count(self) -> _Look:
        counters = self._camera.counters
        return _Look(time.monotonic(), counters.sent, counters.bytes)


def _reason(camera: Camera, frames: int) -> str | None:
    """Why no frames flow; `frames` were handed over since the last look."""
    if camera.error:
        return f"the camera ended: {camera.error}"
    state = camera.server.state
    if state not in _HAS_CLIENT:
        return "no client"
    if state != State.AcquisitionEnabled:
        return "acquisition stopped"
    tree = camera.server.node_map
    destination = tree.GevSCDAValue.value, tree.GevSCPHostPortValue.value
    if not all(destination):
        return "client has no stream destination"
    if tree.GevSCPSDoNotFragmentValue.value:
        largest = _path_mtu(camera.settings.address, *destination)
        size = tree.GevSCPSPacketSize.value
        if largest is not None and size > largest:
            return f"packets too large for the path: {size} bytes, {largest} pass"
    if trouble := _TROUBLES.get(tree.DeviceStreamStateValue.value):
        return trouble.format(
            address=camera.settings.address, to=f"{_text(destination[0])} port {destination[1]}"
        )
    if frames == 0 and camera.shutter.is_waiting_for_trigger:
        return "waiting for trigger"
    if frames == 0 and camera.controls.drop == 100:
        return "all dropped on purpose (FaultDrop)"
    return None


def _path_mtu(source: str, address: int, port: int) -> int | None:
    """Bytes of the largest datagram to there that is not cut on its way, as far as the system knows."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        try:
            sock.bind((source, 0))
            sock.connect((_text(address), port))
            return sock.getsockopt(socket.IPPROTO_IP, _IP_MTU)
        except OSError:
            return None  # no way there: a multicast group without a route, for instance


def _text(address: int) -> str:
    return socket.inet_ntoa(address.to_bytes(4, "big"))

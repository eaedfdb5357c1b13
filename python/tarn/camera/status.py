"""Why frames flow or do not, in words."""

import dataclasses
import socket
import time

from tarn.camera.camera import Camera
from tarn.gevserver import State

_IP_MTU = 14  # socket option that tells the largest datagram of the path. Source: ip(7)


@dataclasses.dataclass(frozen=True)
class Status:
    """One look at a camera."""

    reason: str | None  # why no frames flow; None when they do
    client: str  # address of the client in control, or ""
    rate: float  # frames per second since the last look
    throughput: float  # image bits per second since the last look
    sent: int
    dropped: int  # on purpose

    @property
    def summary(self) -> str:
        """What changes seldom: for a line in a log."""
        if self.reason:
            return f"no frames: {self.reason}"
        return f"streaming to {self.client}"

    @property
    def line(self) -> str:
        """Everything: for a line that is written again and again."""
        parts = [self.summary]
        if not self.reason:
            parts += [f"{self.rate:.1f} frames/s", f"{self.throughput / 1e9:.3f} Gbit/s"]
        parts.append(f"{self.sent} sent")
        if self.dropped:
            parts.append(f"{self.dropped} dropped on purpose")
        return "  ".join(parts)


class Watcher:
    """Looks at a camera again and again.

    Parameters
    ----------
    camera : Camera
        Started.
    """

    def __init__(self, camera: Camera) -> None:
        self._camera = camera
        self._then = time.monotonic()
        self._sent = 0
        self._bytes = 0

    def look(self) -> Status:
        """What there is to say since the last look."""
        camera, now = self._camera, time.monotonic()
        elapsed = max(now - self._then, 1e-3)
        sent, bytes_ = camera.counters.sent, camera.counters.bytes
        frames, amount = sent - self._sent, bytes_ - self._bytes
        self._then, self._sent, self._bytes = now, sent, bytes_
        client = camera.server.remote_endpoint.address if camera.server.state >= State.Connected else ""
        return Status(
            _reason(camera, frames),
            client,
            frames / elapsed,
            amount * 8 / elapsed,
            sent,
            camera.controls.dropped,
        )


def _reason(camera: Camera, frames: int) -> str | None:
    """Why no frames flow, given how many were handed over since the last look."""
    state = camera.server.state
    if state not in (State.Connected, State.AcquisitionEnabled):
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
            sock.connect((socket.inet_ntoa(address.to_bytes(4, "big")), port))
            return sock.getsockopt(socket.IPPROTO_IP, _IP_MTU)
        except OSError:
            return None  # no way there: a multicast group without a route, for instance

"""A client that takes control of a camera, sets its features and receives its frames."""

import contextlib
import dataclasses
import struct
from collections.abc import Iterator
from typing import Any

import numpy as np

from conftest import open_stream
from features import Features
from gvcp_client import ControlClient
from gvsp_receiver import Frame, StreamReceiver
from namespaces import Host


@dataclasses.dataclass
class Viewer:
    """The client while it has control."""

    client: ControlClient
    features: Features
    receiver: StreamReceiver

    def set_float(self, name: str, value: float) -> None:
        address, length = self.features.register(name)
        self.client.write_memory(address, struct.pack(">d" if length == 8 else ">f", value))

    def read_count(self, name: str) -> int:
        """An integer feature of eight bytes."""
        return int.from_bytes(self.client.read_memory(*self.features.register(name)), "big")

    def start(self, packet_size: int = 1500) -> None:
        """Open the stream and start the acquisition."""
        open_stream(self.client, self.receiver, packet_size)
        self.features.execute("AcquisitionStart")

    def stop(self) -> None:
        self.features.execute("AcquisitionStop")

    def next_frames(self, count: int) -> list[Frame]:
        """Those that end after now."""
        before = len(self.receiver.frames)
        return self.receiver.wait_frames(before + count)[before:]

    def next_pictures(self, count: int) -> list[np.ndarray]:
        """Their bytes, ``(height, bytes of a line)``."""
        return [picture_of(frame) for frame in self.next_frames(count)]


def picture_of(frame: Frame) -> np.ndarray:
    """The frame's bytes, ``(height, bytes of a line)``."""
    return np.frombuffer(frame.image, np.uint8).reshape(frame.leader.height, -1)


@contextlib.contextmanager
def viewing(address: str, *, host: Host | None = None, **receiving: Any) -> Iterator[Viewer]:
    """A client, on a host of its own or on this one; `receiving` goes to the receiver of the stream."""
    local: dict[str, Any] = {"local": host.address} if host else {}
    with contextlib.ExitStack() as stack:
        with host.inside() if host else contextlib.nullcontext():
            receiving = {"resend_from": address} | local | receiving
            receiver = stack.enter_context(StreamReceiver(**receiving))
            client = stack.enter_context(ControlClient(address, **local))
            client.connect()
        yield Viewer(client, Features(client), receiver)


@contextlib.contextmanager
def streaming(
    address: str, packet_size: int = 1500, *, settings: dict[str, int] | None = None, **options: Any
) -> Iterator[Viewer]:
    """The client has set these features and takes images; `options` as for `viewing`."""
    with viewing(address, **options) as viewer:
        for name, value in (settings or {}).items():
            viewer.features.write(name, value)
        viewer.start(packet_size)
        yield viewer

"""One camera: a server, and the thread that takes its frames."""

import contextlib
import dataclasses
import logging
import threading

import tarn
from tarn.camera.controls import Controls
from tarn.camera.faults import Faults, Frame
from tarn.camera.pixels import BY_VALUE, choices_beside
from tarn.camera.scene import Scene
from tarn.camera.settings import Settings
from tarn.camera.shutter import Shutter, Wake
from tarn.gevserver import Node, Server
from tarn.gevserver.features import offer_pixel_formats

log = logging.getLogger("tarn-camera")

_TEXT_NODES = {
    "vendor": "DeviceVendorName",
    "model": "DeviceModelName",
    "serial": "DeviceSerialNumber",
    "user_id": "DeviceUserID",
}


@dataclasses.dataclass
class Counters:
    """What became of the frames; written by the camera's thread alone."""

    taken: int = 0
    sent: int = 0
    refused: int = 0  # taken while nobody could receive them
    left_out: int = 0  # taken while the stream was busy with earlier ones
    bytes: int = 0  # of the images that were sent


class Camera:
    """A camera in software.

    Parameters
    ----------
    settings : Settings
        What it is and shows.
    """

    def __init__(self, settings: Settings) -> None:
        self.settings = settings
        self.counters = Counters()
        self.error: Exception | None = None  # why the camera ended by itself; None when it did all its frames
        self.server = Server.create_with_variable_size_pfnc(
            tarn.Size2D(*settings.size), settings.pixel_format.value, settings.driver
        )
        self.server.stream.resend_buffers_count = settings.resend
        offer_pixel_formats(self.server, choices_beside(settings.pixel_format, settings.size[0]))
        self.controls = Controls(self.server, settings.defaults)
        self.shutter = Shutter(self.controls)
        self._faults = Faults(self.controls)
        self._scene: tuple[tuple[str, int], Scene] | None = None  # with its pattern and format
        self._name_it()
        self._acquisition = 0  # number of the present one; written on threads of the server
        self._listening = contextlib.ExitStack()
        self._listen_for_starts()
        self._thread = threading.Thread(target=self._run, name=f"camera {settings.address}")

    def start(self) -> None:
        """Publish the camera on its address and begin to take frames.

        Raises
        ------
        RuntimeError
            The address is not of this machine, or taken; or the system refuses what it is asked for.
        """
        self.server.start(self.settings.address)
        if self.settings.throughput:
            self.server.node_map.DeviceLinkThroughputLimit.value = int(self.settings.throughput)
        self._schedule()
        self._thread.start()

    def stop(self) -> None:
        """End the camera; clients are told. May be called twice, and without a start."""
        self.shutter.end()
        if self._thread.is_alive():
            self._thread.join()
        self.server.stop()
        self._listening.close()

    @property
    def is_running(self) -> bool:
        """False before the start, and once all frames were taken or `error` happened."""
        return self._thread.is_alive()

    def _listen_for_starts(self) -> None:
        """Let no frame, and no trigger, live longer than its acquisition."""

        def started(_: Node) -> None:
            self._acquisition += 1
            self.shutter.forget_triggers()

        node = self.server.node_map.AcquisitionStart
        cookie = node.register_event_written_updated(started)
        # The node keeps its listener alive, and with it the camera, which keeps the node.
        self._listening.callback(node.unregister_event_written_updated, cookie)

    def _schedule(self) -> None:
        """Give the sending thread its priority and processors.

        Raises
        ------
        RuntimeError
            The system refuses.
        """
        tree, wanted = self.server.node_map, (self.settings.priority, self.settings.processors)
        if not any(wanted):
            return
        tree.StreamThreadPriority.value, tree.StreamThreadProcessors.value = wanted
        if (tree.StreamThreadPriority.value, tree.StreamThreadProcessors.value) != wanted:
            self.server.stop()
            raise RuntimeError(
                "the system refuses the priority or the processors: no such one, or no right to it"
            )

    def _name_it(self) -> None:
        identity = self.settings.identity
        for field, node in _TEXT_NODES.items():
            if (text := getattr(identity, field)) is not None:
                self.server.node_map[node].value = text
        if identity.user_version is not None:
            self.server.user_version = identity.user_version

    def _run(self) -> None:
        try:
            self._take_frames()
        except Exception as error:  # whatever it was, the thread that watches tells of it
            self.error = error

    def _take_frames(self) -> None:
        limit = self.settings.frames
        while limit is None or self.counters.taken < limit or self._faults.next_due:
            wake = self.shutter.wait(self._faults.next_due)
            if wake is Wake.End:
                return
            if wake is Wake.Frame and (limit is None or self.counters.taken < limit):
                self._take()
            for frame in self._faults.due():
                self._send(frame)

    def _take(self) -> None:
        """Take one frame; the picture is made when somebody can receive it."""
        number, acquisition = self.counters.taken, self._acquisition
        self.counters.taken += 1
        # A triggered frame is tried in any case: the trigger may come at the moment of the start.
        if not self.server.stream.is_running and not self.controls.is_triggered:
            self.counters.refused += 1
            return
        if self._faults.drops():
            log.debug("%s: frame %d dropped on purpose", self.settings.address, number)
            return
        data = self._faults.shown(self._present_scene().frame(number, self.controls.view))
        self._faults.hold(Frame(number, acquisition, self._faults.damaged(data)))

    def _present_scene(self) -> Scene:
        """What clients chose to see, in the pixel format that they chose."""
        shown = self.controls.pattern_name, self.controls.pixel_format
        if not self._scene or self._scene[0] != shown:
            pattern, value = shown
            self._scene = shown, Scene(self.settings.source(pattern), BY_VALUE[value])
        return self._scene[1]

    def _send(self, frame: Frame) -> None:
        # The client may stop at any moment, so a refused image is no failure.
        sent = frame.acquisition == self._acquisition and self._try_send(frame)
        if sent:
            self.counters.sent += 1
            self.counters.bytes += frame.data.nbytes
        elif frame.acquisition == self._acquisition and self.server.stream.is_running:
            self.counters.left_out += 1
        else:
            self.counters.refused += 1
        log.debug("%s: frame %d %s", self.settings.address, frame.number, "sent" if sent else "not wanted")

    def _try_send(self, frame: Frame) -> bool:
        try:
            return self.server.stream.try_send(tarn.WrappedImage.from_buffer(frame.data[None]), _released)
        except (ValueError, RuntimeError) as error:
            # A client chose another region for its next acquisition while this frame was on its way.
            log.debug("%s: frame %d does not fit: %s", self.settings.address, frame.number, error)
            return False


def _released(image: tarn.Image) -> None:
    """Nothing to do: what was encoded is never written again, and its memory goes with its last image."""

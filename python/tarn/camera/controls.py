"""The features that the program adds to the standard ones of a streaming device."""

import dataclasses
from collections.abc import Callable

from tarn.camera.scene import View
from tarn.gevserver import CategoryNode, NameSpace, NodeList, Server
from tarn.gevserver.features import Boolean, Command, Enumeration, FeatureSet, Float, Integer

RATE_LIMITS = (0.1, 1000.0)  # frames per second
EXPOSURE_LIMITS = (10.0, 10_000_000.0)  # microseconds
GAIN_LIMITS = (0.0, 48.0)  # decibels
DELAY_LIMITS = (0.0, 60_000.0)  # milliseconds

#: With it, and no gain, a picture is as bright as its source.
USUAL_EXPOSURE = 10_000.0  # microseconds

#: What the camera shows without a test pattern: pictures or a video, if the command line names some.
FILM = "film"

#: What can be shown, by the names that the command line uses, with the entries of TestPattern.
#: Source: SFNC, TestPattern; names that are not there are this program's own.
PATTERN_ENTRIES = {
    FILM: "Off",
    "black": "Black",
    "white": "White",
    "gradient": "GreyDiagonalRampMoving",
    "bars": "ColorBar",
    "checkerboard": "Checkerboard",
    "noise": "Noise",
    "clock": "FrameCounter",
}
_PATTERN_NAMES = {entry: name for name, entry in PATTERN_ENTRIES.items()}


@dataclasses.dataclass(frozen=True)
class Defaults:
    """First values of the features; units as there."""

    pattern: str = "gradient"  # of PATTERN_ENTRIES
    rate: float = 30.0
    triggered: bool = False
    exposure: float = USUAL_EXPOSURE
    gain: float = 0.0
    drop: float = 0.0  # percent
    delay: float = 0.0  # milliseconds
    corrupt: float = 0.0  # percent
    freeze: bool = False


def _nothing() -> None:
    pass


class Controls(FeatureSet, category="FaultInjection"):
    """The program's own features, and what they say together.

    Parameters
    ----------
    server : tarn.gevserver.Server
        In its configuration state.
    defaults : Defaults
        First values.

    Attributes
    ----------
    on_trigger, on_timing : callable
        Called, on a thread of the server, when a client triggers, and when it wrote what decides about the
        moment of the next frame.
    """

    rate_enable = Boolean(
        True,
        name="AcquisitionFrameRateEnable",
        category="AcquisitionControl",
        standard=True,
        streamable=True,
        tool_tip="Whether AcquisitionFrameRate holds; else the exposure time alone sets the rate",
    )
    rate = Float(
        30.0,
        min=RATE_LIMITS[0],
        max=RATE_LIMITS[1],
        unit="Hz",
        name="AcquisitionFrameRate",
        category="AcquisitionControl",
        standard=True,
        streamable=True,
        tool_tip="Frames per second",
    )
    trigger_selector = Enumeration(
        ["FrameStart"], category="AcquisitionControl", standard=True, tool_tip="What a trigger starts"
    )
    trigger_mode = Enumeration(
        ["Off", "On"],
        category="AcquisitionControl",
        standard=True,
        streamable=True,
        tool_tip="Whether each frame waits for a trigger",
    )
    trigger_source = Enumeration(
        ["Software"], category="AcquisitionControl", standard=True, tool_tip="Where triggers come from"
    )
    trigger_software = Command(
        category="AcquisitionControl", standard=True, tool_tip="Takes one frame, with TriggerMode on"
    )
    exposure = Float(
        USUAL_EXPOSURE,
        min=EXPOSURE_LIMITS[0],
        max=EXPOSURE_LIMITS[1],
        unit="us",
        name="ExposureTime",
        category="AcquisitionControl",
        standard=True,
        streamable=True,
        tool_tip="Twice as long is twice as bright; frames follow each other no faster",
    )
    gain = Float(
        min=GAIN_LIMITS[0],
        max=GAIN_LIMITS[1],
        unit="dB",
        category="AnalogControl",
        standard=True,
        streamable=True,
        tool_tip="20 dB make the picture ten times as bright",
    )
    test_pattern = Enumeration(
        PATTERN_ENTRIES.values(),
        category="ImageFormatControl",
        standard=True,
        streamable=True,
        tool_tip="What the camera shows; Off for the pictures or the video that it was started with",
    )
    drop = Float(
        min=0.0, max=100.0, unit="%", name="FaultDrop", tool_tip="Share of the frames that is never sent"
    )
    delay = Float(
        min=DELAY_LIMITS[0],
        max=DELAY_LIMITS[1],
        unit="ms",
        name="FaultDelay",
        tool_tip="How late each frame is sent",
    )
    corrupt = Float(
        min=0.0, max=100.0, unit="%", name="FaultCorrupt", tool_tip="Share of the frames with damaged pixels"
    )
    freeze = Boolean(name="FaultFreeze", tool_tip="Sends the same picture again and again")
    dropped = Integer(min=0, read_only=True, name="FaultDroppedFrames", tool_tip="Frames that FaultDrop took")
    corrupted = Integer(
        min=0, read_only=True, name="FaultCorruptedFrames", tool_tip="Frames that FaultCorrupt damaged"
    )

    def __init__(self, server: Server, defaults: Defaults) -> None:
        _add_analog_control(server)
        super().__init__(server)
        self.on_trigger: Callable[[], None] = _nothing
        self.on_timing: Callable[[], None] = _nothing
        self.rate = defaults.rate
        self.trigger_mode = "On" if defaults.triggered else "Off"
        self.exposure = defaults.exposure
        self.gain = defaults.gain
        self.test_pattern = PATTERN_ENTRIES[defaults.pattern]
        self.drop = defaults.drop
        self.delay = defaults.delay
        self.corrupt = defaults.corrupt
        self.freeze = defaults.freeze

    @trigger_software.on_execute
    def _triggered(self) -> None:
        self.on_trigger()

    @rate_enable.on_write
    @rate.on_write
    @exposure.on_write
    def _timing_changed(self, _: float) -> None:
        self.on_timing()

    @trigger_mode.on_write
    def _trigger_mode_changed(self, _: str) -> None:
        self.on_timing()

    @property
    def is_triggered(self) -> bool:
        """True when each frame waits for a trigger."""
        return self.trigger_mode == "On"

    @property
    def frame_period(self) -> float:
        """Seconds from one frame to the next when they wait for no trigger."""
        rate = self.rate if self.rate_enable else RATE_LIMITS[1]
        return max(1 / rate, self.exposure * 1e-6)

    @property
    def pattern_name(self) -> str:
        """What is shown, by the name that the command line has for it."""
        return _PATTERN_NAMES[self.test_pattern]

    @property
    def pixel_format(self) -> int:
        """PFNC value of the format that the client chose."""
        return int(self.server.node_map.PixelFormatValue.value)

    @property
    def view(self) -> View:
        """Region and brightness, as the client set them."""
        brightness = self.exposure / USUAL_EXPOSURE * 10 ** (self.gain / 20)
        tree = self.server.node_map
        return View(tree.OffsetX.value, tree.OffsetY.value, tree.Width.value, tree.Height.value, brightness)


def _add_analog_control(server: Server) -> None:
    """The category belongs to the standard ones, but a device without a sensor has nothing for it."""
    category = CategoryNode.create("AnalogControl", NameSpace.Standard)
    server.node_map.Root.add(category, NodeList.Child)

"""The features that the program adds to the standard ones of a streaming device."""

import dataclasses

from tarn.camera.scene import View
from tarn.camera.tree import TreeBuilder
from tarn.gevserver import (
    BooleanNode,
    CommandNode,
    EnumerationNode,
    FloatNode,
    Int64RegNode,
    NameSpace,
    NodeMap,
)

RATE_LIMITS = (0.1, 1000.0)  # frames per second
EXPOSURE_LIMITS = (10.0, 10_000_000.0)  # microseconds
GAIN_LIMITS = (0.0, 48.0)  # decibels
DELAY_LIMITS = (0.0, 60_000.0)  # milliseconds

#: With it, and no gain, a picture is as bright as its source.
USUAL_EXPOSURE = 10_000.0  # microseconds

#: Entry of TestPattern for what the command line names instead of a pattern: pictures or a video.
NO_PATTERN = "Off"

#: Entries of TestPattern by the names that the command line uses. Source: SFNC, TestPattern; names that are
#: not there are this program's own.
PATTERN_ENTRIES = {
    "black": "Black",
    "white": "White",
    "gradient": "GreyDiagonalRampMoving",
    "bars": "ColorBar",
    "checkerboard": "Checkerboard",
    "noise": "Noise",
    "clock": "FrameCounter",
}


@dataclasses.dataclass(frozen=True)
class Defaults:
    """First values of the features; units as there."""

    pattern: str = "gradient"  # of PATTERN_ENTRIES; with pictures or a video "off"
    rate: float = 30.0
    triggered: bool = False
    exposure: float = USUAL_EXPOSURE
    gain: float = 0.0
    drop: float = 0.0  # percent
    delay: float = 0.0  # milliseconds
    corrupt: float = 0.0  # percent
    freeze: bool = False


class Controls:
    """The nodes of the program's own features, and what they say together.

    Parameters
    ----------
    tree : tarn.gevserver.NodeMap
        Of a server that is not started.
    defaults : Defaults
        First values.
    """

    trigger_software: CommandNode

    def __init__(self, tree: NodeMap, defaults: Defaults) -> None:
        self._tree = tree
        add = TreeBuilder(tree)
        self._add_acquisition(add, defaults)
        self._add_picture(add, defaults)
        self._add_faults(add, defaults)

    def _add_acquisition(self, add: TreeBuilder, defaults: Defaults) -> None:
        category = add.category("AcquisitionControl", "Acquisition of images")
        self.rate_enable: BooleanNode = add.switch(
            "AcquisitionFrameRateEnable",
            category,
            True,
            "Whether AcquisitionFrameRate holds; else the exposure time alone sets the rate",
        )
        self.rate: FloatNode = add.number(
            "AcquisitionFrameRate", category, defaults.rate, RATE_LIMITS, "Hz", "Frames per second"
        )
        add.choice("TriggerSelector", category, {"FrameStart": 0}, "FrameStart", "What a trigger starts")
        self.trigger_mode: EnumerationNode = add.choice(
            "TriggerMode",
            category,
            {"Off": 0, "On": 1},
            "On" if defaults.triggered else "Off",
            "Whether each frame waits for a trigger",
        )
        add.choice("TriggerSource", category, {"Software": 0}, "Software", "Where triggers come from")
        self.trigger_software = add.command(
            "TriggerSoftware", category, "Takes one frame, with TriggerMode on"
        )
        self.exposure: FloatNode = add.number(
            "ExposureTime",
            category,
            defaults.exposure,
            EXPOSURE_LIMITS,
            "us",
            "Doubling it makes the picture twice as bright; it limits the frame rate",
        )

    def _add_picture(self, add: TreeBuilder, defaults: Defaults) -> None:
        analog = add.category("AnalogControl", "Analog control of the sensor")
        self.gain: FloatNode = add.number(
            "Gain", analog, defaults.gain, GAIN_LIMITS, "dB", "20 dB make the picture ten times as bright"
        )
        names = dict(PATTERN_ENTRIES)
        if defaults.pattern not in names:
            names = {defaults.pattern: NO_PATTERN} | names
        self._patterns = list(names)
        self.pattern: EnumerationNode = add.choice(
            "TestPattern",
            add.category("ImageFormatControl", "Format of images"),
            {entry: number for number, entry in enumerate(names.values())},
            names[defaults.pattern],
            "What the camera shows",
        )

    def _add_faults(self, add: TreeBuilder, defaults: Defaults) -> None:
        category = add.category("FaultInjection", "Deliberate faults, to test clients with", NameSpace.Custom)
        percent = (0.0, 100.0)
        self.drop: FloatNode = add.number(
            "FaultDrop", category, defaults.drop, percent, "%", "Part of the frames that are never sent"
        )
        self.delay: FloatNode = add.number(
            "FaultDelay", category, defaults.delay, DELAY_LIMITS, "ms", "How late each frame is sent"
        )
        self.corrupt: FloatNode = add.number(
            "FaultCorrupt", category, defaults.corrupt, percent, "%", "Part of the frames with damaged pixels"
        )
        self.freeze: BooleanNode = add.switch(
            "FaultFreeze", category, defaults.freeze, "Sends the same picture again and again"
        )
        self.dropped: Int64RegNode = add.counter("FaultDroppedFrames", category, "Frames that FaultDrop took")
        self.corrupted: Int64RegNode = add.counter(
            "FaultCorruptedFrames", category, "Frames that FaultCorrupt damaged"
        )

    @property
    def is_triggered(self) -> bool:
        """True when each frame waits for a trigger."""
        return bool(self.trigger_mode.numeric_value)

    @property
    def frame_period(self) -> float:
        """Seconds from one frame to the next when they wait for no trigger."""
        rate = self.rate.value if self.rate_enable.value else RATE_LIMITS[1]
        return max(1 / rate, self.exposure.value * 1e-6)

    @property
    def pattern_name(self) -> str:
        """What is shown, by the name that the command line has for it."""
        return self._patterns[self.pattern.numeric_value]

    @property
    def view(self) -> View:
        """Region and brightness, as the client set them."""
        brightness = self.exposure.value / USUAL_EXPOSURE * 10 ** (self.gain.value / 20)
        tree = self._tree
        return View(tree.OffsetX.value, tree.OffsetY.value, tree.Width.value, tree.Height.value, brightness)

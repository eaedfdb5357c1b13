"""The options of ``tarn-camera``."""

import importlib.metadata
import pathlib
from collections.abc import Callable
from typing import Any

import click

from tarn.camera import controls, values
from tarn.camera.sections import SectionOption
from tarn.gevserver import DriverType

DRIVERS = {"auto": DriverType.Auto, "socket": DriverType.Socket, "filter": DriverType.Filter}

_FOLDER = click.Path(exists=True, file_okay=False, path_type=pathlib.Path)
_FILE = click.Path(exists=True, dir_okay=False, path_type=pathlib.Path)
_LONGEST_DELAY = controls.DELAY_LIMITS[1] * 1000  # microseconds


def _section(heading: str) -> Callable[..., SectionOption]:
    def option(name: str, **settings: Any) -> SectionOption:
        return SectionOption(name.split(), section=heading, **settings)

    return option


def _show_version(context: click.Context, _: click.Parameter, wanted: bool) -> None:
    if not wanted:
        return
    try:
        click.echo(f"tarn-camera {importlib.metadata.version('tarn')}")
    except importlib.metadata.PackageNotFoundError:
        click.echo("tarn-camera, not installed: run from its source")
    context.exit()


_network = _section("Network")
_picture = _section("Picture")
_frames = _section("Frames")
_identity = _section("Names")
_faults = _section("Deliberate faults")
_other = _section("Other")

OPTIONS: list[click.Parameter] = [
    _network(
        "--address",
        default="127.0.0.1",
        metavar="IPV4",
        show_default=True,
        help="Address of this machine on which the camera is found; see list-interfaces.",
    ),
    _network(
        "--count",
        type=click.IntRange(1, 250),
        default=1,
        metavar="N",
        help="Number of cameras, on this address and those that follow.",
    ),
    _network(
        "--driver",
        type=click.Choice(list(DRIVERS)),
        default="auto",
        show_default=True,
        help="How packets leave: one by one (socket) or in trains that the kernel cuts (filter).",
    ),
    _network(
        "--resend",
        type=click.IntRange(0, 1000),
        default=4,
        metavar="N",
        show_default=True,
        help="Frames kept for clients that ask for lost packets again; 0 for no resend.",
    ),
    _network(
        "--throughput",
        type=click.FloatRange(0.1, 100_000),
        metavar="MB/S",
        help="Largest rate of the stream, in millions of bytes per second; else 95 % of the link's, or 125. "
        "Feature DeviceLinkThroughputLimit.",
    ),
    _network(
        "--priority",
        type=click.IntRange(0, 99),
        default=0,
        metavar="N",
        help="Real-time priority (SCHED_FIFO) of the thread that sends; needs the right to it.",
    ),
    _network(
        "--processors",
        type=values.ProcessorsType(),
        default="",
        metavar="LIST",
        help="Processors for the thread that sends, as 2 or 0,2-3; else any.",
    ),
    _picture(
        "--pattern",
        type=click.Choice([name for name in controls.PATTERN_ENTRIES if name != controls.FILM]),
        help="What the camera shows: gradient, if nothing is said. Feature TestPattern.",
    ),
    _picture(
        "--pictures",
        type=_FOLDER,
        metavar="FOLDER",
        help="Show the pictures of a folder, one per frame, in the order of their names.",
    ),
    _picture(
        "--video",
        type=_FILE,
        metavar="FILE",
        help="Show a video again and again; needs pip install 'tarn[video]'.",
    ),
    _picture(
        "--format pixel_format",
        type=values.PixelFormatType(),
        default="Mono8",
        show_default=True,
        help="Pixel format; see list-formats.",
    ),
    _picture(
        "--size",
        type=values.SizeType(),
        metavar="WIDTHxHEIGHT",
        help="Size of the sensor in pixels; else that of the first picture or the video, or 640x480.",
    ),
    _picture(
        "--exposure",
        type=values.DurationType(controls.EXPOSURE_LIMITS),
        default="10ms",
        show_default=True,
        help="Twice as long is twice as bright. Feature ExposureTime.",
    ),
    _picture(
        "--gain",
        type=click.FloatRange(*controls.GAIN_LIMITS),
        default=0.0,
        metavar="DB",
        help="20 dB make the picture ten times as bright. Feature Gain.",
    ),
    _frames(
        "--fps",
        type=click.FloatRange(*controls.RATE_LIMITS),
        metavar="RATE",
        help="Frames per second; else those of the video, or 30. Feature AcquisitionFrameRate.",
    ),
    _frames(
        "--trigger",
        is_flag=True,
        help="Take a frame at each TriggerSoftware of the client only. Feature TriggerMode.",
    ),
    _frames(
        "--frames",
        type=click.IntRange(min=1),
        metavar="N",
        help="End after this many frames, whether a client took them or not; else with Ctrl+C.",
    ),
    _identity("--vendor", type=values.TextType(32), help="DeviceVendorName."),
    _identity("--model", type=values.TextType(32), help="DeviceModelName."),
    _identity(
        "--serial", type=values.TextType(16), help="DeviceSerialNumber; several cameras add -1, -2, ..."
    ),
    _identity("--user-id", type=values.TextType(16), help="DeviceUserID; several cameras add -1, -2, ..."),
    _identity("--user-version", type=values.TextType(26), help="Text that follows in DeviceVersion."),
    _faults(
        "--drop",
        type=values.PercentType(),
        default=0.0,
        help="Share of the frames that is never sent, such as 1%. Feature FaultDrop.",
    ),
    _faults(
        "--delay",
        type=values.DurationType((0.0, _LONGEST_DELAY)),
        default="0ms",
        help="How late each frame is sent, such as 20ms. Feature FaultDelay.",
    ),
    _faults(
        "--corrupt",
        type=values.PercentType(),
        default=0.0,
        help="Share of the frames with damaged pixels, such as 1%. Feature FaultCorrupt.",
    ),
    _faults("--freeze", is_flag=True, help="The same picture again and again. Feature FaultFreeze."),
    _other(
        "--log-level",
        type=click.Choice(["debug", "info", "warning", "error"]),
        default="info",
        show_default=True,
        help="What goes to standard error; debug tells of single frames.",
    ),
    _other(
        "--version",
        is_flag=True,
        is_eager=True,
        expose_value=False,
        callback=_show_version,
        help="Show the version.",
    ),
]

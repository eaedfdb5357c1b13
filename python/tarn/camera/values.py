"""What the options of the command line take, read from text."""

import re
from typing import Any

import click

from tarn.camera.pixels import FORMATS, PixelFormat

SIZE_LIMITS = (32, 16384)  # pixels
_MAX_PROCESSOR = 62  # what the server takes in a signed number


class _OptionType(click.ParamType):  # type: ignore[type-arg]  # generic in the newest releases only
    """What all types below are."""


class SizeType(_OptionType):
    """Width and height in pixels, such as 640x480."""

    name = "WxH"

    def convert(
        self, value: Any, param: click.Parameter | None, ctx: click.Context | None
    ) -> tuple[int, int]:
        if isinstance(value, tuple):
            return value
        found = re.fullmatch(r"(\d{1,5})x(\d{1,5})", value)
        if not found:
            self.fail(f"{value!r} is not like 640x480", param, ctx)
        size = int(found[1]), int(found[2])
        least, most = SIZE_LIMITS
        if not all(least <= extent <= most for extent in size):
            self.fail(f"{value}: width and height must be {least} to {most} pixels", param, ctx)
        return size


class ProcessorsType(_OptionType):
    """Numbers of processors, such as 2 or 0,2-3; the value has a bit for each."""

    name = "LIST"

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> int:
        if isinstance(value, int):
            return value
        bits = 0
        for part in filter(None, value.split(",")):
            found = re.fullmatch(r"(\d{1,2})(?:-(\d{1,2}))?", part)
            first, last = (int(found[1]), int(found[2] or found[1])) if found else (0, -1)
            if not 0 <= first <= last <= _MAX_PROCESSOR:
                self.fail(f"{value!r} is no list like 2 or 0,2-3 (0 to {_MAX_PROCESSOR})", param, ctx)
            bits |= (2 << last) - (1 << first)
        return bits


class PercentType(_OptionType):
    """A share, such as 1%, 0.5% or 25 for 25%."""

    name = "PERCENT"

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> float:
        if isinstance(value, float):
            return value
        number = _number(value.removesuffix("%"))
        if number is None or not 0 <= number <= 100:
            self.fail(f"{value!r} is no share like 1% (0% to 100%)", param, ctx)
        return number


class DurationType(_OptionType):
    """A time, such as 500us, 20ms or 1.5s, within limits in microseconds; the value is in microseconds."""

    name = "TIME"
    _UNITS = {"us": 1.0, "ms": 1e3, "s": 1e6}  # noqa: RUF012

    def __init__(self, limits: tuple[float, float]) -> None:
        self._limits = limits

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> float:
        if isinstance(value, float):
            return value
        found = re.fullmatch(r"([\d.]+)(us|ms|s)", value)
        number = _number(found[1]) if found else None
        if not found or number is None:
            self.fail(f"{value!r} is no time like 500us, 20ms or 1.5s", param, ctx)
        time = number * self._UNITS[found[2]]
        least, most = self._limits
        if not least <= time <= most:
            self.fail(f"{value}: must be {least:g}us to {most / 1e6:g}s", param, ctx)
        return time


class PixelFormatType(_OptionType):
    """A pixel format by its PFNC name; case does not matter."""

    name = "FORMAT"

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> PixelFormat:
        if isinstance(value, PixelFormat):
            return value
        for name, pixel_format in FORMATS.items():
            if name.lower() == value.lower():
                return pixel_format
        self.fail(f"{value!r} is none of the formats that `tarn-camera list-formats` shows", param, ctx)

    def shell_complete(
        self, ctx: click.Context, param: click.Parameter, incomplete: str
    ) -> list[click.shell_completion.CompletionItem]:
        found = [name for name in FORMATS if name.lower().startswith(incomplete.lower())]
        return [click.shell_completion.CompletionItem(name) for name in found]


class TextType(_OptionType):
    """A text that fits a register, zero at its end included."""

    name = "TEXT"

    def __init__(self, register_bytes: int) -> None:
        self._most = register_bytes - 1

    def convert(self, value: Any, param: click.Parameter | None, ctx: click.Context | None) -> str:
        size = len(value.encode())
        if size > self._most:
            self.fail(f"{value!r} has {size} bytes, at most {self._most} fit", param, ctx)
        return str(value)


def _number(text: str) -> float | None:
    try:
        return float(text)
    except ValueError:
        return None

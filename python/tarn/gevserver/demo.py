"""The demo camera: a moving test pattern from one command."""

import argparse
import itertools
import re
import signal
import sys
import time
from collections.abc import Sequence

import tarn
from tarn.gevserver import Server
from tarn.gevserver.pattern import MovingRamp


def main(arguments: Sequence[str] | None = None) -> int:
    """Run the demo camera until Ctrl+C, SIGTERM or the given number of frames; return the exit code."""
    options = _parser().parse_args(arguments)
    width, height = options.size
    server = Server.create_with_const_size_pfnc(tarn.Size2D(width, height), tarn.PfncFormat.Mono8)
    server.stream.resend_buffers_count = options.resend
    signal.signal(signal.SIGTERM, signal.default_int_handler)  # ends like Ctrl+C: clients are told
    try:
        server.start(options.address)
        print(
            f"Camera on {options.address}: {width}x{height} Mono8, {options.fps:g} frames/s, until Ctrl+C. "
            f"See it with: arv-camera-test-0.8 -n {options.address}",
            flush=True,
        )
        _show(server, MovingRamp(width, height), options.frames, options.fps)
    except RuntimeError as error:
        print(f"tarn: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print()
    finally:
        server.stop()
    return 0


def _show(server: Server, pattern: MovingRamp, frames: int | None, rate: float) -> None:
    """Produce `frames` frames at `rate` per second; each goes out when a client streams at that moment."""
    due = time.monotonic()
    for number in itertools.count() if frames is None else range(frames):
        if server.stream.is_running:
            image = tarn.WrappedImage.from_buffer(pattern.frame(number))
            # The client may stop at any moment, so a refused image is no failure.
            server.stream.try_send(image, _released)
        due += 1 / rate
        now = time.monotonic()
        if due > now:
            time.sleep(due - now)
        else:
            due = now  # too slow for the rate: no burst to catch up


def _released(image: tarn.Image) -> None:
    """Nothing to do: every frame has memory of its own."""


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python -m tarn.gevserver", description="A GigE Vision camera that shows a moving test pattern."
    )
    parser.add_argument("--address", default="127.0.0.1", help="IPv4 address of this machine to bind to")
    parser.add_argument("--frames", type=_positive, metavar="N", help="end after this many frames")
    parser.add_argument("--fps", type=_rate, default=30.0, metavar="RATE", help="frames per second (30)")
    parser.add_argument("--size", type=_size, default=(640, 480), metavar="WxH", help="pixels (640x480)")
    parser.add_argument(
        "--resend", type=int, default=4, metavar="N", help="frames kept for packet resend (4), 0 for none"
    )
    return parser


def _positive(text: str) -> int:
    value = int(text)
    if value < 1:
        raise argparse.ArgumentTypeError("must be at least 1")
    return value


def _rate(text: str) -> float:
    value = float(text)
    if not 0 < value <= 10_000:
        raise argparse.ArgumentTypeError("must be above 0 and at most 10000")
    return value


def _size(text: str) -> tuple[int, int]:
    found = re.fullmatch(r"([1-9]\d{0,4})x([1-9]\d{0,4})", text)
    if not found:
        raise argparse.ArgumentTypeError(f"{text!r} is not like 640x480")
    return int(found[1]), int(found[2])

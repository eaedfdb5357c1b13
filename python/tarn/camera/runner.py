"""Runs cameras until all their frames were taken, or somebody ends the program."""

import contextlib
import logging
import signal
import sys
import threading

import click

from tarn.camera.camera import Camera
from tarn.camera.screen import LiveLines, LogLines
from tarn.camera.settings import Settings
from tarn.camera.status import Watcher

_LOOK_EVERY = 0.5  # seconds


def run(settings: list[Settings]) -> None:
    """Run cameras until their last frame, Ctrl+C or SIGTERM.

    Raises
    ------
    click.ClickException
        A camera cannot start, or ended on its own; the text names cause and remedy.
    """
    signal.signal(signal.SIGTERM, signal.default_int_handler)  # ends like Ctrl+C: clients are told
    cameras: list[Camera] = []
    try:
        for one in settings:
            cameras.append(camera := Camera(one))
            _start(camera)
        _watch(cameras)
    except KeyboardInterrupt:
        pass
    finally:
        signal.signal(signal.SIGINT, signal.SIG_IGN)  # who presses Ctrl+C again need not wait long
        for camera in cameras:
            camera.stop()
    for camera in cameras:
        if camera.error:
            raise click.ClickException(f"{camera.settings.address}: {camera.error}")


def _start(camera: Camera) -> None:
    settings = camera.settings
    try:
        camera.start()
    except RuntimeError as error:
        raise click.ClickException(f"{error}\n{_remedy(str(error))}") from error
    width, height = settings.size
    click.echo(
        f"Camera on {settings.address}: {width}x{height} {settings.pixel_format.name}, "
        f"{settings.defaults.rate:g} frames/s, until Ctrl+C. "
        f"See it with: arv-camera-test-0.8 -n {settings.address}"
    )


def _remedy(cause: str) -> str:
    if "already in use" in cause:
        return "Another camera has this address: end it, or take another one with --address."
    return "Give --address one of this machine's addresses: tarn-camera list-interfaces shows them."


def _watch(cameras: list[Camera]) -> None:
    """Show what goes on until no camera runs."""
    watchers = {camera.settings.address: Watcher(camera) for camera in cameras}
    live = sys.stderr.isatty() and not logging.getLogger().isEnabledFor(logging.DEBUG)
    lines = LiveLines(sys.stderr) if live else LogLines()
    ending = threading.Event()  # never set: it is there for a wait that Ctrl+C ends
    with contextlib.closing(lines):
        while any(camera.is_running for camera in cameras):
            lines.show({address: watcher.look() for address, watcher in watchers.items()})
            ending.wait(_LOOK_EVERY)

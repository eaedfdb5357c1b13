"""The command line of ``tarn-camera``."""

import logging
import pathlib
from typing import Any

import click
from click.shell_completion import get_completion_class

from tarn.camera import addresses
from tarn.camera.controls import FILM, Defaults
from tarn.camera.options import DRIVERS, OPTIONS
from tarn.camera.pictures import Pictures, SourceError
from tarn.camera.pixels import FORMATS
from tarn.camera.runner import run
from tarn.camera.sections import SectionGroup
from tarn.camera.settings import Identity, Settings
from tarn.camera.values import TextType
from tarn.camera.video import Video

PROGRAM = "tarn-camera"
_COMPLETION_VARIABLE = "_TARN_CAMERA_COMPLETE"  # as the library for command lines derives it from the name
_USUAL_SIZE = (640, 480)
_USUAL_RATE = 30.0

_EXAMPLES = """\
Examples:
  tarn-camera
      a grey ramp on 127.0.0.1, until Ctrl+C
  tarn-camera --address 192.168.1.5 --pattern clock --fps 60
      time and number in each frame, so that losses are seen
  tarn-camera --pattern bars --format BayerRG12p --size 1920x1080
      what a colour sensor sees
  tarn-camera --pictures shots --trigger
      the next picture of a folder at each software trigger
  tarn-camera --video film.mp4 --format RGB8
      a video as a camera
  tarn-camera --count 4 --address 127.0.0.1
      cameras on 127.0.0.1 to 127.0.0.4
  tarn-camera --drop 1% --delay 20ms
      a camera with faults, to test a client

Options say how the camera begins; clients change most of it through features.
Exit code: 0 after Ctrl+C or the last frame, 1 when the camera cannot run, 2 for wrong options.
"""


@click.group(
    cls=SectionGroup,
    params=OPTIONS,
    invoke_without_command=True,
    epilog=_EXAMPLES,
    context_settings={"help_option_names": ["-h", "--help"], "max_content_width": 100},
)
@click.pass_context
def main(context: click.Context, /, log_level: str, **options: Any) -> None:
    """A GigE Vision camera in software, from one command.

    Any GigE Vision client on the network finds it, reads its features and receives its frames.
    While it runs, a line for each camera says what goes on, and why when no frames flow.
    """
    if context.invoked_subcommand is None:
        logging.basicConfig(level=log_level.upper(), format="%(message)s")
        run(_settings(**options))


@main.command("list-interfaces")
def list_interfaces() -> None:
    """Show the addresses on which a camera can be."""
    for network in addresses.local_networks():
        click.echo(f"{network.ip!s:<15}  network {network.network}")


@main.command("list-formats")
def list_formats() -> None:
    """Show the pixel formats."""
    for pixel_format in FORMATS.values():
        bits = pixel_format.payload_bytes(8, 1)
        click.echo(f"{pixel_format.name:<16}  {bits:>2} bits per pixel")


@main.command("completion")
@click.argument("shell", type=click.Choice(["bash", "zsh", "fish"]))
def completion(shell: str) -> None:
    """Print what makes a shell complete this command.

    For bash: tarn-camera completion bash > ~/.local/share/bash-completion/completions/tarn-camera
    """
    completion_class = get_completion_class(shell)
    assert completion_class, shell
    click.echo(completion_class(main, {}, PROGRAM, _COMPLETION_VARIABLE).source())


def _settings(
    address: str, count: int, serial: str | None, user_id: str | None, **options: Any
) -> list[Settings]:
    """What the options say of each camera."""
    try:
        own_addresses = addresses.consecutive(address, count)
    except ValueError as error:
        raise click.BadParameter(f"{error}: give one like 192.168.1.5", param_hint="--address") from error
    made = []
    for number, own_address in enumerate(own_addresses, 1):
        suffix = f"-{number}" if count > 1 else ""
        identity = Identity(
            vendor=options["vendor"],
            model=options["model"],
            serial=_numbered(serial, suffix, "--serial"),
            user_id=_numbered(user_id, suffix, "--user-id"),
            user_version=options["user_version"],
        )
        made.append(_camera(own_address, identity, **options))
    return made


def _camera(address: str, identity: Identity, **options: Any) -> Settings:
    film = _film(options["pictures"], options["video"], options["size"])
    rate = options["fps"] or (film.rate if isinstance(film, Video) else None) or _USUAL_RATE
    defaults = Defaults(
        pattern=options["pattern"] or (FILM if film else Defaults.pattern),
        rate=rate,
        triggered=options["trigger"],
        exposure=options["exposure"],
        gain=options["gain"],
        drop=options["drop"],
        delay=options["delay"] / 1000,
        corrupt=options["corrupt"],
        freeze=options["freeze"],
    )
    return Settings(
        address=address,
        size=film.size if film else options["size"] or _USUAL_SIZE,
        pixel_format=options["pixel_format"],
        film=film,
        resend=options["resend"],
        driver=DRIVERS[options["driver"]],
        throughput=options["throughput"] and options["throughput"] * 1e6,
        priority=options["priority"],
        processors=options["processors"],
        identity=identity,
        defaults=defaults,
        frames=options["frames"],
    )


def _film(
    pictures: pathlib.Path | None, video: pathlib.Path | None, size: tuple[int, int] | None
) -> Pictures | Video | None:
    """Each camera reads by itself, as each takes its frames by itself."""
    if pictures and video:
        raise click.UsageError("--pictures and --video exclude each other: give one of them")
    try:
        if pictures:
            return Pictures(pictures, size)
        return Video(video, size) if video else None
    except SourceError as error:
        raise click.ClickException(str(error)) from error


def _numbered(text: str | None, suffix: str, option: str) -> str | None:
    """The text with what tells the cameras apart, if it fits its register."""
    if text is None:
        return None
    try:
        return TextType(16).convert(text + suffix, None, None)
    except click.BadParameter as error:
        raise click.BadParameter(error.message, param_hint=option) from error

"""The camera program as people start it: its options, its messages, its end."""

import itertools
import os
import pathlib
import pty
import re
import signal
import sys

import numpy as np
import pytest
from click.testing import CliRunner
from PIL import Image

from camera_program import camera_command, running, start
from conftest import free_address
from feeding import make_video
from gvcp_client import discover
from tarn import PfncFormat
from tarn.camera.command import main
from tarn.camera.pixels import FORMATS
from viewing import viewing


def outcome(command: list[str], **variables: str) -> tuple[int, str, str]:
    """Exit code and streams of a run that ends by itself."""
    with start(command, variables=variables) as process:
        out, error = process.communicate(timeout=60)
    assert "Traceback" not in error, error
    return process.returncode, out, error


def test_ends_after_its_frames_whether_anybody_sees_them() -> None:
    address = free_address()
    options = ("--address", address, "--frames", "3", "--size", "301x100", "--fps", "60")
    code, out, error = outcome(camera_command(*options))
    assert (code, error) == (0, f"{address}  no frames: no client\n")
    assert out.startswith(f"Camera on {address}: 301x100 Mono8, 60 frames/s")


@pytest.mark.parametrize("sign", [signal.SIGINT, signal.SIGTERM])
def test_ends_cleanly_when_told_and_tells_the_client(sign: signal.Signals) -> None:
    with running("--format", "BayerRG12Packed") as program, viewing(program.address) as viewer:
        viewer.start()
        assert viewer.next_frames(1)[0].leader.pixel_format == PfncFormat.BayerRG12Packed
        viewer.client.stop_heartbeat()  # nobody will answer
        program.process.send_signal(sign)
        assert program.process.wait(timeout=20) == 0
        assert not discover(program.address, wait=0.1)
        viewer.client.close()


WRONG: list[tuple[str, int, list[str]]] = [
    ("--address camera", 2, ["--address", "'camera'", "192.168.1.5"]),
    ("--address 255.255.255.250 --count 10", 2, ["--address"]),
    ("--size 640", 2, ["--size", "640x480"]),
    ("--size 31x640", 2, ["32 to 16384"]),
    ("--size 640x16385", 2, ["32 to 16384"]),
    ("--frames 0", 2, ["--frames"]),
    ("--format Mono9", 2, ["Mono9", "list-formats"]),
    ("--drop 101%", 2, ["101%", "100%"]),
    ("--drop -1", 2, ["0% to 100%"]),
    ("--delay 20", 2, ["20ms"]),
    ("--delay 2000s", 2, ["60s"]),
    ("--exposure 9us", 2, ["10us to 10s"]),
    ("--processors 3-2", 2, ["0,2-3"]),
    ("--processors 63", 2, ["0 to 62"]),
    ("--serial sixteen_letters!", 2, ["16 bytes", "15"]),
    ("--serial fourteen_bytes --count 2", 2, ["--serial", "fourteen_bytes-1"]),
    ("--pictures /nowhere", 2, ["/nowhere", "does not exist"]),
    ("--pictures .", 1, ["no pictures in ."]),
    (f"--pictures . --video {__file__}", 2, ["--pictures", "--video"]),
    (f"--video {__file__}", 1, ["cannot read the video", __file__]),
    ("stream", 2, ["stream"]),
]


@pytest.mark.parametrize(("options", "code", "texts"), WRONG, ids=[row[0] for row in WRONG])
def test_says_what_is_wrong_and_what_to_do(options: str, code: int, texts: list[str]) -> None:
    ended = CliRunner().invoke(main, ["--frames", "1", *options.split()])
    assert ended.exit_code == code, ended.output
    for text in texts:
        assert text in ended.output.replace("\n", " ")


def test_says_why_an_address_cannot_be_had() -> None:
    with running() as program:
        rows = (
            (program.address, ("Address already in use", "Another")),
            ("203.0.113.77", ("list-interfaces",)),
        )
        for address, texts in rows:
            code, _, error = outcome(camera_command("--address", address, "--frames", "1"))
            assert code == 1
            assert all(text in error for text in texts), error


def test_lists_addresses_and_formats_and_completes() -> None:
    interfaces, formats, completion = (
        CliRunner().invoke(main, command.split()).output
        for command in ("list-interfaces", "list-formats", "completion bash")
    )
    assert "127.0.0.1        network 127.0.0.0/8" in interfaces
    bits = {line.split()[0]: int(line.split()[1]) for line in formats.splitlines()}
    assert list(bits) == list(FORMATS)
    assert (bits["Mono8"], bits["Mono12p"], bits["RGB8"]) == (8, 12, 24)
    assert "_TARN_CAMERA_COMPLETE" in completion
    typed = {"COMP_WORDS": "x --format bayerrg12", "COMP_CWORD": "2", "_X_COMPLETE": "bash_complete"}
    offered = CliRunner().invoke(main, prog_name="x", env=typed).output
    assert offered.split() == ["plain,BayerRG12", "plain,BayerRG12Packed", "plain,BayerRG12p"]


def test_serves_several_cameras_with_names_of_their_own() -> None:
    names = ["--serial", "S", "--user-id", "left", "--vendor", "Me", "--model", "M", "--user-version", "7"]
    addresses = [f"127.78.0.{host}" for host in (1, 2, 3)]
    with running("--count", "3", *names, address=addresses[0]) as program:
        greetings = [program.greeting, *(program.process.stdout.readline() for _ in range(2))]
        for number, (address, greeting) in enumerate(zip(addresses, greetings, strict=True), 1):
            assert greeting.startswith(f"Camera on {address}: ")
            (device,) = discover(address, wait=0.1)
            assert (device.serial, device.user_name) == (f"S-{number}", f"left-{number}")
            assert (device.manufacturer, device.model) == ("Me", "M")
            assert device.device_version.endswith(" 7")
            with viewing(address) as viewer:
                viewer.start()
                viewer.next_frames(2)


def assert_in_turn(pictures: list[np.ndarray], colours: list[tuple[int, ...]]) -> None:
    """RGB8 pictures of one colour each, those given in turn, from any of them on."""
    found = [np.unique(picture.reshape(-1, 3), axis=0).tolist() for picture in pictures]
    first = colours.index(tuple(found[0][0]))
    expected = itertools.islice(itertools.cycle(colours), first, first + len(pictures))
    assert found == [[list(colour)] for colour in expected]


def test_shows_the_pictures_of_a_folder_in_turn_until_one_cannot_be_read(tmp_path: pathlib.Path) -> None:
    colours = {"a.png": (255, 0, 0), "b.bmp": (0, 255, 0), "c.png": (0, 0, 255)}
    for name, colour in colours.items():
        Image.new("RGB", (60, 40), colour).save(tmp_path / name)
    (tmp_path / "notes.txt").write_text("no picture")
    options = ("--address", address := free_address(), "--pictures", str(tmp_path), "--format", "RGB8")
    with start(camera_command(*options)) as process:
        process.stdout.readline()
        with viewing(address) as viewer:
            assert (viewer.features.read("Width"), viewer.features.read("Height")) == (60, 40)
            viewer.start()
            assert_in_turn(viewer.next_pictures(7), list(colours.values()))
            viewer.stop()
            (tmp_path / "b.bmp").write_bytes(b"broken")
            viewer.features.write("Width", 40)  # encoded pictures of the width before were kept
            viewer.features.execute("AcquisitionStart")
            viewer.client.stop_heartbeat()  # nobody will answer
            _, error = process.communicate(timeout=20)
            viewer.client.close()
    assert process.returncode == 1
    assert "b.bmp" in error.splitlines()[-1]
    assert "Traceback" not in error


def test_shows_a_video_from_the_beginning_again(tmp_path: pathlib.Path) -> None:
    greys = [10, 90, 170, 250]
    make_video(tmp_path / "film.mkv", greys, rate=12)
    options = ("--video", str(tmp_path / "film.mkv"), "--format", "RGB8")
    with running(*options) as program, viewing(program.address) as viewer:
        assert "64x48 RGB8, 12 frames/s" in program.greeting
        viewer.start()
        assert_in_turn(viewer.next_pictures(9), [(grey,) * 3 for grey in greys])


def test_a_terminal_shows_one_line_for_each_camera_again_and_again() -> None:
    address = free_address()
    terminal, end = pty.openpty()
    command = camera_command("--address", address, "--fps", "50")
    with start(command, stderr=end, variables={"COLUMNS": "100"}) as program:
        os.close(end)
        program.stdout.readline()
        written = ""
        with viewing(address) as viewer:
            viewer.start()
            while not re.search(
                r"streaming to 127.0.0.1  \d+\.\d frames/s  0\.\d+ Gbit/s  [1-9]\d* sent", written
            ):
                written += os.read(terminal, 4096).decode()
            viewer.stop()
            while "acquisition stopped" not in written:
                written += os.read(terminal, 4096).decode()
        program.terminate()
        program.wait(timeout=20)
    os.close(terminal)
    first, *later = written.split("\r\n")[:-1]
    assert first.startswith(address)
    assert later
    assert all(line.startswith(f"\x1b[F{address}") for line in later), "each is written over the one before"


def test_module_needs_the_programs_libraries_and_the_package_does_not() -> None:
    run = (
        "import sys, runpy; sys.modules['click'] = None; runpy.run_module('tarn.gevserver', None, '__main__')"
    )
    code, _, error = outcome([sys.executable, "-c", run])
    assert code == 1
    assert "pip install click numpy pillow" in error
    look = "import sys, tarn.gevserver; print({'click', 'numpy', 'PIL', 'tarn.camera'} & set(sys.modules))"
    assert outcome([sys.executable, "-c", look]) == (0, "set()\n", "")

"""The camera program as people start it: its options, its messages, its end."""

import itertools
import pathlib
import signal
import subprocess
import sys
from typing import Any

import numpy as np
import pytest
from PIL import Image

from camera_program import camera_command, environment, first_line, running, start, viewing
from conftest import free_address
from gvcp_client import discover
from tarn.camera.patterns import bars
from tarn.camera.pixels import FORMATS, encode


def outcome(*options: str) -> tuple[int, str, str]:
    """Exit code and streams of a run that ends by itself."""
    done = subprocess.run(
        camera_command(*options), env=environment(), capture_output=True, text=True, timeout=60
    )
    assert "Traceback" not in done.stderr, done.stderr
    return done.returncode, done.stdout, done.stderr


def python(script: str, **more: str) -> subprocess.CompletedProcess[str]:
    """A finished run of a script."""
    command = [sys.executable, "-c", script]
    return subprocess.run(command, env=environment(**more), capture_output=True, text=True, timeout=60)


def test_ends_after_its_frames_whether_anybody_sees_them() -> None:
    address = free_address()
    code, out, error = outcome("--address", address, "--frames", "3", "--size", "301x100", "--fps", "60")
    assert (code, error) == (0, f"{address}  no frames: no client\n")
    assert out.startswith(f"Camera on {address}: 301x100 Mono8, 60 frames/s")


@pytest.mark.parametrize("sign", [signal.SIGINT, signal.SIGTERM])
def test_ends_cleanly_when_told_and_tells_the_client(sign: Any) -> None:
    with running() as program, viewing(program.address) as viewer:
        viewer.start()
        viewer.next_frames(1)
        program.process.send_signal(sign)
        assert program.process.wait(timeout=20) == 0
        assert not discover(program.address, wait=0.1)


@pytest.mark.parametrize(
    ("options", "code", "texts"),
    [
        (["--address", "203.0.113.77"], 1, ["203.0.113.77", "list-interfaces"]),
        (["--address", "camera"], 2, ["--address", "'camera'", "192.168.1.5"]),
        (["--address", "255.255.255.250", "--count", "10"], 2, ["--address"]),
        (["--size", "640"], 2, ["--size", "640x480"]),
        (["--size", "8x8"], 2, ["32 to 16384"]),
        (["--frames", "0"], 2, ["--frames"]),
        (["--format", "Mono9"], 2, ["Mono9", "list-formats"]),
        (["--drop", "101%"], 2, ["101%", "100%"]),
        (["--delay", "20"], 2, ["20ms"]),
        (["--delay", "2000s"], 2, ["60s"]),
        (["--serial", "sixteen letters!"], 2, ["16 bytes", "15"]),
        (["--serial", "fourteen bytes", "--count", "2"], 2, ["--serial", "fourteen bytes-1"]),
        (["--pictures", "/nowhere"], 2, ["/nowhere", "does not exist"]),
        (["--pictures", "."], 1, ["no pictures in ."]),
        (["--pictures", ".", "--video", __file__], 2, ["--pictures", "--video"]),
        (["--video", __file__], 1, ["cannot read the video", __file__]),
        (["stream"], 2, ["stream"]),
    ],
    ids=lambda value: " ".join(value) if isinstance(value, list) else None,
)
def test_says_what_is_wrong_and_what_to_do(options: Any, code: Any, texts: Any) -> None:
    got, _, error = outcome("--frames", "1", *options)
    assert got == code, error
    for text in texts:
        assert text in error.replace("\n", " ")


def test_says_that_an_address_is_taken() -> None:
    with running() as program:
        code, _, error = outcome("--address", program.address, "--frames", "1")
    assert code == 1
    assert "Address already in use" in error
    assert "another" in error.lower()


def test_lists_addresses_and_formats_and_completes() -> None:
    code, out, _ = outcome("list-interfaces")
    assert code == 0
    assert "127.0.0.1        network 127.0.0.0/8" in out
    code, out, _ = outcome("list-formats")
    assert code == 0
    assert [line.split()[0] for line in out.splitlines()] == list(FORMATS)
    assert "Mono12p" in out
    code, out, _ = outcome("completion", "bash")
    assert code == 0
    assert "_TARN_CAMERA_COMPLETE" in out


def test_completion_offers_values() -> None:
    script = "from tarn.camera.command import main; main(prog_name='tarn-camera')"
    done = python(
        script,
        COMP_WORDS="tarn-camera --format bayerrg12",
        COMP_CWORD="2",
        _TARN_CAMERA_COMPLETE="bash_complete",
    )
    assert done.stdout.split() == ["plain,BayerRG12", "plain,BayerRG12Packed", "plain,BayerRG12p"]


def test_serves_several_cameras_with_names_of_their_own() -> None:
    first = "127.78.0.1"
    with running(
        "--count",
        "3",
        "--serial",
        "S",
        "--user-id",
        "left",
        "--vendor",
        "Me",
        "--model",
        "M",
        "--user-version",
        "7",
        address=first,
    ) as program:
        greetings = [program.greeting] + [first_line(program.process) for _ in range(2)]
        addresses = [f"127.78.0.{host}" for host in (1, 2, 3)]
        for address, greeting in zip(addresses, greetings, strict=True):
            assert greeting.startswith(f"Camera on {address}: ")
        found = [discover(address)[0] for address in addresses]
        assert [device.serial for device in found] == ["S-1", "S-2", "S-3"]
        assert [device.user_name for device in found] == ["left-1", "left-2", "left-3"]
        assert {(device.manufacturer, device.model) for device in found} == {("Me", "M")}
        assert all(device.device_version.endswith(" 7") for device in found)
        for address in addresses:
            with viewing(address) as viewer:
                viewer.start()
                viewer.next_frames(2)


@pytest.fixture
def folder(tmp_path: pathlib.Path) -> pathlib.Path:
    """Three pictures of different colour, and a file that is none."""
    for name, colour in (("a.png", (255, 0, 0)), ("b.bmp", (0, 255, 0)), ("c.png", (0, 0, 255))):
        Image.new("RGB", (60, 40), colour).save(tmp_path / name)
    (tmp_path / "notes.txt").write_text("no picture")
    return tmp_path


def colours(pictures: list[np.ndarray]) -> list[tuple[int, ...]]:
    """Of RGB8 pictures of one colour each: that colour."""
    found = [np.unique(picture.reshape(-1, 3), axis=0) for picture in pictures]
    assert all(len(one) == 1 for one in found)
    return [tuple(one[0].tolist()) for one in found]


def test_shows_the_pictures_of_a_folder_in_turn(folder: pathlib.Path) -> None:
    with (
        running("--pictures", str(folder), "--format", "RGB8") as program,
        viewing(program.address) as viewer,
    ):
        assert (viewer.features.read("Width"), viewer.features.read("Height")) == (60, 40)
        viewer.start()
        seen = colours(viewer.next_pictures(7))
    cycle: list[tuple[int, ...]] = [(255, 0, 0), (0, 255, 0), (0, 0, 255)]
    start = cycle.index(seen[0])
    assert seen == list(itertools.islice(itertools.cycle(cycle), start, start + 7))


def test_a_picture_that_cannot_be_read_ends_the_program_with_its_name(folder: pathlib.Path) -> None:
    (folder / "b.bmp").write_bytes(b"broken")
    command = camera_command("--address", address := free_address(), "--pictures", str(folder))
    with start(command) as process:
        first_line(process)
        with viewing(address) as viewer:
            viewer.start()
            _, error = process.communicate(timeout=20)
    assert process.returncode == 1
    assert "b.bmp" in error.splitlines()[-1]
    assert "Traceback" not in error


def test_shows_a_video_from_the_beginning_again(tmp_path: pathlib.Path) -> None:
    av = pytest.importorskip("av", reason="videos are an extra")
    file = tmp_path / "film.avi"
    with av.open(str(file), "w") as container:
        stream = container.add_stream("ffv1", rate=12)
        stream.width, stream.height, stream.pix_fmt = 64, 48, "bgr0"
        for value in (10, 90, 170, 250):
            picture = np.full((48, 64, 3), value, np.uint8)
            for packet in stream.encode(av.VideoFrame.from_ndarray(picture, "rgb24")):
                container.mux(packet)
        for packet in stream.encode():
            container.mux(packet)
    with running("--video", str(file), "--format", "RGB8") as program, viewing(program.address) as viewer:
        assert "64x48 RGB8, 12 frames/s" in program.greeting
        viewer.start()
        seen = [colour[0] for colour in colours(viewer.next_pictures(9))]
    start = [10, 90, 170, 250].index(seen[0])
    assert seen == list(itertools.islice(itertools.cycle([10, 90, 170, 250]), start, start + 9))


@pytest.mark.parametrize("name", ["Mono12", "BayerGR8", "BGR8", "Mono10p", "BayerRG12Packed", "RGBa16"])
def test_sends_each_kind_of_format_as_it_is_defined(name: str) -> None:
    size = (102, 60)
    options = ["--format", name, "--size", "102x60", "--pattern", "bars"]
    with running(*options) as program, viewing(program.address) as viewer:
        viewer.start()
        (frame,) = viewer.next_frames(1)
    assert frame.leader.pixel_format == FORMATS[name].value
    source = bars(*size)
    possible = {
        encode(np.roll(source.picture, -shift, axis=0)[:60], FORMATS[name]).tobytes()
        for shift in range(0, source.period, 8)
    }
    assert frame.image in possible


def test_module_says_what_is_missing() -> None:
    """Without the libraries of the program, as in an environment that has the package alone."""
    run = "runpy.run_module('tarn.gevserver', None, '__main__')"
    done = python(f"import sys, runpy; sys.modules['click'] = None; {run}")
    assert done.returncode == 1
    assert "pip install click numpy pillow" in done.stderr


def test_package_imports_nothing_of_the_program() -> None:
    done = python(
        "import sys, tarn, tarn.gevserver;print({'click', 'numpy', 'PIL', 'tarn.camera'} & set(sys.modules))"
    )
    assert done.stdout == "set()\n", done.stderr

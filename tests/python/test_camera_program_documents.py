"""Each command line of the camera program in the documents, and what it writes to a terminal."""

import itertools
import os
import pathlib
import pty
import re
import shlex

import pytest
from PIL import Image

from camera_program import camera_command, environment, first_line, start, viewing
from conftest import ROOT, free_address

_hosts = itertools.count(1)


def command_lines() -> list[str]:
    """What the documents show after a prompt, and the examples of the program's own help."""
    texts = [path.read_text() for path in (ROOT / "README.md", *(ROOT / "docs").rglob("*.md"))]
    with start(camera_command("--help")) as program:
        texts.append(program.communicate(timeout=60)[0])
    found = re.findall(r"^(?:\$|  ) ?(tarn-camera\b.*)$", "\n".join(texts), re.M)
    return sorted(set(found))


@pytest.fixture
def example_files(tmp_path: pathlib.Path) -> pathlib.Path:
    """A folder with what the examples name."""
    av = pytest.importorskip("av", reason="an example shows a video")
    (tmp_path / "shots").mkdir()
    for name in ("1.png", "2.png"):
        Image.new("L", (40, 30), 99).save(tmp_path / "shots" / name)
    with av.open(str(tmp_path / "film.mp4"), "w") as container:
        stream = container.add_stream("mpeg4", rate=25)
        stream.width, stream.height = 64, 48
        for packet in itertools.chain(stream.encode(av.VideoFrame(64, 48)), stream.encode()):
            container.mux(packet)
    return tmp_path


def test_command_lines_of_the_documents_run(example_files: pathlib.Path) -> None:
    lines = command_lines()
    assert len(lines) > 12, lines
    for line in lines:
        arguments = shlex.split(line.partition(" >")[0])[1:]
        is_camera = not arguments or arguments[0].startswith("--")
        if is_camera:  # on an address that this machine has: the last one counts
            arguments += ["--address", f"127.79.{next(_hosts)}.1"]
        with start(camera_command(*arguments), cwd=example_files) as program:
            first = first_line(program)
            if is_camera:
                program.terminate()
            _, error = program.communicate(timeout=20)
        assert program.returncode == 0, (line, error)
        assert first.startswith("Camera on 127.79.") == is_camera, (line, first)


def test_a_terminal_shows_one_line_for_each_camera_again_and_again() -> None:
    address = free_address()
    terminal, end = pty.openpty()
    command = camera_command("--address", address, "--fps", "50")
    with start(command, stderr=end, env=environment(COLUMNS="100")) as program:
        os.close(end)
        first_line(program)
        written = ""
        with viewing(address) as viewer:
            viewer.start()
            while not re.search(r"streaming to 127.0.0.1  \d+\.\d frames/s  0\.\d+ Gbit/s", written):
                written += os.read(terminal, 4096).decode()
            viewer.features.execute("AcquisitionStop")
            while "acquisition stopped" not in written:
                written += os.read(terminal, 4096).decode()
        program.terminate()
        program.wait(timeout=20)
    os.close(terminal)
    first, *later = written.split("\r\n")[:-1]
    assert first.startswith(address)
    assert later
    assert all(line.startswith(f"\x1b[F{address}") for line in later), "each is written over the one before"

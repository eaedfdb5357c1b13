"""What the documents tell readers to type, typed; and their pieces of Python, run."""

import itertools
import pathlib
import re
import shlex
import subprocess
from collections.abc import Iterator

import pytest
from PIL import Image

from camera_program import camera_command, running, start
from conftest import ROOT, free_address, need_tool, run_python
from feeding import make_video

DOCUMENTS = {path: path.read_text() for path in (ROOT / "README.md", *sorted((ROOT / "docs").rglob("*.md")))}
EXAMPLE_ADDRESS = re.compile(r"192\.0\.2\.1|192\.168\.0\.10|127\.0\.0\.1")


def found(pattern: str) -> list[str]:
    """Parts of the documents that match, without remarks, each once."""
    parts = itertools.chain(*(re.findall(pattern, text, re.M) for text in DOCUMENTS.values()))
    return sorted({re.sub(" +#.*", "", part) if "\n" not in part else part for part in parts})


# The viewer waits for a person; Brightness is a feature of an example, which other tests start.
CLIENT_LINES = [line for line in found(r"^\$ ((?:arv-|gst-).*)$") if not re.search("viewer|Brightness", line)]
PIECES = [
    piece
    for piece in found(r"^```python\n((?:(?!```).*\n)*)```")
    if EXAMPLE_ADDRESS.search(piece) and "import" in piece and "while True" not in piece
]


def test_command_lines_of_the_camera_program_run(tmp_path: pathlib.Path) -> None:
    """Also the examples of its own help, in a folder with what they name."""
    (tmp_path / "shots").mkdir()
    for name in ("1.png", "2.png"):
        Image.new("L", (40, 30), 99).save(tmp_path / "shots" / name)
    make_video(tmp_path / "film.mp4", [0], rate=25)
    with start(camera_command("--help")) as program:
        shown = re.findall(r"^  (tarn-camera\b.*)$", program.communicate(timeout=60)[0], re.M)
    lines = {*shown, *found(r"^\$ (tarn-camera\b.*)$")}
    assert len(lines) > 12 and len(CLIENT_LINES) >= 7 and len(PIECES) >= 4, "the documents are found"
    for number, line in enumerate(sorted(lines)):
        arguments = shlex.split(line.partition(" >")[0])[1:]
        is_camera = not arguments or arguments[0].startswith("--")
        if is_camera:  # on an address that this machine has: the last one counts
            arguments += ["--address", f"127.79.{number}.1"]
        with start(camera_command(*arguments), cwd=tmp_path) as program:
            first = program.stdout.readline()
            if is_camera:
                program.terminate()
            _, error = program.communicate(timeout=20)
        assert program.returncode == 0, (line, error)
        assert first.startswith("Camera on 127.79.") == is_camera, (line, first)


@pytest.fixture(scope="module")
def camera_address() -> Iterator[str]:
    """Of the camera program."""
    with running() as program:
        yield program.address


@pytest.mark.parametrize("line", CLIENT_LINES)
def test_client_reaches_the_camera(camera_address: str, line: str) -> None:
    command = shlex.split(line)
    need_tool(command[0])
    if command[0].startswith("arv-camera-test"):
        command.append("--duration=1")
    if command[0].startswith("gst-launch"):
        command = [word.replace("autovideosink", "fakesink") for word in command]
        command.insert(command.index("!"), "num-buffers=10")
    command = [EXAMPLE_ADDRESS.sub(camera_address, word) for word in command]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60)
    output = done.stdout + done.stderr
    assert done.returncode == 0, output
    assert not re.search(r"not found|no device|unable|n_completed_buffers *= 0", output, re.I), output
    for setting in re.findall(r"\b[A-Z]\w+=\d+", line):
        assert setting.replace("=", " = ") in output
    assert len(command) > 1 or camera_address in output


@pytest.mark.parametrize("piece", PIECES, ids=lambda piece: piece.split("\n")[-2])
def test_piece_of_python_runs(camera_address: str, piece: str) -> None:
    if "pyGigEVision" in piece:
        pytest.importorskip("pyGigEVision")
    address = free_address() if ".start(" in piece else camera_address
    with run_python(EXAMPLE_ADDRESS.sub(address, piece)) as program:
        _, error = program.communicate(timeout=60)
    assert (program.returncode, error) == (0, "")

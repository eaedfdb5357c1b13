"""What the documents tell readers to type to clients and administrators, typed; their pieces of Python."""

import contextlib
import itertools
import os
import re
import shlex
import subprocess
from collections.abc import Iterator

import pytest

from camera_program import camera_command, first_line, running, start
from conftest import ROOT, free_address, need_tool, run_python
from gvcp_client import discover
from namespaces import need_namespaces

DOCUMENTS = {path: path.read_text() for path in (ROOT / "README.md", *sorted((ROOT / "docs").rglob("*.md")))}
EXAMPLE_ADDRESS = re.compile(r"192\.0\.2\.1|192\.168\.0\.10|127\.0\.0\.1")


def lines(pattern: str) -> list[str]:
    """Lines of the documents that match, without prompt and remark, each once."""
    found = itertools.chain(*(re.findall(pattern, text, re.M) for text in DOCUMENTS.values()))
    return sorted({re.sub(" +#.*", "", line) for line in found})


# The viewer waits for a person.
CLIENT_LINES = [line for line in lines(r"^\$ ((?:arv-|gst-).*)$") if line != "arv-viewer-0.8"]


@contextlib.contextmanager
def camera_for(line: str) -> Iterator[str]:
    """The address of the camera that the document talks about."""
    if "Brightness" not in line:
        with running(*(["--trigger"] if "Trigger" in line else [])) as program:
            yield program.address
        return
    address = free_address()
    example = (ROOT / "examples" / "lighting_controller.py").read_text()
    with run_python(example, address) as program:
        while not discover(address, wait=0.1):
            assert program.poll() is None, program.stderr.read()
        yield address
        program.terminate()


@pytest.mark.parametrize("line", CLIENT_LINES)
def test_client_reaches_the_camera(line: str) -> None:
    command = shlex.split(line)
    need_tool(command[0])
    if command[0].startswith("arv-camera-test"):
        command.append("--duration=1")
    if command[0].startswith("gst-launch"):
        command = [word.replace("autovideosink", "fakesink") for word in command]
        command.insert(command.index("!"), "num-buffers=10")
    with camera_for(line) as address:
        command = [EXAMPLE_ADDRESS.sub(address, word) for word in command]
        done = subprocess.run(command, capture_output=True, text=True, timeout=60)
    output = done.stdout + done.stderr
    assert done.returncode == 0, output
    assert not re.search(r"not found|no device|unable|n_completed_buffers *= 0", output, re.I), output
    for setting in re.findall(r"\b[A-Z]\w+=\d+", line):
        assert setting.replace("=", " = ") in output
    assert len(command) > 1 or address in output


def test_documents_show_clients() -> None:
    assert len(CLIENT_LINES) >= 8, CLIENT_LINES


def pieces_of_python() -> list[str]:
    """Those that are whole programs: they start a camera or name one."""
    found = itertools.chain(
        *(re.findall(r"^```python\n(.*?)^```", text, re.M | re.S) for text in DOCUMENTS.values())
    )
    return [
        piece
        for piece in found
        if EXAMPLE_ADDRESS.search(piece) and "import" in piece and "while True" not in piece
    ]


@pytest.mark.parametrize("piece", pieces_of_python(), ids=lambda piece: piece.split("\n")[-2])
def test_piece_of_python_runs(piece: str) -> None:
    if "pyGigEVision" in piece:
        pytest.importorskip("pyGigEVision")
    with contextlib.ExitStack() as stack:
        is_camera = ".start(" in piece
        address = free_address() if is_camera else stack.enter_context(running()).address
        program = stack.enter_context(run_python(EXAMPLE_ADDRESS.sub(address, piece)))
        _, error = program.communicate(timeout=60)
    assert (program.returncode, error) == (0, "")


def test_recipe_for_two_hosts_that_lose_packets() -> None:
    need_namespaces()
    need_tool("nft")
    need_tool("arv-camera-test-0.8")
    hosts = {name: f"{name}-{os.getpid()}" for name in ("camera", "client")}
    rename = re.compile(r"(?<![\w-])(camera|client)(?![\w-])")
    recipe = [
        shlex.split(rename.sub(lambda name: hosts[name[0]], line))
        for line in re.findall(
            r"^# (ip (?:netns|link add|-n) .*)$", DOCUMENTS[ROOT / "docs/guides/networks.md"], re.M
        )
    ]
    (show,) = (command for command in recipe if "tarn-camera" in command)
    recipe.remove(show)
    place = show.index("tarn-camera")
    try:
        for command in recipe:
            done = subprocess.run(command, capture_output=True, text=True, timeout=60)
            assert done.returncode == 0, (command, done.stderr)
        in_client = ["ip", "netns", "exec", hosts["client"]]
        with start(show[:place] + camera_command(*show[place + 1 :])) as program:
            assert first_line(program).startswith("Camera on 192.0.2.1")
            receive = [*in_client, "arv-camera-test-0.8", "-n", "192.0.2.1", "--duration=2"]
            received = subprocess.run(receive, capture_output=True, text=True, timeout=60).stdout
            program.terminate()
        counted = subprocess.run(
            [*in_client, "nft", "list", "table", "ip", "loss"], capture_output=True, text=True
        )
    finally:
        for name in hosts.values():
            subprocess.run(["ip", "netns", "delete", name], capture_output=True)
    assert re.search(r"n_completed_buffers *= [1-9]", received), received
    assert re.search(r"counter packets [1-9]", counted.stdout), counted.stdout

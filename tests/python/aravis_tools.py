"""The programs of the Aravis project, an independent GigE Vision client, as tests use them."""

import json
import pathlib
import subprocess
import sys
from typing import Any

from conftest import need_tool

_GRAB = pathlib.Path(__file__).with_name("aravis_grab.py")


def tool(*arguments: str, program: str = "arv-tool-0.8") -> str:
    """What one of the programs writes in a run without failure."""
    need_tool(program)
    done = subprocess.run([program, *arguments], capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def grab_command(*arguments: object) -> list[str]:
    """Starts the client program of `aravis_grab.py`."""
    return [sys.executable, str(_GRAB), *map(str, arguments)]


def grab(*arguments: object) -> list[dict[str, Any]]:
    """What the client program says of the start and of each frame."""
    done = subprocess.run(grab_command(*arguments), capture_output=True, text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    return [json.loads(line) for line in done.stdout.splitlines()][:-1]


def pieces(file: pathlib.Path, length: int) -> list[bytes]:
    """The frames that the client program wrote, this many bytes each."""
    data = file.read_bytes()
    return [data[at : at + length] for at in range(0, len(data), length)]

"""The programs of the Aravis project, an independent GigE Vision client, as tests use them."""

import re
import subprocess

from conftest import need_tool


def tool(*arguments: str, program: str = "arv-tool-0.8", timeout: float = 60) -> str:
    need_tool(program)
    done = subprocess.run([program, *arguments], capture_output=True, text=True, timeout=timeout)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def camera_test_counts(address: str, *options: str) -> dict[str, int]:
    """What the camera test program counted; its exit code does not tell of trouble with frames, this does."""
    output = tool("-n", address, *options, program="arv-camera-test-0.8")
    counts = {name: int(number) for name, number in re.findall(r"^(n_\w+) *= (\d+)$", output, re.M)}
    for trouble in ("failures", "underruns", "timeouts", "aborted", "missing_frames", "size_mismatch_errors"):
        assert counts[f"n_{trouble}"] == 0, output
    return counts

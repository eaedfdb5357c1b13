"""The programs of the Aravis project, an independent GigE Vision client, as tests use them."""

import re
import subprocess

from conftest import need_tool

_TROUBLES = ("failures", "underruns", "timeouts", "aborted", "missing_frames", "size_mismatch_errors")


def tool(*arguments: str, program: str = "arv-tool-0.8", timeout: float = 60) -> str:
    need_tool(program)
    done = subprocess.run([program, *arguments], capture_output=True, text=True, timeout=timeout)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def camera_test_counts(address: str, *options: str) -> dict[str, int]:
    """What the camera test program counted in a run without trouble; its exit code does not tell of any.

    A client that the machine does not let run for some milliseconds loses packets through no fault of the
    camera: a busy machine gets three chances.
    """
    for _ in range(3):
        output = tool("-n", address, *options, program="arv-camera-test-0.8")
        counts = {name: int(number) for name, number in re.findall(r"^(n_\w+) *= (\d+)$", output, re.M)}
        if not any(counts[f"n_{trouble}"] for trouble in _TROUBLES):
            return counts
    raise AssertionError(output)

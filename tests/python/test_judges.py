"""Aravis' device test judges the camera program; ``--arv-test 20`` asks for twenty faultless runs."""

import re
import subprocess

import pytest

from camera_program import running
from conftest import need_tool
from gvcp_client import discover

_ROW = re.compile(r"^(\w+:\w+) +([A-Z]+) ?(.*)$", re.M)
_COLOUR = re.compile(r"\x1b\[[0-9;]*m")
_TRANSPORT = re.compile(r"BufferCheck|FrameRate|^GigEVision|^Genicam:Load")


def judgements(address: str) -> dict[str, tuple[str, str]]:
    """What the test program says of the camera on the address: status and remark of each check.

    Left to itself it receives through a plain socket with the system's usual buffer.
    """
    serial = discover(address)[0].serial
    command = ["arv-test-0.8", "-n", f"*{serial}"]
    done = subprocess.run(command, capture_output=True, text=True, timeout=120)
    output = _COLOUR.sub("", done.stdout)
    assert output.count("Testing ") == 1, output + done.stderr
    return {check: (status, remark) for check, status, remark in _ROW.findall(output)}


def failures(address: str) -> dict[str, tuple[str, str]]:
    """The checks about the transport that did not succeed in one run."""
    told = judgements(address)
    transport = {check: result for check, result in told.items() if _TRANSPORT.search(check)}
    images = {"MultipleAcquisitionA", "SingleAcquisition", "SoftwareTrigger", "MultipleAcquisitionB"}
    assert {f"{kind}:BufferCheck" for kind in images} <= set(transport), told
    print("other failures:", {check for check in told if told[check][0] == "FAILURE"} - set(transport))
    return {check: result for check, result in transport.items() if result[0] != "SUCCESS"}


def test_the_transport_passes_every_check(request: pytest.FixtureRequest) -> None:
    need_tool("arv-test-0.8")
    runs = request.config.getoption("--arv-test")
    # A client that the machine does not let run for some milliseconds loses packets through no fault of the
    # camera: when nobody asks for a row of runs, a busy machine gets further chances.
    chances = 3 if runs == 1 else 1
    with running() as camera:
        for run in range(runs):
            for _ in range(chances):
                failed = failures(camera.address)
                if not failed:
                    break
            assert not failed, f"run {run + 1}"

"""The command that a newcomer types, and the first example, each in a process of its own."""

import os
import signal
import subprocess

import numpy as np
import pytest

from aravis_tools import camera_test_counts, tool
from conftest import ROOT, free_address, open_stream, run_python
from features import Features
from gvcp_client import ControlClient, discover
from gvsp_receiver import StreamReceiver


def grab(address: str, count: int) -> list[np.ndarray]:
    """The first frames that the camera sends to a new client."""
    with StreamReceiver(resend_from=address) as receiver, ControlClient(address) as client:
        client.connect()
        open_stream(client, receiver)
        features = Features(client)
        features.execute("AcquisitionStart")
        frames = receiver.wait_frames(count)
        features.execute("AcquisitionStop")
    return [
        np.frombuffer(frame.image, np.uint8).reshape(frame.leader.height, frame.leader.width)
        for frame in frames
    ]


def test_first_example_is_the_one_in_the_readme_and_works() -> None:
    text = (ROOT / "examples/hello_camera.py").read_text()
    code = text.partition('"""\n\n')[2]
    assert code.strip() in (ROOT / "README.md").read_text()
    assert len([line for line in code.splitlines() if line]) <= 15
    address = free_address()
    with run_python(text.replace("127.0.0.1", address)) as program:
        try:
            while not discover(address, wait=0.1):
                assert program.poll() is None, program.stderr.read()
            first, second = grab(address, 2)
        finally:
            program.send_signal(signal.SIGINT)
            program.communicate(timeout=20)
    assert np.array_equal(first + np.uint8(1), second)
    assert not discover(address, wait=0.1)


def test_run_command_serves_independent_clients() -> None:
    """`./run` as typed; built before, so that this takes seconds."""
    if not (ROOT / "build/perf/build.ninja").exists():
        pytest.skip("no release build yet: ./run --frames 1 makes one")
    address = free_address()
    command = ["./run", "--frames", "450", "--address", address]
    with subprocess.Popen(
        command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
    ) as program:
        while not (line := program.stdout.readline()).startswith("Camera on"):
            assert line, program.stderr.read()
        assert address in tool()
        read = tool(
            "-a", address, "control", "Width", "PixelFormat", "GevSCPSPacketSize=1400", "GevSCPSPacketSize"
        )
        assert "640" in read
        assert "Mono8" in read
        assert "1400" in read
        for options in [[], ["--no-packet-socket"]] if os.geteuid() == 0 else [["--no-packet-socket"]]:
            assert camera_test_counts(address, "--duration=2", *options)["n_completed_buffers"] > 30
        out, error = program.communicate(timeout=60)
    assert (program.returncode, out) == (0, ""), error
    assert "Traceback" not in error

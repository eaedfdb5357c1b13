"""A whole session on the wire, judged by tshark's GigE Vision dissectors."""

import contextlib
import pathlib
import subprocess
from collections.abc import Iterator

import numpy as np
import pytest

import tarn
from conftest import Camera, need_tool, open_stream, wait_until
from features import Features
from gvcp_client import discover
from gvsp_receiver import StreamReceiver


@contextlib.contextmanager
def capturing(address: str, path: pathlib.Path) -> Iterator[None]:
    """Record the address's UDP traffic on the loopback interface."""
    command = ["tshark", "-Q", "-i", "lo", "-f", f"udp and host {address}", "-w", str(path)]
    tshark = subprocess.Popen(command, stderr=subprocess.PIPE, text=True)
    try:

        def listening() -> bool:
            assert tshark.poll() is None, tshark.stderr.read()
            discover(address, wait=0.05)
            return path.exists() and path.stat().st_size > 1000

        wait_until(listening, "tshark records", 30)
        yield
        discover(address, wait=0.1)  # a last packet, so that the wait below knows the end
        wait_until(lambda: bool(show(path, "gvcp.cmd.command == 0x0002")), "the capture is written")
    finally:
        tshark.terminate()
        tshark.wait(10)
        tshark.stderr.close()


def show(path: pathlib.Path, condition: str, *fields: str, stream_port: int = 0) -> list[str]:
    """Packets of a capture that meet a display condition, one line of fields each."""
    decode = ["-d", f"udp.port=={stream_port},gvsp"] if stream_port else []
    wanted = [part for field in ("frame.number", *fields) for part in ("-e", field)]
    command = ["tshark", "-r", str(path), *decode, "-Y", condition, "-T", "fields", *wanted]
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.splitlines()


@pytest.mark.parametrize("extended", [False, True])
def test_a_session_has_no_malformed_packet_and_no_warning(make_camera, tmp_path, extended):
    need_tool("tshark")
    camera: Camera = make_camera((320, 240), resend=20)
    path = tmp_path / "session.pcapng"
    picture = np.arange(320 * 240, dtype=np.uint32).astype(np.uint8).reshape(240, 320)

    def lost(block: int, number: int, copies: int) -> bool:
        return copies == 0 and number == block

    with capturing(camera.address, path):
        assert discover(camera.address)
        with (
            StreamReceiver(drop=lost, resend_from=camera.address) as receiver,
            camera.client() as client,
        ):
            client.connect()
            features = Features(client)
            if extended:
                features.write("GevGVSPExtendedIDMode", 1)
            open_stream(client, receiver)
            port = receiver.port
            features.execute("AcquisitionStart")
            camera.wait_running()
            for _ in range(20):
                camera.server.stream.send(tarn.WrappedImage.from_buffer(picture), lambda image: None)
            frames = receiver.wait_frames(20)
            features.execute("AcquisitionStop")
        assert all(frame.is_whole for frame in frames)

    faults = show(
        path,
        "_ws.malformed || _ws.expert.severity >= 0x600000",  # warnings and errors
        "frame.protocols",
        "_ws.expert.message",
        stream_port=port,
    )
    assert not faults, "\n".join(faults[:20])
    long_form = 0x80 if extended else 0  # the format field is shown with the bit that marks 64-bit ids
    # The judge saw what it was to judge: every kind of packet, by its own decoding.
    for condition, at_least in {
        "gvcp.cmd.command == 0x0002": 1,
        "gvcp.ack == 0x0003": 1,
        "gvcp.ack == 0x0083 && gvcp.cmd.status == 0": 3,
        "gvcp.ack == 0x0085": 10,
        "gvcp.cmd.command == 0x0040": 20,
        "gvcp.cmd.command == 0x0084": 10,
        "gvcp.cmd.command == 0x0082": 3,
        f"gvsp.format == {long_form | 1} && gvsp.payloadtype == 1": 20,
        f"gvsp.format == {long_form | 2}": 20,
        f"gvsp.format == {long_form | 3}": 20 * 52,
    }.items():
        assert len(show(path, condition, stream_port=port)) >= at_least, condition

"""Images on the network, as a client receives them."""

import contextlib
import gc
import itertools
import os
import pathlib
import socket
import struct
import threading
import weakref
from collections.abc import Iterator
from typing import Any

import numpy as np
import pytest

import tarn
from conftest import Camera, MakeCamera, address_word, open_stream, wait_until
from features import Features
from gvcp_client import (
    BUSY,
    GVCP_CAPABILITY,
    GVSP_CONFIGURATION,
    SCDA,
    SCP,
    SCPS,
    SCSP,
    WRITEREG,
    GvcpError,
)
from gvsp_receiver import IMAGE, StreamReceiver
from tarn import PfncFormat
from tarn.gevserver import State

PACKET_RESEND = 0x4  # in the capability register
TASKS = pathlib.Path("/proc/self/task")
FIRE, DO_NOT_FRAGMENT = 0x8000_0000, 0x4000_0000


def picture(width: int, height: int, pixel_format: int = PfncFormat.Mono8, seed: int = 0) -> Any:
    """Noise of the shape and depth that the format needs."""
    random = np.random.default_rng(seed)
    shape = (height, width, 3) if pixel_format == PfncFormat.RGB8 else (height, width)
    depth = {PfncFormat.Mono12: 12, PfncFormat.Mono16: 16}.get(pixel_format, 8)
    return random.integers(0, 1 << depth, shape, np.uint16 if depth > 8 else np.uint8)


def wrap(array: Any) -> Any:
    return tarn.WrappedImage.from_buffer(array)


@contextlib.contextmanager
def streaming(
    camera: Camera, *, packet_size: int = 1500, extended: bool = False, **receiver_options: Any
) -> Iterator[Any]:
    """A connected client that acquires: yields (client, receiver, features)."""
    with StreamReceiver(**receiver_options) as receiver, camera.client() as client:
        client.connect()
        if extended:
            client.write_register(GVSP_CONFIGURATION, 0x4000_0000)
        open_stream(client, receiver, packet_size)
        features = Features(client)
        features.execute("AcquisitionStart")
        camera.wait_running()
        yield client, receiver, features
        if camera.server and camera.server.state == State.AcquisitionEnabled:
            features.execute("AcquisitionStop")


FORMATS = [
    (PfncFormat.Mono8, (64, 48)),
    (PfncFormat.Mono8, (61, 47)),
    (PfncFormat.Mono12, (33, 20)),
    (PfncFormat.Mono16, (321, 7)),
    (PfncFormat.RGB8, (99, 41)),
]


@pytest.mark.parametrize("extended", [False, True])
@pytest.mark.parametrize("packet_size", [576, 1500, 9000])
def test_frames_arrive_byte_for_byte(make_camera: MakeCamera, packet_size: int, extended: bool) -> None:
    for pixel_format, size in FORMATS:
        camera = make_camera(size, pixel_format)
        sent = [picture(*size, pixel_format, seed) for seed in range(3)]
        with streaming(camera, packet_size=packet_size, extended=extended) as (client, receiver, features):
            for array in sent:
                camera.send(wrap(array))
            frames = receiver.wait_frames(len(sent))
            assert features.read("PayloadSize") == sent[0].nbytes
            assert receiver.sources == {(camera.address, client.read_register(SCSP))}
        for number, (frame, array) in enumerate(zip(frames, sent, strict=True), 1):
            where = f"{pixel_format:#x} {size} frame {number}"
            assert frame.image == array.tobytes(), where
            assert frame.block == number, where
            leader = frame.leader
            assert (leader.payload_type, leader.pixel_format) == (IMAGE, pixel_format), where
            assert (leader.width, leader.height, frame.lines_sent) == (*size, size[1]), where
            assert (leader.offset_x, leader.offset_y, leader.padding_x, leader.padding_y) == (0,) * 4, where
            assert {packet.extended for packet in frame.packets.values()} == {extended}, where
            assert set(frame.statuses) == {0}, where
            assert frame.repeats == 0, where
            # A full data packet fills the packet size: IP, UDP and stream headers count.
            header = 20 + 8 + (20 if extended else 8)
            assert len(frame.packets[1].data) == min(packet_size - header, array.nbytes), where
            assert len(frame.packets) == -(-array.nbytes // (packet_size - header)) + 2, where
        stamps = [frame.leader.timestamp for frame in frames]
        assert stamps == sorted(set(stamps))


@pytest.mark.parametrize(
    "view",
    [
        pytest.param(lambda whole: whole[:, 5:69], id="lines with gaps"),
        pytest.param(lambda whole: whole[::2, ::3][:, :64], id="every third pixel"),
        pytest.param(lambda whole: whole[::-1, :64], id="bottom up"),
        pytest.param(lambda whole: np.asfortranarray(whole[:, :64]), id="column by column"),
    ],
)
def test_any_memory_layout_is_sent_in_picture_order(make_camera: MakeCamera, view: Any) -> None:
    array = view(picture(200, 96))[:48]
    camera = make_camera((64, 48), resend=1)
    with streaming(camera) as (_, receiver, _):
        camera.send(wrap(array), lambda image: None)
        assert receiver.wait_frames(1)[0].image == array.tobytes()


def test_planes_of_an_owning_image_arrive_interleaved(make_camera: MakeCamera) -> None:
    camera = make_camera((31, 17), PfncFormat.RGB8)
    image = tarn.Image((31, 17), 3)
    array = picture(31, 17, PfncFormat.RGB8)
    np.asarray(image)[:] = array
    with streaming(camera) as (_, receiver, _):
        camera.send(image)
        assert receiver.wait_frames(1)[0].image == array.tobytes()


def test_every_frame_is_whole_in_spite_of_lost_packets(make_camera: MakeCamera) -> None:
    """First copies of some packets get lost, leaders and trailers among them; resends fill the gaps."""
    size, count = (320, 240), 20
    for extended in (False, True):
        camera = make_camera(size, resend=count)
        sent = [picture(*size, seed=seed) for seed in range(count)]

        def lost(block: int, number: int, copies: int) -> Any:
            return copies == 0 and (7 * block + number) % 9 == 0

        losing: dict[str, Any] = {"drop": lost, "resend_from": camera.address}
        with streaming(camera, extended=extended, **losing) as (client, receiver, _):
            assert client.read_register(GVCP_CAPABILITY) & PACKET_RESEND
            for array in sent:
                camera.send(wrap(array), lambda image: None)
            frames = sorted(receiver.wait_frames(count), key=lambda frame: frame.block)
        assert [frame.block for frame in frames] == list(range(1, count + 1))
        for frame, array in zip(frames, sent, strict=True):
            assert frame.image == array.tobytes(), frame.block
            assert frame.asked > 0, frame.block
            resent = [packet for packet in frame.packets.values() if packet.flags & 1]
            assert bool(resent) == extended


def test_resend_refusals_are_answered_on_the_stream_and_strangers_are_not(make_camera: MakeCamera) -> None:
    camera = make_camera(resend=1)
    with streaming(camera) as (client, receiver, _):
        for _ in range(3):
            camera.send(wrap(picture(64, 48)), lambda image: None)
        receiver.wait_frames(3)
        before = receiver.packets_seen
        with camera.client(local="127.0.0.3") as stranger:
            stranger.request_resend(3, 0, 0xFFFFFF)
            stranger.request_resend(1, 0, 0xFFFFFF)
        client.read_register(SCPS)
        refused = receiver.refusals
        client.request_resend(1, 1, 1)  # no longer kept
        client.request_resend(99, 0, 0)  # never sent
        client.request_resend(3, 0, 0xFFFFFF)  # kept: all of it, no more
        wait_until(lambda: receiver.packets_seen >= before + 2 + 5, "answers to the requests")
        assert {(packet.block, packet.number, packet.status, packet.data) for packet in refused} == {
            (1, 1, 0x800C, b""),
            (99, 0, 0x800C, b""),
        }
        assert receiver.packets_seen == before + 2 + 5
        # Without resend buffers the capability is off and requests are ignored.
    silent = make_camera()
    with streaming(silent) as (client, receiver, _):
        assert not client.read_register(GVCP_CAPABILITY) & PACKET_RESEND
        silent.server.stream.send(wrap(picture(64, 48)))
        receiver.wait_frames(1)
        before = receiver.packets_seen
        client.request_resend(1, 0, 0xFFFFFF)
        client.read_register(SCPS)
        assert receiver.packets_seen == before


@pytest.mark.parametrize("resend", [0, 1, 3])
def test_release_callbacks_run_once_in_order_with_the_very_object(
    make_camera: MakeCamera, resend: int
) -> None:
    camera = make_camera(resend=resend)
    images = [wrap(picture(64, 48, seed=seed)) for seed in range(8)]
    released: list[tarn.Image] = []
    with streaming(camera) as (_, receiver, _):
        for number, image in enumerate(images, 1):
            camera.send(image, released.append)
            if resend == 0:
                assert len(released) == number  # at once, before send returns
        receiver.wait_frames(len(images))
        wait_until(lambda: len(released) == len(images) - resend, "images beyond the store are released")
    camera.server.stop()
    assert len(released) == len(images)
    assert all(back is image for back, image in zip(released, images, strict=True))


def test_a_released_image_is_let_go(make_camera: MakeCamera) -> None:
    camera = make_camera(resend=1)
    with streaming(camera) as (_, receiver, _):
        array = picture(64, 48)
        alive = weakref.ref(array)
        camera.send(wrap(array), lambda image: None)
        del array
        gc.collect()
        assert alive() is not None, "kept for resend"
        camera.send(wrap(picture(64, 48)), lambda image: None)
        receiver.wait_frames(2)
        wait_until(lambda: gc.collect() is None or alive() is None, "the first picture is freed")


def test_limited_acquisitions_end_by_themselves(camera: Camera) -> None:
    image = wrap(picture(64, 48))
    with streaming(camera) as (_, receiver, features):
        features.execute("AcquisitionStop")
        received = 0
        for mode, count in ((1, 1), (2, 3)):
            features.write("AcquisitionMode", mode)
            features.write("AcquisitionFrameCount", 3)
            features.execute("AcquisitionStart")
            camera.wait_running()
            assert not camera.server.stream.try_send(wrap(picture(65, 48)))  # a refused image does not count
            for _ in range(count):
                camera.send(image)
            assert not camera.server.stream.try_send(image)
            camera.wait_state(State.Connected)
            received += count
            assert all(frame.is_whole for frame in receiver.wait_frames(received))


def test_a_frame_counts_for_the_acquisition_that_took_it(camera: Camera) -> None:
    """The client starts anew before the program's call came back."""
    image, stream = wrap(picture(64, 48)), camera.server.stream
    with streaming(camera) as (_, receiver, features):

        def start_anew(image: Any = None) -> None:
            features.execute("AcquisitionStop")
            features.execute("AcquisitionStart")

        features.execute("AcquisitionStop")
        features.write("AcquisitionMode", 1)
        start_anew()
        camera.wait_running()
        stream.send(image, start_anew)
        assert stream.try_send(image)
        assert not stream.try_send(image)
        assert all(frame.is_whole for frame in receiver.wait_frames(2))


def test_failing_sends_release_nothing(make_camera: MakeCamera) -> None:
    camera = make_camera(resend=2)
    stream = camera.server.stream
    calls: list[tarn.Image] = []
    with pytest.raises(RuntimeError) as caught:
        stream.send(wrap(picture(64, 48)), calls.append)  # nobody streams
    assert (str(caught.value), caught.value.__notes__) == (
        "Could not send image",
        ["acquisition is not enabled"],
    )
    assert stream.try_send(wrap(picture(64, 48)), calls.append) is False
    with streaming(camera) as (_, receiver, _):
        with pytest.raises(RuntimeError, match="Packet resend must be disabled for send without callback"):
            stream.send(wrap(picture(64, 48)))
        with pytest.raises(RuntimeError, match="Could not send image"):
            stream.send(wrap(picture(65, 48)), calls.append)  # does not fit the payload size
        assert stream.try_send(wrap(picture(64, 48, PfncFormat.RGB8)), calls.append) is False
        stream.send(wrap(picture(64, 48)), calls.append)
        assert receiver.wait_frames(1)[0].block == 1
        assert receiver.packets_seen == len(receiver.frames[0].packets)
    assert not calls


def test_an_image_that_the_sender_changes_after_release_does_not_change_on_the_wire(
    make_camera: MakeCamera,
) -> None:
    camera = make_camera((320, 240))
    array = picture(320, 240)
    expected = array.tobytes()
    with streaming(camera) as (_, receiver, _):
        camera.send(wrap(array))
        array[:] = 0
        assert receiver.wait_frames(1)[0].image == expected


def test_block_ids_go_on_over_acquisitions_and_restart_with_the_channel(make_camera: MakeCamera) -> None:
    camera = make_camera()
    send = camera.server.stream.send
    with streaming(camera) as (client, receiver, features):
        send(wrap(picture(64, 48)))
        receiver.wait_frames(1)
        features.execute("AcquisitionStop")
        camera.wait_state(State.Connected)
        features.execute("AcquisitionStart")
        camera.wait_running()
        send(wrap(picture(64, 48)))
        assert [frame.block for frame in receiver.wait_frames(2)] == [1, 2]
        # A new port over the open one is a close and an open.
        with StreamReceiver() as fresh:
            client.write_register(SCP, fresh.port)
            send(wrap(picture(64, 48)))
            assert fresh.wait_frames(1)[0].block == 1
            assert len(receiver.frames) == 2


def test_channel_may_be_opened_in_either_order_and_closed_while_acquiring(camera: Camera) -> None:
    send = camera.server.stream.try_send
    with StreamReceiver() as receiver, camera.client() as client:
        client.connect()
        features = Features(client)
        # Acquisition without a destination sends nothing and harms nothing.
        features.execute("AcquisitionStart")
        camera.wait_running()
        send(wrap(picture(64, 48)))
        client.write_register(SCP, receiver.port)
        send(wrap(picture(64, 48)))
        assert receiver.packets_seen == 0
        features.execute("AcquisitionStop")
        client.write_register(SCDA, address_word(receiver.endpoint[0]))
        features.execute("AcquisitionStart")
        camera.wait_running()
        assert send(wrap(picture(64, 48)))
        receiver.wait_frames(1)
        assert client.request(WRITEREG, struct.pack(">II", SCDA, 0x7F000001)).status == BUSY
        client.write_register(SCP, 0)
        seen = receiver.packets_seen
        for _ in range(3):
            send(wrap(picture(64, 48)))
        client.read_register(SCP)
        assert receiver.packets_seen == seen
        assert client.read_register(SCSP) == 0


def test_packet_size_is_rounded_not_refused(camera: Camera) -> None:
    with camera.client() as client:
        client.connect()
        features = Features(client)
        for asked in (1500, 576, 9000, 1, 0xFFFF, 1501, 1503):
            client.write_register(SCPS, asked)
            got = client.read_register(SCPS) & 0xFFFF
            assert 48 < got <= 65535 - 28
            client.write_register(SCPS, got)
            assert client.read_register(SCPS) & 0xFFFF == got, "a usable size was moved"
            if asked in (1500, 576, 9000):
                assert got == asked
            assert features.read("GevSCPSPacketSize") == got
        client.write_register(SCPS, DO_NOT_FRAGMENT | 1400)
        assert client.read_register(SCPS) == DO_NOT_FRAGMENT | 1400


def test_test_packets_come_each_time_with_the_exact_size(camera: Camera) -> None:
    with StreamReceiver() as receiver, camera.client() as client:
        client.connect()
        client.write_register(SCPS, FIRE | 1500)  # closed channel: nothing, but no failure
        open_stream(client, receiver)
        sizes = [1500, 1500, 576, 8000, 1500]
        for count, size in enumerate(sizes, 1):
            client.write_register(SCPS, size)
            client.write_register(SCPS, FIRE | DO_NOT_FRAGMENT | size)
            packets = receiver.wait_test_packets(count, 2)
            assert [len(packet) + 28 for packet in packets] == sizes[:count]
            assert packets[-1][2:4] == b"\0\0"
            assert client.read_register(SCPS) == DO_NOT_FRAGMENT | size  # fire reads as zero
        assert receiver.sources == {(camera.address, client.read_register(SCSP))}


def test_a_full_stream_takes_no_image_and_sends_copies_of_those_it_took(make_camera: MakeCamera) -> None:
    """And a new rate holds in the middle of an image."""
    camera = make_camera((640, 480))
    stream, limit = camera.server.stream, camera.server.node_map.DeviceLinkThroughputLimit
    limit.value = limit.min  # an image takes three seconds
    array = picture(640, 480)
    sent, image = array.tobytes(), wrap(array)
    told: list[tarn.Image] = []
    with streaming(camera) as (_, receiver, _):
        for count in (1, 2):
            assert stream.try_send(image, told.append)
            assert told == [image] * count
        assert not stream.try_send(image, told.append)
        with pytest.raises(RuntimeError, match="Could not send image"):
            stream.send(image, told.append)
        assert len(told) == 2
        assert camera.server.node_map.DeviceStreamRefusedImages.value == 1
        array[:] = 0
        limit.value = 125_000_000
        assert [frame.image for frame in receiver.wait_frames(2)] == [sent, sent]


def test_the_program_places_the_thread_that_sends(make_camera: MakeCamera) -> None:
    camera = make_camera((64, 48))
    tree = camera.server.node_map

    def tasks() -> dict[str, pathlib.Path]:
        return {(task / "comm").read_text().strip(): task / "status" for task in TASKS.iterdir()}

    wait_until(lambda: "tarn-pump" in tasks(), "the thread has its name")
    processor = min(os.sched_getaffinity(0))
    tree.StreamThreadProcessors.value = 1 << processor
    assert f"Cpus_allowed_list:\t{processor}\n" in tasks()["tarn-pump"].read_text()
    tree.StreamThreadProcessors.value = 1 << 62
    assert tree.StreamThreadProcessors.value == 0, "there is no such processor"
    with camera.client() as client:
        client.connect()
        with pytest.raises(GvcpError):
            client.write_register(Features(client).register("StreamThreadPriority")[0], 50)


def test_a_client_that_is_gone_does_not_end_the_camera(make_camera: MakeCamera) -> None:
    """The stream goes to a port where nobody listens: unreachable errors come back and are ignored."""
    camera = make_camera((320, 240))
    with camera.client() as client:
        client.connect()
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as unheard:
            unheard.bind(("127.0.0.1", 0))
            port = unheard.getsockname()[1]
        client.write_registers((SCDA, address_word("127.0.0.1")), (SCP, port))
        Features(client).execute("AcquisitionStart")
        camera.wait_running()
        for _ in range(20):
            camera.send(wrap(picture(320, 240)))
        with StreamReceiver() as receiver:
            client.write_register(SCP, receiver.port)
            camera.send(wrap(picture(320, 240)))
            receiver.wait_frames(1)


def test_stop_ends_a_stream_that_another_thread_feeds(make_camera: MakeCamera) -> None:
    """Start, stream, stop, again: with sends under way at every stop; every image is released."""
    camera = make_camera((320, 240), resend=2, start=False)
    server = camera.server
    for _ in range(5):
        sent = itertools.count()
        released: list[int] = []
        server.start(camera.address)
        with StreamReceiver() as receiver, camera.client() as client:
            client.connect(beat=None)
            open_stream(client, receiver, 9000)
            Features(client).execute("AcquisitionStart")
            camera.wait_running()
            ending = threading.Event()

            def feed(sent: Any = sent, released: Any = released, ending: Any = ending) -> None:
                while not ending.is_set():
                    if server.stream.try_send(wrap(picture(320, 240)), released.append):
                        next(sent)

            feeder = threading.Thread(target=feed)
            feeder.start()
            receiver.wait_frames(5)
            server.stop()
            ending.set()
            feeder.join()
            client.close()
        assert server.state == State.Configuration
        assert len(released) == next(sent)
        assert not server.stream.is_running

"""Images on the network, as a client receives them."""

import gc
import os
import pathlib
import random
import socket
import threading
import weakref
from typing import Any

import numpy as np
import pytest

import gvcp_client as gvcp
import tarn
from conftest import Camera, MakeCamera, address_word, open_stream, wait_until
from feeding import noise, send
from gvsp_receiver import FILE, IMAGE, Packet, StreamReceiver
from tarn import PfncFormat
from tarn.gevserver import Server, State
from viewing import Viewer, streaming, viewing

SIZE = (64, 48)
PICTURE = noise(SIZE)
FIRE, DO_NOT_FRAGMENT = 0x8000_0000, 0x4000_0000
STATUS_CODES, STATUS_CODES_2 = 1 << 31 - 29, 1 << 31 - 13  # of the control configuration
TO_REQUESTER = 1 << 31 - 28  # of the stream channel
RESENT, UNAVAILABLE, NOT_YET, EARLIER_GONE = 0x0100, 0x800C, 0x8010, 0x8011


def wrap(array: Any) -> Any:
    return tarn.WrappedImage.from_buffer(array)


def test_any_memory_layout_is_sent_in_picture_order(make_camera: MakeCamera) -> None:
    whole = noise((200, 96))
    gaps, scattered, bottom_up = whole[:48, 5:69], whole[::2, ::3][:, :64], whole[:47:-1, :64]
    camera = make_camera(SIZE, resend=1)
    with streaming(camera.address) as viewer:
        for array in (gaps, scattered, bottom_up, np.asfortranarray(gaps)):
            send(camera, array)
            assert viewer.next_frames(1)[0].image == array.tobytes()


@pytest.mark.parametrize("resend", [0, 1, 3])
def test_images_are_released_once_in_order_and_let_go(make_camera: MakeCamera, resend: int) -> None:
    camera = make_camera(resend=resend)
    images = [wrap(noise(SIZE, seed=seed)) for seed in range(8)]
    released: list[tarn.Image] = []
    with streaming(camera.address) as viewer:
        for number, image in enumerate(images, 1):
            camera.send(image, released.append)
            if resend == 0:
                assert len(released) == number, "at once, before send returns"
        viewer.receiver.wait_frames(len(images))
        wait_until(lambda: len(released) == len(images) - resend, "images beyond the store are released")
        array = noise(SIZE)
        alive = weakref.ref(array)
        camera.send(wrap(array), released.append)
        del array, released[len(images) :]
        gc.collect()
        assert (alive() is not None) == (resend > 0), "kept for resend"
    camera.server.stop()
    assert all(back is image for back, image in zip(released, images, strict=False))
    del released[len(images) :]
    gc.collect()
    assert len(released) == len(images) and alive() is None


def test_limited_acquisitions_end_by_themselves(camera: Camera) -> None:
    image, stream = wrap(PICTURE), camera.server.stream
    with viewing(camera.address) as viewer:
        features = viewer.features
        open_stream(viewer.client, viewer.receiver)
        features.write("AcquisitionFrameCount", 3)
        for mode, count in ((1, 1), (2, 3)):
            features.write("AcquisitionMode", mode)
            features.execute("AcquisitionStart")
            assert not stream.try_send(wrap(noise((65, 48)))), "a refused image does not count"
            for _ in range(count):
                camera.send(image)
            assert not stream.try_send(image)
            camera.wait_state(State.Connected)
        assert all(frame.is_whole for frame in viewer.receiver.wait_frames(4))

        def start_anew(_: Any = None) -> None:
            features.execute("AcquisitionStop")
            features.execute("AcquisitionStart")

        features.write("AcquisitionMode", 1)
        start_anew()
        stream.send(image, start_anew)
        assert [stream.try_send(image) for _ in range(2)] == [True, False], "it counts where it was taken"


def test_failing_sends_release_nothing(make_camera: MakeCamera) -> None:
    camera = make_camera(resend=2)
    stream = camera.server.stream
    calls: list[tarn.Image] = []
    with pytest.raises(RuntimeError, match="Could not send image") as caught:
        stream.send(wrap(PICTURE), calls.append)
    assert caught.value.__notes__ == ["acquisition is not enabled"]
    assert stream.try_send(wrap(PICTURE), calls.append) is False
    with streaming(camera.address) as viewer:
        with pytest.raises(RuntimeError, match="Packet resend must be disabled for send without callback"):
            stream.send(wrap(PICTURE))
        assert stream.try_send(wrap(noise(SIZE, PfncFormat.RGB8)), calls.append) is False
        stream.send(wrap(PICTURE), calls.append)
        assert viewer.receiver.wait_frames(1)[0].block == 1
        assert viewer.receiver.packets_seen == len(viewer.receiver.frames[0].packets)
    assert not calls


def test_the_channel_opens_moves_and_closes_while_acquiring(make_camera: MakeCamera) -> None:
    camera = make_camera((320, 240), resend=2)
    stream, image = camera.server.stream, wrap(noise((320, 240)))

    def sends() -> bool:
        return stream.try_send(image, lambda image: None)

    with viewing(camera.address) as viewer, StreamReceiver() as fresh:
        client, features, receiver = viewer.client, viewer.features, viewer.receiver
        features.execute("AcquisitionStart")
        client.write_register(gvcp.SCP, receiver.port)
        assert not sends(), "there is no destination"
        features.execute("AcquisitionStop")
        client.write_register(gvcp.SCDA, address_word(receiver.endpoint[0]))
        for block in (1, 2):
            features.execute("AcquisitionStart")
            assert sends()
            assert receiver.wait_frames(block)[-1].block == block
            with pytest.raises(gvcp.GvcpError) as refusal:
                client.write_register(gvcp.SCDA, 0x7F000001)
            assert refusal.value.status == gvcp.BUSY
            features.execute("AcquisitionStop")
        features.execute("AcquisitionStart")
        client.write_register(gvcp.SCP, fresh.port)  # over the open one: a close and an open
        assert sends()
        assert fresh.wait_frames(1)[0].block == 1
        assert len(receiver.frames) == 2
        camera.server.node_map.DeviceLinkThroughputLimit.value = 100_000  # most of a second for the next
        assert sends()
        client.write_register(gvcp.SCP, 0)
        assert not stream.is_running
        assert not sends()
        assert (len(fresh.frames), client.read_register(gvcp.SCSP)) == (1, 0)


def test_test_packets_come_each_time_with_the_exact_size(camera: Camera) -> None:
    with viewing(camera.address) as viewer:
        viewer.client.write_register(gvcp.SCPS, FIRE | 1500)  # the channel is closed: nothing comes
        open_stream(viewer.client, viewer.receiver)
        for count, size in enumerate((1500, 1500, 9000), 1):
            viewer.client.write_register(gvcp.SCPS, FIRE | DO_NOT_FRAGMENT | size)
            assert len(viewer.receiver.wait_test_packets(count, 5)[count - 1]) == size - 28
            assert viewer.client.read_register(gvcp.SCPS) == DO_NOT_FRAGMENT | size, "fire reads as zero"


def test_a_full_stream_takes_no_image_and_sends_copies_of_those_it_took(make_camera: MakeCamera) -> None:
    """And a new rate holds in the middle of an image."""
    camera = make_camera((640, 480))
    stream, tree = camera.server.stream, camera.server.node_map
    tree.DeviceLinkThroughputLimit.value = tree.DeviceLinkThroughputLimit.min  # seconds for an image
    array = noise((640, 480))
    sent, image = array.tobytes(), wrap(array)
    told: list[tarn.Image] = []
    with streaming(camera.address) as viewer:
        assert [stream.try_send(image, told.append) for _ in range(3)] == [True, True, False]
        with pytest.raises(RuntimeError, match="Could not send image"):
            stream.send(image, told.append)
        assert told == [image, image]
        assert tree.DeviceStreamRefusedImages.value == 1
        array[:] = 0
        tree.DeviceLinkThroughputLimit.value = 125_000_000
        assert [frame.image for frame in viewer.receiver.wait_frames(2)] == [sent, sent]


def test_the_program_places_the_thread_that_sends(camera: Camera) -> None:
    tree = camera.server.node_map

    def tasks() -> dict[str, pathlib.Path]:
        threads = pathlib.Path("/proc/self/task").iterdir()
        return {(task / "comm").read_text().strip(): task / "status" for task in threads}

    wait_until(lambda: "tarn-pump" in tasks(), "the thread has its name")
    processor = min(os.sched_getaffinity(0))
    tree.StreamThreadProcessors.value = 1 << processor
    assert f"Cpus_allowed_list:\t{processor}\n" in tasks()["tarn-pump"].read_text()
    tree.StreamThreadProcessors.value = 1 << 62
    assert tree.StreamThreadProcessors.value == 0, "there is no such processor"
    with viewing(camera.address) as viewer, pytest.raises(gvcp.GvcpError):
        viewer.client.write_register(viewer.features.register("StreamThreadPriority")[0], 50)


def test_stop_ends_a_stream_that_another_thread_feeds(make_camera: MakeCamera) -> None:
    """Start, stream, stop, again: with sends under way at every stop; every image is released."""
    camera = make_camera((320, 240), resend=2, start=False)
    server, image = camera.server, wrap(noise((320, 240)))
    taken, released = list[bool](), list[tarn.Image]()
    for _ in range(5):
        server.start(camera.address)
        ending = threading.Event()

        def feed(ending: threading.Event = ending) -> None:
            while not ending.is_set():
                taken.append(server.stream.try_send(image, released.append))

        feeder = threading.Thread(target=feed)
        with streaming(camera.address, 9000) as viewer:
            feeder.start()
            viewer.receiver.wait_frames(5)
            viewer.client.stop_heartbeat()  # nobody will answer
            server.stop()
            ending.set()
            feeder.join()
            viewer.client.close()
        assert (server.state, server.stream.is_running) == (State.Configuration, False)
        assert len(released) == sum(taken)


def test_any_bytes_go_as_a_file(camera: Camera) -> None:
    arrays = [noise(size) for size in (SIZE, (1000, 1), (1, 1))] + [noise((20, 20), PfncFormat.RGB8)]
    longest = "n" * 63
    with viewing(camera.address) as viewer:
        viewer.features.write("PayloadType", FILE)
        name, _ = viewer.features.register("PayloadFileName")
        viewer.client.write_memory(name, longest.encode() + b"n")
        viewer.start()
        for array in arrays:
            send(camera, array)
        with pytest.raises(RuntimeError, match="Could not send image"):
            camera.server.stream.send(wrap(noise((64, 49))))
        with pytest.raises(gvcp.GvcpError) as refusal:
            viewer.features.write("PayloadType", IMAGE)
        assert refusal.value.status == gvcp.BUSY
        frames = viewer.receiver.wait_frames(len(arrays))
    for frame, array in zip(frames, arrays, strict=True):
        assert frame.data_leader[2:] == (array.nbytes, longest)
        assert frame.image == array.tobytes()


def test_leaders_follow_a_variable_size_and_the_clock_that_clients_latch(make_camera: MakeCamera) -> None:
    camera = make_camera((200, 100), PfncFormat.Mono12, kind=Server.create_with_variable_size_pfnc)

    def latched(viewer: Viewer) -> int:
        viewer.features.execute("TimestampLatch")
        high, low = viewer.client.read_registers(gvcp.TIMESTAMP_HIGH, gvcp.TIMESTAMP_LOW)
        return high << 32 | low

    for region in ((200, 100, 0, 0), (64, 48, 8, 4), (1, 1, 199, 99)):
        chosen = dict(zip(("Width", "Height", "OffsetX", "OffsetY"), region, strict=True))
        with streaming(camera.address, settings=chosen) as viewer:
            viewer.features.execute("TimestampReset")
            before = latched(viewer)
            send(camera, picture := noise(region[:2], PfncFormat.Mono12))
            frame = viewer.receiver.wait_frames(1)[0]
            assert viewer.features.read("PayloadSize") == len(frame.image) == picture.nbytes
            leader = frame.leader
            assert before < leader.timestamp < latched(viewer)
        assert (leader.width, leader.height, leader.offset_x, leader.offset_y) == region
        assert (frame.lines_sent, frame.image) == (region[1], picture.tobytes())


def test_one_stream_reaches_every_receiver_of_a_group(camera: Camera) -> None:
    group = (f"239.77.{random.randrange(256)}.{random.randrange(1, 255)}", 20_000 + random.randrange(20_000))
    with viewing(camera.address, group=group) as viewer, StreamReceiver(group=group) as second:
        viewer.start()
        for _ in range(3):
            send(camera, PICTURE)
        for receiver in (viewer.receiver, second):
            assert [frame.image for frame in receiver.wait_frames(3)] == [PICTURE.tobytes()] * 3
            assert receiver.sources == {(camera.address, viewer.client.read_register(gvcp.SCSP))}


@pytest.mark.parametrize("codes", [0, STATUS_CODES, STATUS_CODES_2])
@pytest.mark.parametrize("to_requester", [0, TO_REQUESTER])
def test_answers_come_as_and_where_the_registers_say(
    make_camera: MakeCamera, to_requester: int, codes: int
) -> None:
    camera = make_camera(SIZE, resend=2)
    kept, gone, coming = 3, 1, 4
    with viewing(camera.address, resend_from=None) as viewer, socket.socket(type=socket.SOCK_DGRAM) as asker:
        asker.bind(("127.0.0.1", 0))
        asker.settimeout(10)
        assert viewer.client.read_register(gvcp.SCC) & TO_REQUESTER
        viewer.client.write_registers((gvcp.GVCP_CONFIGURATION, codes), (gvcp.SCCFG, to_requester))
        viewer.start()
        for _ in range(kept):
            send(camera, PICTURE)
        sent = viewer.receiver.wait_frames(kept)[-1].packets[2]
        seen = viewer.receiver.packets_seen
        for block, status in ((kept, RESENT), (gone, EARLIER_GONE), (coming, NOT_YET)):
            asker.sendto(gvcp.resend_command(block, 2, 2, extended=False), (camera.address, gvcp.PORT))
            if not to_requester:
                seen += 1
                continue
            answer = Packet.decode(asker.recv(65536))
            usual = UNAVAILABLE if block != kept else 0
            assert (answer.status, answer.block, answer.number) == (status if codes else usual, block, 2)
            assert answer.data == (sent.data if block == kept else b"")
        wait_until(lambda: viewer.receiver.packets_seen == seen, "the stream has the answers")
    with make_camera(SIZE).client() as client:
        assert not client.read_register(gvcp.SCC) & TO_REQUESTER, "without a store nothing is sent again"

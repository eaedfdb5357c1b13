"""Uses a camera through the client library pyGigEVision.

A program of its own, so that the client shares nothing with the camera's process and can run on another host.

usage: pygigevision_client.py address frames

Finds the camera by discovery, reads its description, receives frames; writes what it saw as JSON.
"""

import ipaddress
import json
import re
import socket
import sys
import zlib

import pyGigEVision
from pyGigEVision import standard

PACKET_SIZE = 1500


def main(address: str, count: str) -> None:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.connect((address, 1))
        own = sock.getsockname()[0]  # on the way to the camera
    found = [device["ip"] for device in pyGigEVision.discover(interface_ip=own, timeout=1.0)]
    with pyGigEVision.GVCPClient(address, local_ip=own) as control:
        description, file_name = pyGigEVision.fetch_genicam_xml(control)
        # The library leaves features to its users.
        pattern = rb'Name="AcquisitionStartValue".*?<Address>(\w+)<'
        start = int(re.findall(pattern, description, re.DOTALL)[0], 0)
        receiver = pyGigEVision.GVSPReceiver(own, packet_size=PACKET_SIZE, camera_ip=address)
        receiver.start()
        control.write_reg(standard.REG_SC_PACKET_SIZE, PACKET_SIZE)
        control.write_reg(standard.REG_SC_DEST_ADDR, int(ipaddress.ip_address(own)))
        control.write_reg(standard.REG_SC_HOST_PORT, receiver.port)
        control.write_reg(start, 1)
        frames: list[tuple[int, ...]] = []
        while len(frames) < int(count) and (received := receiver.get_frame_with_info(timeout=10)):
            picture, info = received
            frames.append((info["block_id"], info["width"], info["height"], zlib.crc32(picture.tobytes())))
        receiver.stop()
        receiver.close()
    print(json.dumps({"found": address in found, "file": file_name, "frames": frames}))


main(*sys.argv[1:])

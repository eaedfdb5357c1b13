"""Uses a camera through the client library pyGigEVision.

A program of its own, so that the client shares nothing with the camera's process and can run on another host.

usage: pygigevision_client.py address own-address frames

Finds the camera by discovery, reads its description, receives frames; writes what it saw as JSON.
"""

import ipaddress
import json
import sys
import xml.etree.ElementTree as ElementTree
import zlib
from importlib.metadata import version

import pyGigEVision
from pyGigEVision import standard

PACKET_SIZE = 1500


def register_address(description: bytes, name: str) -> int:
    """Where the description says that a register is; the library leaves features to its users."""
    root = ElementTree.fromstring(description.rstrip(b"\0"))
    (node,) = (element for element in root.iter() if element.get("Name") == name)
    (address,) = (element.text for element in node if element.tag.endswith("}Address"))
    return int(address or "", 0)


def main(address: str, own: str, count: str) -> None:
    found = [device["ip"] for device in pyGigEVision.discover(interface_ip=own, timeout=1.0)]
    with pyGigEVision.GVCPClient(address, local_ip=own) as control:
        description, file_name = pyGigEVision.fetch_genicam_xml(control)
        receiver = pyGigEVision.GVSPReceiver(own, packet_size=PACKET_SIZE, camera_ip=address)
        receiver.start()
        control.write_reg(standard.REG_SC_PACKET_SIZE, PACKET_SIZE)
        control.write_reg(standard.REG_SC_DEST_ADDR, int(ipaddress.ip_address(own)))
        control.write_reg(standard.REG_SC_HOST_PORT, receiver.port)
        control.write_reg(register_address(description, "AcquisitionStartValue"), 1)
        frames = []
        for _ in range(int(count)):
            received = receiver.get_frame_with_info(timeout=10)
            if received is None:
                break
            picture, info = received
            frames.append(
                {
                    "block": info["block_id"],
                    "size": [info["width"], info["height"]],
                    "sum": zlib.crc32(picture.tobytes()),
                }
            )
        control.write_reg(register_address(description, "AcquisitionStopValue"), 1)
        receiver.stop()
        receiver.close()
    facts = {"version": version("pyGigEVision"), "found": found, "file": file_name, "frames": frames}
    print(json.dumps(facts))


main(*sys.argv[1:])

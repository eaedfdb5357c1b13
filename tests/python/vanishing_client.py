"""A client that ends in the middle of a frame: it is killed when it has said that it receives.

A program of its own, so that it can be killed without a word.

usage: vanishing_client.py address
"""

import sys
import time

from conftest import open_stream
from features import Features
from gvcp_client import HEARTBEAT_TIMEOUT, ControlClient
from gvsp_receiver import StreamReceiver


def main(address: str) -> None:
    client = ControlClient(address).connect()
    client.write_register(HEARTBEAT_TIMEOUT, 500)
    with StreamReceiver() as receiver:
        open_stream(client, receiver)
        Features(client).execute("AcquisitionStart")
        while receiver.packets_seen < 3:
            time.sleep(0.001)
        print("receiving", flush=True)
        time.sleep(60)


main(*sys.argv[1:])

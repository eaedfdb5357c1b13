"""The modules work over any libraries that have the entry points of the C interface, and nothing else."""

import pathlib
import shutil

import pytest

from conftest import PACKAGE, free_address, run_python

SCRIPT = """
import sys
sys.path.insert(0, sys.argv[2])
import tarn
from tarn.gevserver import IntegerNode, LogicalNetworkInterface, Server

server = Server.create_with_const_size_pfnc(tarn.Size2D(64, 48), tarn.PfncFormat.Mono8)
server.node_map.add_node(IntegerNode.create("Gain"))
server.node_map.Gain.register_event_written_updated(print)
server.start(sys.argv[1])
image = tarn.Image((64, 48))
assert memoryview(image.copy()).nbytes == 64 * 48
assert not any(server.stream.try_send(image, *callback) for callback in ((), (None,), (print,)))
server.stop()
assert LogicalNetworkInterface.get_all_available()
"""


def test_the_modules_need_the_entry_points_of_the_interface_alone(tmp_path: pathlib.Path) -> None:
    libraries = PACKAGE.parents[1] / "contract"
    if not libraries.is_dir():
        pytest.skip("this build has no libraries that are cut down to the interface")
    copy = tmp_path / "tarn"
    shutil.copytree(PACKAGE, copy, ignore=shutil.ignore_patterns("lib*.so*", "__pycache__"))
    for library in libraries.glob("lib*.so*"):
        shutil.copy(library, copy)
    with run_python(SCRIPT, free_address(), str(tmp_path)) as program:
        out, error = program.communicate(timeout=30)
    assert (program.returncode, out, error) == (0, "", "")

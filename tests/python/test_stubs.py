"""The type stubs agree with the native modules, with the programs that use them, and with what help shows."""

import inspect
import os
import pathlib
import re
import subprocess
import sys
import types
from typing import Any

import pytest

import tarn
from conftest import PACKAGE, ROOT, MakeCamera
from tarn import _gevserver_311, gevserver
from tarn._help import help_text

sys.path.insert(0, str(ROOT / "tools"))
make_stubs = pytest.importorskip("make_stubs")

STUBS = {tarn: "_tarn_311", gevserver: "_gevserver_311"}
TYPES: list[Any] = [getattr(package, name) for package in STUBS for name in package.__all__]


def run_module(*arguments: str, cwd: pathlib.Path) -> None:
    """Run a Python tool that sees the package of the build and the stubs of the repository."""
    environment = os.environ | {"PYTHONPATH": str(PACKAGE.parent), "MYPYPATH": str(ROOT / "python")}
    command = [sys.executable, "-m", *arguments]
    ran = subprocess.run(command, cwd=cwd, env=environment, capture_output=True, text=True, timeout=300)
    assert ran.returncode == 0, ran.stdout + ran.stderr


@pytest.mark.parametrize(("package", "module"), STUBS.items(), ids=STUBS.values())
def test_the_stubs_are_made_from_these_docstrings(package: types.ModuleType, module: str) -> None:
    file = ROOT / "python" / "tarn" / f"{module}.pyi"
    assert make_stubs.stub(package.__name__) == file.read_text(), f"run tools/make_stubs.py: {file.name}"
    identification = "TARNpy-v1.11.7.build-21.Release gcc94 @ ubu2004-x86_64 & TARNpp-v1.11.4.build-31"
    build_id = vars(_gevserver_311)["_mbi_id"]
    assert build_id() == build_id(1, what=2) == identification


def test_attributes_have_the_types_that_the_stubs_tell(make_camera: MakeCamera) -> None:
    server = make_camera((64, 48), start=False).server
    of_images = gevserver.ChunkImageBufferDescription.create_chunk_image_buffer_description_pfnc
    objects = [
        *(server, server.stream, server.node_map, *server.node_map.nodes.values(), tarn.Image((4, 4))),
        *(tarn.DataType.Float, tarn.Size2D(), tarn.Point2D(), tarn.GenApiVersion(), tarn.NetworkConnection()),
        of_images(tarn.Size2D(4, 4), tarn.PfncFormat.Mono8, 20),
        *gevserver.LogicalNetworkInterface.get_all_available(),
    ]
    for thing, owner in [(each, owner) for each in objects for owner in type(each).__mro__[:-1]]:
        for name in (name for name, member in vars(owner).items() if inspect.isgetsetdescriptor(member)):
            told = re.findall(r"\w+", make_stubs.attribute_type(owner.__name__, name))
            value = vars(owner)[name].__get__(thing)
            kinds = [bool] if isinstance(value, bool) else type(value).__mro__  # no bool is an int here
            names = {kind.__name__.replace("NoneType", "None") for kind in kinds}
            assert names & {*told, *(["None"] if "Any" in told else [])}, f"{owner}.{name}: {value!r}"


def test_the_stubs_hold_what_the_modules_hold(tmp_path: pathlib.Path) -> None:
    """Both ways: nothing is missing and nothing is told of what is not there."""
    pytest.importorskip("mypy", reason="mypy is not installed")
    excused = tmp_path / "allowed.txt"
    # The type of codes is an affair of their own; what they hold is compared. And how annotations say that
    # there is a buffer, before Python did.
    codes = [
        f"tarn.{module}.{name}"
        for package, module in STUBS.items()
        for name in package.__all__
        if type(getattr(package, name)) is not type
    ]
    excused.write_text("\n".join([*codes, "tarn._tarn_311.Image.__buffer__"]))
    options = ("--concise", "--ignore-disjoint-bases", "--allowlist", str(excused))
    run_module("mypy.stubtest", *(f"tarn.{module}" for module in STUBS.values()), *options, cwd=tmp_path)


def test_package_examples_and_tests_are_typed() -> None:
    pytest.importorskip("mypy", reason="mypy is not installed")
    run_module("mypy", "--no-error-summary", cwd=ROOT)


def test_help_is_plain_and_whole(capsys: pytest.CaptureFixture[str]) -> None:
    for each in TYPES:
        text = help_text(each) or ""
        members = {name for name in dir(each) if not name.startswith("_")}
        assert {name for name in members if not re.search(rf"^{name}\b", text, re.MULTILINE)} == set(), each
        assert "@" not in text, each
    server, start = "tarn.gevserver.Server\n", "start(self, ip_address: str | int) -> None"
    for subject, beginning, part in (
        (gevserver.Server.start, server, start),
        (gevserver.Server.create_non_streaming, server, "create_non_streaming() -> Server"),
        (gevserver.FloatNode.create("Gain"), "class tarn.gevserver.FloatNode(FloatBaseNode)\n", "unit: str"),
        (tarn.Stream, "class tarn.Stream\n", "images"),
        (gevserver.Node.name, "tarn.gevserver.Node\n", "full name"),
        ("IntegerNode.value", "tarn.gevserver.IntegerBaseNode\n", "value: int"),
        ("tarn.Size2D", "class tarn.Size2D\n", "Size2D(width: float=0.0, height: float=0.0)"),
        (gevserver, "Types of tarn.gevserver", "NodeMap"),
    ):
        text = help_text(subject) or ""
        assert text.startswith(beginning) and part in text, subject
    for stranger in ("IntegerNode.nothing", "Nothing", 5, os, os.path.join, list):
        assert help_text(stranger) is None, stranger
    tarn.help(gevserver.State)
    tarn.help(len)
    shown = capsys.readouterr().out
    assert "AcquisitionEnabled = 3" in shown and "Return the number of items" in shown

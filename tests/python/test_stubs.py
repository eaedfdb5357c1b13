"""The type stubs agree with the native modules, and with the programs that use them."""

import ast
import os
import pathlib
import re
import subprocess
import sys
import types
import typing
from typing import Any

import pytest

import tarn
import tarn.gevserver as gevserver
from conftest import PACKAGE, ROOT, Camera, MakeCamera
from tarn._help import help_text

sys.path.insert(0, str(ROOT / "tools"))
make_stubs = pytest.importorskip("make_stubs")

STUBS = {
    (tarn, "_tarn_311"): ROOT / "python/tarn/_tarn_311.pyi",
    (gevserver, "_gevserver_311"): ROOT / "python/tarn/_gevserver_311.pyi",
}
TYPES = [(package, getattr(package, name)) for package, _ in STUBS for name in package.__all__]


def need_checker() -> None:
    pytest.importorskip("mypy", reason="mypy is not installed")


def run_module(*arguments: str, cwd: pathlib.Path) -> None:
    """Run a Python tool that sees the package of the build and the stubs of the repository."""
    environment = os.environ | {"PYTHONPATH": str(PACKAGE.parent), "MYPYPATH": str(ROOT / "python")}
    ran = subprocess.run(
        [sys.executable, "-m", *arguments],
        cwd=cwd,
        env=environment,
        capture_output=True,
        text=True,
        timeout=300,
    )
    errors = [line for line in (ran.stdout + ran.stderr).splitlines() if ": note: " not in line]
    assert ran.returncode == 0, "\n".join(errors)


def test_the_stubs_are_made_from_these_docstrings() -> None:
    for (package, _), file in STUBS.items():
        assert make_stubs.stub(package.__name__) == file.read_text(), f"run tools/make_stubs.py: {file.name}"


def test_every_signature_of_a_docstring_is_in_the_stub() -> None:
    """Looked up by other means than those that wrote the stub."""
    for (package, _), file in STUBS.items():
        classes = {
            each.name: each for each in ast.parse(file.read_text()).body if isinstance(each, ast.ClassDef)
        }
        for its_type in (each for home, each in TYPES if home is package):
            documented = [its_type.__doc__, *(getattr(its_type, name).__doc__ for name in vars(its_type))]
            for line in re.findall(
                r"^@sec@call def (.*)$", "\n".join(filter(None, documented)), re.MULTILINE
            ):
                name = line.partition("(")[0].replace("__init__", "__new__")
                names = re.findall(r"(\w+):", line.split(") -> ")[0])
                stubs = [
                    [argument.arg for argument in each.args.args]
                    for each in classes[its_type.__name__].body
                    if isinstance(each, ast.FunctionDef) and each.name == name
                ]
                # A call with fewer arguments may be one of a call with defaults.
                found = any(
                    [each for each in stub if each not in ("self", "cls")][: len(names)] == names
                    for stub in stubs
                )
                assert found, f"{its_type}: {line}"


def test_attributes_have_the_types_that_the_stubs_tell(make_camera: MakeCamera) -> None:
    server = make_camera((64, 48), start=False).server
    of_images = gevserver.ChunkImageBufferDescription.create_chunk_image_buffer_description_pfnc
    created = [
        getattr(gevserver, name).create(f"New{name}")
        for name in ("Float32RegNode", "Float64RegNode", "FloatNode", "Int64RegNode", "StringNode")
    ]
    for node in created:
        server.node_map.add_node(node)
    objects = [
        *(server, server.stream, server.node_map, *server.node_map.nodes.values(), tarn.Image((4, 4))),
        *(tarn.DataType.Float, tarn.Size2D(), tarn.Point2D(), tarn.GenApiVersion(), tarn.NetworkConnection()),
        of_images(tarn.Size2D(4, 4), tarn.PfncFormat.Mono8, 20),
        *gevserver.LogicalNetworkInterface.get_all_available(),
        server.node_map.Width.register_event_updated(print),
    ]
    names = {"tarn": tarn, **{name: getattr(tarn, name) for name in tarn.__all__}, **vars(gevserver)}
    seen = set()
    for thing in objects:
        for owner in type(thing).__mro__:
            for name, member in vars(owner).items():
                if isinstance(member, types.GetSetDescriptorType) and owner is not object:
                    expected = eval(
                        make_stubs.attribute_type(owner.__name__, name), {"Any": typing.Any}, names
                    )
                    value = member.__get__(thing)
                    assert fits(value, expected), f"{owner.__name__}.{name}: {value!r}"
                    seen.add((owner, name))
    every = {
        (its_type, name)
        for _, its_type in TYPES
        for name, member in vars(its_type).items()
        if isinstance(member, types.GetSetDescriptorType)
    }
    assert every == seen


def fits(value: object, expected: Any) -> bool:
    """Whether a value is of a type as annotations write it; a bool is no int here."""
    parts = typing.get_args(expected)
    if isinstance(expected, types.UnionType) or typing.get_origin(expected) is typing.Union:
        return any(fits(value, part) for part in parts if part is not typing.Any) or value is None
    container = typing.get_origin(expected)
    if container is dict:
        return isinstance(value, dict) and all(fits(each, parts[1]) for each in value.values())
    if container is list:
        return isinstance(value, list) and all(fits(each, parts[0]) for each in value)
    return type(value) is expected or (isinstance(value, expected) and not isinstance(value, bool))


def test_the_stubs_hold_what_the_modules_hold(tmp_path: pathlib.Path) -> None:
    """Both ways: nothing is missing and nothing is told of what is not there."""
    need_checker()
    excused = tmp_path / "allowed.txt"
    # The type of these types is an affair of their own; what they hold is compared.
    codes = [
        f"tarn.{module}.{name}"
        for package, module in STUBS
        for name in package.__all__
        if type(getattr(package, name)) is not type
    ]
    # How annotations say "has the buffer protocol", before Python did.
    excused.write_text("\n".join([*codes, "tarn._tarn_311.Image.__buffer__"]))
    options = ("--concise", "--ignore-disjoint-bases", "--allowlist", str(excused))
    run_module("mypy.stubtest", *(f"tarn.{module}" for _, module in STUBS), *options, cwd=tmp_path)


def test_package_and_examples_are_typed() -> None:
    need_checker()
    run_module("mypy", "--no-error-summary", cwd=ROOT)


@pytest.mark.parametrize("subject", TYPES, ids=lambda pair: pair[1].__name__)
def test_help_on_a_type_is_plain_and_whole(subject: Any) -> None:
    _, its_type = subject
    text = help_text(its_type) or ""
    assert "@" not in text
    members = {name for name in dir(its_type) if not name.startswith("_")}
    assert {name for name in members if not re.search(rf"^{name}\b", text, re.MULTILINE)} == set()


def test_help_on_parts_objects_and_strangers(capsys: pytest.CaptureFixture[str], camera: Camera) -> None:
    for subject, beginning, part in (
        (gevserver.Server.start, "tarn.gevserver.Server\n", "start(self, ip_address: str | int) -> None"),
        (
            gevserver.Server.create_non_streaming,
            "tarn.gevserver.Server\n",
            "create_non_streaming() -> Server",
        ),
        (camera.server.stream, "class tarn.gevserver.Stream\n", "is_running: bool"),
        (tarn.Stream, "class tarn.Stream\n", "images"),
        (gevserver.Node.name, "tarn.gevserver.Node\n", "full name"),
        ("IntegerNode.value", "tarn.gevserver.IntegerBaseNode\n", "value: int"),
        ("tarn.Size2D", "class tarn.Size2D\n", "Size2D(width: float=0.0, height: float=0.0)"),
        (gevserver, "Types of tarn.gevserver", "NodeMap"),
    ):
        text = help_text(subject) or ""
        assert text.startswith(beginning), subject
        assert part in text, subject
    for stranger in ("IntegerNode.nothing", "Nothing", 5, os, os.path.join, list):
        assert help_text(stranger) is None, stranger
    tarn.help(gevserver.State)
    tarn.help(len)
    out = capsys.readouterr().out
    assert "AcquisitionEnabled = 3" in out
    assert "Return the number of items" in out

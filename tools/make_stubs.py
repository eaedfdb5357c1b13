#!/usr/bin/env python3
"""Writes the type stubs of the native modules from their live docstrings.

    PYTHONPATH=build/dev/python .venv/bin/python tools/make_stubs.py

The stubs carry the docstrings as plain text: editors show them, and so does ``tarn.help``. The native
docstrings keep their markers, which the documentation build reads.
"""

import ast
import importlib
import inspect
import pathlib
import re
import subprocess
import sys
import textwrap
from collections.abc import Iterator

from stub_types import INCOMPATIBLE, PARAMETERS, PROTOCOLS, RETURNS, attribute_type

ROOT = pathlib.Path(__file__).resolve().parents[1]
MODULES = {"tarn": "_tarn_311", "tarn.gevserver": "_gevserver_311"}

_CALL = "@sec@call "
_TEXT_COLUMNS = 96
_INDENT = " " * 4
_HEADER = '''# Made by tools/make_stubs.py from the docstrings of the native types.
"""Native types of {package}."""

from collections.abc import Callable, Iterator
from typing import Any, ClassVar, Final, Self, overload

{imports}
'''


def stub(package: str) -> str:
    """The stub of the native module behind a package, as the formatter leaves it."""
    public = importlib.import_module(package)
    types = [getattr(public, name) for name in public.__all__]
    # Bases first, else by name: a stub may look ahead, a reader should not have to.
    types.sort(key=lambda each: (len(each.__mro__), each.__name__))
    classes = "\n".join("\n".join(_type_lines(each, package)) for each in types)
    # Only what the classes use, so that the linter is content.
    header = _HEADER.format(package=package, imports="" if package == "tarn" else "import tarn")
    return _run_ruff("check", "--fix-only", "--quiet", "-", text=header + classes)


def _run_ruff(*command: str, text: str) -> str:
    name = ("--stdin-filename", "stub.pyi", "--config", str(ROOT / "pyproject.toml"))
    for arguments in (command, ("format", "-")):
        ran = [sys.executable, "-m", "ruff", *arguments[:-1], *name, "-"]
        text = subprocess.run(ran, input=text, capture_output=True, text=True, check=True).stdout
    return text


def calls(documentation: str) -> list[tuple[str, str]]:
    """Signature line and text of each callable section, in their order."""
    sections = documentation.split(_CALL)[1:]
    return [(head, plain(body)) for head, _, body in (each.partition("\n") for each in sections)]


def plain(documentation: str) -> str:
    """A docstring without its markers, in lines of readable length."""
    text = re.sub(r"^@sec@cls .*\n|^@ro ", "", documentation.split(_CALL)[0])
    text = re.sub(r"\\([^\w\s])", r"\1", text)  # escaped for the documentation build
    text = re.sub(r"(?<=[^\n])\n(?=(\w+)\n-{3,}\n)", "\n\n", text)
    return "\n".join(_wrapped(line) for line in text.strip().splitlines())


def _wrapped(line: str) -> str:
    indent = line[: len(line) - len(line.lstrip())]
    return textwrap.fill(
        line, _TEXT_COLUMNS, subsequent_indent=indent, break_long_words=False, break_on_hyphens=False
    )


def _type_lines(native: type, package: str) -> Iterator[str]:
    base = native.__mro__[1]
    yield f"class {native.__name__}{'' if base is object else f'({base.__name__})'}:"
    documentation = native.__doc__ or ""
    yield _docstring(plain(documentation))
    for line, text in calls(documentation):
        # The types are made by __new__ and have no __init__ of their own.
        line = line.replace("def __init__(self", "def __new__(cls").replace("-> None", "-> Self")
        yield _function(_signature(line, package, f"{native.__name__}.__new__"), text)
    for line in PROTOCOLS.get(native.__name__, ()):
        yield _INDENT + line
    for name, member in vars(native).items():
        if not name.startswith("_"):
            yield from _member_lines(native, name, member, package)


def _member_lines(native: type, name: str, member: object, package: str) -> Iterator[str]:
    documentation = getattr(getattr(native, name), "__doc__", None) or ""
    if isinstance(member, native):
        yield f"{_INDENT}{name}: ClassVar[{native.__name__}]"
    elif inspect.isgetsetdescriptor(member):
        yield from _property(native.__name__, name, documentation)
    elif callable(getattr(native, name)):
        yield from _method(native.__name__, name, documentation, package)
    else:
        yield f"{_INDENT}{name}: Final = {getattr(native, name)}"
        yield _docstring(plain(member.__doc__ or ""))


def _property(owner: str, name: str, documentation: str) -> Iterator[str]:
    its_type = attribute_type(owner, name)
    yield f"{_INDENT}@property\n{_INDENT}def {name}(self) -> {its_type}:"
    yield textwrap.indent(_docstring(plain(documentation)), _INDENT)
    if not documentation.startswith("@ro "):
        yield f"{_INDENT}@{name}.setter\n{_INDENT}def {name}(self, value: {its_type}) -> None: ..."


def _method(owner: str, name: str, documentation: str, package: str) -> Iterator[str]:
    known: list[ast.FunctionDef] = []
    sections = []
    for line, text in calls(documentation):
        signature = _signature(line, package, f"{owner}.{name}")
        if not any(_covers(earlier, signature) for earlier in known):
            sections.append((signature, text))
        known.append(signature)
    excuse = "  # type: ignore[override]" if f"{owner}.{name}" in INCOMPATIBLE else ""
    for signature, text in sections:
        if len(sections) > 1:
            yield f"{_INDENT}@overload{excuse}"
            excuse = ""  # the checker complains of the first only
        if [each.arg for each in signature.args.args[:1]] != ["self"]:
            yield f"{_INDENT}@staticmethod"
        yield _function(signature, text)


def _covers(earlier: ast.FunctionDef, later: ast.FunctionDef) -> bool:
    """Whether every call of `later` is one of `earlier`, whose further parameters have defaults."""
    first, second = earlier.args.args, later.args.args
    required = len(first) - len(earlier.args.defaults)
    same = all(ast.dump(one) == ast.dump(other) for one, other in zip(first, second, strict=False))
    return same and required <= len(second) <= len(first)


def _function(signature: ast.FunctionDef, text: str) -> str:
    head = ast.unparse(signature).splitlines()[0]
    body = textwrap.indent(_docstring(text), _INDENT)
    return f"{_INDENT}{head}\n{body}"


def _docstring(text: str) -> str:
    if not text:
        return f"{_INDENT}..."
    quotes = '"""'
    end = "\n" if "\n" in text else ""
    return textwrap.indent(f"{quotes}{text}{end}{quotes}", _INDENT)


def _signature(line: str, package: str, qualified: str) -> ast.FunctionDef:
    """A signature line as syntax tree, its types in the words of the stub."""
    (function,) = ast.parse(f"{line.strip()} ...").body
    assert isinstance(function, ast.FunctionDef), line
    if qualified in RETURNS:
        function.returns = ast.parse(RETURNS[qualified], mode="eval").body
    for argument in function.args.args:
        if argument.arg in PARAMETERS:
            argument.annotation = ast.parse(PARAMETERS[argument.arg], mode="eval").body
    _Modern(package).visit(function)
    return function


class _Modern(ast.NodeTransformer):
    """Unions with a bar, generics as they are built in, names of the own module without a prefix."""

    _BUILT_IN = frozenset({"List", "Tuple", "Dict"})

    def __init__(self, package: str) -> None:
        self._package = package

    def visit_Attribute(self, node: ast.Attribute) -> ast.expr:
        path = ast.unparse(node)
        own = path.removeprefix(f"{self._package}.")
        if self._package != "tarn" or own.startswith("gevserver."):
            return ast.parse(own, mode="eval").body
        return ast.parse(path.removeprefix("tarn."), mode="eval").body

    def visit_Subscript(self, node: ast.Subscript) -> ast.expr:
        self.generic_visit(node)
        name = node.value.id if isinstance(node.value, ast.Name) else ""
        if name == "Optional":
            return ast.BinOp(node.slice, ast.BitOr(), ast.Constant(None))
        if name == "Union":
            assert isinstance(node.slice, ast.Tuple)
            first, *others = node.slice.elts
            for other in others:
                first = ast.BinOp(first, ast.BitOr(), other)
            return first
        if name in self._BUILT_IN:
            return ast.Subscript(ast.Name(name.lower()), node.slice, node.ctx)
        return node


def main() -> None:
    for package, module in MODULES.items():
        (ROOT / "python" / "tarn" / f"{module}.pyi").write_text(stub(package), encoding="utf-8")


if __name__ == "__main__":
    main()

"""Help on the native types as plain text, read from the type stubs beside the modules."""

import ast
import functools
import pathlib
import pydoc
import textwrap
import types
from collections.abc import Iterator
from typing import NamedTuple

# In the order of search: both have a type called Stream, of which users meet the first.
_STUBS = {"tarn.gevserver": "_gevserver_311.pyi", "tarn": "_tarn_311.pyi"}
_INDENT = " " * 4


class _Member(NamedTuple):
    name: str
    title: str  # as it is written: a call with its parameters, an attribute with its type or value
    text: str

    def __str__(self) -> str:
        return f"{self.title}\n{textwrap.indent(self.text, _INDENT)}".rstrip() + "\n"


def show(subject: object) -> None:
    """Write help to the terminal, page by page where there is one."""
    text = help_text(subject)
    if text is None:
        pydoc.help(subject)
    else:
        pydoc.pager(text)


def help_text(subject: object) -> str | None:
    """Help on a type, member, instance or package, or on what a text names; None for what is not ours."""
    if isinstance(subject, types.ModuleType):
        return _package_text(subject.__name__) if subject.__name__ in _STUBS else None
    path, packages = _place(subject)
    owner, _, member = path.partition(".")
    for package in packages:
        if owner in _classes(package):
            return _member_text(package, owner, member) if member else _type_text(package, owner)
    return None


def _place(subject: object) -> tuple[str, list[str]]:
    """``Type`` or ``Type.member``, and the packages in which it may be."""
    if isinstance(subject, str):
        for package in _STUBS:
            if subject.startswith(f"{package}."):
                return subject.removeprefix(f"{package}."), [package]
        return subject, list(_STUBS)
    if isinstance(subject, types.BuiltinFunctionType):  # tells its type, but not its package
        return subject.__qualname__, list(_STUBS)
    owner = getattr(subject, "__objclass__", subject if isinstance(subject, type) else type(subject))
    path = getattr(subject, "__qualname__", owner.__qualname__)
    return path, [package for package in _STUBS if package == owner.__module__]


@functools.cache
def _classes(package: str) -> dict[str, ast.ClassDef]:
    stub = pathlib.Path(__file__).with_name(_STUBS[package])
    tree = ast.parse(stub.read_text(encoding="utf-8"))
    return {each.name: each for each in tree.body if isinstance(each, ast.ClassDef)}


def _package_text(package: str) -> str:
    lines = [f"Types of {package}; tarn.help({package}.Name) tells more of one.\n"]
    for name, its_class in sorted(_classes(package).items()):
        summary = (ast.get_docstring(its_class) or "").split("\n\n")[0]
        lines.append(f"{name}\n{textwrap.indent(summary, _INDENT)}")
    return "\n".join(lines) + "\n"


def _type_text(package: str, name: str) -> str:
    lineage = _lineage(package, name)
    bases = "".join(f"({base.name})" for base in lineage[1:2])
    text = f"class {package}.{name}{bases}\n\n{ast.get_docstring(lineage[0]) or ''}\n"
    for its_class in lineage:
        members = "\n".join(map(str, _members(its_class)))
        if its_class is not lineage[0] and members:
            text += f"\n{'-' * 8} from {its_class.name}:\n"
        text += f"\n{members}"
    return text


def _member_text(package: str, owner: str, name: str) -> str | None:
    for its_class in _lineage(package, owner):
        found = [str(member) for member in _members(its_class) if member.name == name]
        if found:
            return f"{package}.{its_class.name}\n\n" + "\n".join(found)
    return None


def _lineage(package: str, name: str) -> list[ast.ClassDef]:
    """A class and its bases, nearest first."""
    lineage = [_classes(package)[name]]
    while lineage[-1].bases:
        lineage.append(_classes(package)[ast.unparse(lineage[-1].bases[0])])
    return lineage


def _members(its_class: ast.ClassDef) -> Iterator[_Member]:
    following = [*its_class.body[1:], None]
    for statement, after in zip(its_class.body, following, strict=True):
        if isinstance(statement, ast.AnnAssign) and ast.unparse(statement.target) != "__hash__":
            text = ""
            if isinstance(after, ast.Expr) and isinstance(after.value, ast.Constant):
                text = str(after.value.value)
            title = ast.unparse(statement).replace(": Final = ", " = ")
            yield _Member(ast.unparse(statement.target), title, text)
        elif isinstance(statement, ast.FunctionDef):
            decorators = [ast.unparse(each) for each in statement.decorator_list]
            if f"{statement.name}.setter" not in decorators:
                yield _Member(
                    statement.name,
                    _function_title(its_class.name, statement, is_property="property" in decorators),
                    ast.get_docstring(statement) or "",
                )


def _function_title(owner: str, function: ast.FunctionDef, *, is_property: bool) -> str:
    result = ast.unparse(function.returns) if function.returns else "Any"
    if is_property:
        return f"{function.name}: {result}"
    if function.name == "__new__":
        return f"{owner}({ast.unparse(function.args).removeprefix('cls').removeprefix(', ')})"
    return f"{function.name}({ast.unparse(function.args)}) -> {result}"

"""The directive `python-reference`: every public name of a module, from its live docstrings.

The native types' docstrings begin with markers that say what they describe:

    @sec@cls tarn.Size2D                    a type; its name follows
    @sec@call def f(x: int) -> None:        a call; one block for each of its signatures
    @staticmethod                           before the signature of a static method
    @ro Gets ...                            a property that cannot be set
"""

import importlib
import inspect
import re
from collections.abc import Iterator

from docutils import nodes
from sphinx.application import Sphinx
from sphinx.ext.napoleon import Config
from sphinx.ext.napoleon.docstring import NumpyDocstring
from sphinx.util.docutils import SphinxDirective

_CALL = re.compile(r"^@sec@call ", re.MULTILINE)
_SIGNATURE = re.compile(r"(?:@staticmethod\s+)?def (?P<name>\w+)(?P<rest>\(.*\).*?):?\s*$", re.DOTALL)
_NAPOLEON = Config(napoleon_use_rtype=True, napoleon_use_param=True)


def _body(text: str) -> list[str]:
    """Docstring text in the NumPy style as reStructuredText lines."""
    text = re.sub(r"(?<!`)`(?!`)", "``", inspect.cleandoc(text)).replace("*", r"\*")
    return str(NumpyDocstring(text, _NAPOLEON)).splitlines()


def _indented(lines: list[str]) -> list[str]:
    return ["   " + line if line else "" for line in lines]


def _calls(doc: str) -> Iterator[tuple[str, list[str]]]:
    """Signature without name, and description, of each way to call."""
    for block in _CALL.split(doc)[1:]:
        head, _, rest = block.partition("\n\n")
        match = _SIGNATURE.match(head.strip())
        if match:
            yield match["rest"], _body(rest)


def _call(name: str, doc: str, kind: str) -> list[str]:
    lines: list[str] = []
    for number, (signature, body) in enumerate(_calls(doc)):
        option = ["   :no-index:"] if number else []
        option += ["   :staticmethod:"] if "@staticmethod" in doc and kind == "method" else []
        lines += ["", f".. py:{kind}:: {name}{signature}", *option, "", *_indented(body)]
    return lines


def _member(name: str, value: object) -> list[str]:
    doc = getattr(value, "__doc__", None) or ""
    if isinstance(value, staticmethod):
        doc = value.__func__.__doc__ or ""
    if _CALL.search(doc):
        return _call(name, doc, "method")
    if inspect.isgetsetdescriptor(value) or isinstance(value, property):
        note = ["", "*Read only.*"] if doc.startswith("@ro ") else []
        return ["", f".. py:property:: {name}", "", *_indented(_body(doc.removeprefix("@ro ")) + note)]
    if isinstance(value, int):
        return ["", f".. py:attribute:: {name}", f"   :value: {int(value)}", "", *_indented(_body(doc))]
    return []


def _type(module: str, name: str, cls: type) -> list[str]:
    doc = (cls.__doc__ or "").split("\n\n", 1)
    bases = [base.__name__ for base in cls.__bases__ if base is not object]
    lines = _body(doc[1] if doc[0].startswith("@sec@cls") and len(doc) > 1 else "\n\n".join(doc))
    if bases:
        lines += ["", f"Base: :py:class:`{bases[0]}`"]
    for member, value in vars(cls).items():
        if not member.startswith("_"):
            lines += _member(member, value)
    return ["", name, "-" * len(name), "", f".. py:class:: {module}.{name}", "", *_indented(lines)]


class PythonReference(SphinxDirective):
    """`.. python-reference:: tarn.gevserver`: its types, in the order of the alphabet."""

    required_arguments = 1

    def run(self) -> list[nodes.Node]:
        """The nodes of the whole list."""
        module_name = self.arguments[0]
        module = importlib.import_module(module_name)
        lines = ["", f".. py:currentmodule:: {module_name}"]
        for name, value in sorted(vars(module).items()):
            if not name.startswith("_") and isinstance(value, type):
                lines += _type(module_name, name, value)
        return self.parse_text_to_nodes("\n".join(lines), allow_section_headings=True)


def setup(app: Sphinx) -> dict[str, bool]:
    """Called by Sphinx."""
    app.add_directive("python-reference", PythonReference)
    return {"parallel_read_safe": True}

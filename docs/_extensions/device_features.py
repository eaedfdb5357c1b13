"""The directive `device-features`: the features that a new camera has, read from the tree of one."""

from docutils import nodes
from sphinx.application import Sphinx
from sphinx.util.docutils import SphinxDirective

import tarn
from tarn import gevserver

_ACCESS = {
    tarn.AccessMode.ReadOnly: "R",
    tarn.AccessMode.WriteOnly: "W",
    tarn.AccessMode.ReadWrite: "RW",
}
_KINDS = {
    gevserver.IntegerNode: "Integer",
    gevserver.IntRegNode: "Integer",
    gevserver.FloatNode: "Float",
    gevserver.BooleanNode: "Boolean",
    gevserver.CommandNode: "Command",
    gevserver.StringRegNode: "String",
    gevserver.StringNode: "String",
    gevserver.EnumerationNode: "Enumeration",
}
_VISIBILITY = {
    tarn.Visibility.Beginner: "Beginner",
    tarn.Visibility.Expert: "Expert",
    tarn.Visibility.Guru: "Guru",
    tarn.Visibility.Invisible: "Invisible",
}


def _row(node: gevserver.Node) -> str:
    kind = _KINDS.get(type(node)) or next(name for base, name in _KINDS.items() if isinstance(node, base))
    access = "W" if kind == "Command" else _ACCESS[node.access_mode]
    cells = [node.name_only, kind, access, _VISIBILITY[node.visibility], node.tool_tip]
    return "| `" + "` | ".join((cells[0], " | ".join(cells[1:]))) + " |"


def _category(category: gevserver.CategoryNode, level: int) -> list[str]:
    features = [node for node in category.nodes if not isinstance(node, gevserver.CategoryNode)]
    lines = ["", "#" * level + " " + category.name_only, ""]
    if features:
        lines += ["| Name | Kind | Access | Visibility | What it is |", "|---|---|---|---|---|"]
        lines += [_row(node) for node in features]
    for node in category.nodes:
        if isinstance(node, gevserver.CategoryNode):
            lines += _category(node, level + 1)
    return lines


class DeviceFeatures(SphinxDirective):
    """Tables, a section for each category."""

    def run(self) -> list[nodes.Node]:
        """The nodes of all sections."""
        server = gevserver.Server.create_with_variable_size(
            tarn.Size2D(640, 480), tarn.ColorModel.Mono, tarn.DataType.Int8BppUnsigned
        )
        lines: list[str] = []
        for category in server.node_map.Root.nodes:
            lines += _category(category, 2)
        return self.parse_text_to_nodes("\n".join(lines), allow_section_headings=True)


def setup(app: Sphinx) -> dict[str, bool]:
    """Called by Sphinx."""
    app.add_directive("device-features", DeviceFeatures)
    return {"parallel_read_safe": True}

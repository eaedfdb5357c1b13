"""The directive `throughput-plot`: the first table of the performance page as bars, drawn from the page."""

import io
import pathlib
import re
from typing import NamedTuple

from docutils import nodes
from matplotlib.figure import Figure
from sphinx.application import Sphinx
from sphinx.util.docutils import SphinxDirective

_TABLE = "performance.md"
_ROW = re.compile(
    r"^(?P<driver>Socket|Filter) +(?P<packet>\d+) +(?P<image>\d+ [KM]iB)(?P<rates>(?: +\d+){3}) ", re.M
)
_IMAGE = "4 MiB"
_SENDERS = ("bare loop", "camera", "camera that keeps images")
_WIDTH = 0.27  # of a bar; between two groups it is 1


class _Row(NamedTuple):
    label: str
    rates: list[int]  # MB per CPU second, as _SENDERS


def _rows(text: str) -> list[_Row]:
    return [
        _Row(f"{row['driver']}\n{row['packet']} bytes", [int(rate) for rate in row["rates"].split()])
        for row in _ROW.finditer(text)
        if row["image"] == _IMAGE
    ]


def _svg(rows: list[_Row]) -> str:
    figure = Figure(figsize=(8, 3.4), layout="constrained")
    axes = figure.subplots()
    for number, sender in enumerate(_SENDERS):
        places = [place + (number - 1) * _WIDTH for place in range(len(rows))]
        axes.bar(places, [row.rates[number] for row in rows], _WIDTH, label=sender)
    axes.set_xticks(range(len(rows)), [row.label for row in rows])
    axes.set_ylabel("MB per CPU second")
    axes.legend()
    drawn = io.StringIO()
    figure.savefig(drawn, format="svg")
    return drawn.getvalue().partition("<svg")[2]


class ThroughputPlot(SphinxDirective):
    """The figure, in the page itself."""

    def run(self) -> list[nodes.Node]:
        """The nodes of the figure."""
        page = pathlib.Path(self.env.srcdir) / _TABLE
        self.env.note_dependency(str(page))
        rows = _rows(page.read_text(encoding="utf-8"))
        if not rows:
            raise self.error(f"{_TABLE} has no rows for images of {_IMAGE}")
        return [nodes.raw("", f"<svg{_svg(rows)}", format="html")]


def setup(app: Sphinx) -> dict[str, bool]:
    """Called by Sphinx."""
    app.add_directive("throughput-plot", ThroughputPlot)
    return {"parallel_read_safe": True}

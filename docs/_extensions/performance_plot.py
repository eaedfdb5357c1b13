"""The directive `performance-plot`: tables of the performance page as bars, drawn from the page.

Its argument is `throughput` (images of 4 MiB beside a bare loop), `cost` (of a core, while the stream keeps
to a rate) or `gaps` (between packets of a frame).
"""

import io
import pathlib
import re
from typing import NamedTuple

from docutils import nodes
from matplotlib.figure import Figure
from sphinx.application import Sphinx
from sphinx.util.docutils import SphinxDirective

_PAGE = "performance.md"


class _Table(NamedTuple):
    row: re.Pattern[str]  # with groups for the parts of a label, and one for each bar
    label: str
    bars: dict[str, str]  # what they are, by group
    unit: str


_PACED = r"^(?P<limit>[\d.]+Gbit) +(?P<packet>\d+) +(?P<driver>{driver}) +{resend} +(?P<cost>[\d.]+) "
_TABLES = {
    "throughput": _Table(
        re.compile(
            r"^(?P<driver>Socket|Filter) +(?P<packet>\d+) +4 MiB x1"
            r" +(?P<bare>\d+) +(?P<off>\d+) +(?P<on>\d+) ",
            re.M,
        ),
        "{driver}\n{packet} bytes",
        {"bare": "bare loop", "off": "camera", "on": "camera that keeps images"},
        "MB per CPU second",
    ),
    "cost": _Table(
        re.compile(
            _PACED.format(driver="Filter", resend="off")
            + r".*\n(?P=limit) +(?P=packet) +(?P=driver) +on +(?P<kept>[\d.]+) ",
            re.M,
        ),
        "{limit}/s\n{packet} bytes",
        {"cost": "camera", "kept": "camera that keeps images"},
        "% of a core",
    ),
    "gaps": _Table(
        re.compile(
            _PACED.format(driver="Socket|Filter", resend="on")
            + r" *[\d.]+ +[\d.]+ +[\d.]+ +(?P<ideal>[\d.]+) +[\d.]+ +(?P<slow>[\d.]+) +(?P<longest>\d+) ",
            re.M,
        ),
        "{limit}/s\n{driver}\n{packet} bytes",
        {"ideal": "even", "slow": "slowest hundredth", "longest": "longest"},
        "µs",
    ),
}


def _svg(table: _Table, rows: list[dict[str, str]]) -> str:
    figure = Figure(figsize=(8, 3.4), layout="constrained")
    axes = figure.subplots()
    width = 0.8 / len(table.bars)  # between two groups it is 1
    for number, (group, what) in enumerate(table.bars.items()):
        places = [place + (number - (len(table.bars) - 1) / 2) * width for place in range(len(rows))]
        axes.bar(places, [float(row[group]) for row in rows], width, label=what)
    axes.set_xticks(range(len(rows)), [table.label.format(**row) for row in rows])
    axes.set_ylabel(table.unit)
    axes.legend()
    drawn = io.StringIO()
    figure.savefig(drawn, format="svg")
    return drawn.getvalue().partition("<svg")[2]


class PerformancePlot(SphinxDirective):
    """A figure, in the page itself."""

    required_arguments = 1

    def run(self) -> list[nodes.Node]:
        """The nodes of the figure."""
        (name,) = self.arguments
        page = pathlib.Path(self.env.srcdir) / _PAGE
        self.env.note_dependency(str(page))
        rows = [row.groupdict() for row in _TABLES[name].row.finditer(page.read_text(encoding="utf-8"))]
        if not rows:
            raise self.error(f"{_PAGE} has no rows for {name}")
        return [nodes.raw("", f"<svg{_svg(_TABLES[name], rows)}", format="html")]


def setup(app: Sphinx) -> dict[str, bool]:
    """Called by Sphinx."""
    app.add_directive("performance-plot", PerformancePlot)
    return {"parallel_read_safe": True}

#!/usr/bin/env python3
"""Cost of node properties from Python, beside an attribute of a C type of the standard library.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/nodes.py``.
Figures are medians of runs taken in turn. The C attribute is the precision of a ``decimal.Context``, which
converts an int and checks its range as a node does.
"""

import decimal
import statistics
import timeit

from tarn.gevserver import Float64RegNode, Int32RegNode, IntegerNode, NodeMap, Server, StringRegNode

ROUNDS = 7
LOOPS = 20_000


def tree(node_map: NodeMap) -> dict[str, object]:
    """Nodes of the kinds to measure, by what is said of them."""
    constant, register, chain = (
        IntegerNode.create("Constant"),
        Int32RegNode.create("Reg"),
        IntegerNode.create("Chain"),
    )
    number, text = Float64RegNode.create("Number"), StringRegNode.create("Text", 16)
    for node in (constant, register, chain, number, text):
        node_map.add_node(node)
    chain.value_config_as_node = register
    return {
        "constant": constant,
        "register": register,
        "feature over register": chain,
        "float register": number,
        "text register": text,
    }


def nanoseconds(statement: str, **names: object) -> float:
    """Time of one run of the statement."""
    return timeit.timeit(statement, globals=names, number=LOOPS) / LOOPS * 1e9


def main() -> None:
    server = Server.create_non_streaming()
    nodes = tree(server.node_map)
    context = decimal.Context()
    values = {"float register": 2.5, "text register": "lamp"}
    rows: dict[tuple[str, str], list[float]] = {}
    for _ in range(ROUNDS):
        base = {
            "read": nanoseconds("o.prec", o=context),
            "write": nanoseconds("o.prec = v", o=context, v=28),
        }
        for way, time in base.items():
            rows.setdefault(("C attribute", way), []).append(time)
        for name, node in nodes.items():
            value = values.get(name, 28)
            for way, statement in (("write", "o.value = v"), ("read", "o.value")):
                rows.setdefault((name, way), []).append(nanoseconds(statement, o=node, v=value))
        rows.setdefault(("node_map.Name", "read"), []).append(nanoseconds("m.Reg", m=server.node_map))
        rows.setdefault(("tool_tip", "read"), []).append(nanoseconds("o.tool_tip", o=nodes["register"]))
    medians = {row: statistics.median(times) for row, times in rows.items()}
    print(f"{'':<24}{'':<8}{'ns':>8}{'x C attribute':>16}")
    for (name, way), time in medians.items():
        print(f"{name:<24}{way:<8}{time:8.0f}{time / medians['C attribute', way]:16.1f}")


if __name__ == "__main__":
    main()

#!/usr/bin/env python3
"""Time to build and to start a camera with 10 to 10,000 nodes, per node.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/start_time.py``.
Figures are medians of runs taken in turn; time per node that grows with the number of nodes is a fault.
"""

import statistics
import time

from tarn.gevserver import (
    CategoryNode,
    Int32RegNode,
    IntegerNode,
    IntSwissKnifeNode,
    NodeList,
    NodeMap,
    Server,
)

ROUNDS = 5
SIZES = (10, 100, 1_000, 10_000)
ADDRESS = "127.88.0.2"
GROUP = 100  # features in a category


def fill(node_map: NodeMap, count: int) -> None:
    """Add `count` nodes: features over registers, with limits from a formula, in categories."""
    category = node_map.Root
    for index in range(count // 5):
        if index % (GROUP // 5) == 0:
            category = CategoryNode.create(f"Group{index}")
            node_map.add_node(category)
            node_map.Root.add(category, NodeList.Child)
        register, limit = Int32RegNode.create(f"Reg{index}"), IntegerNode.create(f"Limit{index}")
        knife, feature = IntSwissKnifeNode.create(f"Knife{index}"), IntegerNode.create(f"Feature{index}")
        twin = IntegerNode.create(f"Twin{index}")
        for node in (register, limit, knife, feature, twin):
            node_map.add_node(node)
        limit.value_config_as_int = 500
        knife.add(limit, NodeList.Child)
        knife.formula = f"Limit{index} * 2"
        for node in (feature, twin):
            node.value_config_as_node = register
            node.max_config_as_node = knife
            category.add(node, NodeList.Child)


def measure(count: int) -> tuple[float, float, float]:
    """Seconds to fill a camera with `count` nodes, to start it and to stop it."""
    server = Server.create_non_streaming()
    marks = [time.perf_counter()]
    fill(server.node_map, count)
    marks.append(time.perf_counter())
    server.start(ADDRESS)
    marks.append(time.perf_counter())
    server.stop()
    marks.append(time.perf_counter())
    return marks[1] - marks[0], marks[2] - marks[1], marks[3] - marks[2]


def main() -> None:
    measure(SIZES[0])  # the first camera of a process pays for what all share
    rounds = [[measure(size) for size in SIZES] for _ in range(ROUNDS)]
    columns = [
        [statistics.median(values) for values in zip(*runs, strict=True)]
        for runs in zip(*rounds, strict=True)
    ]
    bare_start = columns[0][1]
    print(f"{'nodes':>8}{'build ms':>12}{'us/node':>10}{'start ms':>12}{'us/node*':>10}{'stop ms':>10}")
    for size, (build, start, stop) in zip(SIZES, columns, strict=True):
        per_node = (start - bare_start) / (size - SIZES[0]) * 1e6 if size > SIZES[0] else float("nan")
        print(
            f"{size:>8}{build * 1e3:>12.2f}{build / size * 1e6:>10.2f}"
            f"{start * 1e3:>12.2f}{per_node:>10.2f}{stop * 1e3:>10.2f}"
        )
    print("* beyond the start with the fewest nodes")
    ratio = (columns[-1][1] - bare_start) / (columns[-2][1] - bare_start)
    print(f"start with {SIZES[-1]} nodes takes {ratio:.1f} times as long as with {SIZES[-2]}")


if __name__ == "__main__":
    main()

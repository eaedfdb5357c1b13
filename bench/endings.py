"""How programs end: every state of ``tests/python/endings.py``, by exit and by fork, many times over.

    PYTHONPATH=build/perf/python .venv/bin/python bench/endings.py [--runs 50] [--state PART]

Prints for each state how many of the runs ended with exit code 0 and without a word, and how long the end
took, from the moment at which the program had nothing left to do: median and longest.
"""

import argparse
import pathlib
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "python"))

from conftest import free_address
from endings import FORK, STATES, program

MARK = "\nsys.stderr.write(str(time.monotonic()) + '\\n')\nsys.stderr.flush()\n"


def end_once(state: str, tail: str) -> tuple[bool, float]:
    """One program; whether it ended well, and the seconds of its end."""
    with program(state, free_address(), MARK + tail) as process:
        try:
            out, error = process.communicate(timeout=20)
        except subprocess.TimeoutExpired:
            return False, 20.0
        ended = time.monotonic()
    begin, _, words = error.partition("\n")
    return process.returncode == 0 and out + words == "", ended - float(begin or ended)


def main() -> None:
    options = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    options.add_argument("--runs", type=int, default=50)
    options.add_argument("--state", default="", help="only states whose names contain this")
    chosen = options.parse_args()
    print(f"{'state':36} {'end':5} {'good':>7} {'median s':>9} {'longest s':>9}")
    for name, tail in (("exit", ""), ("fork", FORK)):
        for state in STATES:
            # An exception ends the program ahead of the mark; threads of the program are no matter of forks.
            if chosen.state not in state or "exception" in state or (tail and "daemon" in state):
                continue
            results = [end_once(state, tail) for _ in range(chosen.runs)]
            times = [seconds for _, seconds in results]
            good = f"{sum(well for well, _ in results)}/{chosen.runs}"
            print(
                f"{state:36} {name:5} {good:>7} {statistics.median(times):9.3f} {max(times):9.3f}", flush=True
            )


if __name__ == "__main__":
    main()

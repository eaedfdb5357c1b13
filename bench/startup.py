#!/usr/bin/env python3
"""Time to import the package and to bring a camera up, beside the start of a bare interpreter.

Run it with the package on the path: ``PYTHONPATH=build/perf/python python3 bench/startup.py``.
Figures are medians of runs taken in turn.
"""

import statistics
import subprocess
import sys
import time

ROUNDS = 15
ADDRESS = "127.88.0.1"

IMPORT = """
import time
begin = time.perf_counter()
import tarn, tarn.gevserver
print(time.perf_counter() - begin)
"""

START = f"""
import tarn, tarn.gevserver, time
begin = time.perf_counter()
server = tarn.gevserver.Server.create_with_const_size_pfnc(tarn.Size2D(640, 480), tarn.PfncFormat.Mono8)
server.start("{ADDRESS}")
print(time.perf_counter() - begin)
server.stop()
"""


def told(program: str) -> float:
    """Seconds that the program measured itself."""
    run = subprocess.run([sys.executable, "-c", program], check=True, capture_output=True, text=True)
    return float(run.stdout)


def bare() -> float:
    """Wall seconds of an interpreter that does nothing."""
    begin = time.perf_counter()
    subprocess.run([sys.executable, "-c", "pass"], check=True)
    return time.perf_counter() - begin


def main() -> None:
    rounds = [(bare(), told(IMPORT), told(START)) for _ in range(ROUNDS)]
    base, imported, started = (statistics.median(column) * 1000 for column in zip(*rounds, strict=True))
    print(f"{'':<28}{'ms':>8}{'x bare interpreter':>20}")
    for name, value in (
        ("bare interpreter", base),
        ("import tarn.gevserver", imported),
        ("create and start", started),
    ):
        print(f"{name:<28}{value:8.1f}{value / base:20.2f}")


if __name__ == "__main__":
    main()

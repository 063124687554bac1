#!/usr/bin/python3
"""The surveys of the gallery, inverted to the target misfit: RMS misfit, products with the sensitivities and time.

    gallery_convergence.py --build DIR [--only NAME ...] [--csv FILE]

Each example is run as in the gallery, with its own trade-off and number of iterations. Then `voxlith-run --target-rms 1` inverts the same
survey. Stacked runs are left out: `compact` runs them to the target anyway. docs/gallery.md shows the table.
"""
from __future__ import annotations

import argparse
import csv
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from results import write_table

ROOT = Path(__file__).resolve().parents[1]
sys.dont_write_bytecode = True
sys.path[:0] = [str(ROOT / "tests" / "runs"), str(ROOT / "examples")]
import converged_runs  # noqa: E402

NAMES = ("run", "rms_example", "iterations_example", "rms", "products", "seconds")


def misfit_of(folder: str) -> tuple[int, float]:
    """Iterations and RMS misfit of the last row of the iteration table."""
    words = Path(folder, "voxlith.aux").read_text(encoding="ascii").splitlines()[-1].replace("+", " ").split()
    return int(words[0]), float(words[1])


def measure(name: str, build: Path, work: str) -> list[list[object]]:
    """A row for each run of an example."""
    folder = os.path.join(work, name)
    subprocess.run([sys.executable, str(ROOT / "examples" / "run_example.py"), name, "--build", str(build), "--work", folder], check=True,
                   stdout=subprocess.DEVNULL)
    rows: list[list[object]] = []
    for place in converged_runs.runs_of(folder):
        iterations, before = misfit_of(place)
        start = time.monotonic()
        products = converged_runs.run(str(build / "voxlith-run"), place, "--target-rms", "1")
        seconds = time.monotonic() - start
        with open(os.path.join(place, "voxlith_tradeoff.csv"), encoding="ascii") as file:
            last = list(csv.DictReader(file))[-1]
        title = name if place == folder else f"{name}, {os.path.relpath(place, folder)}"
        rows.append([title, f"{before:.3f}", iterations, f"{float(last['rms_misfit']):.3f}", products, f"{seconds:.2f}"])
    return rows


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--only", nargs="+", metavar="NAME", help="some examples alone")
    parser.add_argument("--csv", type=Path, help="file for the table")
    asked = parser.parse_args()
    with tempfile.TemporaryDirectory() as work:
        rows = [row for name in asked.only or converged_runs.examples() for row in measure(name, asked.build.resolve(), work)]
    write_table(asked.csv, list(NAMES), rows)


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Products with the sensitivities until an inversion is converged: voxlith-run --until-converged and SciPy's L-BFGS-B.

    converged_products.py --build DIR [--share 1e-3 1e-4] [--csv FILE]

The problem is the two blocks of the examples with depth weights (voxlith-tools init --weights auto), at the trade-off that fits the data.
Both minimise the same objective from the same model within the same bounds. SciPy works once in the variable of the run, the model
times the depth weight of the sensitivity file, and once in the model itself. Counted is what each needs until its objective is within a
share of the minimum. A product of SciPy is one with a matrix held in full; only their number counts here.
"""

from __future__ import annotations

import argparse
import csv
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "bench"), str(ROOT / "python"), str(ROOT / "tests" / "python")]
sys.dont_write_bytecode = True
import numpy as np  # noqa: E402
from objective import Objective  # noqa: E402
from results import write_table  # noqa: E402
from scipy.optimize import minimize  # noqa: E402

BOUND = 1.0
START = 0.001


class Enough(Exception):
    """SciPy has come near enough to the minimum."""


def make_run(build: Path, folder: Path) -> float:
    """The two blocks with depth weights; gives the trade-off that fits the data."""
    tools = build / "tools" / "voxlith-tools"
    subprocess.run([sys.executable, ROOT / "examples" / "run_example.py", "two_blocks", "--build", build, "--work", folder], check=True,
                   stdout=subprocess.DEVNULL)
    subprocess.run([tools, "init", "--data", "gz.obs", "--mtx", "gz.mtx", "--sign", "positive", "--weights", "auto", "--force"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    subprocess.run([build / "voxlith-run", "voxlith.inp", "--target-rms", "1"], cwd=folder, check=True, stdout=subprocess.DEVNULL)
    with open(folder / "voxlith_tradeoff.csv", encoding="ascii") as file:
        return float(list(csv.DictReader(file))[-1]["tradeoff"])


def converge(build: Path, folder: Path, tradeoff: float, tolerance: float) -> tuple[float, int]:
    """Objective and products of a converged run."""
    done = subprocess.run([build / "voxlith-run", "voxlith.inp", "--until-converged", repr(tolerance), f"Tradeoff={tradeoff!r}",
                           "--json-log", "run.jsonl"], cwd=folder, check=True, stdout=subprocess.PIPE, text=True)
    last = json.loads((folder / "run.jsonl").read_text().splitlines()[-1])
    found = re.search(r"(?m)^ *Products .*: (\d+)", done.stdout)
    assert found is not None
    return last["phi_d"] + tradeoff * last["model_norm"] ** 2, int(found.group(1))


def scipy_products(peer: Objective, goal: float) -> int:
    """Products until the objective is at the goal."""
    peer.products = 0
    bounds = [(0.0, BOUND * weight) for weight in peer.depth_weight]

    def watched(x: np.ndarray) -> tuple[float, np.ndarray]:
        value, gradient = peer.value_and_gradient(x)
        if value <= goal:
            raise Enough
        return value, gradient
    try:
        done = minimize(watched, START * peer.depth_weight, jac=True, method="L-BFGS-B", bounds=bounds,
                        options={"maxiter": 100000, "maxfun": 100000, "maxcor": 10, "ftol": 0.0, "gtol": 0.0})
        print(f"SciPy ended at {done.fun:.6g}, above {goal:.6g}: {done.message}", file=sys.stderr)
    except Enough:
        pass
    return peer.products


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--share", type=float, nargs="+", default=[1e-2, 1e-3, 1e-4, 1e-5])
    parser.add_argument("--csv", type=Path, help="file for the table")
    asked = parser.parse_args()
    build = asked.build.resolve()
    with tempfile.TemporaryDirectory() as work:
        folder = Path(work)
        tradeoff = make_run(build, folder)
        least, _ = converge(build, folder, tradeoff, 1e-12)
        print(f"trade-off {tradeoff:.6g}, minimum {least:.9g}", file=sys.stderr)
        rows: list[list[object]] = []
        peers = [Objective.of(folder, "gz.obs", tradeoff, physical=physical) for physical in (False, True)]
        for share in asked.share:
            tolerance, reached, products = 8.0 * share, np.inf, 0
            while reached > least * (1.0 + share):
                reached, products = converge(build, folder, tradeoff, tolerance)
                tolerance *= 0.7
            goal = least * (1.0 + share)
            rows.append([share, products, *(scipy_products(peer, goal) for peer in peers)])
        write_table(asked.csv, ["share", "voxlith_run", "scipy_variable", "scipy_model"], rows)


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Products of converged runs, with the search for the trade-off and of one solution, and the bodies of the sparse norms.

    converged_costs.py --build DIR [--case NAME ...] [--csv FILE]

`products` counts products with the sensitivities, forward or transposed. The two blocks have the depth weights of `init`; their bodies are
the cells above half of the peak on either side. The real lines are those of the examples. `joint` is the run of the tutorial, and `survey`
the one of scaling.py, whose sensitivities must be there (scaling.py survey --step mtx). docs/converged-inversions.md shows the results.
"""
from __future__ import annotations

import argparse
import csv
import re
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "bench"), str(ROOT / "python"), str(ROOT / "tests" / "docs")]
sys.dont_write_bytecode = True
import numpy as np  # noqa: E402
from results import write_table  # noqa: E402
from tutorial_test import TutorialSession, follow, lay_clone  # noqa: E402

from voxlith import Mesh, Model  # noqa: E402

NAMES = ["run", "norm", "cells", "data", "rms", "products", "once", "body", "true_peak", "peak", "volume"]
LINES = {"gravity line": "gravity", "magnetic line": "magnetic"}
Row = list[object]


def run(build: Path, folder: Path, *options: str) -> int:
    """Products of a run."""
    done = subprocess.run([build / "voxlith-run", "voxlith.inp", *options], cwd=folder, check=True, stdout=subprocess.PIPE, text=True)
    found = re.search(r"(?m)^ *Products .*: (\d+)", done.stdout)
    assert found is not None
    return int(found[1])


def example(build: Path, name: str, folder: Path) -> None:
    subprocess.run([sys.executable, ROOT / "examples" / "run_example.py", name, "--build", build, "--work", folder], check=True,
                   stdout=subprocess.DEVNULL)


def head(folder: Path) -> Row:
    """Cells and data of a run that has ended, and its RMS misfit."""
    log = (folder / "voxlith.log").read_text(encoding="ascii")
    counts = [re.search(rf"{name} *: *(\d+)", log) for name in ("total model cells", "number of data")]
    with (folder / "voxlith_tradeoff.csv").open(encoding="ascii") as file:
        misfit = list(csv.DictReader(file))[-1]["rms_misfit"]
    return [*(found[1] if found else "" for found in counts), misfit]


def searched(build: Path, folder: Path, name: str) -> Row:
    """A run with the search, and one solution with the trade-off that it found."""
    products = run(build, folder, "--target-rms", "1")
    with (folder / "voxlith_tradeoff.csv").open(encoding="ascii") as file:
        tradeoff = list(csv.DictReader(file))[-1]["tradeoff"]
    known = head(folder)
    return [name, "smooth", *known, products, run(build, folder, "--until-converged", "1e-4", f"Tradeoff={tradeoff}")]


def bodies(folder: Path) -> Iterator[Row]:
    """True peak, peak, and volume above half the peak over the true one, of each of the two blocks."""
    mesh = Mesh.read(next(folder.glob("*.msh")))
    true, model = (Model.read(folder / name, mesh).values for name in ("true.den", "voxlith.den"))
    x, y, _ = mesh.centres().T
    south_west = x + y < 0.5 * (mesh.x_nodes[0] + mesh.x_nodes[-1] + mesh.y_nodes[0] + mesh.y_nodes[-1])
    for number, side in enumerate((south_west, ~south_west), start=1):
        found, block = np.where(side, model, 0.0), np.where(side, true, 0.0)
        yield [number, f"{block.max():g}", f"{found.max():.4g}", f"{(found > 0.5 * found.max()).sum() / (block > 0.0).sum():.4g}"]


def two_blocks(build: Path, folder: Path) -> Iterator[Row]:
    example(build, "two_blocks", folder)
    subprocess.run([build / "tools" / "voxlith-tools", "init", "--data", "gz.obs", "--mtx", "gz.mtx", "--sign", "positive", "--force"],
                   cwd=folder, check=True, stdout=subprocess.DEVNULL)
    row = searched(build, folder, "two blocks")
    run(build, folder, "--target-rms", "1")
    yield from ([*row, *body] for body in bodies(folder))
    for norm in ("blocky", "compact"):
        products = run(build, folder, "--target-rms", "1", "--model-norm", norm)
        yield from (["two blocks", norm, *head(folder), products, "", *body] for body in bodies(folder))


def lines(build: Path, folder: Path) -> Iterator[Row]:
    example(build, "hamersley", folder)
    for name, part in LINES.items():
        yield [*searched(build, folder / part, name), "", "", "", ""]


def joint(build: Path, folder: Path) -> Iterator[Row]:
    lay_clone(str(folder), str(build))
    session = TutorialSession(str(folder))
    follow((ROOT / "docs" / "tutorial-joint.md").read_text(encoding="utf-8"), session)
    with (Path(session.folder) / "voxlith_components.csv").open(encoding="ascii") as file:
        last = list(csv.DictReader(file))[-1]
    yield ["joint", "smooth", "", "", last["rms_misfit_1"], last["products"], "", "", "", "", ""]


def survey(build: Path, folder: Path) -> Iterator[Row]:
    made = Path(tempfile.gettempdir()) / "voxlith-bench" / "scaling-survey"
    for name in ("data.obs", "rows.mtx"):
        (folder / name).symlink_to(made / name)
    (folder / "voxlith.inp").write_text((made / "voxlith.inp").read_text(encoding="ascii"), encoding="ascii")
    yield [*searched(build, folder, "survey"), "", "", "", ""]


CASES = {"blocks": two_blocks, "lines": lines, "joint": joint, "survey": survey}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    parser.add_argument("--case", nargs="+", choices=list(CASES), default=list(CASES))
    parser.add_argument("--csv", type=Path, help="file for the table")
    asked = parser.parse_args()
    rows: list[Row] = []
    for case in asked.case:
        with tempfile.TemporaryDirectory() as folder:
            rows += CASES[case](asked.build.resolve(), Path(folder))
    write_table(asked.csv, NAMES, rows)


if __name__ == "__main__":
    main()

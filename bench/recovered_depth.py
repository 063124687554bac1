#!/usr/bin/python3
"""Depth, place and mass of recovered bodies, with and without depth weighting of the model norm.

    recovered_depth.py --build DIR [--case NAME ...] [--norm none smooth blocky compact] [--seed N ...] [--csv FILE]
    recovered_depth.py --build DIR --page --csv docs/measured/recovered-depth.csv     all that docs/depth-weighting.md quotes

Each case goes the way of a user: obs file, mesh, mtx, init, voxlith-run --target-rms 1. 16 x 16 stations 80 m apart see
bodies with noise of 1 % of the largest datum. The norms have depth weights, except none, a smooth norm without them. The
table shows the depth of the centroid of the cells above half the peak, how far it is from the true centre horizontally,
and the excess mass over the true one: the sum of value times volume over all core cells, on the half of the core that
is nearer to the body where there are two. Other columns: the mass of the cells above a fifth of the peak, the mass outside of the
core, and the peak over the true contrast.
"""

from __future__ import annotations

import argparse
import itertools
import subprocess
import sys
import tempfile
from dataclasses import astuple, dataclass, fields
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python"))
sys.dont_write_bytecode = True
import numpy as np  # noqa: E402
from results import write_table  # noqa: E402

from voxlith import Direction, InducingField, Mesh, Model, Survey  # noqa: E402
from voxlith.codes import data_type_code  # noqa: E402


CELL, CORE_DEPTH, LENGTH = 50.0, 700.0, 1200.0  # metres; the last one of the survey along x and y


@dataclass(frozen=True)
class Box:
    """A body: limits in metres, depths downwards, and its contrast."""

    x: tuple[float, float]
    y: tuple[float, float]
    depth: tuple[float, float]
    contrast: float

    @property
    def centre(self) -> np.ndarray:
        return np.array([sum(limits) / 2.0 for limits in (self.x, self.y, self.depth)])

    @property
    def mass(self) -> float:
        return self.contrast * float(np.prod([b - a for a, b in (self.x, self.y, self.depth)]))


@dataclass(frozen=True)
class Case:
    """A survey over bodies."""

    kind: str
    bodies: tuple[Box, ...]
    field: tuple[float, float, float] | None = None
    sign: str = "positive"


CASES = {
    "gz 100-240 m": Case("gz", (Box((500, 700), (500, 700), (100, 240), 0.5),)),
    "gz 280-480 m": Case("gz", (Box((400, 800), (400, 800), (280, 480), 0.5),)),
    "gzz 100-240 m": Case("gzz", (Box((500, 700), (500, 700), (100, 240), 0.5),)),
    "tmi dyke 80-320 m": Case("tmi", (Box((560, 680), (300, 900), (80, 320), 0.05),), (-45.0, 10.0, 50000.0)),
    "tmi block 250-450 m": Case("tmi", (Box((450, 750), (450, 750), (250, 450), 0.05),), (62.0, 5.0, 50000.0)),
    "gz pair 100-240 m": Case("gz", (Box((250, 450), (500, 700), (100, 240), 0.5),
                                     Box((750, 950), (500, 700), (100, 240), -0.5)), sign="either"),
}


NORMS = {"none": ("--weights", "none", "--model-norm", "smooth"),
         **{norm: ("--model-norm", norm) for norm in ("smooth", "blocky", "compact")}}
"""Options of init."""

RECOMMENDED = "recommended"
"""In place of a norm: init without options, not even the sign."""


@dataclass(frozen=True)
class Recovered:
    """What was found of a body: depths and distance in metres, masses over the true one."""

    misfit: float
    depth: float
    true_depth: float
    aside: float
    mass: float
    mass_above_a_fifth: float
    mass_outside_core: float
    peak: float


@dataclass(frozen=True)
class Run:
    """One inversion of a case; `norm` is one of NORMS, or RECOMMENDED; `sign` and `decay` are those of the case and the
    norm where they are empty."""

    case: str
    norm: str
    seed: int
    sign: str = ""
    decay: str = ""


def runs_of_page() -> list[Run]:
    """Those of the tables of docs/depth-weighting.md, other noises, and other weights."""
    return ([Run(case, norm, 7) for case in CASES for norm in NORMS]
            + [Run(case, norm, seed) for case in CASES for norm in ("blocky", "compact") for seed in (1, 2, 3)]
            + [Run(case, RECOMMENDED, seed) for case in CASES for seed in (7, 1, 2, 3)]
            + [Run("tmi dyke 80-320 m", "smooth", seed) for seed in (1, 2, 3)]
            + [Run(case, "smooth", 7, decay="1.0") for case in CASES]
            + [Run("gzz 100-240 m", "blocky", 7, decay="1.2"), Run("tmi dyke 80-320 m", "smooth", 7, decay="1.3"),
               Run("gz 100-240 m", "smooth", 7, sign="either")])


def recover(case: Case, norm: str, build: Path, folder: Path, seed: int = 7, sign: str = "",
            decay: str = "") -> list[Recovered]:
    """Run a case with one of NORMS, by the command that init names at its end; one record per body."""
    def run(*words: object) -> str:
        program = build / ("voxlith-run" if words[0] == "voxlith-run" else "tools/voxlith-tools")
        rest = words[1:] if words[0] == "voxlith-run" else words
        return subprocess.run([program, *map(str, rest)], cwd=folder, check=True, capture_output=True, text=True).stdout

    folder.mkdir(parents=True, exist_ok=True)
    x, y = (a.ravel() for a in np.meshgrid(np.arange(16) * 80.0, np.arange(16) * 80.0))
    inducing = None if case.field is None else InducingField(*case.field)
    direction = None if inducing is None else Direction(inducing.inclination, inducing.declination)
    code = data_type_code(case.kind)
    survey = Survey(x, y, np.full(256, 2.0), np.zeros((1, 256)), (code,), field=inducing, direction=direction)
    survey.write(folder / "places.obs")
    data = np.zeros(256)
    for body in case.bodies:
        corner = (body.x[0], body.y[0], -body.depth[0])
        Mesh.from_widths(corner, *([b - a] for a, b in (body.x, body.y, body.depth))).write(folder / "body.msh")
        run("predict", "--mesh", "body.msh", "--stations", "places.obs", "--type", case.kind, "--model", body.contrast,
            "--out", "body.obs")
        data += Survey.read(folder / "body.obs", survey.codes).data[0]
    deviation = 0.01 * float(np.abs(data).max())
    data = data + np.random.default_rng(seed).normal(0.0, deviation, 256)
    survey.with_data([data], [np.full(256, deviation)]).write(folder / "data.obs")
    run("mesh", "--stations", "data.obs", "--cell", CELL, "--depth", CORE_DEPTH, "--top", 0, "--out", "mesh.msh")
    run("mtx", "--mesh", "mesh.msh", "--stations", "data.obs", "--type", case.kind, "--out", "data.mtx")
    chosen = () if norm == RECOMMENDED else ("--sign", sign or case.sign, *NORMS[norm])
    said = run("init", "--data", "data.obs", "--mtx", "data.mtx", *chosen, "--force")
    if decay:
        written, = folder.glob("*weights*.txt")
        run("weights", "--mtx", "data.mtx", "--decay", decay, "--out", written.name)
    run(*said.split("Run it with: ")[1].split())
    mesh = Mesh.read(folder / "mesh.msh")
    model = Model.read(folder / ("voxlith.sus" if case.kind == "tmi" else "voxlith.den"), mesh).values
    misfit = float((folder / "voxlith.aux").read_text().splitlines()[-1].split()[1])
    return [_found(case, body, mesh, model, misfit) for body in case.bodies]


def _found(case: Case, body: Box, mesh: Mesh, model: np.ndarray, misfit: float) -> Recovered:
    centres, volumes, sign = mesh.centres(), mesh.volumes(), np.sign(body.contrast)
    offset = np.abs(centres[:, 0] - body.centre[0])
    others = [np.abs(centres[:, 0] - other.centre[0]) for other in case.bodies if other is not body]
    own = np.all([offset < distance for distance in others], axis=0) if others else np.ones(len(model), dtype=bool)
    values = np.where(own, sign * model, 0.0)
    high = values > 0.5 * values.max()
    share = (volumes * values)[high]
    middle = (centres[high] * share[:, None]).sum(axis=0) / share.sum()
    core = np.abs(centres[:, :2] - 0.5 * LENGTH).max(axis=1) < 0.5 * (LENGTH + CELL)
    core &= centres[:, 2] > -CORE_DEPTH
    fifth = values > 0.2 * values.max()
    mass, above, outside = (float((volumes * values)[cells].sum()) / abs(body.mass) for cells in (core, fifth, ~core))
    aside = float(np.abs(middle[:2] - body.centre[:2]).max())
    return Recovered(misfit, -float(middle[2]), float(body.centre[2]), aside, mass, above, outside,
                     float(values.max()) / abs(body.contrast))


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    parser.add_argument("--case", nargs="+", choices=list(CASES), default=list(CASES))
    parser.add_argument("--norm", nargs="+", choices=[*NORMS, RECOMMENDED], default=list(NORMS))
    parser.add_argument("--seed", nargs="+", type=int, default=[7], help="of the noise")
    parser.add_argument("--page", action="store_true", help="the runs of docs/depth-weighting.md")
    parser.add_argument("--csv", type=Path, help="file for the table")
    asked = parser.parse_args()
    chosen = runs_of_page() if asked.page else [Run(*words) for words in itertools.product(asked.case, asked.norm, asked.seed)]
    rows: list[list[object]] = []
    for done in chosen:
        with tempfile.TemporaryDirectory() as folder:
            found = recover(CASES[done.case], done.norm, asked.build.resolve(), Path(folder), done.seed, done.sign, done.decay)
        rows += [[*astuple(done), number, *(f"{value:.4g}" for value in astuple(body))] for number, body in enumerate(found, start=1)]
        print(f"{len(rows)} rows: {done}", file=sys.stderr, flush=True)
    names = [field.name for field in (*fields(Run), *fields(Recovered))]
    write_table(asked.csv, [*names[:len(fields(Run))], "body", *names[len(fields(Run)):]], rows)
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""Depth, place and mass of recovered bodies, with and without depth weighting of the model norm.

    recovered_depth.py --build DIR [--case NAME ...] [--norm none smooth blocky compact] [--seed N ...]

Each case goes the way of a user: obs file, mesh, mtx, init, voxlith-run --target-rms 1. 16 x 16 stations 80 m apart see
bodies with noise of 1 % of the largest datum. The norms have depth weights, except none, a smooth norm without them. The
table shows the depth of the centroid of the cells above half the peak, how far it is from the true centre horizontally,
and the excess mass over the true one: the sum of value times volume over all core cells, on the half of the core that
is nearer to the body where there are two. The last column counts the cells above a fifth of the peak alone.
docs/depth-weighting.md shows it.
"""

from __future__ import annotations

import argparse
import itertools
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python"))
sys.dont_write_bytecode = True
import numpy as np  # noqa: E402

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


NORMS = {"none": ("--weights", "none"), "smooth": (), "blocky": ("--model-norm", "blocky"), "compact": ("--model-norm", "compact")}
"""Options of init, and for the last two of voxlith-run."""


@dataclass(frozen=True)
class Recovered:
    """What was found of a body: depths and distance in metres, masses over the true one."""

    misfit: float
    depth: float
    true_depth: float
    aside: float
    mass: float
    mass_above_a_fifth: float


def recover(case: Case, norm: str, build: Path, folder: Path, seed: int = 7) -> list[Recovered]:
    """Run a case with one of NORMS; one record per body."""
    def run(*words: object) -> None:
        program = build / ("voxlith-run" if words[0] == "voxlith-run" else "tools/voxlith-tools")
        rest = words[1:] if words[0] == "voxlith-run" else words
        subprocess.run([program, *map(str, rest)], cwd=folder, check=True, capture_output=True)

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
    run("init", "--data", "data.obs", "--mtx", "data.mtx", "--sign", case.sign, *NORMS[norm], "--force")
    run("voxlith-run", "voxlith.inp", "--target-rms", 1, *(NORMS[norm] if norm in ("blocky", "compact") else ()))
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
    mass, above = (float((volumes * values)[cells].sum()) / abs(body.mass) for cells in (core, fifth))
    aside = float(np.abs(middle[:2] - body.centre[:2]).max())
    return Recovered(misfit, -float(middle[2]), float(body.centre[2]), aside, mass, above)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    parser.add_argument("--case", nargs="+", choices=list(CASES), default=list(CASES))
    parser.add_argument("--norm", nargs="+", choices=list(NORMS), default=list(NORMS))
    parser.add_argument("--seed", nargs="+", type=int, default=[7], help="of the noise")
    asked = parser.parse_args()
    print("| bodies | norm | RMS | depth, m | true depth, m | aside, m | mass | mass above a fifth of the peak |")
    print("|---|---|---|---|---|---|---|---|")
    for name, norm, seed in itertools.product(asked.case, asked.norm, asked.seed):
        with tempfile.TemporaryDirectory() as folder:
            for found in recover(CASES[name], norm, asked.build, Path(folder), seed):
                print(f"| {name} | {norm} | {found.misfit:.2f} | {found.depth:.0f} | {found.true_depth:.0f} | "
                      f"{found.aside:.0f} | {found.mass:.2f} | {found.mass_above_a_fifth:.2f} |", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/python3
"""Depth, place and mass of recovered bodies, with and without depth weighting of the model norm.

    recovered_depth.py --build DIR [--case NAME ...] [--weights none auto]

Each case goes the way of a user: obs file, mesh, mtx, init, voxlith-run --target-rms 1. 16 x 16 stations 80 m apart see bodies with
noise of 1 % of the largest datum. The table shows the depth of the centroid of the cells above half the peak, how far it is from the
true centre horizontally, and the mass of the cells above a fifth of the peak over the true mass. docs/depth-weighting.md shows it.
"""

from __future__ import annotations

import argparse
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python"))
sys.dont_write_bytecode = True
import numpy as np  # noqa: E402

from voxlith import InducingField, Mesh, Model, Survey, Direction  # noqa: E402


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


@dataclass(frozen=True)
class Recovered:
    """What was found of a body."""

    misfit: float
    depth: float
    true_depth: float
    aside: float
    mass: float
    total: float


def recover(case: Case, weights: str, build: Path, folder: Path) -> list[Recovered]:
    """Run a case; one record per body."""
    def run(*words: object) -> None:
        program = build / ("voxlith-run" if words[0] == "voxlith-run" else "tools/voxlith-tools")
        rest = words[1:] if words[0] == "voxlith-run" else words
        subprocess.run([program, *map(str, rest)], cwd=folder, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    folder.mkdir(parents=True, exist_ok=True)
    x, y = (a.ravel() for a in np.meshgrid(np.arange(16) * 80.0, np.arange(16) * 80.0))
    inducing = None if case.field is None else InducingField(*case.field)
    direction = None if inducing is None else Direction(inducing.inclination, inducing.declination)
    survey = Survey(x, y, np.full(256, 2.0), np.zeros((1, 256)), (1 if case.kind == "tmi" else 12 if case.kind == "gzz" else 0,),
                    field=inducing, direction=direction)
    survey.write(folder / "places.obs")
    data = np.zeros(256)
    for body in case.bodies:
        corner = (body.x[0], body.y[0], -body.depth[0])
        Mesh.from_widths(corner, *([b - a] for a, b in (body.x, body.y, body.depth))).write(folder / "body.msh")
        run("predict", "--mesh", "body.msh", "--stations", "places.obs", "--type", case.kind, "--model", body.contrast, "--out",
            "body.obs")
        data += Survey.read(folder / "body.obs", survey.codes).data[0]
    deviation = 0.01 * float(np.abs(data).max())
    data = data + np.random.default_rng(7).normal(0.0, deviation, 256)
    survey.with_data([data], [np.full(256, deviation)]).write(folder / "data.obs")
    run("mesh", "--stations", "data.obs", "--cell", 50, "--depth", 700, "--top", 0, "--out", "mesh.msh")
    run("mtx", "--mesh", "mesh.msh", "--stations", "data.obs", "--type", case.kind, "--out", "data.mtx")
    run("init", "--data", "data.obs", "--mtx", "data.mtx", "--sign", case.sign, "--weights", weights, "--force")
    run("voxlith-run", "voxlith.inp", "--target-rms", 1)
    mesh = Mesh.read(folder / "mesh.msh")
    model = Model.read(next(folder.glob("voxlith.sus" if case.kind == "tmi" else "voxlith.den")), mesh).values
    misfit = float((folder / "voxlith.aux").read_text().splitlines()[-1].split()[1])
    return [_found(case, body, mesh, model, misfit) for body in case.bodies]


def _found(case: Case, body: Box, mesh: Mesh, model: np.ndarray, misfit: float) -> Recovered:
    centres, volumes, sign = mesh.centres(), mesh.volumes(), np.sign(body.contrast)
    near = np.ones(len(model), dtype=bool) if len(case.bodies) == 1 else np.abs(centres[:, 0] - body.centre[0]) < 250.0
    values = np.where(near, sign * model, 0.0)
    core = values > 0.5 * values.max()
    share = (volumes * values)[core]
    middle = (centres[core] * share[:, None]).sum(axis=0) / share.sum()
    mass = float((volumes * values)[values > 0.2 * values.max()].sum()) / abs(body.mass)
    half = np.ones(len(model), dtype=bool) if len(case.bodies) == 1 else (centres[:, 0] < 600.0) == (body.centre[0] < 600.0)
    return Recovered(misfit, -float(middle[2]), float(body.centre[2]), float(np.abs(middle[:2] - body.centre[:2]).max()), mass,
                     float((volumes * model)[half].sum()) / body.mass)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    parser.add_argument("--case", nargs="+", choices=list(CASES), default=list(CASES))
    parser.add_argument("--weights", nargs="+", choices=["none", "auto"], default=["none", "auto"])
    asked = parser.parse_args()
    print("| bodies | weights | RMS | depth, m | true depth, m | aside, m | mass above a fifth of the peak | mass of all cells |")
    print("|---|---|---|---|---|---|---|---|")
    for name in asked.case:
        for weights in asked.weights:
            with tempfile.TemporaryDirectory() as folder:
                for found in recover(CASES[name], weights, asked.build, Path(folder)):
                    print(f"| {name} | {weights} | {found.misfit:.2f} | {found.depth:.0f} | {found.true_depth:.0f} | "
                          f"{found.aside:.0f} | {found.mass:.2f} | {found.total:.2f} |", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())

"""What the tests of the package share: the programs, and small runs of them, each made once."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path
from typing import NamedTuple

import hypothesis
import numpy as np
import pytest

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
sys.path[:0] = [str(ROOT / "python"), str(HERE)]
sys.dont_write_bytecode = True

from voxlith import Direction, InducingField, Mesh, Model, Survey  # noqa: E402
from voxlith.cli.tools import main  # noqa: E402

hypothesis.settings.register_profile("tests", deadline=None, max_examples=60, derandomize=True, database=None,
                                     suppress_health_check=list(hypothesis.HealthCheck))
hypothesis.settings.register_profile("quick", deadline=None, max_examples=15, derandomize=True, database=None,
                                     suppress_health_check=list(hypothesis.HealthCheck))
hypothesis.settings.register_profile("long", deadline=None, max_examples=2000, database=None,
                                     suppress_health_check=list(hypothesis.HealthCheck))
hypothesis.settings.load_profile(os.environ.get("VOXLITH_HYPOTHESIS", "tests"))

BUILD = Path(os.environ.get("VOXLITH_BUILD", ROOT / "build" / "release")).resolve()
os.environ["VOXLITH_FORWARD_PROGRAM"] = str(BUILD / "tools" / "voxlith-forward")
FIELD = InducingField(60.0, 5.0, 50000.0)
DIRECTION = Direction(55.0, 8.0)

CONTROL = """0                  ! a new run
2 0 0              ! fixed trade-off
0.01 0.02 0        ! trade-off, -, no positivity
data.obs           ! observed data
data.mtx           ! sensitivities
0.001              ! initial model
0.0                ! reference model
null               ! bounds
0.0001 1. 1. 1.    ! alphas
null               ! weighting
null               ! data offset
14 5               ! iterations
"""


class Bench:
    """A folder, and the programs at work in it."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        folder.mkdir(parents=True, exist_ok=True)

    def path(self, name: str) -> Path:
        return self.folder / name

    def write(self, name: str, text: str) -> Path:
        self.path(name).write_text(text)
        return self.path(name)

    def tools(self, *arguments: object) -> str:
        return self._run(BUILD / "tools" / "voxlith-tools", arguments)

    def voxlith(self, *arguments: object) -> str:
        return self._run(BUILD / "voxlith", arguments or ("voxlith.inp",))

    def _run(self, program: Path, arguments: tuple[object, ...]) -> str:
        done = subprocess.run([program, *map(str, arguments)], cwd=self.folder, capture_output=True, text=True,
                              timeout=120)
        assert done.returncode == 0, f"{program} {arguments}: {done.stdout}{done.stderr}"
        return done.stdout

    def control(self, **lines: str) -> None:
        """The usual control file; l12="24" changes line 12."""
        texts = CONTROL.splitlines()
        for name, text in lines.items():
            number = int(name[1:])
            texts += [""] * (number - len(texts))
            texts[number - 1] = text
        self.write("voxlith.inp", "\n".join(texts) + "\n")


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "slow: takes minutes; runs with VOXLITH_SLOW=1")


def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    if os.environ.get("VOXLITH_SLOW", "0") == "0":
        for item in items:
            if item.get_closest_marker("slow"):
                item.add_marker(pytest.mark.skip(reason="slow: runs with VOXLITH_SLOW=1"))


@pytest.fixture(scope="session", autouse=True)
def programs() -> None:
    """The tests hold the package against the programs, so these have to be there."""
    for program in (BUILD / "voxlith", BUILD / "tools" / "voxlith-tools", BUILD / "tools" / "voxlith-forward"):
        assert program.is_file(), f"{program} is missing: build it, or set VOXLITH_BUILD"


class Outcome(NamedTuple):
    """How a program ended, and what it wrote to standard output and standard error."""

    status: int
    out: str
    errors: str


Tools = Callable[..., Outcome]


@pytest.fixture
def tools(tmp_path: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]) -> Tools:
    """Runs voxlith-tools in a folder of its own, without a new process but for what computes."""
    monkeypatch.chdir(tmp_path)

    def run(*arguments: object) -> Outcome:
        words = [str(word) for word in arguments]
        if words[0] in ("mtx", "mtx-join", "predict"):
            done = subprocess.run([BUILD / "tools" / "voxlith-tools", *words], capture_output=True, text=True, timeout=120)
            return Outcome(done.returncode, done.stdout, done.stderr)
        capsys.readouterr()
        try:
            status = main(words)
        except SystemExit as end:  # by the parser: help, a version, a wrong command line
            status = int(end.code or 0)
        return Outcome(status, *capsys.readouterr())
    return run


def one_line(outcome: Outcome, status: int = 1) -> str:
    """The error of a command that failed, without the name of the program."""
    assert outcome.status == status, outcome
    assert outcome.errors.startswith("voxlith-tools: ") and outcome.errors.count("\n") == 1, outcome
    return outcome.errors.removeprefix("voxlith-tools: ").rstrip("\n")


@pytest.fixture
def bench(tmp_path: Path) -> Bench:
    return Bench(tmp_path / "bench")


def block_mesh() -> Mesh:
    return Mesh.from_widths((1000.0, 2000.0, 120.0), 8 * [100.0], 6 * [100.0], [50.0, 60.0, 80.0, 100.0])


def block_model(mesh: Mesh) -> Model:
    x, y, z = mesh.centres().T
    inside = (abs(x - 1400) < 150) & (abs(y - 2300) < 150) & (z < 60) & (z > -60)
    return Model(mesh, np.where(inside, 0.5, 0.0), "density contrast", "g/cm3")


def stations(code: int, count: int = 30) -> Survey:
    """Stations without data: a grid above the mesh."""
    x, y = (a.ravel() for a in np.meshgrid(np.linspace(1050, 1750, 6), np.linspace(2050, 2550, 5)))
    magnetic = code == 1 or code >= 20
    return Survey(x[:count], y[:count], np.full(count, 125.0), np.zeros((1, count)), (code,),
                  field=FIELD if magnetic else None, direction=DIRECTION if magnetic else None)


def lay_survey(bench: Bench, kind: str = "gz", code: int = 0, mtx: tuple[object, ...] = ()) -> None:
    """Mesh, data with noise and their sensitivity file."""
    mesh = block_mesh()
    mesh.write(bench.path("mesh.msh"))
    block_model(mesh).write(bench.path("true.mod"))
    stations(code).write(bench.path("stations.obs"))
    bench.tools("predict", "--mesh", "mesh.msh", "--stations", "stations.obs", "--type", kind, "--model", "true.mod",
                "--out", "data.obs", "--noise", "1,0.01", "--seed", 3)
    bench.tools("mtx", "--mesh", "mesh.msh", "--stations", "data.obs", "--type", kind, "--out", "data.mtx", *mtx)


@pytest.fixture(scope="session")
def gravity(tmp_path_factory: pytest.TempPathFactory) -> Bench:
    """A finished gravity run with stored models and a masked datum. Not to be changed: see `copied`."""
    bench = Bench(tmp_path_factory.mktemp("gravity"))
    lay_survey(bench)
    bench.control(l8="0.0,1.0")
    bench.voxlith("voxlith.inp", "ObsClip=(0,0.5)")
    return bench


@pytest.fixture(scope="session")
def magnetic(tmp_path_factory: pytest.TempPathFactory) -> Bench:
    """A finished magnetic run, with a shift and standard deviations of its own."""
    bench = Bench(tmp_path_factory.mktemp("magnetic"))
    lay_survey(bench, "tmi", 1)
    bench.control(l3="30 0.02")
    bench.voxlith("voxlith.inp", "Misfit=(5,2)", "Offset=2.5")
    return bench


@pytest.fixture(scope="session")
def joint(tmp_path_factory: pytest.TempPathFactory) -> Bench:
    """A finished joint run: two components, two labelled models, a datum masked in each component."""
    bench = Bench(tmp_path_factory.mktemp("joint"))
    lay_survey(bench, "tmi", 1)
    magnetic = Survey.read(bench.path("data.obs"), "tmi")
    bench.path("data.mtx").rename(bench.path("t.mtx"))
    lay_survey(bench)
    gravity = Survey.read(bench.path("data.obs"), "gz")
    data = np.vstack([gravity.data, magnetic.data])
    data[0, 3] = data[1, 5] = np.nan
    assert gravity.uncertainty is not None and magnetic.uncertainty is not None
    Survey(gravity.x, gravity.y, gravity.elevation, data, (0, 1),
           np.vstack([gravity.uncertainty, magnetic.uncertainty])).write(bench.path("data.obs"))
    bench.control(l1="0 2 2 2 dens susc", l5="data.mtx | t.mtx", l13="1 1 1 1.0", l14="1 2 2 0.5")
    bench.voxlith()
    return bench


@pytest.fixture
def copied(tmp_path: Path):
    """Copies the folder of a shared run, to be changed."""
    def copy(bench: Bench, name: str = "copy") -> Bench:
        shutil.copytree(bench.folder, tmp_path / name)
        return Bench(tmp_path / name)
    return copy

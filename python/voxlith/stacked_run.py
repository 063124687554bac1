"""A run of a stacked model, seen by property and by type of data."""

from __future__ import annotations

import os
from dataclasses import dataclass, replace
from pathlib import Path

import numpy as np
import numpy.typing as npt

from .errors import FileError, PathLike, UsageError
from .io.bounds_file import CellBounds
from .mesh import Mesh
from .model import Model
from .run import Fit, Run
from .side_file import read_side_file, side_path
from .stack import Stack, is_stack_file
from .survey import Survey
from .vectors import VectorModel

Reals = npt.NDArray[np.float64]


@dataclass(frozen=True)
class ComponentFit:
    """Data of one type beside their predictions.

    Attributes
    ----------
    name, unit : str
    observed : Survey
        Of one component.
    predicted : ndarray, shape (n,)
        In data units; NaN where the datum is masked.
    """

    name: str
    unit: str
    observed: Survey
    predicted: Reals

    @property
    def zscore(self) -> Reals:
        """Residuals, predicted minus observed, in units of the standard deviation."""
        return np.asarray((self.predicted - self.observed.data[0]) / self.observed.uncertainties()[0])

    @property
    def valid(self) -> int:
        """Data that are not masked."""
        return int(np.count_nonzero(~np.isnan(self.zscore)))

    @property
    def rms(self) -> float:
        """RMS misfit over the valid data; NaN where there are none."""
        scores = self.zscore[~np.isnan(self.zscore)]
        return float(np.sqrt(np.mean(scores * scores))) if len(scores) else np.nan


    def fit(self) -> Fit:
        """The same as pictures and exports take it."""
        return Fit(self.observed, self.predicted[None, :])


def stack_path(run: Run) -> Path:
    """The file that says what is where in a stacked run, whether it is there or not. Raises FileError."""
    return run.path(os.path.splitext(run.control.values.mtx_files[0])[0] + ".json")


def is_stacked(run: Run) -> bool:
    """Whether a run has one sensitivity file with the file of a stack beside it."""
    try:
        return len(run.control.values.mtx_files) == 1 and stack_path(run).is_file() and is_stack_file(stack_path(run))
    except FileError:
        return False


def require_run(run: Run, instead: str) -> None:
    """Refuse the folder that voxlith-tools unstack wrote in place of that of a run.

    Parameters
    ----------
    run : Run
    instead : str
        What to do, added to the message.

    Raises
    ------
    UsageError
    """
    if run.path("components.csv").is_file() and run.path("mesh.msh").is_file() and not run.path(run.control_name).is_file():
        raise UsageError(f"{run.folder}: expected the folder of a run, found that of voxlith-tools unstack; {instead}")


class RunByProperty(Run):
    """A stacked run as reports take it: the mesh of one property, and a model for each.

    Raises
    ------
    FileError
        When the stack cannot be read or is not that of the run.
    """

    def __init__(self, run: Run) -> None:
        super().__init__(run.folder, run.control_name, program=run.program, strict=run.strict)
        self.process = run.process
        self.stacked = StackedRun(run)

    @property
    def mesh(self) -> Mesh:
        """The mesh of one property."""
        return self.stacked.stack.mesh

    @property
    def names(self) -> list[str]:
        """Names of the properties."""
        return [one.name for one in self.stacked.stack.properties]

    def models(self, iteration: int | None = None) -> list[Model]:
        """A model for each property; see :meth:`StackedRun.models`."""
        return self.stacked.models(iteration)


class StackedRun:
    """The results of a stacked run.

    Parameters
    ----------
    run : Run
    stack : path or Stack, optional
        What :meth:`Stack.write` has written; by default ``NAME.json`` beside ``NAME.mtx``.

    Raises
    ------
    FileError
        When the stack cannot be read or is not that of the run.
    """

    def __init__(self, run: Run, stack: PathLike | Stack | None = None) -> None:
        self.run = run
        named = stack
        if named is None:
            named = stack_path(run)
            if not named.is_file():
                raise FileError(named, "expected what voxlith-tools stack writes beside its sensitivity file, found no such file")
        self.stack = named if isinstance(named, Stack) else Stack.read(named)
        header = run.headers[0]
        cells = len(self.stack.properties) * self.stack.mesh.n_cells
        rows = sum(one.count for one in self.stack.components)
        if header.n_cells != cells or header.n_data != rows:
            where = "stack" if isinstance(named, Stack) else named
            raise FileError(where, f"expected the stack of the run, {header.n_cells} cells and {header.n_data} rows, found {cells} and "
                            f"{rows}")

    def models(self, iteration: int | None = None) -> list[Model]:
        """A model for each property, in its unit; see :meth:`Run.model`."""
        whole = self.run.model(0, iteration)
        cells = self.stack.mesh.n_cells
        models = []
        for number, (values, known) in enumerate(zip(self.stack.split(whole.values), self.stack.properties)):
            active = None if whole.active is None else whole.active[number * cells: (number + 1) * cells]
            models.append(Model(self.stack.mesh, values, known.name, known.unit, active))
        return models

    def bounds(self) -> list[CellBounds]:
        """Bounds of the cells of each property, in its unit. Raises FileError."""
        known, cells = self.run.bounds(), self.stack.mesh.n_cells
        parts = [slice(number * cells, (number + 1) * cells) for number in range(len(self.stack.properties))]
        return [CellBounds(known.lower[part] * one.scale, known.upper[part] * one.scale, known.fixed[part])
                for part, one in zip(parts, self.stack.properties)]

    def vector(self, iteration: int | None = None) -> VectorModel | None:
        """The magnetisation; None where no property is one of its components."""
        chosen = [(model, known.direction) for model, known in zip(self.models(iteration), self.stack.properties)
                  if known.direction is not None]
        if not chosen or self.stack.field is None:
            return None
        return VectorModel.from_components(self.stack.mesh, [model.values for model, _ in chosen],
                                           [direction for _, direction in chosen if direction is not None],
                                           self.stack.field.strength, chosen[0][0].active)

    def survey(self) -> Survey:
        """All stations with their data, in the order of the rows."""
        return self.run.observed

    def surveys(self) -> dict[str, Survey]:
        """The data of each type by its name, as written in their file, with their own standard deviations."""
        whole = self.run.observed
        rows = np.arange(whole.n_stations)
        return {one.name: replace(part, codes=(one.code,), uncertainty=part.uncertainties() * np.sqrt(factor))
                for one, factor in zip(self.stack.components, self._factors())
                for part in [whole.select(rows[one.rows])]}

    def _factors(self) -> list[float]:
        """Factors of the misfits that the standard deviations of the run contain."""
        path = self.run.path(self.run.control.values.data_file)
        try:
            return read_side_file(path).component_factors(len(self.stack.components))
        except ValueError as error:
            raise FileError(side_path(path), str(error)) from error

    def fits(self) -> list[ComponentFit]:
        """Data of each type beside their predictions, with the standard deviations of the data.

        Those of the run may contain factors of the misfits, see :func:`~voxlith.compact.component_factors`.
        """
        fit = self.run.fit()
        rows = np.arange(fit.observed.n_stations)
        found = []
        for one, factor in zip(self.stack.components, self._factors()):
            observed = replace(fit.observed.select(rows[one.rows]), codes=(one.code,))
            spread = observed.uncertainties() * np.sqrt(factor)
            found.append(ComponentFit(one.name, one.unit, replace(observed, uncertainty=spread), fit.predicted[0, one.rows]))
        return found


def by_property(run: Run) -> Run:
    """A stacked run by its properties, see :class:`RunByProperty`; any other run as it is."""
    return RunByProperty(run) if is_stacked(run) and not isinstance(run, RunByProperty) else run


def bounded_models(run: Run, iteration: int | None = None,
                   models: list[Model] | None = None) -> tuple[list[Model], list[CellBounds | None]]:
    """Models of a run in which bodies are looked for, with the bounds of their cells, None where they are unknown.

    Parameters
    ----------
    run : Run
    iteration : int, optional
        A stored iteration.
    models : list of Model, optional
        What :meth:`Run.models` gave, so that the files are not read again. Not used for a stacked run, which has a model
        for each property; components of the magnetisation make one model, its amplitude, which has no bounds.

    Raises
    ------
    VoxlithError
    """
    if not is_stacked(run):
        found = run.models(iteration) if models is None else models
        return found, [run.bounds(), *[None] * (len(found) - 1)]
    stacked = run.stacked if isinstance(run, RunByProperty) else StackedRun(run)
    pairs: list[tuple[Model, CellBounds | None]] = [
        (model, bounds) for model, bounds, one in zip(stacked.models(iteration), stacked.bounds(), stacked.stack.properties)
        if one.direction is None]
    vector = stacked.vector(iteration)
    if vector is not None:
        pairs.append((vector.model("amplitude"), None))
    return [model for model, _ in pairs], [bounds for _, bounds in pairs]

"""A run: its folder, its inputs and its results, and the program at work on it."""

from __future__ import annotations

import math
import os
import re
from collections.abc import Iterator
from dataclasses import dataclass, replace
from pathlib import Path
from typing import Any, Literal

import numpy as np
import numpy.typing as npt

from .codes import DUMMY_LIMIT, data_type_name, has_magnetic_layout, model_quantity
from .errors import FileError, PathLike, RunError, UsageError
from .io.bounds_file import CellBounds, bounds_of_text
from .io.control_file import ControlFile, read_control_file
from .io.free_format import FreeFormat, Status
from .io.log_file import RunLog, read_log_file
from .io.model_file import read_model_file
from .io.mtx_file import read_mtx_header
from .io.mtx_header import MtxHeader
from .io.obs_file import read_obs_file
from .io.progress_file import IterationRow, read_progress_file
from .io.tables import (APPARENT_DENSITY_TABLE, BACKGROUND_FIT_TABLE, ERROR_TABLE, SURFACE_RESPONSE_TABLE,
                        ApparentDensityTable, BackgroundTable, ErrorTable, read_apparent_density_table,
                        read_background_table, read_error_table)
from .io.tradeoff_table import TRADEOFF_TABLE, TradeoffTable, read_tradeoff_table
from .io.weight_file import CellWeights, is_null_name, read_weight_files
from .mesh import Mesh
from .model import Model
from .process import Process, find_program, follow_table, keyword_arguments
from .sensitivity import mesh_of
from .side_file import SideInfo, first_coordinates
from .survey import Survey

Reals = npt.NDArray[np.float64]
State = Literal["new", "running", "finished", "unfinished"]

CONTINUE_CONTROL = "voxlith_continue.inp"
_STORED_MODEL = re.compile(r"voxlith_iter_(\d{3,5})")


@dataclass(frozen=True)
class Fit:
    """Data beside predictions.

    Attributes
    ----------
    observed : Survey
        Data as the run uses them: limits and shift applied, with the standard deviations of the run.
    predicted : ndarray, shape (components, n)
        In data units; NaN where the datum is masked.
    """

    observed: Survey
    predicted: Reals

    @property
    def residual(self) -> Reals:
        """Predicted minus observed, in data units."""
        return self.predicted - self.observed.data

    @property
    def zscore(self) -> Reals:
        """Residuals in units of the standard deviation."""
        return self.residual / self.observed.uncertainties()

    @property
    def noise_level(self) -> float:
        """Misfit in the table of iterations when the valid data are fitted to one standard deviation each.

        The run divides by the number of stations, counts all components, and takes masked data for matched.
        """
        return math.sqrt(float((~np.isnan(self.observed.data)).sum()) / self.observed.n_stations)


class Run:
    """The folder of a run.

    Files are read when they are asked for, so that a run can be looked at while it goes on.

    Parameters
    ----------
    folder : path
    control : str
        Name of the control file within the folder.
    program : path, optional
        The program ``voxlith``; see :func:`~voxlith.process.find_program`.
    strict : bool
        Whether doubtful inputs are an error; with False they are read as the program reads them.

    Raises
    ------
    RunError
        When there is no such folder.

    Examples
    --------
    ::

        run = Run("survey")
        run.start()
        for row in run.follow():
            print(row.iteration, row.misfit)
        model = run.model()
    """

    def __init__(self, folder: PathLike, control: str = "voxlith.inp", *, program: PathLike | None = None,
                 strict: bool = True) -> None:
        self.folder = Path(folder)
        self.control_name = control
        self.program = program
        self.strict = strict
        self.process: Process | None = None
        self._kept_headers: dict[str, tuple[tuple[int, int], MtxHeader]] = {}
        if not self.folder.is_dir():
            raise RunError(f"{self.folder}: there is no such folder")

    def __repr__(self) -> str:
        return f"Run({os.fspath(self.folder)!r}, {self.state})"

    def path(self, name: PathLike) -> Path:
        """A file of the run by its name in the control file or in the folder."""
        return self.folder / name

    # The program at work

    @property
    def state(self) -> State:
        """``"new"``: there are no results. ``"running"``: this object has started the program, which goes on.
        ``"finished"``: the log says that the last run came to its end. ``"unfinished"``: any other run, be it stopped,
        ended with a message, or started elsewhere and going on."""
        if self.process is not None and self.process.running:
            return "running"
        if not self.path("voxlith.log").is_file():
            return "new"
        try:
            return "finished" if self.log[-1].finished else "unfinished"
        except FileError:
            return "unfinished"

    @property
    def results_of_other(self) -> str:
        """A warning where the last run in the folder had another control file, to which its results belong; or an empty text."""
        try:
            name = self.log[-1].inputs.get("Input parameter file", "")
        except FileError:
            return ""
        if not name or os.path.basename(name) == os.path.basename(self.control_name):
            return ""
        return f"{self.path('voxlith.log')}: the results are those of {name}, which ran last in this folder, not of {self.control_name}"

    def start(self, *, replace_results: bool = False, **keywords: Any) -> None:
        """Start the program and return at once.

        Parameters
        ----------
        replace_results : bool
            Whether a new run may replace the results of an earlier one in the folder.
        **keywords
            See :func:`~voxlith.process.keyword_arguments`.

        Raises
        ------
        RunError
            When a run of this object goes on, when results would be lost, or when the program cannot be started.
        FileError
            For a control file that cannot be used.
        """
        continued = self.control.values.restart > 0
        if not continued and not replace_results and self.path("voxlith.aux").is_file():
            raise RunError(f"{self.folder}: there are results of an earlier run; continue it, or let replace_results "
                           "be True")
        self._start(self.control_name, continued, keywords)

    def continue_run(self, iterations: int, **keywords: Any) -> None:
        """Go on from the files of an earlier run, and return at once.

        A second control file, ``voxlith_continue.inp``, is written; the first stays as it is.

        Parameters
        ----------
        iterations : int
            Iterations to add.
        **keywords
            As of :meth:`start`; those of the first run do not hold by themselves.

        Raises
        ------
        RunError
            When there is nothing to continue, and as :meth:`start`.
        """
        if iterations < 1:
            raise UsageError(f"iterations {iterations}: expected 1 or more")
        control = self.control
        if control.values.model_count > 1:
            raise RunError(f"{self.folder}: a run with several model types cannot be continued")
        for name in ("voxlith.aux", "voxlith" + self._endings()[1]):
            if not self.path(name).is_file():
                raise RunError(f"{self.path(name)}: there is no such file; the run has nothing to be continued from")
        control.set(restart=1, max_iterations=iterations)
        control.write(self.path(CONTINUE_CONTROL))
        self._start(CONTINUE_CONTROL, True, keywords)

    def _start(self, control: str, continued: bool, keywords: dict[str, Any]) -> None:
        if self.process is not None and self.process.running:
            raise RunError(f"{self.folder}: a run goes on")
        arguments = [control, *keyword_arguments(**keywords)]
        self.process = Process(find_program(self.program), self.folder, arguments, continued=continued)

    def follow(self, interval: float = 0.2, patience: float = 60.0) -> Iterator[IterationRow]:
        """Rows of the table of iterations while the run goes on.

        Of a run that this object has started all rows come until it ends. Of any other run those come that are there,
        and then those that are added, until the log says that it has ended or no row has come for `patience` seconds.

        Parameters
        ----------
        interval, patience : float
            Seconds.
        """
        if self.process is not None:
            yield from self.process.follow(interval)
        else:
            yield from follow_table(self.path("voxlith.aux"), self.path("voxlith.log"), interval, patience)

    def wait(self, timeout: float | None = None) -> None:
        """Wait for the end of the run that was started; see :meth:`Process.wait <voxlith.process.Process.wait>`.

        Raises RunError when the run ended without its results, with what it says.
        """
        if self.process is None:
            raise RunError(f"{self.folder}: no run was started")
        self.process.wait(timeout)

    def stop(self) -> None:
        """Stop the run that was started. Its files stay whole: it can be continued."""
        if self.process is not None:
            self.process.stop()

    # Inputs

    @property
    def control(self) -> ControlFile:
        """The control file. Raises FileError."""
        return read_control_file(self.path(self.control_name), strict=self.strict)

    @property
    def headers(self) -> list[MtxHeader]:
        """Headers of the sensitivity files. Raises FileError."""
        return [self._header(name) for name in self.control.values.mtx_files]

    def _header(self, name: str) -> MtxHeader:
        """Header of a sensitivity file; kept as long as the file does not change."""
        path = self.path(name)
        try:
            state = os.stat(path)
        except OSError as error:
            raise FileError(path, f"cannot be read: {error.strerror}") from error
        key = (state.st_mtime_ns, state.st_size)
        kept = self._kept_headers.get(name)
        if kept is None or kept[0] != key:
            kept = key, read_mtx_header(path, name=name, strict=self.strict)
            self._kept_headers[name] = kept
        return kept[1]

    @property
    def mesh(self) -> Mesh:
        """The mesh of the last sensitivity file, which is the one in force. Raises FileError."""
        name = self.control.values.mtx_files[-1]
        try:
            return mesh_of(self._header(name))
        except UsageError as error:
            raise FileError(self.path(name), str(error)) from error

    def codes(self) -> tuple[int, ...]:
        """Data type of each component: that of the sensitivity file of its first term."""
        values = self.control.values
        types = [header.data_type for header in self.headers]
        first = [next((term.mtx for term in values.terms_of(component).terms if 0 < term.mtx <= len(types)), 1)
                 for component in range(values.component_count)]
        return tuple(types[mtx - 1] for mtx in first)

    @property
    def observed(self) -> Survey:
        """The observed data as written in their file. Raises FileError."""
        return self._survey(self.control.values.data_file, observed=True)

    def _survey(self, name: str, *, observed: bool) -> Survey:
        values = self.control.values
        first = self.headers[0]
        codes = [first.data_type, *[0] * (values.component_count - 1)]  # the first one decides about the layout
        obs = read_obs_file(self.path(name), codes=codes, records=first.n_data, strict=self.strict and observed,
                            lined=observed and (values.integration_interval > 0.0 or None))
        return replace(Survey.from_obs_file(obs), codes=self.codes())

    def bounds(self) -> CellBounds:
        """Bounds of the cells of the first model type, with the positivity flag applied. Raises FileError."""
        values = self.control.values
        flag = values.positivity
        if flag is None:
            flag = 1 if self.codes()[0] in (1, 20, 21, 22) else 0
        return bounds_of_text(values.bounds, self.headers[0].n_cells, flag, folder=self.folder, strict=self.strict)

    def weights(self) -> CellWeights:
        """Weights of the model norm as written. Raises FileError."""
        head = self.headers[0]
        names: list[PathLike] = [name if is_null_name(name) else self.path(name)
                                 for name in self.control.values.weight_files]
        return read_weight_files(names, head.nx, head.ny, head.nz, strict=self.strict)

    def initial_model(self) -> Model:
        """The initial model of the first type as written, before bounds. Raises FileError."""
        return self._input_model(self.control.values.initial_model, "initial model")

    def reference_model(self) -> Model:
        """The reference model of the first type as written, before bounds. Raises FileError."""
        return self._input_model(self.control.values.reference_model, "reference model")

    def _input_model(self, text: str, name: str) -> Model:
        mesh, unit = self.mesh, self._quantity(0)[1]
        if text in ("null", "NULL"):
            return Model(mesh, np.zeros(mesh.n_cells), name, unit)
        with FreeFormat.of_text(text) as reader:
            number = reader.real(0.0)
            if reader.status is Status.GOOD and reader.given:
                return Model(mesh, np.full(mesh.n_cells, number), name, unit)
        return Model.read(self.path(text), mesh, name, unit, strict=self.strict)

    # Results

    @property
    def log(self) -> list[RunLog]:
        """The log, one entry per run of the program that extended it. Raises FileError."""
        return read_log_file(self.path("voxlith.log"))

    @property
    def table(self) -> list[IterationRow]:
        """The table of iterations. Raises FileError."""
        return read_progress_file(self.path("voxlith.aux"), strict=self.strict)

    @property
    def tradeoffs(self) -> TradeoffTable | None:
        """Trade-off multipliers that the last run tried; None when it tried none. Raises FileError.

        A table that is older than the run is of an earlier one.
        """
        path = self.path(TRADEOFF_TABLE)
        try:
            written = path.stat().st_mtime
        except OSError:
            return None
        log = self.log[-1] if self.path("voxlith.log").is_file() and self.log else None
        if log is not None and log.started is not None and written < log.started.timestamp():
            return None
        return read_tradeoff_table(path)

    @property
    def predicted(self) -> Survey:
        """The predicted data of the last iteration. Raises FileError."""
        return self._survey("voxlith.pre", observed=False)

    @property
    def coordinates(self) -> SideInfo:
        """Reference system and shift that the data file or a sensitivity file has. Raises FileError."""
        values = self.control.values
        return first_coordinates(map(self.path, [values.data_file, *values.mtx_files]))

    def fit(self) -> Fit:
        """Data as the run uses them beside its predictions. Raises FileError."""
        predicted, observed = self.predicted, self.observed
        used = np.zeros(predicted.data.shape) if predicted.uncertainty is None else predicted.uncertainty
        used = np.where(used > 0.0, used, np.nan)
        data = observed.data.copy()
        log = self.log[-1]
        for component, (low, high) in log.data_limits.items():
            if high > low and component < len(data):
                outside = (data[component] < low) | (data[component] > high)
                data[component, outside] = np.nan
        data += log.data_shift
        modelled = predicted.data.copy()
        # The first component of a record decides whether a run writes data or data over standard deviations.
        normalised = np.isnan(used[0])
        modelled[:, normalised] *= used[:, normalised]
        masked = np.isnan(used) | np.isnan(data)
        data[masked] = modelled[masked] = np.nan
        return Fit(replace(observed, data=data, uncertainty=np.where(masked, np.nan, used)), modelled)

    def model(self, model_type: int | str = 0, iteration: int | None = None) -> Model:
        """A model of the run.

        Parameters
        ----------
        model_type : int or str
            Number from 0, or label.
        iteration : int, optional
            A stored iteration. Without it: the final model of a finished run, else that of the last iteration.

        Returns
        -------
        Model
            Cells that the bounds fix at 0, as inactive cells are, are not active.

        Raises
        ------
        RunError
            When there is no such model.
        FileError
            When its file cannot be used.
        """
        number = self._type_number(model_type)
        path = self._model_path(number, iteration)
        mesh = self.mesh
        name, unit = self._quantity(number)
        label = self._label(number)
        model = Model.read(path, mesh, f"{name} {label}" if label else name, unit)
        bounds = self.bounds()
        zeroed = bounds.fixed & (bounds.lower == 0.0) & (bounds.upper == 0.0)
        if zeroed.any():
            model.active = ~(zeroed & (model.values == 0.0))
        return model

    def models(self, iteration: int | None = None) -> list[Model]:
        """The models of all types; see :meth:`model`."""
        return [self.model(number, iteration) for number in range(self.control.values.model_count)]

    def stored_iterations(self) -> list[int]:
        """Numbers of the iterations whose models are stored under names of their own."""
        found = (_STORED_MODEL.match(entry.name) for entry in self.folder.iterdir())
        return sorted({int(match[1]) for match in found if match})

    def gradient(self) -> Model:
        """The gradient that the optimiser got last, of the first model type. Raises FileError."""
        mesh = self.mesh
        values = read_model_file(self.path("voxlith_grad.mod"), mesh.n_cells)
        values[~(values > DUMMY_LIMIT)] = np.nan
        return Model(mesh, values, "gradient")

    def error_table(self) -> ErrorTable:
        """``voxlith_error.dat``. Raises FileError."""
        return read_error_table(self.path(ERROR_TABLE))

    def apparent_density(self) -> ApparentDensityTable:
        """``voxlith_appden.csv`` of styles 1 and 2. Raises FileError."""
        return read_apparent_density_table(self.path(APPARENT_DENSITY_TABLE))

    def surface_response(self) -> BackgroundTable:
        """``obs_surafce_calc.dat`` of a run with background removal. Raises FileError."""
        return read_background_table(self.path(SURFACE_RESPONSE_TABLE))

    def background_fit(self) -> BackgroundTable:
        """``obs_fit_pred.dat`` of a run with background removal. Raises FileError."""
        return read_background_table(self.path(BACKGROUND_FIT_TABLE))

    def _endings(self) -> tuple[str, str]:
        """Endings of final and running models."""
        return (".sus", ".kap") if has_magnetic_layout(self.headers[0].data_type) else (".den", ".rho")

    def _type_number(self, model_type: int | str) -> int:
        values = self.control.values
        if isinstance(model_type, str):
            if model_type not in values.labels:
                raise RunError(f"model {model_type}: expected one of the labels {', '.join(values.labels) or '(none)'}")
            return values.labels.index(model_type)
        if not 0 <= model_type < values.model_count:
            raise RunError(f"model {model_type}: the run has {values.model_count} model types, counted from 0")
        return model_type

    def _label(self, number: int) -> str:
        values = self.control.values
        if values.model_count == 1:
            return ""
        return values.labels[number] or f"{number + 1:02d}"

    def _quantity(self, number: int) -> tuple[str, str]:
        """Quantity and unit. A coefficient that all products of the model share changes its unit."""
        values, types = self.control.values, [header.data_type for header in self.headers]
        terms = [term for component in range(values.component_count) for term in values.terms_of(component).terms
                 if term.takes_part and term.model == number + 1]
        name, unit = model_quantity(types[terms[-1].mtx - 1] if terms else types[0])
        factors = {term.coefficient for term in terms}
        scale = factors.pop() if len(factors) == 1 else 1.0
        return name, unit if scale == 1.0 else f"{scale:g} {unit}"

    def _model_path(self, number: int, iteration: int | None) -> Path:
        final, running = self._endings()
        label = self._label(number)
        if iteration is not None:
            names = [f"voxlith_iter_{iteration:0{digits}d}{label}{final}" for digits in (3, 4, 5)]
        else:
            stem = f"voxlith_{label}" if label else "voxlith"
            names = [stem + final, stem + running] if self.state == "finished" else [stem + running, stem + final]
        for name in names:
            if self.path(name).is_file():
                return self.path(name)
        what = "holds no model yet" if iteration is None else f"holds no model of iteration {iteration}"
        raise RunError(f"{self.folder}: {what} ({names[0]})")

    def data_names(self) -> list[str]:
        """Name of each data component; amplitude data say so."""
        values = self.control.values
        return [f"amplitude of {data_type_name(code)}" if values.terms_of(number).amplitude else data_type_name(code)
                for number, code in enumerate(self.codes())]

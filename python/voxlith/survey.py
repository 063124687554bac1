"""Survey data: stations with one datum per component, uncertainties, lines and the magnetic field."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from dataclasses import dataclass, replace
from typing import Any

import numpy as np
import numpy.typing as npt

from .codes import MOST_FILES, data_type_code, data_type_name, data_unit, default_uncertainty, has_magnetic_layout
from .errors import PathLike, UsageError
from .io.obs_file import ObsFile, ObsHeader, read_obs_file
from .io.obs_output import ObsDigits, write_obs_file
from .packages import require

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]
Codes = int | str | Sequence[int | str]


@dataclass(frozen=True)
class Direction:
    """A direction: inclination downwards from the horizontal, declination clockwise from north, degrees."""

    inclination: float
    declination: float


EARTH_FIELD = (15000.0, 80000.0)
"""Strengths of the Earth's field, nT."""


@dataclass(frozen=True)
class InducingField:
    """The inducing field: its direction in degrees, and its strength in nT."""

    inclination: float
    declination: float
    strength: float

    @property
    def is_of_the_earth(self) -> bool:
        """Whether the Earth has fields of this strength."""
        return EARTH_FIELD[0] <= self.strength <= EARTH_FIELD[1]

    @property
    def direction(self) -> Direction:
        """Direction of the field."""
        return Direction(self.inclination, self.declination)


@dataclass(frozen=True)
class SurveyLine:
    """Consecutive stations of a line: `first` to `last`, both counted from 0."""

    name: str
    first: int
    last: int

    @property
    def slice(self) -> slice:
        """The stations as a slice."""
        return slice(self.first, self.last + 1)


@dataclass
class Survey:
    """Data of one survey.

    Attributes
    ----------
    x, y, elevation : ndarray, shape (n,)
        Easting, northing and elevation of the stations, metres.
    data : ndarray, shape (components, n)
        In data units (mGal, Eotvos, nT); NaN where masked.
    codes : tuple of int
        Data type of each component, see :mod:`voxlith.codes`.
    uncertainty : ndarray, shape (components, n), or None
        Standard deviations in data units; NaN where none is given; the default of the first data type is
        used there (see :meth:`uncertainties`).
    field : InducingField or None
        Of magnetic data.
    direction : Direction or None
        Of the measured component; None where it is that of the field.
    idir : int
        Direction flag of magnetic files: below 1 each station has a direction of its own.
    angles : ndarray, shape (n, 2), or None
        Inclination and declination of the measured component per station (downhole form).
    line : ndarray of str, shape (n,), or None
        Line name per station, at most 16 bytes.
    time : ndarray, shape (n,), or None
        Time, or distance along the line, per station; rises along a line.

    Examples
    --------
    >>> survey = Survey(np.array([0.0, 50.0]), np.zeros(2), np.full(2, 5.0), np.array([[0.1, np.nan]]), (0,))
    >>> survey
    Survey(2 stations, Gz (mGal, 1 masked))
    >>> survey.uncertainties().round(4)
    array([[0.01,  nan]])
    """

    x: Reals
    y: Reals
    elevation: Reals
    data: Reals
    codes: tuple[int, ...]
    uncertainty: Reals | None = None
    field: InducingField | None = None
    direction: Direction | None = None
    idir: int = 1
    angles: Reals | None = None
    line: npt.NDArray[np.str_] | None = None
    time: Reals | None = None

    def __post_init__(self) -> None:
        self.x, self.y, self.elevation = (np.asarray(a, dtype=np.float64) for a in (self.x, self.y, self.elevation))
        self.data = np.atleast_2d(np.asarray(self.data, dtype=np.float64))
        self.codes = codes_of(self.codes)
        self.line = None if self.line is None else np.asarray(self.line, dtype=np.str_)
        self.time = None if self.time is None else np.asarray(self.time, dtype=np.float64)
        self.angles = None if self.angles is None else np.asarray(self.angles, dtype=np.float64)
        if self.uncertainty is not None:
            self.uncertainty = np.atleast_2d(np.asarray(self.uncertainty, dtype=np.float64))
        self._check()

    def _check(self) -> None:
        count, components = self.n_stations, len(self.codes)
        if not 1 <= components <= MOST_FILES:
            raise UsageError(f"codes: expected 1 to {MOST_FILES}, found {components}")
        shapes: dict[str, tuple[npt.NDArray[Any] | None, tuple[int, ...]]] = {
            "x": (self.x, (count,)), "y": (self.y, (count,)), "elevation": (self.elevation, (count,)),
            "data": (self.data, (components, count)), "uncertainty": (self.uncertainty, (components, count)),
            "angles": (self.angles, (count, 2)), "line": (self.line, (count,)), "time": (self.time, (count,))}
        for name, (array, shape) in shapes.items():
            if array is not None and array.shape != shape:
                raise UsageError(f"{name}: expected the shape {shape}, found {array.shape}")

    def __repr__(self) -> str:
        parts = [f"{name} ({unit}, {masked} masked)" for name, unit, masked in
                 zip(self.names, self.units, np.isnan(self.data).sum(axis=1).tolist())]
        return f"Survey({self.n_stations} stations, {', '.join(parts)})"

    @property
    def n_stations(self) -> int:
        """Number of stations."""
        return len(self.x)

    @property
    def n_components(self) -> int:
        """Number of data components."""
        return len(self.codes)

    @property
    def names(self) -> list[str]:
        """Name of each component; a name that comes again gets a number."""
        return numbered_names([data_type_name(code) for code in self.codes])

    @property
    def units(self) -> list[str]:
        """Unit of each component."""
        return [data_unit(code) for code in self.codes]

    @property
    def valid(self) -> Mask:
        """Which data are not masked, shape (components, n)."""
        return ~np.isnan(self.data)

    def uncertainties(self) -> Reals:
        """Standard deviations in force, shape (components, n): the default where none above 0 is given, NaN where the
        datum is masked."""
        found = np.full(self.data.shape, default_uncertainty(self.codes[0]))
        if self.uncertainty is not None:
            given = self.uncertainty > 0.0
            found[given] = self.uncertainty[given]
        found[np.isnan(self.data)] = np.nan
        return found

    def lines(self) -> list[SurveyLine]:
        """Lines in the order of the stations. A name that comes back later opens a line of its own.

        Raises
        ------
        UsageError
            When the survey has no line names.
        """
        if self.line is None:
            raise UsageError("the survey has no line names")
        if not self.n_stations:
            return []
        starts = [0, *(np.flatnonzero(self.line[1:] != self.line[:-1]) + 1).tolist(), self.n_stations]
        return [SurveyLine(str(self.line[first]), first, end - 1) for first, end in zip(starts, starts[1:])]

    def select(self, stations: npt.ArrayLike) -> Survey:
        """The survey of some stations: a mask, or their numbers from 0."""
        chosen = np.asarray(stations)
        return replace(self, x=self.x[chosen], y=self.y[chosen], elevation=self.elevation[chosen],
                       data=self.data[:, chosen],
                       uncertainty=None if self.uncertainty is None else self.uncertainty[:, chosen],
                       angles=None if self.angles is None else self.angles[chosen],
                       line=None if self.line is None else self.line[chosen],
                       time=None if self.time is None else self.time[chosen])

    def component(self, number: int) -> Survey:
        """The survey of one component, counted from 0."""
        return replace(self, data=self.data[number: number + 1], codes=(self.codes[number],),
                       uncertainty=None if self.uncertainty is None else self.uncertainty[number: number + 1])

    def with_data(self, data: npt.ArrayLike, uncertainty: npt.ArrayLike | None = None) -> Survey:
        """The same stations with other data, shape (components, n), and other uncertainties where these are given."""
        return replace(self, data=np.atleast_2d(np.asarray(data, dtype=np.float64)),
                       uncertainty=self.uncertainty if uncertainty is None
                       else np.atleast_2d(np.asarray(uncertainty, dtype=np.float64)))

    @classmethod
    def read(cls, path: PathLike, codes: Codes | None = None, *, components: int = 0, lined: bool | None = None,
             strict: bool = True) -> Survey:
        """Read a file of observed data.

        Parameters
        ----------
        path : path
        codes : int, str or a sequence of them, optional
            Data types, such as ``"gz"`` or ``["gz", "gzz"]``. By default those of the count line where it has
            them; else a file with the lines of the field counts as TMI and any other as Gz.
        components : int
            Number of components where neither codes nor the count line give it; by default the columns of the first
            record decide.
        lined : bool, optional
            Whether line name and time follow the data; by default the records decide.
        strict : bool
            See :func:`~voxlith.io.obs_file.read_obs_file`.

        Raises
        ------
        FileError
            The file, the line, what was expected and what was found.
        """
        known = codes_of(codes) if codes is not None else ()
        return cls.from_obs_file(read_obs_file(path, codes=known, components=components, lined=lined, strict=strict))

    def write(self, path: PathLike, *, digits: ObsDigits = "auto") -> None:
        """Write a file of observed data; see :func:`~voxlith.io.obs_output.write_obs_file`. Raises FileError."""
        write_obs_file(path, self.to_obs_file(), digits=digits)

    @classmethod
    def from_obs_file(cls, obs: ObsFile) -> Survey:
        """From the contents of a file."""
        head = obs.header
        codes = obs.codes or ((1 if head else 0),) * len(obs.data)
        uncertainty = None if obs.uncertainty is None else np.where(obs.uncertainty > 0.0, obs.uncertainty, np.nan)
        survey = cls(obs.x, obs.y, obs.elevation, obs.data, codes, uncertainty, angles=obs.angles,
                     line=None if obs.line is None else np.array(obs.line, dtype=np.str_), time=obs.time)
        if head is not None:
            survey.field = InducingField(head.inclination, head.declination, head.strength)
            survey.direction = Direction(head.measured_inclination, head.measured_declination)
            survey.idir = head.idir
        return survey

    def to_obs_file(self) -> ObsFile:
        """As the contents of a file.

        Raises
        ------
        UsageError
            For magnetic data without a field.
        """
        header = None
        if has_magnetic_layout(self.codes[0]):
            if self.field is None:
                raise UsageError("magnetic data: expected the inducing field")
            direction = self.direction or self.field.direction
            idir = 0 if self.angles is not None and self.idir > 0 else self.idir
            header = ObsHeader(self.field.inclination, self.field.declination, self.field.strength,
                               direction.inclination, direction.declination, idir)
        uncertainty = None if self.uncertainty is None else np.nan_to_num(self.uncertainty, nan=0.0)
        return ObsFile(self.x, self.y, self.elevation, self.data, uncertainty, header, self.codes, self.angles,
                       None if self.line is None else self.line.tolist(), self.time, self.n_stations)

    @classmethod
    def from_pandas(cls, frame: Any, data: str | Sequence[str] | None = None,
                    uncertainty: str | Sequence[str] | None = None, codes: Codes | None = None, *, x: str = "x",
                    y: str = "y", elevation: str = "elevation", line: str | None = None, time: str | None = None,
                    angles: Sequence[str] | None = None, field: InducingField | None = None,
                    direction: Direction | None = None) -> Survey:
        """From a pandas table with one row per station.

        Parameters
        ----------
        frame : pandas.DataFrame
            Missing values are masked data.
        data, uncertainty : str or sequence of str, optional
            Columns of the components and of their standard deviations. By default those of a table of
            :meth:`to_pandas`, or else the columns that have names of data types, such as gz, and those with
            ``_uncertainty`` after these names, where each component has one.
        codes : int, str or a sequence of them, optional
            Data types of the components; by default those of their names.
        x, y, elevation, line, time : str
            Columns; metres.
        angles : two str
            Columns of inclination and declination of the measured component per station.
        field, direction
            Of magnetic data.

        Raises
        ------
        UsageError
            When a column or a data type is missing.
        """
        known = frame.attrs.get("voxlith", {})
        known_data = known.get("data", [])
        typed = [str(name) for name in frame.columns if _is_data_type(str(name))]
        columns = _listed(data) if data is not None else known_data or typed
        if not columns:
            raise UsageError("table: expected the names of the data columns, or columns with names of data types such as gz; "
                             f"found {', '.join(map(str, frame.columns)) or 'no column'}")
        if codes is None and data is None:
            codes = known.get("codes")
        if codes is None and all(map(_is_data_type, columns)):
            codes = columns
        if codes is None:
            raise UsageError(f"table: expected the data type of each component, codes=..., beside {', '.join(columns)}")
        if data is None and uncertainty is None:
            beside = [f"{name}_uncertainty" for name in columns]
            uncertainty = known.get("uncertainty") if known_data else beside if set(beside) <= set(frame.columns) else None
        deviations = _listed(uncertainty) if uncertainty else None
        line, time = line or known.get("line"), time or known.get("time")
        angles = angles or known.get("angles")

        def numbers(names: Sequence[str]) -> Reals:
            missing = [name for name in names if name not in frame.columns]
            if missing:
                raise UsageError(f"table: expected the columns {', '.join(map(str, missing))}, found "
                                 f"{', '.join(map(str, frame.columns))}")
            try:
                return np.array([frame[name].to_numpy(dtype=np.float64, na_value=np.nan) for name in names])
            except (TypeError, ValueError) as error:
                raise UsageError(f"table: expected numbers in the columns {', '.join(names)}: {error}") from error

        stations = numbers([x, y, elevation])
        names = None if line is None else np.array([str(name) for name in frame[line]], dtype=np.str_)
        return cls(stations[0], stations[1], stations[2], numbers(columns), codes_of(codes),
                   None if deviations is None else numbers(deviations), field or known.get("field"),
                   direction or known.get("direction"), known.get("idir", 1),
                   None if angles is None else numbers(list(angles)).T, names,
                   None if time is None else numbers([time])[0])

    def to_pandas(self) -> Any:
        """A pandas table with one row per station: x, y, elevation, the components under their names, their standard
        deviations under the name with ``_uncertainty``, and aincl, adecl, line and time where there are some.

        Field and data types are kept in ``frame.attrs``. Raises MissingPackageError without pandas.
        """
        pandas = require("pandas", "tables of a survey")
        columns: dict[str, Any] = {"x": self.x, "y": self.y, "elevation": self.elevation}
        if self.angles is not None:
            columns |= {"aincl": self.angles[:, 0], "adecl": self.angles[:, 1]}
        deviations = [f"{name}_uncertainty" for name in self.names]
        for number, name in enumerate(self.names):
            columns[name] = self.data[number]
            if self.uncertainty is not None:
                columns[deviations[number]] = self.uncertainty[number]
        if self.line is not None:
            columns["line"] = self.line.astype(object)
        if self.time is not None:
            columns["time"] = self.time
        frame = pandas.DataFrame(columns)
        frame.attrs["voxlith"] = {
            "codes": self.codes, "data": self.names, "field": self.field, "direction": self.direction,
            "idir": self.idir, "uncertainty": None if self.uncertainty is None else deviations,
            "line": None if self.line is None else "line", "time": None if self.time is None else "time",
            "angles": None if self.angles is None else ["aincl", "adecl"]}
        return frame


def codes_of(codes: Codes) -> tuple[int, ...]:
    """Data types by code or name.

    >>> codes_of("gz"), codes_of(["gz", 12]), codes_of(1)
    ((0,), (0, 12), (1,))
    """
    listed: Iterable[int | str] = [codes] if isinstance(codes, (int, str)) else codes
    return tuple(data_type_code(code) if isinstance(code, str) else int(code) for code in listed)


def _is_data_type(name: str) -> bool:
    try:
        data_type_code(name)
    except UsageError:
        return False
    return True


def _listed(names: str | Sequence[str]) -> list[str]:
    return [names] if isinstance(names, str) else list(names)


def numbered_names(names: list[str]) -> list[str]:
    """Names of which one that comes again has a number."""
    return [name if name not in names[:index] else f"{name}_{names[:index].count(name) + 1}"
            for index, name in enumerate(names)]

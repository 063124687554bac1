"""Files that a control file relies on and that ``init`` writes: weights, bounds and a starting model with inactive cells."""

from __future__ import annotations

import os
from collections.abc import Sequence
from dataclasses import dataclass, field

import numpy as np
import numpy.typing as npt

from ..control_choices import Choices
from ..errors import FileError, UsageError, VoxlithError
from ..io.bounds_file import read_bounds_file, write_bounds_file
from ..io.model_file import write_model_file
from ..io.weight_file import write_weight_file
from ..mesh import Mesh
from ..sensitivity import common_inactive_cells
from ..weights import DECAY_OF_NORM, read_cell_sensitivity, sensitivity_weights

Reals = npt.NDArray[np.float64]
Mask = npt.NDArray[np.bool_]

_FREE = 99.0
_FREE_FROM = 98.9  # magnitudes from which on a side of a bounds file is free


@dataclass
class RunFiles:
    """Names for the lines of a control file, and what was said of them.

    Attributes
    ----------
    initial, bounds, weighting : str
        Texts of lines 6, 8 and 10.
    notes : list of str
    replace : bool
        Whether files may be replaced.
    """

    initial: str
    bounds: str
    weighting: str = "null"
    notes: list[str] = field(default_factory=list)
    replace: bool = False

    def require_new(self, name: str) -> None:
        """Raise VoxlithError for a file that is there already, unless it may be replaced."""
        if os.path.lexists(name) and not self.replace:
            raise VoxlithError(f"{name}: there is such a file already; --force replaces it")


def prepare_files(choices: Choices, mtx: Sequence[str], out: str, *, model_norm: str | None, bounds_asked: bool,
                  replace: bool = False) -> RunFiles:
    """Write what the control file needs beside it.

    With inactive cells the bounds are those of the file that ``mtx --topography`` wrote beside the sensitivity file. A new
    file is written where there is none, where its sides are free, or where other bounds are asked for.
    The starting model is a file with 0 in these cells unless it is 0 everywhere.

    Parameters
    ----------
    choices : Choices
    mtx : sequence of str
        Sensitivity files.
    out : str
        Control file; other names begin like it.
    model_norm : str or None
        The norm of the run, for which weights are written; None for no weights.
    bounds_asked : bool
        Whether the bounds of `choices` are the user's.
    replace : bool
        Whether files of these names may be replaced.

    Raises
    ------
    FileError
        When the bounds file beside the sensitivity file leaves an inactive cell free, and for sensitivity files of
        different terrains.
    VoxlithError
        For a file that is there already and may not be replaced.
    """
    stem = os.path.splitext(out)[0]
    files = RunFiles(f"{choices.initial:.6g}", choices.bounds, replace=replace)
    mesh, inactive = common_inactive_cells(mtx)
    if inactive.any() and not inactive.all():
        _inactive_files(files, choices, mtx[0], stem, inactive, mesh, bounds_asked)
    if model_norm is not None:
        _write_weights(files, mtx, mesh, f"{stem}_weights.txt", DECAY_OF_NORM[model_norm])
    return files


def _write_weights(files: RunFiles, mtx: Sequence[str], mesh: Mesh, name: str, decay: float) -> None:
    header, _, sensitivity = read_cell_sensitivity(mtx)
    try:
        made = sensitivity_weights(mesh, sensitivity, header, decay)
    except UsageError as error:  # a single layer, or cells so deep that the survey looks small
        files.notes.append(f"no depth weighting: {error}")
        return
    files.require_new(name)
    write_weight_file(name, made.cells)
    files.weighting = name
    files.notes.append(f"{name}: depth weighting from the sensitivities")


def bounds_beside(mtx: str) -> str:
    """Name of the bounds file that ``mtx --topography`` writes beside a sensitivity file."""
    return f"{os.path.splitext(mtx)[0]}_bounds.txt"


def allow_both_signs(mtx: Sequence[str]) -> bool:
    """Whether the bounds file beside the first sensitivity file allows values above and below 0; a free side says nothing."""
    beside = bounds_beside(mtx[0])
    mesh, inactive = common_inactive_cells(mtx)
    if not inactive.any() or not os.path.exists(beside):
        return False
    pairs = read_bounds_file(beside, mesh.n_cells)
    return bool(((np.abs(pairs) < _FREE_FROM).all(axis=1) & (pairs[:, 0] < 0.0) & (pairs[:, 1] > 0.0)).any())


def _inactive_files(files: RunFiles, choices: Choices, mtx: str, stem: str, inactive: Mask, mesh: Mesh,
                    bounds_asked: bool) -> None:
    count = int(np.count_nonzero(inactive))
    beside = bounds_beside(mtx)
    pairs = np.tile(_pair(choices.bounds), (mesh.n_cells, 1))
    taken = ""
    if os.path.exists(beside) and not bounds_asked:
        pairs = read_bounds_file(beside, mesh.n_cells)
        free = inactive & (pairs[:, 0] < pairs[:, 1])
        if free.any():
            raise FileError(beside, f"expected {count} inactive cells to be fixed, found {np.count_nonzero(free)} of them free; "
                            "compute sensitivities and bounds from one terrain")
        taken = beside
    chosen = _closed(pairs, _pair(choices.bounds), choices.sign)
    chosen[inactive] = 0.0
    if taken and np.array_equal(chosen, pairs):
        files.bounds = beside
        files.notes.append(f"{beside}: bounds of {mtx}, with {count} inactive cells above the terrain fixed")
    else:
        files.bounds = f"{stem}_bounds.txt"
        files.require_new(files.bounds)
        write_bounds_file(files.bounds, chosen)
        source = f"those of {taken}, free sides by {choices.bounds}" if taken else choices.bounds
        if taken and not np.array_equal(chosen, _closed(pairs, _pair(choices.bounds), 0)):
            source += f", cut at 0 for {'positive' if choices.sign > 0 else 'negative'} values"
        files.notes.append(f"{files.bounds}: bounds {source}; {count} inactive cells above the terrain are fixed")
    if choices.initial != 0.0:
        files.initial = f"{stem}_start.mod"
        files.require_new(files.initial)
        write_model_file(files.initial, np.where(inactive, 0.0, choices.initial))
        files.notes.append(f"{files.initial}: initial model, 0 in the inactive cells")


def _closed(pairs: Reals, usual: Reals, sign: int) -> Reals:
    """Bounds with the usual ones in place of free sides, and with the sign of the model.

    A run does not apply its positivity flag to a side of a bounds file that is free.
    """
    closed = np.where(np.abs(pairs) >= _FREE_FROM, usual, pairs)
    fixed = closed[:, 0] >= closed[:, 1]
    limits = (0.0 if sign > 0 else -np.inf, 0.0 if sign < 0 else np.inf)
    signed = np.clip(closed, *limits)
    return np.where(fixed[:, None], closed, signed)


def _pair(text: str) -> Reals:
    """Bounds of a text as a pair."""
    if text == "null":
        return np.array([-_FREE, _FREE])
    words = text.split(",")
    if len(words) != 2:
        raise UsageError(f"--bounds {text}: expected lower,upper or null beside inactive cells")
    return np.array([float(words[0]), float(words[1])])

"""The trade-off at which data are fitted to their standard deviations, by an inversion without bounds."""

from __future__ import annotations

import subprocess
from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from .errors import PathLike, RunError, UsageError
from .forward_program import find_forward_program, inherited_name, numbers_file

Reals = npt.NDArray[np.float64]


@dataclass(frozen=True)
class TradeoffResult:
    """What the search has found.

    Attributes
    ----------
    tradeoff : float
        0 where the data need no model.
    misfit : float
        RMS misfit over all components together; 0 where no model was needed.
    reached : bool
        Whether the misfit is the one that was asked for.
    smallest, largest : float
        Values of the model, in the unit of the sensitivities.
    """

    tradeoff: float
    misfit: float
    reached: bool
    smallest: float
    largest: float

    @property
    def usable(self) -> bool:
        """Whether there is a trade-off."""
        return 0.0 < self.tradeoff < np.inf

    @property
    def magnitude(self) -> float:
        """Largest magnitude of the model."""
        return max(-self.smallest, self.largest)


def search_tradeoff(mtx_files: Sequence[PathLike], data: Reals, uncertainty: Reals, *, alpha_s: float,
                    target: float) -> TradeoffResult:
    """Search the trade-off of the sensitivity files of one model.

    Parameters
    ----------
    mtx_files : sequence of path
    data, uncertainty : ndarray, shape (files, data)
        In data units; NaN where masked.
    alpha_s : float
        Weight of smallness; those of the differences are 1.
    target : float
        RMS misfit to reach, over all components together.

    Raises
    ------
    UsageError
        When the shapes do not fit.
    RunError
        When the program that computes is missing or fails; what it says is on standard error.
    """
    if data.shape != uncertainty.shape or len(data) != len(mtx_files):
        raise UsageError(f"data: expected data and uncertainties of {len(mtx_files)} components, found {data.shape} and "
                         f"{uncertainty.shape}")
    masked = np.isnan(data)
    numbers = np.concatenate([np.where(masked, 0.0, data), np.where(masked, 0.0, uncertainty)])
    program = find_forward_program()
    with numbers_file(numbers) as file:
        words = [program, "tradeoff", "--data", inherited_name(file), "--alpha-s", repr(alpha_s), "--target",
                 repr(target), "--mtx", *map(str, mtx_files)]
        done = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, close_fds=False,
                              check=False)
    values = done.stdout.split()
    if done.returncode != 0 or len(values) != 5:
        raise RunError(f"{program}: the search for the trade-off has failed (exit status {done.returncode})")
    return TradeoffResult(float(values[0]), float(values[1]), values[2] == "1", float(values[3]), float(values[4]))

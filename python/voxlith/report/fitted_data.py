"""Data and predictions of a report, one type of data beside the other: the components of a survey, or the rows of a stacked run."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import numpy.typing as npt

from ..run import Fit, Run
from ..stacked_run import RunByProperty

Reals = npt.NDArray[np.float64]


@dataclass(frozen=True)
class FittedData:
    """What is shown of each type of data.

    Attributes
    ----------
    names, units : list of str
    observed, predicted, uncertainty : ndarray, shape (types, stations)
        In data units; NaN where a station has no datum of a type, or a masked one.
    masked : list of int
        Masked data of each type.
    """

    names: list[str]
    units: list[str]
    observed: Reals
    predicted: Reals
    uncertainty: Reals
    masked: list[int]

    @property
    def zscore(self) -> Reals:
        """Residuals in units of the standard deviation."""
        return np.asarray((self.predicted - self.observed) / self.uncertainty)


def fitted_data(run: Run, fit: Fit) -> FittedData:
    """Data beside the predictions `fit` of a run. Of a stacked run each type of data has its own rows, and the standard deviations
    of the data, see :meth:`~voxlith.stacked_run.StackedRun.fits`."""
    if isinstance(run, RunByProperty):
        return _of_rows(run, fit)
    observed = fit.observed
    missing = np.isnan(observed.data).sum(axis=1)
    return FittedData(run.data_names(), list(observed.units), observed.data, fit.predicted, observed.uncertainties(),
                      [int(count) for count in missing])


def _of_rows(run: RunByProperty, fit: Fit) -> FittedData:
    fits = run.stacked.fits()
    observed, predicted, uncertainty = np.full((3, len(fits), fit.observed.n_stations), np.nan)
    for number, (one, place) in enumerate(zip(fits, run.stacked.stack.components)):
        observed[number, place.rows] = one.observed.data[0]
        predicted[number, place.rows] = one.predicted
        uncertainty[number, place.rows] = one.observed.uncertainties()[0]
    return FittedData([one.name for one in fits], [one.unit for one in fits], observed, predicted, uncertainty,
                      [len(one.predicted) - one.valid for one in fits])

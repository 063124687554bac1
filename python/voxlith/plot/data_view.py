"""Data and predictions of a survey or a run, as the pictures need them."""

from __future__ import annotations

import os
from dataclasses import dataclass

import numpy as np

from ..codes import unit_text
from ..errors import UsageError, VoxlithError
from ..run import Fit, Run
from ..survey import Survey
from .style import Reals, drawable


@dataclass(frozen=True)
class DataView:
    """What is drawn of data.

    Attributes
    ----------
    survey : Survey
        Observed data, with the standard deviations of the run where there is one.
    predicted : ndarray, shape (components, n), or None
    names : list of str
        Of the components.
    iteration : int or None
        Of the predictions.
    origin : str
        Where the data come from, for messages.
    """

    survey: Survey
    predicted: Reals | None
    names: list[str]
    iteration: int | None
    origin: str

    def unit(self, component: int) -> str:
        """Unit of a component."""
        return unit_text(self.survey.units[component])

    def observed(self, component: int) -> Reals:
        """Observed data, shape (n,); NaN where masked."""
        return drawable(self.survey.data[component])

    def modelled(self, component: int) -> Reals:
        """Predicted data, shape (n,). Only where there are predictions."""
        assert self.predicted is not None
        return drawable(self.predicted[component])

    def deviation(self, component: int) -> Reals:
        """Standard deviations, shape (n,)."""
        return drawable(self.survey.uncertainties()[component])

    def residual(self, component: int) -> Reals:
        """Predicted minus observed, shape (n,)."""
        return self.modelled(component) - self.observed(component)

    def zscore(self, component: int) -> Reals:
        """Residuals in units of the standard deviation, shape (n,)."""
        with np.errstate(over="ignore", divide="ignore", invalid="ignore"):
            return self.residual(component) / self.deviation(component)

    def check_component(self, component: int) -> None:
        """Raises UsageError for a component that is not there."""
        if not 0 <= component < self.survey.n_components:
            raise UsageError(f"component {component}: expected 0 to {self.survey.n_components - 1}")


def view_of(source: Run | Fit | Survey) -> DataView:
    """The data of a run, of a fit, or of a survey by itself. Raises FileError."""
    if isinstance(source, Survey):
        return DataView(source, None, source.names, None, "survey")
    if isinstance(source, Fit):
        return DataView(source.observed, source.predicted, source.observed.names, None, "fit")
    if not isinstance(source, Run):
        raise UsageError(f"source: expected a Run, a Fit or a Survey, found {type(source).__name__}")
    names, origin = source.data_names(), os.fspath(source.folder)
    if source.path("voxlith.pre").is_file() and source.path("voxlith.log").is_file():
        fit = source.fit()
        return DataView(fit.observed, fit.predicted, names, last_iteration(source), origin)
    return DataView(source.observed, None, names, None, origin)


def last_iteration(run: Run) -> int | None:
    """The last iteration in the table; None where there is none that can be read."""
    try:
        rows = run.table
    except VoxlithError:
        return None
    return rows[-1].iteration if rows else None

"""Writes the picture of field, regional field and residual."""

from __future__ import annotations

import os

from .errors import PathLike, UsageError
from .packages import require
from .regional import Regional
from .survey import Survey


def draw_regional(path: PathLike, survey: Survey, regional: Regional, component: int = 0) -> None:
    """Draw field, regional and residual of a component.

    Raises
    ------
    UsageError
        For another ending than .png and .pdf.
    FileError
        When the picture cannot be written.
    MissingPackageError
        Without Matplotlib.
    """
    ending = os.path.splitext(os.fspath(path))[1].lower()
    if ending not in (".png", ".pdf"):
        raise UsageError(f"picture {os.fspath(path)}: expected a name ending in .png or .pdf")
    require("matplotlib", "pictures")
    from . import plot
    from .plot.regional import regional_figure
    plot.save(regional_figure(survey, regional, component), path)

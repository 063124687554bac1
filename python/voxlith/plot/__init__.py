"""Pictures of runs, surveys and models as Matplotlib figures.

====================== ==============================================================================
``convergence``        misfit, model norm and total against the iteration
``data``               observed and predicted data with residuals, as maps or as a profile
``line_profiles``      data of named lines, a panel each
``sections``           a depth slice and vertical sections through a model, with its histogram
``vector_sections``    magnetisation: amplitude with arrows on a depth slice and vertical sections
``stereonet``          directions of magnetisation on an equal-area net, weighted by amplitude
``zscores``            residuals over their standard deviations under the standard normal distribution
``save``               a figure as PNG, PDF or SVG
====================== ==============================================================================

A figure can be changed before it is saved. Lengths are metres throughout; only the tick labels turn to kilometres
where axes are long, and leave out a constant part of long coordinates, which the label of the axis names.

Needs Matplotlib (Debian: ``python3-matplotlib``).
"""

from __future__ import annotations

from ..packages import require

require("matplotlib", "pictures")

from .convergence import convergence  # noqa: E402
from .data import data, line_profiles  # noqa: E402
from .files import save  # noqa: E402
from .sections import sections  # noqa: E402
from .vectors import stereonet, vector_sections  # noqa: E402
from .zscores import zscores  # noqa: E402

__all__ = ["convergence", "data", "line_profiles", "save", "sections", "stereonet", "vector_sections", "zscores"]

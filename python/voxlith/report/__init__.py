"""Interactive reports of a run: one HTML file that works without a network, or a page that follows the run.

``contents`` collects what a run has, ``coarsening`` makes large models smaller, ``encoding`` packs arrays, ``html_page`` puts the
HTML together from the files in ``page/``, and ``server`` shows a run that goes on.
"""

from __future__ import annotations

from ..errors import PathLike
from ..io.output import write_bytes
from ..run import Run
from .contents import ReportOptions, report_contents
from .html_page import page_bytes

__all__ = ["ReportOptions", "report_contents", "write_report"]


def write_report(run: Run, path: PathLike, options: ReportOptions | None = None) -> None:
    """Write the report of a run as one HTML file.

    Parameters
    ----------
    run : Run
        Finished, stopped or going on; what it has not written yet is left out and named in the report.
    path : path
        File to write.
    options : ReportOptions, optional

    Raises
    ------
    FileError
        When the control file or another input of the run cannot be used, or the report cannot be written.
    """
    write_bytes(path, page_bytes(report_contents(run, options)))

"""Python packages that only some routines need: imported where they are used, and named when they are missing."""

from __future__ import annotations

import importlib
from typing import Any

from .errors import MissingPackageError

_DEBIAN_PACKAGES = {
    "h5py": "python3-h5py",
    "matplotlib": "python3-matplotlib",
    "pandas": "python3-pandas",
    "pyproj": "python3-pyproj",
    "rasterio": "python3-rasterio",
    "scipy": "python3-scipy",
    "vtkmodules": "python3-vtk9",
    "xarray": "python3-xarray",
}


def require(module: str, purpose: str) -> Any:
    """Import a module that the package itself does not depend on.

    Parameters
    ----------
    module : str
        Full name of the module, e.g. ``"scipy.sparse"``.
    purpose : str
        What it is needed for, as a noun: ``"sparse matrices"``.

    Returns
    -------
    module
        The imported module.

    Raises
    ------
    MissingPackageError
        One line that names the package to install.

    Examples
    --------
    >>> require("json", "plain files").dumps(1)
    '1'
    >>> require("nowhere", "nothing")
    Traceback (most recent call last):
    voxlith.errors.MissingPackageError: nothing: the Python module nowhere is missing; install nowhere
    """
    try:
        return importlib.import_module(module)
    except ImportError as error:
        top = module.partition(".")[0]
        name = _DEBIAN_PACKAGES.get(top)
        remedy = f"install the Debian package {name}" if name else f"install {top}"
        raise MissingPackageError(f"{purpose}: the Python module {top} is missing; {remedy}") from error

"""Python packages that only some routines need: imported where they are used, and named when they are missing."""

from __future__ import annotations

import importlib
from typing import Any

from .errors import MissingPackageError

_DEBIAN_PACKAGES = {
    "h5py": "python3-h5py",
    "matplotlib": "python3-matplotlib",
    "osgeo": "python3-gdal",
    "pandas": "python3-pandas",
    "pyproj": "python3-pyproj",
    "rasterio": "python3-rasterio",
    "scipy": "python3-scipy",
    "vtkmodules": "python3-vtk9",
    "xarray": "python3-xarray",
}


def is_lack_of_memory(error: BaseException | None) -> bool:
    """Whether a module could not be loaded because memory is short, which Python reports as an error of the import.

    >>> is_lack_of_memory(ImportError("liblapack.so.3: failed to map segment from shared object"))
    True
    """
    while error is not None:
        if isinstance(error, MemoryError) or "failed to map segment" in str(error):
            return True
        error = error.__cause__ or error.__context__
    return False


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
    MemoryError
        When it is there and cannot be loaded.

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
        if is_lack_of_memory(error):
            raise MemoryError from error
        top = module.partition(".")[0]
        name = _DEBIAN_PACKAGES.get(top)
        remedy = f"install the Debian package {name}" if name else f"install {top}"
        raise MissingPackageError(f"{purpose}: the Python module {top} is missing; {remedy}") from error

"""VoxLith for Python: survey data, meshes, models, sensitivity files and runs.

====================== ==============================================================================
``Mesh``               tensor mesh
``Survey``             stations, data, uncertainties, lines, field
``Model``              a value per cell of a mesh
``Sensitivity``        a sensitivity file as a matrix
``write_sensitivity``  a sensitivity file of any matrix
``Run``                the folder of a run: start it, follow it, read its results
``Terrain``            the surface of the ground between points of known elevation
``voxlith.plot``       pictures as Matplotlib figures
``voxlith.io``         the file formats, one module each
====================== ==============================================================================

x runs to the east, y to the north, elevations upwards, in metres; densities are in g/cm3, susceptibilities in SI.
Arrays of cells have the order of the files: z fastest from the top down, then x, then y. Python numbers count from 0,
files and messages from 1.
"""

from __future__ import annotations

import importlib
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    from .depth_weight import DepthWeight
    from .errors import FileError, MissingPackageError, RunError, UsageError, VoxlithError
    from .mesh import Mesh
    from .model import Model, models_to_vtk, write_vtr
    from .run import Fit, Run
    from .sensitivity import Sensitivity
    from .sensitivity_output import write_sensitivity
    from .survey import Direction, InducingField, Survey, SurveyLine
    from .terrain import Terrain

__version__ = "2.01"

__all__ = ["DepthWeight", "Direction", "FileError", "Fit", "InducingField", "Mesh", "MissingPackageError", "Model",
           "Run", "RunError", "Sensitivity", "Survey", "SurveyLine", "Terrain", "UsageError", "VoxlithError",
           "models_to_vtk", "write_sensitivity", "write_vtr", "__version__"]

# Modules are imported when something of theirs is asked for: the programs start faster.
_MODULES = {
    "depth_weight": ("DepthWeight",),
    "errors": ("FileError", "MissingPackageError", "RunError", "UsageError", "VoxlithError"),
    "mesh": ("Mesh",),
    "model": ("Model", "models_to_vtk", "write_vtr"),
    "run": ("Fit", "Run"),
    "sensitivity": ("Sensitivity",),
    "sensitivity_output": ("write_sensitivity",),
    "survey": ("Direction", "InducingField", "Survey", "SurveyLine"),
    "terrain": ("Terrain",),
}
_MODULE_OF = {name: module for module, names in _MODULES.items() for name in names}


def __getattr__(name: str) -> Any:
    if name in ("io", "plot"):
        return importlib.import_module(f".{name}", __name__)
    module = _MODULE_OF.get(name)
    if module is None:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    found = getattr(importlib.import_module(f".{module}", __name__), name)
    globals()[name] = found
    return found


def __dir__() -> list[str]:
    return sorted({*globals(), *_MODULE_OF})

"""VoxLith for Python: survey data, meshes, models, sensitivity files and runs.

====================== ==============================================================================
``Mesh``               tensor mesh
``Survey``             stations, data, uncertainties, lines, field
``Model``              a value per cell of a mesh
``Sensitivity``        a sensitivity file as a matrix
``write_sensitivity``  a sensitivity file of any matrix
``Run``                the folder of a run: start it, follow it, read its results
``voxlith.io``         the file formats, one module each
====================== ==============================================================================

x runs to the east, y to the north, elevations upwards, in metres; densities are in g/cm3, susceptibilities in SI.
Arrays of cells have the order of the files: z fastest from the top down, then x, then y. Python numbers count from 0,
files and messages from 1.
"""

from .errors import FileError, MissingPackageError, RunError, UsageError, VoxlithError
from .mesh import Mesh
from .model import Model, models_to_vtk, write_vtr
from .run import Fit, Run
from .sensitivity import Sensitivity
from .sensitivity_output import write_sensitivity
from .depth_weight import DepthWeight
from .survey import Direction, InducingField, Survey, SurveyLine

__version__ = "2.01"

__all__ = ["DepthWeight", "Direction", "FileError", "Fit", "InducingField", "Mesh", "MissingPackageError", "Model",
           "Run", "RunError", "Sensitivity", "Survey", "SurveyLine", "UsageError", "VoxlithError", "models_to_vtk",
           "write_sensitivity", "write_vtr", "__version__"]

"""Models and data of a run in the formats of other programs.

============ ==========================================================================
``geoh5``    block model, stations or survey lines with their data (HDF5)
``vtk``      grid with inactive cells blanked, and stations, for ParaView
``geotiff``  depth slices, a band each, for GIS
``cells``    CSV with one row per active cell
``regular``  regular grids of GemPy, tensor grids of Tomofast-x: out and in
============ ==========================================================================

Coordinates can be moved by the shift that was taken off the survey; see :class:`Placement`.
"""

from .cells import write_cells_csv
from .geoh5 import write_run_geoh5
from .geotiff import write_depth_slices
from .placement import Placement
from .regular import from_gempy, from_tomofast, to_gempy, to_tomofast
from .vtk import write_stations_vtp, write_vti

__all__ = ["Placement", "from_gempy", "from_tomofast", "to_gempy", "to_tomofast", "write_cells_csv", "write_depth_slices",
           "write_run_geoh5", "write_stations_vtp", "write_vti"]

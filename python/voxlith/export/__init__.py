"""Models and data of a run in the formats of other programs.

============= =========================================================================
``geoh5``     block model, stations or survey lines with their data (HDF5)
``vtk``       grid with inactive cells blanked, and stations, for ParaView
``geotiff``   depth slices, a band each, for GIS
``section``   vertical sections as GeoTIFF and CSV
``data_grid`` observed, predicted and residual data on a grid, as GeoTIFF and NetCDF
``cells``     CSV with one row per active cell
``stations``  stations with observed, predicted and residual data, as GeoPackage and CSV
``regular``   regular grids of GemPy, tensor grids of Tomofast-x: out and in
============= =========================================================================

Coordinates can be moved by the shift that was taken off the survey; see :class:`Placement`.
"""

from .cells import write_cells_csv
from .data_grid import DataGrid, grid_data, write_data_geotiff, write_data_netcdf
from .geoh5 import write_run_geoh5
from .geotiff import write_depth_slices
from .placement import Placement
from .regular import from_gempy, from_tomofast, to_gempy, to_tomofast
from .section import section_at, section_of_stations, write_section_csv, write_section_geotiff
from .stations import station_columns, write_stations_csv, write_stations_geopackage
from .vtk import write_stations_vtp, write_vti

__all__ = ["DataGrid", "Placement", "from_gempy", "from_tomofast", "grid_data", "section_at", "section_of_stations",
           "station_columns", "to_gempy", "to_tomofast", "write_cells_csv", "write_data_geotiff", "write_data_netcdf", "write_depth_slices",
           "write_run_geoh5", "write_section_csv", "write_section_geotiff",
           "write_stations_csv", "write_stations_geopackage", "write_stations_vtp", "write_vti"]

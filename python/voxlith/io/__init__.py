"""The files of VoxLith: one module per format, each with its reader and its writer.

====================== ====================================================================
module                 files
====================== ====================================================================
``mesh_file``          UBC tensor mesh
``model_file``         models and all other files of one number per cell
``bounds_file``        pairs of bounds
``weight_file``        weights of the model norm
``topography_file``    points of the surface
``obs_file``           observed, predicted, masked, residual and reference data
``obs_output``         the same, written
``control_file``       control files, read, edited and written with their comments
``log_file``           ``voxlith.log``
``progress_file``      ``voxlith.aux``
``line_search_file``   ``voxlith.lsv``
``tables``             ``voxlith_error.dat``, ``voxlith_appden.csv``, background tables
``mtx_file``           sensitivity files in three layouts: header, rows, tail
``mtx_output``         the same, written
====================== ====================================================================

Readers take whatever ``voxlith`` accepts. What is doubtful (a short file, a value left out, a count that does not
match) is a :class:`~voxlith.errors.FileError`; with ``strict=False`` it is read as ``voxlith`` reads it. Files are
written beside their name and renamed when they are complete.
"""

"""Surveys and models as Python sees them, and what other libraries make of them."""

import builtins

import numpy as np
import pytest
from conftest import DIRECTION, FIELD, Bench, block_mesh, block_model, stations

from voxlith import (Direction, FileError, InducingField, Mesh, MissingPackageError, Model, Survey, SurveyLine,
                     UsageError, models_to_vtk, write_vtr)
from voxlith.packages import require


def lined():
    return Survey([0, 10, 20, 0, 10], [0, 0, 0, 5, 5], np.full(5, 2.0), [[1, 2, np.nan, 4, 5]], (0,),
                  [[0.1, np.nan, 0.1, 0, 0.2]], line=["a", "a", "b", "b", "a"], time=[0, 10, 20, 0, 10])


def test_lines_stand_together():
    assert lined().lines() == [SurveyLine("a", 0, 1), SurveyLine("b", 2, 3), SurveyLine("a", 4, 4)]
    assert lined().x[lined().lines()[1].slice].tolist() == [20, 0]
    assert Survey([], [], [], np.empty((1, 0)), (0,), line=[]).lines() == []
    with pytest.raises(UsageError, match="no line names"):
        stations(0).lines()


def test_uncertainties_in_force():
    np.testing.assert_allclose(lined().uncertainties(), [[0.1, 0.01, np.nan, 0.01, 0.2]])
    assert Survey([0], [0], [0], [[1.0]], (1,), field=FIELD).uncertainties().tolist() == [[1.0]]
    assert lined().valid.tolist() == [[True, True, False, True, True]]


def test_parts_of_a_survey():
    some = lined().select([True, False, False, True, False])
    assert some.x.tolist() == [0, 0] and some.line.tolist() == ["a", "b"] and some.data.tolist() == [[1, 4]]
    two = Survey([0], [0], [0], [[1.0], [2.0]], (0, 0), [[3.0], [4.0]])
    assert two.names == ["Gz", "Gz_2"] and two.units == ["mGal", "mGal"]
    assert two.component(1).data.tolist() == [[2.0]] and two.component(1).uncertainty.tolist() == [[4.0]]
    assert two.with_data([[5.0], [6.0]]).uncertainty.tolist() == [[3.0], [4.0]]
    assert "Gz (mGal, 1 masked)" in repr(lined())


@pytest.mark.parametrize("arguments, message", [
    ({"data": [[1, 2]]}, "data: expected the shape"), ({"y": [1, 2]}, "y: expected the shape"),
    ({"codes": ()}, "codes: expected 1 to 6"), ({"line": ["a", "b"]}, "line: expected the shape")])
def test_shapes_are_checked(arguments, message):
    given = {"x": [0.0], "y": [0.0], "elevation": [0.0], "data": [[1.0]], "codes": (0,)} | arguments
    with pytest.raises(UsageError, match=message):
        Survey(**given)


def test_files_of_surveys(tmp_path):
    survey = lined()
    survey.write(tmp_path / "l.obs")
    again = Survey.read(tmp_path / "l.obs", "gz", lined=True)
    np.testing.assert_array_equal(again.data, survey.data)
    np.testing.assert_array_equal(np.isnan(again.uncertainty), [[False, True, True, True, False]])
    assert again.lines() == survey.lines()
    magnetic = stations(1)
    magnetic.write(tmp_path / "m.obs")
    again = Survey.read(tmp_path / "m.obs")
    assert again.codes == (1,) and again.field == FIELD and again.direction == DIRECTION
    assert FIELD.direction == Direction(60.0, 5.0)
    magnetic.angles = np.stack([np.full(30, 80.0), np.arange(30.0)], axis=1)
    magnetic.direction = None
    magnetic.write(tmp_path / "d.obs")
    again = Survey.read(tmp_path / "d.obs")
    np.testing.assert_array_equal(again.angles, magnetic.angles)
    assert again.idir == 0 and again.direction == FIELD.direction
    with pytest.raises(UsageError, match="inducing field"):
        Survey([0], [0], [0], [[1.0]], (1,)).write(tmp_path / "x.obs")


def test_tables_of_pandas(tmp_path):
    pandas = pytest.importorskip("pandas")
    for survey in (lined(), stations(1), Survey([0], [0], [0], [[1.0], [2.0]], (0, 12), [[3.0], [4.0]])):
        again = Survey.from_pandas(survey.to_pandas())
        np.testing.assert_array_equal(again.data, survey.data)
        assert (again.codes, again.field, again.direction) == (survey.codes, survey.field, survey.direction)
        assert (again.line is None) == (survey.line is None)
    angled = stations(1)
    angled.angles = np.ones((30, 2))
    np.testing.assert_array_equal(Survey.from_pandas(angled.to_pandas()).angles, angled.angles)
    frame = pandas.DataFrame({"E": [1, 2], "N": [3, 4], "H": [5, 6], "bouguer": [0.5, None], "err": [0.1, 0.2],
                              "L": [10, 10], "t": [0.0, 1.0]})
    survey = Survey.from_pandas(frame, "bouguer", "err", "gz", x="E", y="N", elevation="H", line="L", time="t")
    assert np.isnan(survey.data[0, 1]) and survey.line.tolist() == ["10", "10"] and survey.time.tolist() == [0, 1]
    for arguments, message in (({}, "names of the data columns"), ({"data": "bouguer"}, "data type of each component"),
                               ({"data": "g", "codes": "gz"}, "expected the columns x, y, elevation")):
        with pytest.raises(UsageError, match=message):
            Survey.from_pandas(frame, **arguments)


def test_tables_that_name_their_data_types():
    """Columns named after data types need no further words, as after operations of pandas that drop its attributes."""
    pandas = pytest.importorskip("pandas")
    frame = pandas.DataFrame({"elevation": [5.0, 6.0], "y": [0, 1], "x": [2, 3], "TMI": [1.0, None], "gz": [7, 8], "note": "a"})
    survey = Survey.from_pandas(frame)
    assert survey.codes == (1, 0) and survey.uncertainty is None and np.isnan(survey.data[0, 1])
    np.testing.assert_array_equal(survey.data[1], [7, 8])
    assert Survey.from_pandas(frame, "gz").codes == (0,)
    frame["gz_uncertainty"], frame["TMI_uncertainty"] = 0.1, 2.0
    np.testing.assert_array_equal(Survey.from_pandas(frame).uncertainty, [[2.0, 2.0], [0.1, 0.1]])
    assert Survey([0, 1], [0, 1], [0, 1], [1, 2], "gz").codes == (0,)
    for columns, words in ((["x", "y", "elevation", "note"], "found x, y, elevation, note"),
                           (["x", "y", "gz"], "expected the columns elevation, found x, y, gz")):
        with pytest.raises(UsageError, match=words):
            Survey.from_pandas(frame[columns])
    with pytest.raises(UsageError, match="codes=..., beside note"):
        Survey.from_pandas(frame, "note")
    with pytest.raises(UsageError, match="expected numbers in the columns note"):
        Survey.from_pandas(frame, "note", codes="gz")


def test_a_missing_package_is_named(monkeypatch):
    held = builtins.__import__

    def without(name, *arguments, **keywords):
        if name.startswith(("pandas", "xarray", "vtkmodules")):
            raise ImportError(name)
        return held(name, *arguments, **keywords)
    monkeypatch.setattr("importlib.import_module", lambda name: without(name))
    for call, message in ((lined().to_pandas, "tables of a survey: the Python module pandas is missing; install the "
                           "Debian package python3-pandas"),
                          (block_model(block_mesh()).to_xarray, "python3-xarray"),
                          (block_model(block_mesh()).to_vtk, "python3-vtk9")):
        with pytest.raises(MissingPackageError, match=message):
            call()
    with pytest.raises(MissingPackageError, match="^x: the Python module nowhere is missing; install nowhere$"):
        monkeypatch.undo()
        require("nowhere.at_all", "x")


MESH = Mesh([0, 10, 30], [0, 5, 10, 20], [100, 90, 70, 40, 0])


def model():
    values = np.arange(24.0)
    values[5] = np.nan
    return Model(MESH, values, "density contrast", "g/cm3")


def test_slices():
    found = model()
    assert found.depth_slice(2).shape == (2, 3) and found.depth_slice(2)[1, 2] == found.cube[2, 1, 2]
    np.testing.assert_array_equal(found.slice_at(elevation=60.0), found.cube[2])
    np.testing.assert_array_equal(found.slice_at(x=15.0), found.cube[:, 1, :])
    np.testing.assert_array_equal(found.slice_at(y=19.0), found.cube[:, :, 2])
    for place in ({}, {"x": 1.0, "y": 1.0}, {"x": -1.0}):
        with pytest.raises(UsageError, match="slice"):
            found.slice_at(**place)
    assert found.value_at([15.0, 99.0], 19.0, 60.0).tolist()[0] == found.cube[2, 1, 2]
    assert np.isnan(found.value_at(99.0, 19.0, 60.0))
    found.cube[0, 0, 0] = 77.0
    assert found.values[0] == 77.0
    assert "0 to 77" not in repr(found) and "1 to 77 g/cm3" in repr(found)
    assert "no value" in repr(Model(MESH, np.full(24, np.nan)))


def test_files_of_models(tmp_path):
    found = model()
    found.write(tmp_path / "m.den")
    assert (tmp_path / "m.den").read_text().splitlines()[5] == " -0.100000E+34"
    np.testing.assert_array_equal(Model.read(tmp_path / "m.den", MESH).values, found.values)
    with pytest.raises(FileError):
        Model.read(tmp_path / "m.den", block_mesh())


def test_a_written_model_leaves_cells_out_of_the_reference(gravity: Bench, copied):
    bench = copied(gravity)
    reference = Model(block_mesh(), np.full(192, np.nan))
    reference.write(bench.path("ref.den"))
    bench.control(l7="ref.den", l9="1 0 0 0", l12="2")
    bench.voxlith()
    from voxlith.io.log_file import read_log_file
    assert read_log_file(bench.path("voxlith.log"))[-1].iterations[2].reference == 0.0


def test_order_of_discretize():
    found = model()
    upwards = found.to_discretize()
    x, y, z = found.mesh.centres().T
    order = np.lexsort((x, y, z))
    np.testing.assert_array_equal(upwards, found.values[order])
    np.testing.assert_array_equal(Model.from_discretize(MESH, upwards).values, found.values)
    with pytest.raises(UsageError, match="values"):
        Model.from_discretize(MESH, np.zeros(3))


def test_labelled_arrays():
    pytest.importorskip("xarray")
    found = model()
    found.active = MESH.active_cells(89.0)
    array = found.to_xarray()
    assert array.dims == ("z", "y", "x") and array.attrs["units"] == "g/cm3"
    assert float(array.sel(x=20.0, y=15.0, z=55.0)) == found.value_at(20.0, 15.0, 55.0)
    assert np.isnan(array.sel(z=95.0)).all() and int(np.isnan(array).sum()) == 7
    assert array.z.values.tolist() == [95, 80, 55, 20]


def read_vtr(path):
    reader = require("vtkmodules.vtkIOXML", "tests").vtkXMLRectilinearGridReader()
    reader.SetFileName(str(path))
    reader.Update()
    return reader.GetOutput()


def test_grids_are_read_by_vtk(tmp_path):
    pytest.importorskip("vtkmodules")
    support = require("vtkmodules.util.numpy_support", "tests")
    found = model()
    found.active = MESH.active_cells(89.0)
    found.write_vtr(tmp_path / "m.vtr")
    grid = read_vtr(tmp_path / "m.vtr")
    assert grid.GetDimensions() == (3, 4, 5) and grid.GetBounds() == (0, 30, 0, 20, 0, 100)
    values = support.vtk_to_numpy(grid.GetCellData().GetArray("density contrast"))
    cell = grid.FindCell([20.0, 15.0, 55.0], None, 0, 0.0, *_room())
    assert values[cell] == found.value_at(20.0, 15.0, 55.0)
    hidden = sum(not grid.IsCellVisible(number) for number in range(grid.GetNumberOfCells()))
    assert hidden == 7  # one layer of six inactive cells, and one without data
    assert not grid.IsCellVisible(grid.FindCell([20.0, 15.0, 95.0], None, 0, 0.0, *_room()))


def _room():
    vtk = require("vtkmodules.vtkCommonCore", "tests")
    return vtk.reference(0), [0.0] * 3, [0.0] * 8


def test_several_models_in_one_grid(tmp_path):
    pytest.importorskip("vtkmodules")
    first, second = block_model(block_mesh()), Model(block_mesh(), np.arange(192.0), "susceptibility", "SI")
    write_vtr(tmp_path / "two.vtr", [first, second])
    grid = read_vtr(tmp_path / "two.vtr")
    assert grid.GetCellData().GetNumberOfArrays() == 2 and not grid.HasAnyBlankCells()
    with pytest.raises(UsageError, match="names that differ"):
        models_to_vtk([first, first])
    with pytest.raises(UsageError, match="same mesh"):
        models_to_vtk([first, model()])
    with pytest.raises(FileError, match="cannot be created"):
        first.write_vtr(tmp_path / "nowhere" / "a.vtr")


def test_field_and_direction():
    assert InducingField(1.0, 2.0, 3.0).direction == Direction(1.0, 2.0)

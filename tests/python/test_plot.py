"""What the pictures show: shared scales, axes to one scale, stations and cells that are never left out."""

import importlib
import math
from types import SimpleNamespace

import numpy as np
import pytest
from conftest import Bench, block_mesh, block_model, lay_survey
from hypothesis import given, settings
from hypothesis import strategies as st
from matplotlib.figure import Figure
from matplotlib.patches import Rectangle

from voxlith import Fit, Mesh, Model, Run, Survey, UsageError, VoxlithError, plot
from voxlith.io.bodies_file import TrueBody, read_bodies_file
from voxlith.plot.convergence import noise_level, unchanged
from voxlith.plot.cuts import peak_cell, section_below, shown_window, stations_near
from voxlith.plot.data import gapless_triangles
from voxlith.plot.data_view import view_of
from voxlith.plot.lengths import length_scale
from voxlith.plot.sections import style_of
from voxlith.section import straight_line

BODY = TrueBody("block", (1250.0, 1550.0), (2150.0, 2450.0), (-60.0, 60.0))


def drawn(figure: Figure) -> Figure:
    figure.canvas.draw()
    return figure


def assert_nothing_cut(figure):
    """Labels, titles and ticks lie within the figure."""
    drawn(figure)
    for part in figure.axes + figure.texts + figure.legends:
        box = part.get_tightbbox(figure.canvas.get_renderer())
        assert box.x0 >= -1 and box.y0 >= -1 and box.x1 <= figure.bbox.x1 + 1 and box.y1 <= figure.bbox.y1 + 1, part


def assert_equal_scales(figure, panels, stretch=1.0):
    """Pixels per metre are the same on both axes of all panels; vertical axes of sections may be stretched."""
    drawn(figure)
    found = []
    for panel in panels:
        box = panel.get_window_extent()
        found.append(box.width / abs(np.subtract(*panel.get_xlim())))
        vertical = box.height / abs(np.subtract(*panel.get_ylim()))
        found.append(vertical / (stretch if "Section" in panel.get_title() else 1.0))
    np.testing.assert_allclose(found, found[0], rtol=0.02)


def colours(panel):
    """Values of the cells of a panel."""
    return np.ma.filled(panel.collections[0].get_array().astype(float), np.nan).ravel()


def survey_at(x, y, z=125.0, data=None):
    x, y = np.broadcast_arrays(np.asarray(x, float), np.asarray(y, float))
    values = np.zeros((1, len(x))) if data is None else np.atleast_2d(data)
    return Survey(x, y, np.full(len(x), z), values, (0,))


# Convergence

def test_curves_are_the_table(gravity: Bench):
    run = Run(gravity.folder)
    figure = plot.convergence(run)
    for panel, name in zip(figure.axes, ("misfit", "model_norm", "total")):
        np.testing.assert_array_equal(panel.lines[0].get_ydata(), [getattr(row, name) for row in run.table])
    marks = [line for line in figure.axes[0].lines if line.get_marker() == "D"]
    assert sum(len(line.get_xdata()) for line in marks) == sum(row.steps is not None for row in run.table)
    assert "after 14 iterations (finished)" in figure._suptitle.get_text()
    assert noise_level(run) == pytest.approx(math.sqrt(np.isfinite(run.fit().observed.data).sum() / 30))
    assert noise_level(run) < 1.0
    terms = {line.get_label(): line.get_ydata() for line in figure.axes[3].lines}
    at = run.log[-1].iterations[14]
    assert terms["smoothness in x"][-1] == pytest.approx(0.01 * at.smooth_x)
    # The terms are those of the total: their sum is its square.
    whole = terms["misfit²"][-1] + sum(np.nan_to_num(terms[label][-1]) for label in terms if label.startswith(("smooth", "diff")))
    assert whole == pytest.approx(run.table[-1].total ** 2, rel=1e-3)


def test_terms_that_the_log_rounds_to_0_are_drawn_as_their_sum(gravity: Bench, monkeypatch):
    module = importlib.import_module("voxlith.plot.convergence")
    run = Run(gravity.folder)
    assert "trade-off × norm²" not in [line.get_label() for line in plot.convergence(run).axes[3].lines]
    nothing = SimpleNamespace(**{key: 0.0 for key, *_ in module._TERMS})
    monkeypatch.setattr(module, "_terms_of", lambda log: [(number, nothing) for number in log.iterations])
    rest, = (line.get_ydata() for line in plot.convergence(run).axes[3].lines if line.get_label() == "trade-off × norm²")
    assert rest[-1] == pytest.approx(run.table[-1].total ** 2 - run.table[-1].misfit ** 2)


def test_trade_offs_after_the_last_of_the_table_are_those_of_the_total(gravity: Bench, monkeypatch):
    """A sparse norm changes the trade-off after the search."""
    run = Run(gravity.folder)
    monkeypatch.setattr(Run, "tradeoffs", SimpleNamespace(tradeoff=np.array([5.0]), iteration=np.array([3])))
    terms = {line.get_label(): line.get_ydata() for line in plot.convergence(run).axes[3].lines}
    log = run.log[-1]
    assert terms["smoothness in x"][3] == pytest.approx(5.0 * log.iterations[3].smooth_x)
    assert terms["smoothness in x"][-1] == pytest.approx(0.01 * log.iterations[14].smooth_x, rel=0.01)


def test_rows_that_repeat_are_open_marks(gravity: Bench, copied):
    bench = copied(gravity)
    lines = bench.path("voxlith.aux").read_text().split("\n")
    lines[10] = lines[10][:12] + f"{0.5:14.4f}" + lines[10][26:64] + "   3+"
    lines[14] = lines[14][:12] + lines[13][12:64] + "   3+"
    bench.write("voxlith.aux", "\n".join(lines))
    run = Run(bench.folder)
    with_steps = [row.iteration for row in run.table if row.steps]
    assert len(with_steps) >= 2
    same = unchanged(run.table)
    assert same[with_steps[-1]] and not same[with_steps[0]]
    labels = [line.get_label() for line in plot.convergence(run).axes[0].lines]
    assert "conjugate gradients, model unchanged" in labels and "conjugate gradients" in labels


@pytest.mark.parametrize("word", ["1e300", 14 * "*", "NaN", "-1e300", "Infinity"])
def test_numbers_beyond_all_bounds(gravity: Bench, copied, word, recwarn):
    bench = copied(gravity)
    lines = bench.path("voxlith.aux").read_text().split("\n")
    lines[5] = lines[5][:12] + 3 * word.rjust(14) + lines[5][54:]
    bench.write("voxlith.aux", "\n".join(lines))
    drawn(plot.convergence(Run(bench.folder, strict=False)))


def test_a_run_that_has_just_begun(gravity: Bench, copied):
    bench = copied(gravity)
    bench.path("voxlith.log").unlink()
    lines = bench.path("voxlith.aux").read_text().split("\n")
    bench.write("voxlith.aux", "\n".join(lines[:4]) + "\n")
    assert "after 0 iterations (not finished)" in plot.convergence(Run(bench.folder))._suptitle.get_text()
    bench.write("voxlith.aux", "\n".join(lines[:3]) + "\n")
    with pytest.raises(VoxlithError, match="holds no row yet"):
        plot.convergence(Run(bench.folder))


# Data

@pytest.mark.parametrize("kind", ["gravity", "magnetic", "joint"])
def test_maps_share_their_scales(request, kind):
    run = Run(request.getfixturevalue(kind).folder)
    view = view_of(run)
    for component in range(view.survey.n_components):
        figure = drawn(plot.data(run, component))
        observed, predicted, residual = figure.axes[:3]
        assert observed.collections[0].get_clim() == predicted.collections[0].get_clim() or \
            observed.collections[0].get_facecolor().tolist() == predicted.collections[0].get_facecolor().tolist()
        low, high = residual.collections[0].get_clim()
        assert low == -high and high >= 3.0
        shown = np.sort(residual.collections[0].get_array())
        scores = view.zscore(component)
        np.testing.assert_allclose(shown, np.sort(scores[np.isfinite(scores)]))
        assert len(residual.collections[0].get_offsets()) == np.isfinite(scores).sum()
        assert any(f"({view.unit(component)})" in axis.get_xlabel() for axis in figure.axes[3:])
        assert_equal_scales(figure, figure.axes[:3])
        assert "iteration 14" in figure._suptitle.get_text()


def test_every_station_is_on_the_map(gravity: Bench):
    survey = Run(gravity.folder).observed
    figure = drawn(plot.data(survey))
    panel = figure.axes[0]
    assert len(figure.axes) == 2  # observed alone, and its colours
    for values, (low, high) in ((survey.x, panel.get_xlim()), (survey.y, panel.get_ylim())):
        assert low < values.min() and values.max() < high


@pytest.mark.parametrize("count", [1, 2, 5])
def test_few_stations_and_masked_data(count):
    at = np.arange(float(count))
    assert_nothing_cut(plot.data(survey_at(at, at ** 2, data=np.where(at == 0.0, np.nan, at))))
    assert drawn(plot.data(survey_at(at, at ** 2, data=np.full(count, np.nan))))


@settings(max_examples=12)
@given(x=st.lists(st.floats(-1e8, 1e8), min_size=3, max_size=20), d=st.floats(allow_nan=True, allow_infinity=True))
def test_any_survey_is_drawn(x, d):
    x = np.array(x)
    drawn(plot.data(survey_at(x, x[::-1], data=np.append(np.linspace(-1, 1, len(x) - 1), d))))


def test_gaps_are_not_bridged():
    x, y = (a.ravel() for a in np.meshgrid(np.r_[0:5, 50:55].astype(float), np.arange(5.0)))
    triangles = gapless_triangles(x, y)
    shown = triangles.triangles[~triangles.mask]
    assert len(shown) > 50 and np.ptp(x[shown], axis=1).max() < 5.0


def test_what_counts_as_a_line():
    at, zero = np.arange(4.0), np.zeros(4)
    assert straight_line(at, at ** 2) is None and straight_line(at[:1], at[:1]) is None
    assert straight_line(at, zero).axis == "x" and straight_line(zero, at).axis == "y"
    oblique = straight_line(10.0 + 3.0 * at, 20.0 + 4.0 * at)
    assert oblique.axis == "" and oblique.distance == pytest.approx(5.0 * at)
    assert oblique.start == pytest.approx((10.0, 20.0)) and oblique.direction == pytest.approx((0.6, 0.8))


def test_a_profile(gravity: Bench):
    survey = survey_at(1050 + 30 * np.arange(20), 2050 + 20 * np.arange(20), data=np.arange(20.0))
    figure = drawn(plot.data(survey, limits=(-5.0, 50.0)))
    assert figure.axes[0].get_ylim() == (-5.0, 50.0)
    assert figure.axes[-1].get_xlabel() == "distance along the line (m)"


@pytest.mark.parametrize("count", [1, 2, 7])
def test_holes_are_drawn_against_elevation(count):
    depth = np.tile(200.0 - 20.0 * np.arange(12.0), count)
    x = np.repeat(1000.0 + 100.0 * np.arange(count), 12)
    observed = Survey(x, 0.0 * x + 5.0, depth, np.sin(depth / 50.0)[None, :], (0,), np.full((1, len(x)), 0.1))
    observed.data[0, 3] = np.nan
    figure = drawn(plot.data(Fit(observed, np.sin(depth / 50.0)[None, :] + 0.05)))
    assert len(figure.axes) == 2 * min(count, 6)
    panel = figure.axes[0]
    assert panel.get_ylabel() == "elevation (m)" and panel.get_title() == "x 1000, y 5" and panel.get_xlabel() == "Gz (mGal)"
    predicted, = (line for line in panel.lines if line.get_label() == "predicted")
    np.testing.assert_allclose(predicted.get_ydata(), depth[:12])
    assert ("first 6 of 7 holes" in figure._suptitle.get_text()) == (count == 7)
    assert len(drawn(plot.data(observed)).axes) == min(count, 6)
    surface = Survey(np.append(x, 2000.0), np.append(0.0 * x + 5.0, 300.0), np.append(depth, 200.0), np.zeros((1, len(x) + 1)), (0,))
    assert drawn(plot.data(surface)).axes[0].get_ylabel() != "elevation (m)"


def test_named_lines():
    line = np.array(["A", "A", "$x^", "A"])
    survey = Survey(np.arange(4.0), np.arange(4.0) ** 2, np.zeros(4), [[1.0, 2.0, np.nan, 4.0]], (0,), line=line,
                    time=np.arange(4.0))
    figure = drawn(plot.line_profiles(survey))
    assert [panel.get_title() for panel in figure.axes if panel.get_visible()] == ["A", "$x^", "A"]
    with pytest.raises(UsageError, match="expected data with line names"):
        plot.line_profiles(survey_at([0, 1], [0, 1]))
    with pytest.raises(UsageError, match="component 1: expected 0 to 0"):
        plot.data(survey, 1)


def test_lines_that_were_measured_to_and_fro_run_one_way():
    at = np.linspace(0.0, 300.0, 4)
    for x, y, label, expected in ((np.r_[at, at[::-1]], np.repeat([0.0, 50.0], 4), "x, east (m)", [at, at[::-1]]),
                                  (np.repeat([0.0, 50.0], 4), np.r_[at, at[::-1]], "y, north (m)", [at, at[::-1]]),
                                  (np.r_[at, at[::-1]], np.r_[at, at[::-1]], "distance along the line from its western or southern end (m)",
                                   [math.sqrt(2.0) * at, math.sqrt(2.0) * at[::-1]])):
        survey = Survey(x, y, np.zeros(8), [np.zeros(8)], (0,), line=np.repeat(["A", "B"], 4), time=np.arange(8.0))
        figure = drawn(plot.line_profiles(survey))
        assert figure._supxlabel.get_text() == label
        for panel, positions in zip(figure.axes, expected):
            np.testing.assert_allclose(panel.lines[0].get_xdata(), positions)


def test_flight_lines_are_contoured():
    x, y = (a.ravel() for a in np.meshgrid(np.arange(0.0, 1000.0, 10.0), np.arange(0.0, 500.0, 100.0)))
    assert not gapless_triangles(x, y).mask.any()


# Axes

@pytest.mark.parametrize("low, high, label, tick", [
    (0.0, 1600.0, "x (m)", "500"), (0.0, 16000.0, "x (km)", "0.5"), (452000.0, 453200.0, "x − 450000 (m)", "−449500"),
    (7445400.0, 7577900.0, "x (km)", "0.5"), (-80.0, 40.0, "x (m)", "500"), (99000.0, 99900.0, "x (m)", "500"),
    (1e9, 1e9 + 20000.0, "x − 1000000 (km)", "−999999.5")])
def test_lengths(low, high, label, tick):
    scale = length_scale(low, high)
    assert scale.label("x") == label and scale.shown(500.0) == tick
    assert len(scale.shown(low)) <= 8 and len(scale.shown(high)) <= 8


# Sections

def test_sections_below_the_middle_of_the_stations(gravity: Bench):
    run = Run(gravity.folder)
    model, survey = run.model(), run.observed
    figure = plot.sections(run, bodies=[BODY], at="middle")
    layer, at_y, at_x = figure.axes[:3]
    size = np.abs(model.cube)
    k = np.argmax((size[:-1] * (size[:-1] > size[1:])).reshape(3, -1).max(axis=1))
    assert layer.get_title().startswith("Depth slice at the peak, elevation")
    np.testing.assert_array_equal(colours(layer), model.cube[k].T.ravel())
    middle = 0.5 * (survey.x.min() + survey.x.max()), 0.5 * (survey.y.min() + survey.y.max())
    np.testing.assert_array_equal(colours(at_y), model.slice_at(y=middle[1]).ravel())
    np.testing.assert_array_equal(colours(at_x), model.slice_at(x=middle[0]).ravel())
    assert figure._suptitle.get_text() == "Density contrast, iteration 14"
    assert any(panel.get_ylabel() == "Density contrast (g/cm³)" for panel in figure.axes)
    assert len({tuple(panel.collections[0].get_clim()) for panel in figure.axes[:3]}) == 1
    assert_equal_scales(figure, figure.axes[:3])
    assert_nothing_cut(figure)
    # The histogram counts the shown cells.
    assert sum(bar.get_height() for bar in figure.axes[3].patches) == model.shown.sum()


def test_the_largest_cell_on_request(gravity: Bench):
    run = Run(gravity.folder)
    model = run.model()
    k, i, j = np.unravel_index(np.argmax(np.abs(model.cube)), model.cube.shape)
    _, at_y, at_x = plot.sections(run, at="largest").axes[:3]
    np.testing.assert_array_equal(colours(at_y), model.cube[:, :, j].ravel())
    np.testing.assert_array_equal(colours(at_x), model.cube[:, i].ravel())


def test_sections_meet_at_the_peak():
    """A body inside the mesh counts, not a larger value that goes on to the bottom."""
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 8 * [50.0], 8 * [50.0], 6 * [50.0])
    values = np.zeros(mesh.shape)
    values[1:3, 3, 3] = 0.2, 0.3
    values[3:, 5, 5] = 0.3, 0.4, 0.5
    survey = survey_at([25.0, 375.0], [25.0, 300.0], 1.0)
    for at, words in (("peak", "at the peak, depth 100 to 150 m"), ("largest", "at the largest value, depth 250 to 300 m")):
        assert words in plot.sections(Model(mesh, values), survey=survey, at=at).axes[0].get_title()
    values[2, 3, 3] = 0.0  # the peak is the upper cell now
    assert peak_cell(values) == (1, 3, 3)
    assert peak_cell(values[3:]) == (2, 5, 5) and peak_cell(values[5:]) == (0, 5, 5)  # nothing but growth
    assert peak_cell(np.where(values > 0.0, values, np.nan)) == (1, 3, 3)  # the cell below it has no value


def test_free_space_holds_the_range_of_each_layer():
    """Of the cells below the stations alone; a layer without a value leaves a gap."""
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 5 * [50.0], 20 * [50.0], [50.0, 50.0, 50.0])
    values = np.random.default_rng(2).normal(size=mesh.shape)
    values[1] = np.nan
    values[0, 4, 19] = 90.0
    figure = drawn(plot.sections(Model(mesh, values), survey=survey_at([25.0, 160.0, 90.0], [25.0, 900.0, 460.0], 1.0)))
    panel = next(panel for panel in figure.axes if panel.get_title() == "Range of each layer below the stations")
    low, high = (step.get_data().values for step in panel.patches)
    np.testing.assert_array_equal(low, values[:, :4, :18].min(axis=(1, 2)))
    np.testing.assert_array_equal(high, values[:, :4, :18].max(axis=(1, 2)))
    assert_nothing_cut(figure)


def test_a_given_point(gravity: Bench):
    run = Run(gravity.folder)
    figure = plot.sections(run, at=(1010.0, 2590.0, -150.0))
    assert [panel.get_title() for panel in figure.axes[:3]] == [
        "Depth slice, elevation -170 to -70 m", "Section at y 2500 to 2600 m", "Section at x 1000 to 1100 m"]
    for point, words in (((900.0, 2100.0, 0.0), "x 900 lies outside the mesh, 1000 to 1800"),
                         ((1100.0, 2100.0, 300.0), "elevation 300 lies outside the mesh, -170 to 120"),
                         ((math.nan, 2100.0, 0.0), "x nan lies outside the mesh")):
        with pytest.raises(UsageError, match=words):
            plot.sections(run, at=point)
    for at in ("centre", (1100.0, 2100.0)):
        with pytest.raises(UsageError, match="expected peak, largest, middle, or easting, northing and elevation"):
            plot.sections(run, at=at)
    for draw, words in ((plot.sections, "expected a Run or a Model, found str"), (plot.data, "a Run, a Fit or a Survey, found str")):
        with pytest.raises(UsageError, match=words):
            draw("run1")
    for options, words in (({"limits": 0.4}, "limits 0.4: expected two numbers"), ({"colormap": "rainbows"}, "colour map rainbows: Matplotlib has none"),
                           ({"limits": (1.0, 1.0)}, "limits 1,1: expected two numbers that rise")):
        with pytest.raises(UsageError, match=words):
            plot.sections(run, **options)
    shown = plot.sections(run, colormap="cividis", limits=(0.0, 0.1)).axes[0].collections[0]
    assert shown.get_cmap().name == "cividis" and shown.get_clim() == (0.0, 0.1)


def test_outlines_of_true_bodies(gravity: Bench):
    """Solid where the plane cuts the box, dashed where it lies beside."""
    figure = plot.sections(Run(gravity.folder), at=(1300.0, 2050.0, 0.0), bodies=[BODY])
    box = [next(p for p in panel.patches if isinstance(p, Rectangle)) for panel in figure.axes[:3]]
    assert [b.get_bbox().bounds for b in box] == [(1250.0, 2150.0, 300.0, 300.0), (1250.0, -60.0, 300.0, 120.0),
                                                  (2150.0, -60.0, 300.0, 120.0)]
    assert [b.get_linestyle() == "-" for b in box] == [True, False, True]


def test_stations_are_on_the_sections(gravity: Bench):
    run = Run(gravity.folder)
    survey = run.observed
    _, at_y, at_x = plot.sections(run, at=(1350.0, 2350.0, 0.0)).axes[:3]
    for panel, off, (low, high), at in ((at_y, survey.y, (2300.0, 2400.0), survey.x), (at_x, survey.x, (1300.0, 1400.0), survey.y)):
        marks = next(line for line in panel.lines if line.get_marker() == "v")
        usual = math.sqrt(np.ptp(survey.x) * np.ptp(survey.y) / survey.n_stations)
        near = abs(off - 0.5 * (low + high)) <= max(0.5 * (high - low), 0.5 * usual)
        assert 0 < near.sum() < survey.n_stations
        np.testing.assert_array_equal(np.sort(marks.get_xdata()), np.sort(at[near]))
        assert max(panel.get_ylim()) >= survey.elevation.max()


widths = st.lists(st.floats(1.0, 50.0), min_size=1, max_size=12)


@given(x=widths, y=widths, z=widths, where=st.lists(st.tuples(st.floats(0, 1), st.floats(0, 1)), min_size=1, max_size=6))
def test_no_cell_and_no_station_within_the_extent_is_left_out(x, y, z, where):
    mesh = Mesh.from_widths((5000.0, -300.0, 10.0), x, y, z)
    sx = mesh.x_nodes[0] + np.array([a for a, _ in where]) * np.ptp(mesh.x_nodes)
    sy = mesh.y_nodes[0] + np.array([b for _, b in where]) * np.ptp(mesh.y_nodes)
    window = shown_window(mesh, survey_at(sx, sy), False)
    for nodes, (first, end), values in ((mesh.x_nodes, window.x, sx), (mesh.y_nodes, window.y, sy)):
        assert 0 <= first < end < len(nodes)
        assert nodes[first] <= values.min() and values.max() <= nodes[end]


def test_unequal_cells_of_a_real_line():
    """Widths of 900 among widths of 1000: a line of 112 km is shown in full."""
    mesh = Mesh.from_widths((510090.0, 7445400.0, 0.0), 13 * [3000.0], (28 * [1000.0] + [900.0]) * 4, 10 * [745.0])
    survey = survey_at(528550.0, np.arange(7455800.0, 7560000.0, 1000.0), 1.0)
    figure = plot.sections(Model(mesh, np.random.default_rng(1).normal(size=mesh.n_cells)), survey=survey)
    low, high = figure.axes[0].get_ylim()
    assert low <= survey.y.min() and high >= survey.y.max()
    assert figure.axes[0].get_ylabel() == "y, north (km)"
    assert_nothing_cut(figure)


def test_padding_is_left_out():
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), [400, 200, *6 * [100], 200, 400], [400, 200, *6 * [100], 200, 400],
                            [*4 * [100], 400, 800])
    values = np.zeros(mesh.shape)
    values[5, 0, 0], values[2, 5, 4] = 9.0, 1.0
    model = Model(mesh, values)
    for survey in (None, survey_at([650, 1150, 900], [650, 1150, 800], 0.0)):
        inner = plot.sections(model, survey=survey, at="largest").axes
        assert inner[0].get_xlim() == (600.0, 1200.0) and inner[1].get_ylim() == (400.0, 0.0)
        assert inner[1].get_title() == "Section at y 800 to 900 m"
        assert inner[0].collections[0].get_clim()[1] == 1.0  # not that of the padding
    whole = plot.sections(model, whole_mesh=True).axes
    assert whole[0].get_xlim() == (0.0, 1800.0) and whole[1].get_ylim() == (1600.0, 0.0)


def test_a_section_below_an_oblique_profile():
    mesh = block_mesh()
    model = Model(mesh, mesh.centres()[:, 0] + 10 * mesh.centres()[:, 1])
    survey = survey_at(1050 + 30 * np.arange(20), 2030 + 25 * np.arange(20))
    plane = section_below(mesh, survey)
    x, y = plane.points(0.5 * (plane.nodes[1:] + plane.nodes[:-1]))
    cells = mesh.cell_at(x, y, 100.0)
    np.testing.assert_array_equal(mesh.cell_index(0, plane.i, plane.j), cells)
    along, elevation = stations_near(plane, survey)
    assert len(along) == 20 and plane.nodes[0] <= along.min() and along.max() <= plane.nodes[-1]
    figure = plot.sections(model, survey=survey)
    assert figure.axes[2].get_title() == "Section below the profile"
    np.testing.assert_array_equal(colours(figure.axes[2])[:len(cells)], model.values[cells])
    assert_nothing_cut(figure)


def test_a_flat_mesh_is_stretched_and_says_so():
    mesh = Mesh.from_widths((0.0, 0.0, 0.0), 20 * [500.0], 20 * [500.0], 4 * [50.0])
    figure = plot.sections(Model(mesh, np.ones(mesh.n_cells)))
    assert any("vertical scale × 10" in text.get_text() for text in figure.texts)
    assert_equal_scales(figure, figure.axes[:3], 10.0)


def test_long_coordinates():
    mesh = Mesh.from_widths((500000.0, 7655000.0, 650.0), 10 * [100.0], 10 * [100.0], 5 * [100.0])
    bodies = [TrueBody("a", (500100.0, 500300.0), (7655100.0, 7655300.0), (100.0, 300.0))]
    for style in (0, 2, 3):
        figure = plot.sections(Model(mesh, np.ones(500), "density contrast", "g/cm3"), bodies=bodies,
                               at=(500050.0, 7655050.0, 225.0), inversion_style=style)
        words = " ".join([text.get_text() for text in figure.texts] + [panel.get_title() for panel in figure.axes])
        assert "at x 500050, y 7655050, elevation 225 m" in words and "y 7655000 to 7655100 m" in words
        assert figure.axes[0].get_ylabel() == "y − 7655000, north (m)"
        assert_nothing_cut(figure)


def test_inactive_cells_and_the_ground(gravity: Bench):
    mesh = block_mesh()
    model = block_model(mesh)
    survey = Run(gravity.folder).observed
    model.active = mesh.active_cells(lambda x, y: 120.0 - 0.1 * (x - 1000.0))
    assert not model.active.all()
    figure = plot.sections(model, survey=survey)
    labels = [text.get_text() for text in figure.legends[0].get_texts()]
    assert labels == ["stations", "ground surface", "inactive or no-data cells"]
    hidden = np.isnan(colours(figure.axes[1]))
    assert hidden.any() and not hidden[-8:].any()
    x, y = (float(0.5 * (nodes[0] + nodes[-1])) for nodes in (mesh.x_nodes, mesh.y_nodes))
    bodies = [TrueBody(f"body {n}", (x + far, x + far + 1.0), (y + far, y + far + 1.0), (-200.0, -50.0)) for n, far in
              enumerate((0.0, 250.0))]
    figure = plot.sections(model, survey=survey, bodies=bodies)
    assert_nothing_cut(figure)
    legend = figure.legends[0].get_window_extent()
    assert len(figure.legends[0].get_texts()) == 5
    assert not any(legend.overlaps(panel.xaxis.label.get_window_extent()) for panel in figure.axes)
    surface = plot.sections(model, survey=survey, surface=lambda x, y: 100.0 + 0.0 * x).axes[1].lines
    assert any(np.all(np.asarray(line.get_ydata()) == 100.0) and len(line.get_xdata()) == 400 for line in surface)
    model.values[:] = np.nan
    with pytest.raises(UsageError, match="no cell of the model has a value"):
        plot.sections(model)


def test_layers_of_the_surface_styles(bench: Bench):
    lay_survey(bench, mtx=("--layers", "2", "--style", "3"))
    bench.control()
    bench.voxlith()
    run = Run(bench.folder)
    assert style_of(run) == 3
    titles = [panel.get_title() for panel in plot.sections(run).axes]
    assert titles[0].startswith("Surface layer, ") and titles[1].startswith("Below the surface layer, ")
    bench.path("voxlith.log").unlink()
    assert style_of(run) == 3
    with pytest.raises(VoxlithError):
        plot.sections(run, iteration=7)


@settings(max_examples=12)
@given(values=st.lists(st.floats(allow_nan=True, allow_infinity=True), min_size=4, max_size=4), top=st.floats(-1e6, 1e6))
def test_any_model_is_drawn(values, top):
    mesh = Mesh.from_widths((0.0, 0.0, top), [10.0, 20.0], [10.0], [10.0, 1000.0])
    try:
        drawn(plot.sections(Model(mesh, values)))
    except UsageError as error:
        assert "no cell of the model has a value" in str(error)


# z-scores

def test_bars_cover_the_data(joint: Bench):
    run = Run(joint.folder)
    view, figure = view_of(run), plot.zscores(run)
    for component, panel in enumerate(figure.axes[:2]):
        area = sum(bar.get_height() * bar.get_width() for bar in panel.patches)
        scores = view.zscore(component)
        scores = scores[np.isfinite(scores)]
        assert area == pytest.approx(np.mean(np.abs(scores) <= panel.get_xlim()[1]))
        curve = panel.lines[0]
        assert np.trapz(curve.get_ydata(), curve.get_xdata()) == pytest.approx(1.0, abs=1e-3)


@pytest.mark.parametrize("far", [30.0, 1e5, 1e300])
def test_scores_far_away(gravity: Bench, far):
    fit = Run(gravity.folder).fit()
    fit.predicted[0, :2] = far, -far
    drawn(plot.zscores(fit))
    drawn(plot.data(fit))
    fit.predicted[:] = np.nan
    assert any("all data are masked" in text.get_text() for text in drawn(plot.zscores(fit)).axes[0].texts)


# Files

@pytest.mark.parametrize("ending, start", [("png", b"\x89PNG"), ("pdf", b"%PDF"), ("svg", b"<?xml")])
def test_the_same_picture_gives_the_same_bytes(gravity: Bench, tmp_path, ending, start):
    for name in ("a", "b"):
        plot.save(plot.sections(Run(gravity.folder)), tmp_path / f"{name}.{ending}")
    content = (tmp_path / f"a.{ending}").read_bytes()
    assert content.startswith(start) and content == (tmp_path / f"b.{ending}").read_bytes()


def test_files_that_cannot_be(gravity: Bench, tmp_path):
    figure = plot.convergence(Run(gravity.folder))
    with pytest.raises(UsageError, match="expected the ending .png, .pdf or .svg"):
        plot.save(figure, tmp_path / "a.gif")
    with pytest.raises(VoxlithError, match="cannot be created"):
        plot.save(figure, tmp_path / "nowhere" / "a.png")
    with pytest.raises(VoxlithError, match="cannot be drawn"):
        plot.save(plot.sections(block_model(block_mesh())), tmp_path / "huge.png", dpi=1e6)
    assert list(tmp_path.iterdir()) == []


def test_bodies_files(tmp_path):
    path = tmp_path / "b.json"
    path.write_text('{"bodies": [{"name": "a", "x": [2, 1], "y": [3, 4], "elevation": [-1, -2], "model": 2}]}')
    assert read_bodies_file(path) == [TrueBody("a", (1.0, 2.0), (3.0, 4.0), (-2.0, -1.0), 1)]
    for text, words in (("{", "line 1: expected JSON"), ("[]", 'expected a list "bodies"'), ("[" * 100000, "expected JSON"),
                        ('{"bodies": [7]}', "body 1: expected"), ('{"bodies": [{"name": 1, "x": [1e999, 1]}]}', "body 1")):
        path.write_text(text)
        with pytest.raises(VoxlithError, match=words):
            read_bodies_file(path)

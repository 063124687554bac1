"""What the figures show: shared scales, axes to one scale, outlines in their places."""
import os
import re
import unittest
import warnings

import numpy as np
from matplotlib import pyplot
from matplotlib.patches import Rectangle

import surveys
from voxlith_plot import convergence, formats, maps, profiles, sections, style, zscores
from voxlith_plot.formats import FormatError
from voxlith_plot.run import Component, Mesh, Model, Run, Survey


class Figures(unittest.TestCase):
    def tearDown(self):
        pyplot.close('all')

    def assert_equal_scales(self, figure, panels, stretch=1.0):
        """Pixels a metre, the same on both axes of all panels; vertical axes of sections may be stretched."""
        figure.canvas.draw()
        found = []
        for panel in panels:
            box = panel.get_window_extent()
            found.append(box.width / np.ptp(panel.get_xlim()))
            vertical = box.height / np.ptp(panel.get_ylim())
            found.append(vertical / (stretch if 'Section' in panel.get_title() else 1.0))
        np.testing.assert_allclose(found, found[0], rtol=0.01)


    def assert_nothing_cut(self, figure):
        """Labels, titles and ticks lie within the figure."""
        figure.canvas.draw()
        for part in figure.axes + figure.texts + figure.legends:
            box = part.get_tightbbox(figure.canvas.get_renderer())
            self.assertTrue(box.x0 >= 0 and box.y0 >= 0 and box.x1 <= figure.bbox.x1 and box.y1 <= figure.bbox.y1,
                            '%s reaches to %s' % (part, box))


class Convergence(Figures):
    def test_curves_are_the_table(self):
        for case in (surveys.gravity, surveys.barrier, surveys.continued):
            run = Run(surveys.made(case))
            figure = convergence.draw(run)
            for panel, column in zip(figure.axes, (run.progress.misfit, run.progress.norm, run.progress.total)):
                np.testing.assert_array_equal(panel.lines[0].get_ydata(), column)
                marks = [line for line in panel.lines if line.get_marker() == 'D']
                self.assertEqual(sum(len(line.get_xdata()) for line in marks), (run.progress.steps >= 0).sum(),
                                 case.__name__)
            self.assertIn('after %d iterations (finished)' % run.iteration, figure._suptitle.get_text())

    def test_open_marks_where_the_model_stays(self):
        """Iteration 12 takes three steps; 22 is one of the last ten, which repeats its row and the number of steps."""
        folder = surveys.copy(surveys.gravity)
        lines = surveys.read(folder, 'voxlith.aux').split('\n')
        lines[15] = lines[15][:12] + '%14.4f' % 0.5 + lines[15][26:64] + '   3+'
        lines[25] = lines[25][:12] + lines[24][12:64] + '   3+'
        surveys.write(folder, 'voxlith.aux', '\n'.join(lines))
        run = Run(folder)
        self.assertEqual(list(run.progress.iteration[run.progress.steps > 0]), [12, 22])
        marks = {line.get_label(): list(line.get_xdata()) for line in convergence.draw(run).axes[0].lines}
        self.assertEqual(marks['conjugate gradients'], [12])
        self.assertEqual(marks['conjugate gradients, model unchanged'], [22])

    def test_numbers_beyond_all_bounds(self):
        folder = surveys.copy(surveys.barrier)
        log, table = (surveys.read(folder, name) for name in ('voxlith.log', 'voxlith.aux'))
        for word in ('1e300', 14 * '*', 'NaN', '-1e300', 'Infinity'):
            surveys.write(folder, 'voxlith.log', re.sub(r'(model (?:barr|smth): ).*', r'\g<1>' + word.rjust(14), log))
            lines = table.split('\n')
            lines[5] = lines[5][:12] + 3 * word.rjust(14) + lines[5][54:]
            surveys.write(folder, 'voxlith.aux', '\n'.join(lines))
            with warnings.catch_warnings():
                warnings.simplefilter('error')
                convergence.draw(Run(folder)).canvas.draw()

    def test_first_row_alone(self):
        folder = surveys.copy(surveys.gravity)
        lines = surveys.read(folder, 'voxlith.aux').split('\n')
        surveys.write(folder, 'voxlith.aux', '\n'.join(lines[:4]) + '\n')
        os.remove(os.path.join(folder, 'voxlith.log'))
        self.assertIn('after 0 iterations (not finished)', convergence.draw(Run(folder))._suptitle.get_text())


class Maps(Figures):
    def test_scales(self):
        for case in (surveys.gravity, surveys.magnetic, surveys.joint, surveys.lines):
            survey = Run(surveys.made(case)).survey
            for component in survey.components:
                figure = maps.draw(survey, component, 'title')
                observed, predicted, residual = figure.axes[:3]
                bands = [[tuple(np.ravel(c.get_facecolor())) if c.get_array() is None else c.get_clim()
                          for c in panel.collections] for panel in (observed, predicted)]
                self.assertEqual(bands[0], bands[1])
                low, high = figure.axes[4].get_xlim()
                self.assertAlmostEqual(low, -high)
                self.assertIn('(%s)' % component.unit, ''.join(a.get_xlabel() for a in figure.axes[3:]))
                self.assert_equal_scales(figure, figure.axes[:3])
                pyplot.close(figure)

    def test_observed_alone(self):
        survey = Run(surveys.made(surveys.gravity)).survey
        survey.components[0].predicted = None
        self.assertEqual(len(maps.draw(survey, survey.components[0], 'title').axes), 2)

    def test_few_stations_and_masked_data(self):
        for count in (1, 2, 5):
            at = np.arange(count, dtype=float)
            values = np.where(at == 0.0, np.nan, at)
            component = Component('Gz', 'mGal', values, values, np.ones(count))
            figure = maps.draw(Survey(at, at ** 2, [component], []), component, 'title')
            figure.canvas.draw()

    def test_gaps_are_not_bridged(self):
        x, y = (a.ravel() for a in np.meshgrid(np.r_[0:5, 50:55].astype(float), np.arange(5.0)))
        triangles = maps._triangles(x, y)
        shown = triangles.triangles[~triangles.mask]
        self.assertGreater(len(shown), 50)
        self.assertLess(np.ptp(x[shown], axis=1).max(), 5.0)


class Profiles(Figures):
    def test_what_counts_as_a_line(self):
        self.assertIsNone(profiles.along(Run(surveys.made(surveys.gravity)).survey))
        label, distance = profiles.along(Run(surveys.made(surveys.oblique)).survey)
        self.assertEqual(label, 'distance along the line (m)')
        np.testing.assert_allclose(np.diff(distance), np.hypot(35.0, 25.0), rtol=1e-9)
        at, zero = np.arange(4.0), np.zeros(4)
        self.assertEqual(profiles.along(Survey(at, zero, [], []))[0], 'x, east (m)')
        self.assertEqual(profiles.along(Survey(zero, at, [], []))[0], 'y, north (m)')

    def test_single_line(self):
        survey = Run(surveys.made(surveys.oblique)).survey
        figure = profiles.draw_single(profiles.along(survey), survey.components[0], 'title')
        curve = next(line for line in figure.axes[0].lines if line.get_label() == 'predicted')
        np.testing.assert_array_equal(curve.get_ydata(), survey.components[0].predicted)

    def test_named_lines(self):
        survey = Run(surveys.made(surveys.lines)).survey
        self.assertEqual([name for name, _, _ in profiles.line_ranges(survey)], ['L2150', 'L2250', 'L2350'])
        figure = profiles.draw_lines(survey, survey.components[0], 'title')
        self.assertEqual([panel.get_title() for panel in figure.axes if panel.get_visible()],
                         ['L2150', 'L2250', 'L2350'])
        self.assertEqual(len({panel.get_ylim() for panel in figure.axes}), 1)

    def test_a_name_that_returns_is_a_new_line(self):
        survey = Survey(np.zeros(3), np.zeros(3), [], [('A', 0.0), ('B', 0.0), ('A', 1.0)])
        self.assertEqual(profiles.line_ranges(survey), [('A', 0, 1), ('B', 1, 2), ('A', 2, 3)])


class Sections(Figures):
    def draw(self, case, **named):
        run = Run(surveys.made(case))
        bodies = formats.read_bodies(run.path('true_bodies.json'))
        return run, sections.draw(run.mesh, run.models()[0], bodies, 'title', style_code=run.style, **named)

    def test_scales_and_units(self):
        for case in (surveys.gravity, surveys.surface, surveys.apparent):
            run, figure = self.draw(case)
            panels = [panel for panel in figure.axes if panel.get_title()]
            self.assertEqual(len(panels), 4 if case is surveys.surface else 3)
            self.assert_equal_scales(figure, panels)
            self.assertEqual(len({tuple(panel.collections[0].get_clim()) for panel in panels}), 1)
            self.assert_nothing_cut(figure)
            self.assertTrue(any(panel.get_ylabel() == 'Density (g/cm³)' for panel in figure.axes))
            pyplot.close(figure)

    def test_sections_go_through_the_peak(self):
        run, figure = self.draw(surveys.gravity)
        values = run.models()[0].values
        j, i, k = np.unravel_index(np.nanargmax(np.abs(values)), values.shape)
        layer, at_y, at_x = (panel.collections[0].get_array() for panel in figure.axes[:3])
        np.testing.assert_array_equal(np.ravel(layer), values[:, :, k].ravel())
        np.testing.assert_array_equal(np.ravel(at_y), values[j].T.ravel())
        np.testing.assert_array_equal(np.ravel(at_x), values[:, i].T.ravel())

    def test_given_place(self):
        run, figure = self.draw(surveys.gravity, at=(1010.0, 2590.0, -190.0))
        self.assertEqual([panel.get_title() for panel in figure.axes[:3]],
                         ['Layer, elevation -200 to -120 m', 'Section at y 2500 to 2600 m',
                          'Section at x 1000 to 1100 m'])
        for place, words in (((900.0, 2100.0, 0.0), 'x 900 lies outside the mesh, 1000 to 1800'),
                             ((1100.0, 2100.0, 300.0), 'elevation 300 lies outside the mesh, -200 to 120')):
            with self.assertRaisesRegex(FormatError, '^%s$' % words):
                self.draw(surveys.gravity, at=place)

    def test_outlines(self):
        """The box of the true body: solid where the plane cuts it, dashed where it lies beside."""
        run, figure = self.draw(surveys.gravity, at=(1300.0, 2050.0, 0.0))
        layer, at_y, at_x = figure.axes[:3]
        box = lambda panel: next(p for p in panel.patches if isinstance(p, Rectangle))
        self.assertEqual(box(layer).get_bbox().bounds, (1250.0, 2150.0, 200.0, 200.0))
        self.assertEqual(box(at_y).get_bbox().bounds, (1250.0, -120.0, 200.0, 160.0))
        self.assertEqual(box(at_x).get_bbox().bounds, (2150.0, -120.0, 200.0, 160.0))
        self.assertEqual([box(panel).get_linestyle() == '-' for panel in (layer, at_y, at_x)], [True, False, True])

    def test_padding_is_left_out(self):
        widths = np.r_[400.0, 200.0, 6 * [100.0], 200.0, 400.0]
        nodes = np.r_[0.0, np.cumsum(widths)]
        depths = -np.r_[0.0, np.cumsum(np.r_[4 * [100.0], 400.0, 800.0])]
        mesh = Mesh(nodes, nodes, depths)
        values = np.zeros((10, 10, 6))
        values[0, 0, 5], values[4, 5, 2] = 9.0, 1.0
        model = Model(0, '', 'Density', 'g/cm³', values)
        inner = sections.draw(mesh, model, [], 'title').axes
        self.assertEqual((inner[0].get_xlim(), inner[1].get_ylim()), ((600.0, 1200.0), (400.0, 0.0)))
        self.assertEqual(inner[1].get_title(), 'Section at y 800 to 900 m')
        whole = sections.draw(mesh, model, [], 'title', whole=True).axes
        self.assertEqual((whole[0].get_xlim(), whole[1].get_ylim()), ((0.0, 1800.0), (1600.0, 0.0)))

    def test_flat_mesh_is_stretched_and_says_so(self):
        mesh = Mesh(np.arange(0.0, 10001.0, 500.0), np.arange(0.0, 10001.0, 500.0), -np.arange(0.0, 201.0, 50.0))
        figure = sections.draw(mesh, Model(0, '', 'Density', 'g/cm³', np.ones((20, 20, 4))), [], 'title')
        words = ' '.join(text.get_text() for text in figure.texts)
        self.assertRegex(words, 'vertical scale of the sections stretched 10 times')
        self.assert_equal_scales(figure, figure.axes[:3], 10.0)

    def test_large_coordinates_are_shown_in_full(self):
        nodes = np.arange(0.0, 1001.0, 100.0)
        mesh = Mesh(500000.0 + nodes, 7655000.0 + nodes, 650.0 - nodes[:6])
        bodies = [formats.TrueBody('a', (500100.0, 500300.0), (7655100.0, 7655300.0), (100.0, 300.0))]
        for code in (0, 2, 3):
            figure = sections.draw(mesh, Model(0, '', 'Density', 'g/cm³', np.ones((10, 10, 5))), bodies, 'title',
                                   at=(500050.0, 7655050.0, 225.0), style_code=code)
            words = ' '.join([text.get_text() for text in figure.texts] + [panel.get_title() for panel in figure.axes])
            self.assertRegex(words, 'at x 500050, y 7655050, elevation 225 m.* y 7655000 to 7655100 m')
            self.assert_nothing_cut(figure)

    def test_air_has_no_colour(self):
        folder = surveys.copy(surveys.gravity)
        surveys.write(folder, 'air.txt', ''.join('0 0\n' if p % 4 == 0 else '-99 99\n' for p in range(192)))
        surveys.write(folder, 'voxlith.inp', surveys.control(l8='air.txt'))
        values = ''.join('0.0\n' if p % 4 == 0 or p == 1 else '0.5\n' for p in range(192))
        surveys.write(folder, 'voxlith.den', values)
        run = Run(folder)
        model, = run.models()
        self.assertTrue(np.isnan(model.values[:, :, 0]).all())
        self.assertEqual(model.values[0, 0, 1], 0.0)
        figure = sections.draw(run.mesh, model, [], 'title')
        self.assertEqual([text.get_text() for text in figure.legends[0].get_texts()], ['held at zero (air)'])

    def test_absent_cells(self):
        run = Run(surveys.made(surveys.gravity))
        model = run.models()[0]
        model.values[:, :, 0] = np.nan
        figure = sections.draw(run.mesh, model, [], 'title', at=(1300.0, 2250.0, 100.0))
        self.assertTrue(np.ma.getmaskarray(figure.axes[0].collections[0].get_array()).all())
        model.values[:] = np.nan
        with self.assertRaisesRegex(FormatError, '^all cells of the model are absent$'):
            sections.draw(run.mesh, model, [], 'title')


class Zscores(Figures):
    def test_bars_cover_the_data(self):
        run = Run(surveys.made(surveys.joint))
        figure = zscores.draw(run)
        for panel, component in zip(figure.axes, run.survey.components):
            area = sum(bar.get_height() * bar.get_width() for bar in panel.patches)
            scores = component.zscore[np.isfinite(component.zscore)]
            self.assertAlmostEqual(area, np.mean(np.abs(scores) <= panel.get_xlim()[1]))
            curve = panel.lines[0]
            self.assertAlmostEqual(np.trapz(curve.get_ydata(), curve.get_xdata()), 1.0, delta=1e-3)

    def test_scores_far_away(self):
        run = Run(surveys.made(surveys.gravity))
        for far in (30.0, 1e5, 1e300):
            run.survey.components[0].predicted[0:2] = far, -far
            with warnings.catch_warnings():
                warnings.simplefilter('error')
                figure = zscores.draw(run)
                figure.canvas.draw()
            self.assertLessEqual(figure.axes[0].get_xlim()[1], 1.1e6)

    def test_all_masked(self):
        run = Run(surveys.made(surveys.gravity))
        run.survey.components[0].predicted[:] = np.nan
        self.assertIn('all data are masked', [text.get_text() for text in zscores.draw(run).axes[0].texts])


class Colours(unittest.TestCase):
    def test_limits(self):
        self.assertEqual(style.value_limits(np.array([1.0, np.nan, 3.0]), np.array([2.0])),
                         (style.SEQUENTIAL, 1.0, 3.0))
        self.assertEqual(style.value_limits(np.array([-1.0, 3.0])), (style.DIVERGING, -3.0, 3.0))
        self.assertEqual(style.value_limits(np.array([-0.01, 3.0])), (style.SEQUENTIAL, -0.01, 3.0))
        colours, low, high = style.value_limits(np.array([2.0]))
        self.assertLess(low, high)
        self.assertEqual(style.value_limits(np.array([np.nan]))[1:], (0.0, 1.0))

"""The numbers of a run put together: residuals give the misfit of the table, models lie where the mesh says."""
import os
import unittest

import numpy as np

import surveys
from gallery import read_data, read_values
from voxlith_plot.formats import FormatError
from voxlith_plot.run import Run
from voxlith_plot.text_input import Missing


class Data(unittest.TestCase):
    def test_z_scores_give_the_misfit_of_the_table(self):
        for case in surveys.ALL:
            run = Run(surveys.made(case))
            squares = sum(np.nansum(component.zscore ** 2) for component in run.survey.components)
            misfit = (squares / len(run.survey.x)) ** 0.5
            self.assertAlmostEqual(misfit, run.progress.misfit[-1], delta=2e-4 * max(misfit, 1.0), msg=case.__name__)

    def test_masked_data(self):
        masked = lambda values: list(np.flatnonzero(np.isnan(values)))
        component, = Run(surveys.made(surveys.gravity)).survey.components
        for values in (component.observed, component.predicted, component.deviation, component.zscore):
            self.assertEqual(masked(values), [3, 17])
        first, second = Run(surveys.made(surveys.joint)).survey.components
        self.assertEqual((masked(first.observed), masked(second.observed)), ([3, 5], [5, 8]))
        self.assertEqual((masked(first.zscore), masked(second.zscore)), ([3, 5], [5, 8]))
        folder = surveys.made(surveys.magnetic)
        component, = Run(folder).survey.components
        data = [row[3] for row in read_data(os.path.join(folder, 'd.obs'), magnetic=True)]
        outside = [i for i, d in enumerate(data) if d < -1000.0 or d == max(data)]
        self.assertEqual(masked(component.observed), outside)

    def test_noise_level_counts_components_and_masked_data(self):
        count = len(surveys.STATIONS)
        self.assertAlmostEqual(Run(surveys.made(surveys.gravity)).noise_level ** 2, (count - 2) / count)
        self.assertAlmostEqual(Run(surveys.made(surveys.joint)).noise_level ** 2, (2 * count - 4) / count)

    def test_shift_and_error_table(self):
        """Observed and predicted data are those of the table that the run wrote, which has two decimals."""
        for case in (surveys.gravity, surveys.magnetic):
            folder = surveys.made(case)
            component, = Run(folder).survey.components
            rows = [line.split() for line in surveys.read(folder, 'voxlith_error.dat').splitlines()[1:]]
            for i, row in enumerate(rows):
                if '*' in row[3]:
                    self.assertTrue(np.isnan(component.observed[i]))
                    continue
                self.assertAlmostEqual(component.observed[i], float(row[3]), delta=0.0051)
                self.assertAlmostEqual(component.predicted[i], float(row[4]), delta=0.0051)
                self.assertAlmostEqual(component.zscore[i], float(row[6]),
                                       delta=0.0051 + 1e-3 * abs(component.zscore[i]))

    def test_names_and_units(self):
        names = lambda case: [(c.name, c.unit) for c in Run(surveys.made(case)).survey.components]
        self.assertEqual(names(surveys.gravity), [('Gz', 'mGal')])
        self.assertEqual(names(surveys.joint), [('Gz', 'mGal'), ('TMI', 'nT')])

    def test_sensitivities_taken_away(self):
        """Without the large files the log tells what was measured."""
        folder = surveys.copy(surveys.joint)
        want = [c.zscore for c in Run(folder).survey.components]
        os.remove(os.path.join(folder, 'g.mtx'))
        os.remove(os.path.join(folder, 't.mtx'))
        run = Run(folder)
        self.assertEqual([c.unit for c in run.survey.components], ['mGal', 'nT'])
        for a, b in zip(want, run.survey.components):
            np.testing.assert_array_equal(a, b.zscore)
        self.assertRaises(Missing, run.models)

    def test_before_the_first_prediction(self):
        folder = surveys.copy(surveys.gravity)
        os.remove(os.path.join(folder, 'voxlith.pre'))
        component, = Run(folder).survey.components
        self.assertIsNone(component.predicted)
        self.assertEqual(np.isfinite(component.observed).sum(), len(surveys.STATIONS) - 2)

    def test_data_file_of_another_survey(self):
        folder = surveys.copy(surveys.gravity)
        surveys.write(folder, 'd.obs', '1\n1 2 3 4 5\n')
        with self.assertRaises(FormatError) as caught:
            Run(folder).survey
        self.assertEqual(str(caught.exception), '%s/voxlith.pre holds 42 records, %s/d.obs only 1' % (folder, folder))


class Models(unittest.TestCase):
    def test_order_of_cells(self):
        folder = surveys.copy(surveys.gravity)
        surveys.write(folder, 'voxlith.den', ''.join('%d\n' % p for p in range(8 * 6 * 4)))
        model, = Run(folder).models()
        for p, x, y, depth in surveys.MESH.cells():
            i, j, k = int((x - 1000) // 100), int((y - 2000) // 100), int(depth // 80)
            self.assertEqual(model.values[j, i, k], p)
        mesh = Run(folder).mesh
        self.assertEqual((mesh.x[0], mesh.y[-1], mesh.z[0], mesh.z[-1]), (1000.0, 2600.0, 120.0, -200.0))

    def test_final_running_and_stored_models(self):
        folder = surveys.copy(surveys.gravity)
        flat = lambda models: models[0].values.ravel()
        np.testing.assert_array_equal(flat(Run(folder).models()), read_values(os.path.join(folder, 'voxlith.den')))
        np.testing.assert_array_equal(flat(Run(folder).models(15)),
                                      read_values(os.path.join(folder, 'voxlith_iter_015.den')))
        with self.assertRaises(FormatError) as caught:
            Run(folder).models(7)
        self.assertEqual(str(caught.exception), '%s holds no model of iteration 7 (voxlith_iter_007.den)' % folder)

        # A new run in the folder of a finished one: its running model counts, not the final one of the other.
        log = surveys.read(folder, 'voxlith.log')
        surveys.write(folder, 'voxlith.log', log[:log.rindex('VOXLITH ended')])
        surveys.write(folder, 'voxlith.rho', '7.0\n' * 192)
        self.assertEqual(flat(Run(folder).models())[0], 7.0)
        os.remove(os.path.join(folder, 'voxlith.rho'))
        os.remove(os.path.join(folder, 'voxlith.den'))
        with self.assertRaisesRegex(Missing, r'holds no model yet \(voxlith.rho\)$'):
            Run(folder).models()

    def test_several_models(self):
        folder = surveys.made(surveys.joint)
        dense, magnetic = Run(folder).models()
        self.assertEqual((dense.label, dense.quantity, dense.unit), ('dens', 'Density', 'g/cm³'))
        self.assertEqual((magnetic.label, magnetic.quantity, magnetic.unit), ('susc', 'Susceptibility', '× 0.5 SI'))
        np.testing.assert_array_equal(magnetic.values.ravel(), read_values(os.path.join(folder, 'voxlith_susc.den')))
        self.assertEqual(len(Run(folder).models(5)), 2)

    def test_models_without_labels(self):
        folder = surveys.copy(surveys.joint)
        text = surveys.read(folder, 'voxlith.inp').replace('dens susc', '')
        surveys.write(folder, 'voxlith.inp', text)
        for name, number in (('dens', '01'), ('susc', '02')):
            os.rename(os.path.join(folder, 'voxlith_%s.den' % name), os.path.join(folder, 'voxlith_%s.den' % number))
        self.assertEqual([model.label for model in Run(folder).models()], ['01', '02'])

    def test_wrong_mesh(self):
        folder = surveys.copy(surveys.gravity)
        surveys.write(folder, 'voxlith.den', '0.1\n')
        with self.assertRaises(FormatError) as caught:
            Run(folder).models()
        self.assertEqual(str(caught.exception), '%s/voxlith.den holds 1 values; the mesh has 192 cells' % folder)

    def test_styles(self):
        for case, style in ((surveys.gravity, 0), (surveys.surface, 3), (surveys.apparent, 2)):
            self.assertEqual(Run(surveys.made(case)).style, style)
        for case, style in ((surveys.gravity, 0), (surveys.surface, 3)):
            folder = surveys.copy(case)
            os.remove(os.path.join(folder, 'voxlith.log'))
            self.assertEqual(Run(folder).style, style, 'without a log')


class Folder(unittest.TestCase):
    def test_no_folder(self):
        with self.assertRaisesRegex(FormatError, '^/nowhere is no folder$'):
            Run('/nowhere')

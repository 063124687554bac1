"""The run in a folder: which files belong to it, and their numbers put together for the pictures.

Nothing is read before a picture asks for it, so that a picture whose files are there is drawn though others are
missing.
"""
import os
from dataclasses import dataclass
from functools import cached_property

import numpy as np

from . import formats
from .formats import FormatError, Missing

TYPE_NAMES = {1: 'TMI', 2: 'Gzz', 3: 'VKa', 4: 'VKc', 5: 'Gne', 6: 'Guv', 10: 'Gxx', 11: 'Gyy', 12: 'Gzz', 13: 'Gxy',
              14: 'Gxz', 15: 'Gyz', 20: 'Tx', 21: 'Ty', 22: 'Tz'}


def type_name(code):
    return TYPE_NAMES.get(code, 'Gz')


def type_unit(code):
    if code in (1, 20, 21, 22):
        return 'nT'
    return 'Eötvös' if code in TYPE_NAMES else 'mGal'


@dataclass
class Component:
    """One component of the data in its unit; NaN where masked. `predicted` is None before a run has predicted
    anything."""
    name: str
    unit: str
    observed: np.ndarray
    predicted: np.ndarray = None
    deviation: np.ndarray = None

    @property
    def residual(self):
        return self.predicted - self.observed

    @property
    def zscore(self):
        return self.residual / self.deviation


@dataclass
class Survey:
    x: np.ndarray
    y: np.ndarray
    components: list
    lines: list


@dataclass
class Mesh:
    """Nodes in the coordinates of the data file: x, y and elevation, the last falling from the top."""
    x: np.ndarray
    y: np.ndarray
    z: np.ndarray


@dataclass
class Model:
    """One model type: values by (y, x, z), NaN in absent cells and in `air`, cells that bounds hold at zero. `number`
    counts from 0."""
    number: int
    label: str
    quantity: str
    unit: str
    values: np.ndarray
    air: np.ndarray = None


class Run:
    """`control`: name of the control file within the folder."""

    def __init__(self, folder, control='voxlith.inp'):
        self.folder, self.control_name = folder, control
        if not os.path.isdir(folder):
            raise FormatError('%s is no folder' % folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def has(self, name):
        return os.path.isfile(self.path(name))

    @cached_property
    def control(self):
        return formats.read_control(self.path(self.control_name))

    @cached_property
    def log(self):
        return formats.read_log(self.path('voxlith.log')) if self.has('voxlith.log') else formats.Log()

    @cached_property
    def progress(self):
        return formats.read_progress(self.path('voxlith.aux'))

    @cached_property
    def mtx(self):
        """The head of the last sensitivity file, whose nodes are the ones in force."""
        return formats.read_mtx(self.path(self.control.mtx_files[-1]))

    @cached_property
    def data_types(self):
        """The type code of each sensitivity file. A file that was taken away is known by its name in the log."""
        codes = []
        by_name = {name: code for code, name in reversed(TYPE_NAMES.items())}
        for i, name in enumerate(self.control.mtx_files):
            if self.has(name) or i >= len(self.log.data_types):
                codes.append(formats.read_mtx(self.path(name)).data_type)
            else:
                codes.append(by_name.get(self.log.data_types[i], 0))
        return codes

    @property
    def magnetic(self):
        return self.data_types[0] == 1 or self.data_types[0] >= 20

    @property
    def iteration(self):
        """The last iteration in the table; None when there is no table yet."""
        try:
            return int(self.progress.iteration[-1])
        except Missing:
            return None

    @property
    def noise_level(self):
        """The RMS misfit of data that are matched to one deviation each: the run divides by the number of stations,
        counts all components and takes masked data for matched."""
        try:
            components = self.survey.components
        except Missing:
            return 1.0
        valid = sum(np.isfinite(component.observed).sum() for component in components)
        return float(np.sqrt(valid / len(self.survey.x)))

    @cached_property
    def survey(self):
        count, first = self.control.components, self.data_types[0]
        predicted = None
        if self.has('voxlith.pre'):
            predicted = formats.read_data(self.path('voxlith.pre'), count, self.magnetic, first == 1, predicted=True)
        most = len(predicted.x) if predicted else None
        lined = self.control.interval > 0.0
        name = self.control.data_file
        observed = formats.read_data(self.path(name), count, self.magnetic, first == 1, lined=lined, most=most)
        if predicted and len(observed.x) < most:
            raise FormatError('%s holds %d records, %s only %d'
                              % (self.path('voxlith.pre'), most, self.path(name), len(observed.x)))
        components = [self._component(c, observed, predicted) for c in range(count)]
        return Survey(observed.x, observed.y, components, observed.lines)

    def _component(self, c, observed, predicted):
        terms = self.control.terms[c]
        code = self.data_types[terms[0][0]] if terms else 0
        name = 'amplitude of T' if self.control.amplitude[c] else type_name(code)
        values = observed.values[c].copy()
        low, high = self.log.limits.get(c, (0.0, 0.0))
        if high > low:
            values[(values < low) | (values > high)] = np.nan
        values += self.log.shift
        if predicted is None:
            return Component(name, type_unit(code), values)
        deviation, modelled = predicted.deviations[c], predicted.values[c].copy()
        # The first component of a record decides whether the run writes data or data over deviations.
        normalised = ~(predicted.deviations[0] > 0.0)
        modelled[normalised] *= deviation[normalised]
        masked = ~(deviation > 0.0) | np.isnan(values)
        values[masked], modelled[masked] = np.nan, np.nan
        return Component(name, type_unit(code), values, modelled, np.where(masked, np.nan, deviation))

    @property
    def style(self):
        """The inversion style that the log names; without a log, the one that the sensitivity file implies."""
        if self.log.style is not None:
            return self.log.style
        layers = self.mtx.padded_layers
        return (1 if layers == 1 else 3) if layers < len(self.mtx.z_nodes) - 1 else 0

    @cached_property
    def mesh(self):
        head = self.mtx
        elevation = -head.z_nodes if head.z_nodes[-1] > head.z_nodes[0] else head.z_nodes
        return Mesh(head.x_nodes, head.y_nodes, elevation)

    def models(self, iteration=None):
        """All model types: of the end of a finished run, of the last iteration of another, or of a stored iteration."""
        shape = (len(self.mesh.y) - 1, len(self.mesh.x) - 1, len(self.mesh.z) - 1)
        found = []
        held = self._held_cells(shape)
        for number, path in enumerate(self._model_paths(iteration)):
            values = formats.read_model(path, shape[0] * shape[1] * shape[2]).reshape(shape)
            quantity, unit = self._model_unit(number)
            air = held & (values == 0.0)
            values[air] = np.nan
            found.append(Model(number, self._model_label(number), quantity, unit, values, air))
        return found

    def _held_cells(self, shape):
        """Cells that a bounds file holds at zero. Two numbers in place of a name are bounds of all cells."""
        text = self.control.bounds
        if text in ('null', 'NULL') or len(formats.free_numbers(text, 2)) == 2 or not self.has(text):
            return np.zeros(shape, dtype=bool)
        return formats.read_held_at_zero(self.path(text), shape[0] * shape[1] * shape[2]).reshape(shape)

    def _model_label(self, number):
        if self.control.models == 1:
            return ''
        return self.control.labels[number] or '%02d' % (number + 1)

    def _model_unit(self, number):
        """Quantity and unit. A coefficient that all products of the model share makes its unit smaller or larger."""
        products = [(mtx, factor) for terms in self.control.terms for mtx, model, factor in terms if model == number]
        magnetic = any(self.data_types[mtx] in (1, 20, 21, 22) for mtx, _ in products)
        factors = {factor for _, factor in products}
        scale = '× %g ' % factors.pop() if len(factors) == 1 and factors != {1.0} else ''
        return ('Susceptibility', scale + 'SI') if magnetic else ('Density', scale + 'g/cm³')

    def _model_paths(self, iteration):
        labels = [self._model_label(number) for number in range(self.control.models)]
        final, running = ('.sus', '.kap') if self.magnetic else ('.den', '.rho')
        if iteration is not None:
            return [self._stored_path(iteration, label + final) for label in labels]
        stems = ['voxlith_' + label if label else 'voxlith' for label in labels]
        for suffix in (final, running) if self.log.finished else (running, final):
            if all(self.has(stem + suffix) for stem in stems):
                return [self.path(stem + suffix) for stem in stems]
        raise Missing('%s holds no model yet (%s%s)' % (self.folder, stems[0], running))

    def _stored_path(self, iteration, end):
        names = ['voxlith_iter_%0*d%s' % (digits, iteration, end) for digits in (3, 4, 5)]
        for name in names:
            if self.has(name):
                return self.path(name)
        raise Missing('%s holds no model of iteration %d (%s)' % (self.folder, iteration, names[0]))

"""Data and sensitivities by prisms beside the same responses in NumPy, each corner of the mesh once per station.

NumPy's kernel works on planes of corners that stay in the cache, in place, and takes differences along the three axes. One
thread each. Needs numpy.
"""
import os
import resource
import subprocess
import time

import numpy as np

from benchmarks import Line

CELLS = (100, 100, 24)
WIDTHS = (50.0, 50.0, 25.0)
STATIONS = 60
ROUNDS = 3
FIELD = (60.0, 10.0, 50000.0)  # inclination, declination, nT
PREDICT_GOAL = 0.25
# Before the vector kernels mtx took 2.48 and 2.16 times as long as NumPy's kernel (gz, tmi); the goal is 2.5 times less.
MTX_GOALS = {'gz': 2.48 / 2.5, 'tmi': 2.16 / 2.5}


def write_survey(folder):
    """Mesh, stations of two numbers, model. Returns stations and model."""
    random = np.random.default_rng(2)
    with open(os.path.join(folder, 'prisms.msh'), 'w') as f:
        f.write('%d %d %d\n0 0 0\n' % CELLS + ''.join('%d*%g\n' % pair for pair in zip(CELLS, WIDTHS)))
    extent = np.array(CELLS[:2]) * WIDTHS[:2]
    stations = np.column_stack([random.uniform(0.1, 0.9, (STATIONS, 2)) * extent, random.uniform(20, 30, STATIONS)]).round(2)
    model = random.uniform(0, 1, CELLS[1::-1] + CELLS[2:]).round(4)
    np.savetxt(os.path.join(folder, 'prisms.mod'), model.ravel(), '%.4f')
    for count in (1, STATIONS):
        with open(os.path.join(folder, 'prisms-%d.obs' % count), 'w') as f:
            f.write('%g %g %g\n%g %g 1\n%d\n' % (*FIELD, *FIELD[:2], count))
            np.savetxt(f, np.column_stack([stations[:count], np.zeros(count), np.ones(count)]), '%.2f')
        with open(os.path.join(folder, 'prisms-gz-%d.obs' % count), 'w') as f:
            f.write('%d\n' % count)
            np.savetxt(f, np.column_stack([stations[:count], np.zeros(count), np.ones(count)]), '%.2f')
    return stations, model


def unit_vector(inclination, declination):
    i, d = np.radians([inclination, declination])
    return np.array([np.cos(i) * np.sin(d), np.cos(i) * np.cos(d), np.sin(i)])


def corner_plane(kind, x, y, z, work):
    """Corner terms of the plane at y, shape (x, z)."""
    r, a, b, total = work
    np.hypot(x, z, out=a)
    np.hypot(a, y, out=r)
    if kind == 'gz':
        np.multiply(z, r, out=a)
        np.divide(x * y, a, out=a)
        np.arctan(a, out=a)
        np.multiply(a, z, out=total)
        np.add(r, y, out=a)
        np.log(a, out=a)
        total -= np.multiply(a, x, out=a)
        np.add(r, x, out=a)
        np.log(a, out=a)
        a *= y
        total -= a
        return total
    f = unit_vector(*FIELD[:2])
    total[...] = 0
    for along, other, across, weight in ((y, z, x, f[0] * f[0]), (x, z, y, f[1] * f[1]), (x, y, z, f[2] * f[2])):
        np.multiply(across, r, out=a)
        np.divide(along * other, a, out=a)
        np.arctan(a, out=a)
        a *= weight
        total -= a
    for along, weight in ((z, 2 * f[0] * f[1]), (y, 2 * f[0] * f[2]), (x, 2 * f[1] * f[2])):
        np.add(r, along, out=a)
        np.log(a, out=a)
        a *= weight
        total += a
    return total


def numpy_datum(kind, station, model, nodes, work):
    x, y, z = (n - s for n, s in zip(nodes, (station[0], station[1], -station[2])))
    x, z = x[:, None], z[None, :]
    south = corner_plane(kind, x, y[0], z, work).copy()
    datum = 0.0
    for j in range(CELLS[1]):
        north = corner_plane(kind, x, y[j + 1], z, work)
        np.subtract(north, south, out=south)
        cells = np.diff(np.diff(south, axis=0), axis=1)
        datum += np.vdot(cells, model[j])
        south[...] = north
    return datum * (6.67430e-3 if kind == 'gz' else FIELD[2] / (4 * np.pi))


def numpy_data(kind, stations, model):
    nodes = [np.arange(n + 1) * w for n, w in zip(CELLS, WIDTHS)]
    work = np.empty((4, CELLS[0] + 1, CELLS[2] + 1))
    return np.array([numpy_datum(kind, station, model, nodes, work) for station in stations])


def cpu_of(command, folder):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, cwd=folder, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime - before.ru_utime


def written_data(path):
    return np.array([float(line.split()[3]) for line in open(path) if '!' not in line and len(line.split()) == 5])


def measure(settings, kind, stations, model):
    """CPU seconds of `predict`, `mtx` and NumPy for all stations but one, medians of rounds."""
    folder = settings.folder
    prefix = 'prisms-gz' if kind == 'gz' else 'prisms'
    forward = os.path.join(settings.build, 'tools', 'voxlith-forward')
    times = []
    for _ in range(ROUNDS):
        row = []
        for command in (['predict', '--model', 'prisms.mod', '--out', 'prisms.out'], ['mtx', '--out', 'prisms.mtx']):
            one, all_of = (cpu_of([forward, *command, '--mesh', 'prisms.msh', '--stations', '%s-%d.obs' % (prefix, count),
                                   '--type', kind, '--threads', '1'], folder) for count in (1, STATIONS))
            row.append(all_of - one)
        start = time.process_time()
        data = numpy_data(kind, stations[1:], model)
        row.append(time.process_time() - start)
        times.append(row)
    written = written_data(os.path.join(folder, 'prisms.out'))[1:]
    if not np.allclose(written, data, rtol=1e-5, atol=1e-6 * np.abs(data).max()):
        raise RuntimeError('NumPy and predict give different data')
    return np.array(times)


def run(settings, name):
    stations, model = write_survey(settings.folder)
    for kind in ('gz', 'tmi'):
        times = measure(settings, kind, stations, model)
        for column, (work, goal) in enumerate((('predict', PREDICT_GOAL), ('mtx', MTX_GOALS[kind]))):
            ratios = times[:, column] / times[:, 2]
            yield Line('%s %s, %d x %d x %d cells' % (work, kind, *CELLS), "NumPy's responses", float(np.median(ratios)), goal,
                       ratios.min(), ratios.max(), 'ms a station: %.2f beside %.2f'
                       % tuple(1000 * np.median(times[:, [column, 2]], axis=0) / (STATIONS - 1)))

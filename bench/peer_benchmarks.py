"""Whole runs of voxlith beside SciPy on the same compressed matrix, data and mesh, each in a process of its own, one thread.

Every solver starts from nothing, reads the sensitivity file, and ends when its RMS misfit is 1. LSQR and LSMR work on the wavelet
coefficients of the model, where they need no transform: they know neither bounds nor model norm. L-BFGS-B has the bounds of voxlith.
The dense solution is that of least norm by a Cholesky factor of G G'. Needs numpy and scipy.

    peer_benchmarks.py FOLDER SOLVER     a solver by itself; prints seconds of CPU and the RMS misfit
"""
import os
import resource
import subprocess
import sys
import time

import numpy as np

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(HERE, '..', 'python')]
from benchmarks import Line  # noqa: E402

CASES = {'small': (64, 64, 16, 24), 'large': (128, 128, 32, 40)}  # cells, stations along a side
DENSE_LIMIT = 1 << 30  # bytes
CELL = 50.0
CONTROL = ('0 1 1 1\n2 0 0\n0.001 0.002 0\ndata.obs\nrows.mtx\n0.0\n0.0\n0.0,1.0\n0.0001 1. 1. 1.\nnull\n0\n200 0 0\n')


def write_files(folder, nx, ny, nz, side):
    """Mesh, stations, two blocks and the control file of a case."""
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, 'mesh.msh'), 'w') as f:
        f.write('%d %d %d\n0 0 0\n%d*%g\n%d*%g\n%d*%g\n' % (nx, ny, nz, nx, CELL, ny, CELL, nz, CELL / 2))
    place = np.linspace(0.05, 0.95, side)
    with open(os.path.join(folder, 'stations.obs'), 'w') as f:
        f.write('%d\n' % side ** 2)
        f.writelines('%.2f %.2f 20 0 1\n' % (x * nx * CELL, y * ny * CELL) for y in place for x in place)
    model = np.zeros((ny, nx, nz))
    model[ny // 4:ny // 2, nx // 4:nx // 2, 2:6] = 0.5
    model[ny // 2:3 * ny // 4, 5 * nx // 8:3 * nx // 4, 4:10] = 0.3
    np.savetxt(os.path.join(folder, 'true.mod'), model.ravel(), '%.1f')
    with open(os.path.join(folder, 'voxlith.inp'), 'w') as f:
        f.write(CONTROL)


def forward_command(settings, name):
    return [os.path.join(settings.build, 'tools', 'voxlith-forward'), name, '--mesh', 'mesh.msh', '--type', 'gz', '--threads', '1']


def write_data(settings, folder):
    """Data of the two blocks with noise."""
    child_seconds([*forward_command(settings, 'predict'), '--stations', 'stations.obs', '--model', 'true.mod', '--out', 'data.obs',
                   '--noise', '3,0.1'], folder)


def write_case(settings, case):
    """Files, data and sensitivities of a case. Returns folder and CPU seconds of `mtx`."""
    folder = os.path.join(settings.folder, 'peers-' + case)
    write_files(folder, *CASES[case])
    write_data(settings, folder)
    seconds, _ = child_seconds([*forward_command(settings, 'mtx'), '--stations', 'data.obs', '--out', 'rows.mtx'], folder)
    return folder, seconds


def child_seconds(command, folder):
    """CPU seconds and largest resident bytes of a process; what it wrote to standard output is in `output`."""
    with open(os.path.join(folder, 'output'), 'w') as output:
        child = subprocess.Popen(command, cwd=folder, stdout=output,
                                 env={**os.environ, 'OMP_NUM_THREADS': '1', 'OPENBLAS_NUM_THREADS': '1'})
        _, status, usage = os.wait4(child.pid, 0)
    if os.waitstatus_to_exitcode(status):
        raise RuntimeError('%s failed in %s' % (command[0], folder))
    return usage.ru_utime + usage.ru_stime, 1024 * usage.ru_maxrss


def run_voxlith(settings, folder):
    """CPU seconds until the RMS misfit is 1, and largest resident bytes."""
    child = subprocess.Popen([settings.voxlith, 'voxlith.inp'], cwd=folder, stdout=subprocess.PIPE, text=True)
    begun, iterations = False, 0
    for line in child.stdout:
        begun = begun or 'Iterations ' in line
        words = line.split()
        if begun and len(words) >= 5 and words[0].isdigit():
            iterations = int(words[0])
            if float(words[1]) <= 1:
                break
    else:
        raise RuntimeError('voxlith does not reach an RMS misfit of 1 in ' + folder)
    with open('/proc/%d/schedstat' % child.pid) as f:
        seconds = int(f.read().split()[0]) * 1e-9
    with open('/proc/%d/status' % child.pid) as f:
        peak = next(1024 * int(line.split()[1]) for line in f if line.startswith('VmHWM'))
    child.kill()
    child.wait()
    child.stdout.close()
    return seconds, peak, iterations


def read_problem(folder):
    """Matrix over the wavelet coefficients and data, both divided by the uncertainties, and the sensitivities."""
    import scipy.sparse

    from voxlith import Sensitivity, Survey
    survey = Survey.read(os.path.join(folder, 'data.obs'), 'gz')
    uncertainty = survey.uncertainty[0]
    sensitivity = Sensitivity(os.path.join(folder, 'rows.mtx'))
    header = sensitivity.header
    starts, columns, values = [0], [], []
    for row, scale in zip(sensitivity.rows(), 1 / uncertainty):
        columns.append(row.positions - 1)
        values.append(row.values * scale)
        starts.append(starts[-1] + len(row.values))
    shape = (len(uncertainty), header.npy * header.npx * header.npz)
    matrix = scipy.sparse.csr_matrix((np.concatenate(values), np.concatenate(columns), starts), shape)
    return matrix, survey.data[0] / uncertainty, sensitivity


def uncertainties(folder):
    from voxlith import Survey
    return Survey.read(os.path.join(folder, 'data.obs'), 'gz').uncertainty[0]


class Reached(Exception):
    """The RMS misfit is 1."""


def solve_krylov(folder, name):
    import scipy.sparse.linalg
    matrix, data, _ = read_problem(folder)
    enough = np.sqrt(len(data)) / np.linalg.norm(data)
    x = getattr(scipy.sparse.linalg, name)(matrix, data, atol=0, btol=enough, conlim=0)[0]
    return matrix @ x - data


def solve_lbfgsb(folder):
    import scipy.optimize

    from voxlith.wavelet import Filter, forward_transform, inverse_transform
    matrix, data, sensitivity = read_problem(folder)
    header = sensitivity.header
    bank, cells = Filter(header.low, header.high), (header.ny, header.nx, header.nz)
    padded = (header.npy, header.npx, header.npz)
    weight = sensitivity.header.depth_weight.astype(float).ravel()
    transposed = matrix.T.tocsr()
    last = {}

    def objective(x):
        coefficients = forward_transform(x.reshape(cells), bank, padded)
        residual = matrix @ coefficients.ravel() - data
        gradient = inverse_transform((transposed @ residual).reshape(padded), bank, cells)
        last['residual'] = residual
        return 0.5 * residual @ residual, gradient.ravel()

    def check(_):
        if np.sqrt(np.mean(last['residual'] ** 2)) <= 1:
            raise Reached
    try:
        scipy.optimize.minimize(objective, np.zeros(weight.size), jac=True, method='L-BFGS-B', callback=check,
                                bounds=scipy.optimize.Bounds(0 * weight, 1.0 * weight), options={'maxcor': 20, 'maxiter': 500})
    except Reached:
        pass
    return last['residual']


def solve_dense(folder):
    import scipy.linalg
    matrix, data, sensitivity = read_problem(folder)
    uncertainty = uncertainties(folder)
    dense = np.array([sensitivity.dense_row(n, weighted=True) / s for n, s in enumerate(uncertainty)])
    gram = dense @ dense.T
    # The damping that gives an RMS misfit of 1, by bisection of its logarithm.
    values, vectors = scipy.linalg.eigh(gram)
    projected = vectors.T @ data
    low, high = np.log(values.max()) - 30, np.log(values.max()) + 10
    for _ in range(60):
        middle = 0.5 * (low + high)
        residual = projected * np.exp(middle) / (values + np.exp(middle))
        low, high = (low, middle) if np.mean(residual ** 2) > 1 else (middle, high)
    model = dense.T @ (vectors @ (projected / (values + np.exp(low))))
    return dense @ model - data


SOLVERS = {'lsqr': lambda folder: solve_krylov(folder, 'lsqr'), 'lsmr': lambda folder: solve_krylov(folder, 'lsmr'),
           'L-BFGS-B': solve_lbfgsb, 'dense': solve_dense}


def run(settings, name):
    for case, (nx, ny, nz, side) in CASES.items():
        folder, sensitivity_seconds = write_case(settings, case)
        own, own_bytes, iterations = run_voxlith(settings, folder)
        text = 'to RMS 1, %d x %d x %d cells, %d data' % (nx, ny, nz, side ** 2)
        for solver in SOLVERS:
            if solver == 'dense' and 8 * nx * ny * nz * side ** 2 > DENSE_LIMIT:
                continue
            seconds, peak = child_seconds([sys.executable, __file__, folder, solver], folder)
            with open(os.path.join(folder, 'output')) as f:
                _, rms = map(float, f.read().split())
            yield Line(text, solver, own / seconds, None, note='%.2f s and %.0f MB (%d iterations) beside %.2f s and %.0f MB '
                       '(RMS %.3f); sensitivities %.1f s' % (own, own_bytes / 1e6, iterations, seconds, peak / 1e6, rms,
                                                             sensitivity_seconds))


if __name__ == '__main__':
    start = time.process_time()
    residual = SOLVERS[sys.argv[2]](sys.argv[1])
    print(time.process_time() - start, np.sqrt(np.mean(residual ** 2)))

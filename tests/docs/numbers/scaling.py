"""Numbers of docs/scaling.md: docs/measured/scaling.csv, made by bench/scaling.py, and the formulas of src/run/cost_model.cpp."""
import re

from measured import ROOT, only, says, table

ROWS = table('scaling.csv')
S, M = 1048576, 10485760


def of_source(path: str, name: str) -> float:
    """A constant of the sources."""
    found = re.search(rf'\b{name} = ([\d.e+-]+)', (ROOT / 'src' / path).read_text(encoding='utf-8'))
    if found is None:
        raise ValueError(f'{path}: no {name}')
    return float(found[1])


MODEL = 'run/cost_model.cpp'
COEFFICIENT, SHARED, SINGLE = (of_source(MODEL, name) for name in ('secondsOfCoefficient', 'sharedSecondsOfCell', 'singleSecondsOfCell'))
BYTES, OF_CELL, OF_TYPE, OF_PADDED = (of_source(MODEL, name) for name in ('ofCoefficient', 'ofCell', 'ofFurtherType', 'ofPaddedCell'))
TWO = 2.0 * of_source(MODEL, 'ofTwo')
BAND, SLAB = (of_source('sensitivity/rows/blocked_rows.h', name) for name in ('bandWidth', 'slabRows'))


def seconds(coefficients: float, cells: float, speed: float) -> float:
    return (COEFFICIENT * coefficients + SHARED * cells) / speed + SINGLE * cells


def gigabytes(coefficients: float, cells: float, padded: float) -> float:
    return (BYTES * coefficients + OF_CELL * cells + OF_PADDED * padded) * 1e-9


def value(what: str, cells: int = S, threads: int = 2, **more: object) -> float:
    return float(only(ROWS, what=what, cells=cells, threads=threads, **more)['value'])


def iteration(cells: int, least: float, threads: int) -> tuple[dict[str, str], list[float]]:
    """The row with about so many coefficients, and its median, lowest and highest time."""
    row, = (row for row in ROWS if row['what'] == 'iteration' and row['cells'] == str(cells) and row['threads'] == str(threads)
            and least <= float(row['coefficients']) < 1.1 * least)
    return row, [float(row[name]) for name in ('value', 'lowest', 'highest')]


def iteration_line(name: str, cells: int, least: float, digits: int):
    row, one = iteration(cells, least, 1)
    _, two = iteration(cells, least, 2)
    place = f'{{:.{digits}f}}'
    time = f'{place} s ({place} to {place}) | {place} s'
    count = float(row['coefficients'])
    return says(f'| {name} | {time} | {time} |', *one, seconds(count, cells, 1.0), *two, seconds(count, cells, TWO))


def size_line(name: str, cells: float, data: float, per_datum: float):
    count = data * per_datum
    left = f"| {name} | 10^{len(f'{cells:.0f}') - 1} | 10^{len(f'{data:.0f}') - 1} | {count:.1e} ".replace('e+0', 'e').replace('e+', 'e')
    digits = {'S': (1, 2, 2, 2), 'M': (0, 1, 1, 2), 'L': (0, 0, 0, 1)}[name]
    return says(left + '| {:.%df} GB | {:.%df} s | {:.%df} s | {:.%df} s |' % digits, gigabytes(count, cells, 2.0 * cells),
                *(seconds(count, cells, speed) for speed in (1.0, TWO, 8.0)))


_, EIGHT = iteration(S, 1e8, 8)
LARGE, _ = iteration(M, 9e8, 2)
STARTS = [float(row['value']) for row in ROWS if row['what'] == 'start' and row['cells'] == str(M)]
ROW = only(ROWS, what='row of mtx', cells=M)
MTX, TARGET = (only(ROWS, what=what + ', elapsed', threads=2) for what in ('mtx', 'target'))


def solver_line(name: str, solver: str, end: str):
    return says(f'| {name} | {{:.0f}} s | {{:.0f}} MB | {end} |', value(solver + ', processor', threads=1),
                value(solver + ', memory', threads=1) * 1e-6)


STATEMENTS = [
    says('seconds = {:.1e} * coefficients + {:.1e} * cells', COEFFICIENT, SHARED + SINGLE),
    says('seconds = ({:.1e} * coefficients + {:.1e} * cells) / min(n, b) + {:.1e} * cells\n\nb is', COEFFICIENT, SHARED, SINGLE),
    says('seconds = ({:.1e} * coefficients / P + {:.1e} * cells) / min(n, b) + {:.1e} * cells + (16', COEFFICIENT, SHARED, SINGLE),
    says('bytes = {:.0f} * coefficients + {:.0f} * cells + {:.0f} * cells * further model types + {:.0f} * padded cells', BYTES, OF_CELL,
         OF_TYPE, OF_PADDED),
    says('by the formula, b = {:.1f} |\n', TWO),
    iteration_line('1.05 million | 1.5 million', S, 1.5e6, 3),
    iteration_line('1.05 million | 100 million', S, 1e8, 3),
    iteration_line('10.5 million | 900 million', M, 9e8, 2),
    says('One core read {:.0f} GB/s from memory, both together {:.0f} GB/s',
         *(float(only(ROWS, what='memory pass', threads=n)['value']) * 1e-9 for n in (1, 2))),
    says('the second row took {:.3f} s ({:.3f} to {:.3f}), as with two', *EIGHT),
    says('It assumes b = {:.1f} for two threads', TWO),
    says('and a network of {:.0f} Gbit/s', of_source(MODEL, 'networkBytesPerSecond') * 8e-9),
    says('| one core | 2 threads, b = {:.1f} | 16 threads', TWO),
    size_line('S', 1e6, 1e4, 6000.0), size_line('M', 1e7, 1e5, 9000.0), size_line('L', 1e8, 1e6, 13000.0),
    says('with an RMS misfit of 1: {:,.0f} cells, {:,.0f} stations', float(MTX['cells']), float(MTX['data'])),
    says('`voxlith-tools mtx`, two threads: {:.1f} million coefficients, {:.0f} MB | {:.0f} s | {:.0f} s | {:.0f} MB |',
         float(MTX['coefficients']) * 1e-6, value('mtx, file') * 1e-6, value('mtx, processor'), float(MTX['value']),
         value('mtx, memory') * 1e-6),
    says('`voxlith-run --target-rms 1`, two threads: {:.0f} trade-offs, {:.0f} products | {:.0f} s | {:.0f} s | {:.0f} MB |',
         value('target, trade-offs'), value('target, products'), value('target, processor'), float(TARGET['value']),
         value('target, memory') * 1e-6),
    says('`voxlith`, {:.0f} iterations with a given', value('voxlith, iterations', threads=1)),
    solver_line('`voxlith`, 64 iterations with a given trade-off', 'voxlith', 'both'),
    solver_line('LSQR of SciPy', 'lsqr', 'neither'), solver_line('LSMR of SciPy', 'lsmr', 'neither'),
    solver_line('L-BFGS-B of SciPy', 'L-BFGS-B', 'bounds'),
    says('at full size with {:,.0f} cells', float(LARGE['cells'])),
    says('The sensitivities of {:.0f} stations were computed, with {:.0f} coefficients per datum', float(ROW['data']),
         float(ROW['coefficients']) / float(ROW['data'])),
    says('until there were 900 million coefficients ({:,.0f} data, a file of {:.1f} GB)', float(LARGE['data']),
         8e-9 * float(LARGE['coefficients'])),
    says('The start took {:.0f} to {:.0f} s', min(STARTS), max(STARTS)),
    says('The run needed {:.1f} GB, and the formula gives {:.1f} GB', value('memory', M) * 1e-9,
         gigabytes(float(LARGE['coefficients']), M, 256 * 256 * 256)),
    says('`mtx` took {:.2f} s for each of these rows. So 100,000 rows take {:.1f} hours', float(ROW['value']),
         float(ROW['value']) * 1e5 / 3600.0),
    says('bands of {:.0f} used columns', BAND), says('whole groups of {:.0f} rows', SLAB), says('than groups of {:.0f} rows do not help', SLAB),
    says('blocks of {:.0f} cells', of_source('optim/lbfgsb/block_kernels.h', 'blockLength')),
]
GIVEN = [
    'with 16 cores each', 'Slurm 22.05', '(Intel Xeon, AVX-512)', '(16 * used columns + 8 * data) / network',
    'four machines with 16 cores each', 'The table assumes 6000 per datum for a million cells, and 9000 and 13000 for the larger meshes',
    '16 threads, b = 8', '| S | 10^6 | 10^4 | 6.0e7', '| M | 10^7 | 10^5 | 9.0e8', '| L | 10^8 | 10^6 | 1.3e10', 'an RMS misfit of 1',
    'end with status 2', 'on 1, 2, 3 and 7 threads', 'one with 1 thread and one with n', 'each has 1/P of the coefficients', '(x86-64)',
    'less than 1 MB', 'two cores of a virtual machine', '900 million coefficients (', 'So 100,000 rows', '1.05 million | 1.5 million',
    '10.5 million | 900 million', '1.05 million | 100 million',
]

"""Numbers of docs/converged-inversions.md: docs/measured/converged-costs.csv and converged-products.csv, made by the scripts of that name
in bench, and limits that tests/runs/converged_runs.py holds the programs to."""
import re

from measured import ROOT, only, says, table

COSTS, PRODUCTS = table('converged-costs.csv'), table('converged-products.csv')
TEST = (ROOT / 'tests/runs/converged_runs.py').read_text(encoding='utf-8')


def limit(name: str) -> float:
    """The limit that the test of seven starts sets."""
    found = re.search(rf'{name} <= ([\d.e-]+) \*', TEST)
    if found is None:
        raise ValueError(f'converged_runs.py: no limit of {name}')
    return float(found[1])


def cost(run: str, norm: str = 'smooth', body: str = '') -> dict[str, str]:
    return only(COSTS, run=run, norm=norm, body=body)


def norm_line(norm: str):
    first, second = (cost('two blocks', norm, body) for body in ('1', '2'))
    return says(f'| {norm} | {{:.2f}} | {{:.2f}} | {{:.2f}} | {{:.2f}} | {{:.0f}} |',
                *(float(row[name]) for row in (first, second) for name in ('peak', 'volume')), float(first['products']))


def run_line(name: str, row: dict[str, str]):
    return says(f'| {name} | {{:.0f}} | {{:.0f}} |', float(row['cells']), float(row['data']), float(row['products']), float(row['once']))


def share_line(name: str, share: str):
    row = only(PRODUCTS, share=share)
    return says(f'| {name} | {{}} | {{}} | {{}} |', row['voxlith_run'], row['scipy_variable'], row['scipy_model'])


BLOCKS, SURVEY = cost('two blocks', body='1'), cost('survey')
SAME = 'the same cells and stations'
STATEMENTS = [
    says('totals that agree within {:.2f} percent, and at models within {:.0f} percent', 100.0 * limit(r'max\(totals\) - min\(totals\)'),
         100.0 * limit('apart')),
    norm_line('smooth'), norm_line('blocky'), norm_line('compact'),
    says('shallow block: peak, true {} | volume | deep block: peak, true {} |', BLOCKS['true_peak'],
         cost('two blocks', body='2')['true_peak']),
    run_line('two blocks, {:,.0f} cells, {:.0f} stations', BLOCKS),
    run_line('a real gravity line, {:,.0f} cells, {:.0f} stations', cost('gravity line')),
    says('| a real magnetic line, the same cells and stations | {} | {} |', cost('magnetic line')['products'], cost('magnetic line')['once']),
    run_line('{:,.0f} cells, {:,.0f} gravity stations, bounds 0 to 1', SURVEY),
    says('`--per-component` | {} | |', cost('joint')['products']),
    share_line('1e-2', '0.01'), share_line('1e-3', '0.001'), share_line('1e-4', '0.0001'), share_line('1e-5', '1e-05'),
    says('it needs {:.1f} times as many products at high accuracy', float(only(PRODUCTS, share='1e-05')['scipy_model'])
         / float(only(PRODUCTS, share='1e-05')['voxlith_run'])),
]
GIVEN = [
    'unless all widths and weights are 1.', '(flag 2) is the lower bound 0.00001', 'its term in the log is 0.',
    'L-BFGS-B of SciPy to 1e-6', 'on line 12 does', 'the limit is 1000 steps', '(1e-6 by default; 1e-4 with', 'Above 100 percent',
    'R = 1 means', 'ends at 1.41 R', 'within 1 percent of R', 'sets all factors to 1', 'within 2 percent of the best',
    'The term is 0 where', 'and 0 between cells', 'has weight 0.', 'multiply it by 10', '| smooth | 2 | 2 |', '| blocky | 1 | 1 |',
    '| compact | 0 | 0.7 |', '((v/e)² + 1)<sup>p/2 - 1</sup>', 'by factors of 0.7', 'model to 0.05 of it', 'to 1e-3 of the objective',
    'by more than 2 percent of the largest', 'p = 0 of values', 'p = 0 of differences', 'The powers and 0.05 were',
    'one solution to 1e-4', 'gravity stations, bounds 0 to 1', '| 1e-2 |', '| 1e-3 |', '| 1e-4 |', '| 1e-5 |',
    'up to 60,000 cells, with 400 coefficients', 'up to 100 directions (40 with sensitivities on disk), 8 bytes per cell',
]

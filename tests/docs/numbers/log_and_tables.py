"""docs/log-and-tables.md quotes no measurement in its text; the log that it shows is another test's."""
from measured import says, setting

STATEMENTS = [says('only the first {:.0f} characters of a name count', setting('src/formats/short_name.h', r'shortNameWidth = (\d+)')),
              says('0 and below mean {:.0f} |', setting('src/inversion/inversion_problem.h', r'maxIterations = (\d+)'))]
GIVEN = [
    '-999 is a positivity flag', 'when above 0 |', '| 0 to 4, ', 'counts as a residual of 0', 'A value of 1 is a fit',
    'an initial model of 0.001 the terms appear as 0.0000', 'in row 0 without the root', 'blank in row 0', 'numbers 12, 22, 32 ...',
    'at most 20)', 'it stops below 0.001', 'two thirds of the z-scores are between -1 and 1, one of twenty has a magnitude above 2',
    'with status 2 and one line', 'idir below 1', 'a padded cell takes 8 and a coefficient 8', 'iRestart is above 0', 'mode -1 in',
    'with iRestart 1 when',
]

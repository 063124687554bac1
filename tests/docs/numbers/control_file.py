"""Numbers of docs/control-file.md, which defines the control file: limits that the sources set; its examples are another test's."""
from measured import says, setting

NAME = setting('src/formats/short_name.h', r'shortNameWidth = (\d+)')
MOST = setting('src/inversion/inversion_problem.h', r'maxIterations = (\d+)')
LEAST = setting('src/survey/positivity.h', r'strictPositiveMinimum = ([\d.e-]+)F')

DEFINES = True
STATEMENTS = [
    says('Only the first {:.0f} characters of a line', setting('src/base/tokens.h', r'lineWidth = (\d+)')),
    says('model and bounds files only the first {:.0f} characters', NAME),
    says('the name is longer than {:.0f} characters, and no file has the first {:.0f} characters', NAME, NAME),
    says('2: at least {:.5f}, with', LEAST),
    says('| maxIterations | integer | {:.0f} |', MOST), says('0 or less means {:.0f}.', MOST), says('there are {:.0f} iterations', MOST),
]
GIVEN = [
    '`2 2 0.3` removes 0.3 g/cm³', 'the mean over 400 m of its line', 'in runs of more than 22 iterations',
    'the unit of susceptibility is 0.03 SI',
]

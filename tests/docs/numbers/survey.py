"""Numbers of docs/survey.md: the survey of docs/tutorial-gravity.md, whose body is known, and the output that the page shows."""
import math

from measured import bodies_of, says, setting, shown

PAGE, ROW = 'survey.md', r'^ +1 +(\d+) +(\d+) +-\d+ +(\d+) '
CHOSEN, PLAIN = shown(PAGE, ROW), shown(PAGE, ROW, 1)
CORES = [shown(PAGE, r'^core of the mesh: +net ([\d.]+)', where)[0] for where in (0, 1)]
RMS = shown(PAGE, r'^ +\d+ +([\d.]+) +[\d.]+ +[\d.]+$')[0]
CONTRASTS = [setting('docs/tutorial/make_data.py', rf"Body\('{name}'.* ([\d.]+)\)") for name in ('lens', 'root')]


def volume(body) -> float:
    return math.prod(body[axis][1] - body[axis][0] for axis in ('x', 'y', 'elevation'))


MASS = sum(contrast * volume(body) * 1e-6 for contrast, body in zip(CONTRASTS, bodies_of('gravity_bodies.json'), strict=True))

STATEMENTS = [
    says('It ends at {:.0f} within {:.0f} %', RMS, 100 * max(abs(RMS - 1), 0.015)),
    says('agree within {} m, and their depths differ by {:.0f} m', math.ceil(math.dist(CHOSEN[:2], PLAIN[:2])), CHOSEN[2] - PLAIN[2]),
    says('The true mass is {:.1f} Mt: the core of the first model has {:.1f} Mt, that of the second {:.1f} Mt', MASS, *CORES),
]
GIVEN = ['the target misfit of 1', 'a loss of at most 1 % of its norm', 'the default bound of 1 g/cm³']

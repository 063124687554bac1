"""Numbers of docs/tutorial-mixed.md: the true body and the output that the page shows."""
import math

from measured import bodies_of, says, setting, shown, tutorial_table

PAGE, MAKER = 'tutorial-mixed.md', 'docs/tutorial/make_vector.py'
BODY = bodies_of('remanent_bodies.json')[0]
CENTRE = [0.5 * sum(BODY[axis]) for axis in ('x', 'y', 'elevation')]
VOLUME = math.prod(BODY[axis][1] - BODY[axis][0] for axis in ('x', 'y', 'elevation'))
AMPLITUDE, DENSITY = (setting(MAKER, rf"^MAGNETISATION, AMPLITUDE, DENSITY = '-20,200', {pattern}") for pattern in (r'([\d.]+),', r'[\d.]+, ([\d.]+)'))
MOMENT = AMPLITUDE * 50000e-9 / (4e-7 * math.pi) * VOLUME
FOUND = shown(PAGE, r'^body 1: +x (\d+), y (\d+), elevation (-\d+)')
DENSE = shown(PAGE, r'^ +1 +(\d+) +(\d+) +(-\d+)')

STATEMENTS = [
    says('{} for the total field and gravity, {} for the gradients', len(tutorial_table('remanent.csv')), len(tutorial_table('remanent_gradients.csv'))),
    says('the misfits of all eight data types are close to {:.0f}', sum(shown(PAGE, '^10' + 8 * r',([\d.]+)' + '$')) / 8),
    says('| centre of the magnetic body (x, y, elevation) | {:.0f}, {:.0f}, {:.0f} | {:.0f}, {:.0f}, {:.0f} |', *CENTRE, *FOUND),
    says('| centre of the dense body (x, y, elevation) | the same | {:.0f}, {:.0f}, {:.0f} |', *DENSE),
    says('| inclination / declination of its magnetisation | {:.0f} / {:.0f} | {:.1f} / {:.1f} |',
         setting(MAKER, r"= '(-?\d+),200'"), setting(MAKER, r"= '-20,(\d+)'"), *shown(PAGE, r'^body 1: .* (-?[\d.]+) / ([\d.]+)$')),
    says('| magnetic moment, of all cells | {:.2e} A m&sup2; | {:.2e} A m&sup2; |', MOMENT, *shown(PAGE, r'^moment: +(\S+) A m2')),
    says('| excess mass, of the core of the mesh | {:.2f} Mt | {:.3f} Mt |', DENSITY * VOLUME * 1e-6, *shown(PAGE, r'^core of the mesh: +net ([\d.]+)')),
    says('its upper bound of {:.1f} g/cm³', *shown(PAGE, r'--bounds .* 0,([\d.]+) --out')),
]
GIVEN = ['(round 0)', 'RMS misfit of all data together to 1', 'does not come close to 1']

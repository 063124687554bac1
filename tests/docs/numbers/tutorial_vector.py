"""Numbers of docs/tutorial-vector.md: the true body and the output that the page shows."""
import math

from measured import bodies_of, says, setting, shown

PAGE, MAKER = 'tutorial-vector.md', 'docs/tutorial/make_vector.py'
INCLINATION, DECLINATION = setting(MAKER, r"= '(-?\d+),200'"), setting(MAKER, r"= '-20,(\d+)'")
FIELD = [setting(MAKER, rf'^FIELD = InducingField\({before}([\d.]+)') for before in ('', r'[\d.]+, ', r'[\d.]+, [\d.]+, ')]
BOTTOM, TOP = bodies_of('remanent_bodies.json')[0]['elevation']

STATEMENTS = [
    says('(inclination {:.0f}, declination {:.0f})', INCLINATION, DECLINATION),
    says('The inducing field points to the north and downwards ({:.0f}, {:.0f})', *FIELD[:2]),
    says('an RMS misfit (second column) of {:.2f}', *shown(PAGE, r'^ +\d+ +([\d.]+) +[\d.]+ +[\d.]+$')),
    says('here {:.1f} A/m', FIELD[2] * 1e-9 / (4e-7 * math.pi)),
    says('The bounds of {:.2f} apply to each component', *shown(PAGE, r'--bounds -[\d.]+,([\d.]+) --out vector')),
    says('is at elevation {:.0f}, above the body at {:.0f} to {:.0f}, and its summed moment has an inclination of {:.0f}',
         *shown(PAGE, r'^magnetisation: .* elevation (-\d+)'), TOP, BOTTOM, *shown(PAGE, r'^moment: .* (-[\d.]+) /')),
    says('the largest amplitude is at elevation {:.0f}, and the moment has inclination {:.0f} and declination {:.0f}',
         *shown(PAGE, r'^magnetisation: .* elevation (-\d+)', 1), *shown(PAGE, r'^moment: .* (-[\d.]+) / ([\d.]+)', 1)),
]
GIVEN = ['But the model is 0 in the whole true body', '1 is the magnetisation', 'a susceptibility of 1 SI']

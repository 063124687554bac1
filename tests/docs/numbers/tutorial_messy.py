"""Numbers of docs/tutorial-messy.md: how its survey was made and the output that the page shows."""
from measured import bodies_of, says, setting, shown

PAGE, MAKER = 'tutorial-messy.md', 'docs/tutorial/make_messy.py'
EDGES = shown(PAGE, r'^edges: +west -([\d.]+), east -([\d.]+), south -([\d.]+), north -([\d.]+) mGal')
BODY = bodies_of('messy_bodies.json')[0]
BOTTOM, TOP = BODY['elevation']
ELEVATION, WIDTH, HEIGHT = shown(PAGE, r'^ +1 +\d+ +\d+ +(\d+) +\d+ +(\d+) x \d+ x (\d+)')
RMS = shown(PAGE, r'^ +\d+ +([\d.]+) +[\d.]+ +[\d.]+ +TIME')[0]

STATEMENTS = [
    says('a repeated station, a constant offset of {:.0f} mGal and a regional', setting(MAKER, r'data \+ ([\d.]+) \+')),
    says('UTM zone {:.0f} north', setting(MAKER, r"^CRS = 'EPSG:326(\d\d)'")),
    says('At the edges it is {:.2f} mGal below 0', sum(EDGES) / len(EDGES)),
    says('the RMS misfit: {:.0f} within {:.0f} %', RMS, 100 * max(abs(RMS - 1), 0.015)),
    says('the centre is {:.0f} m too deep. These cells are {:.0f} m wide and extend over {:.0f} m downwards; the true body is {:.0f} m wide and {:.0f} m high',
         0.5 * (BOTTOM + TOP) - ELEVATION, WIDTH, HEIGHT, BODY['x'][1] - BODY['x'][0], TOP - BOTTOM),
    says('the true {:.1f}: a bound', setting(MAKER, r'^CONTRAST, NOISE = ([\d.]+),')),
]
GIVEN = ['`init` fixes the inactive cells above the terrain at 0', 'the default bound of 1 g/cm³']

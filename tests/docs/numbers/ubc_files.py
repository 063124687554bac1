"""Numbers of docs/ubc-files.md: constants of the formats, an infinite slab, and the mesh of the Hamersley line."""
import math

from measured import ROOT, says, setting

LINES = (ROOT / 'examples/hamersley/mesh.msh').read_text(encoding='ascii').splitlines()
EAST, NORTH, DEPTH = (sum(map(float, line.split())) / 1000 for line in LINES[2:5])
GRAVITATION = 6.6743e-11
SLAB = 2e5 * math.pi * GRAVITATION * 100 * 1000  # mGal per km of 0.1 g/cm3

STATEMENTS = [
    says('An infinite slab of {:.1f} g/cm³ gives {:.2f} mGal per km of thickness, so {:.0f} mGal for the {:.1f} km of this mesh',
         setting('docs/ubc-files.md', r'--type gz --model ([\d.]+) '), SLAB, SLAB * DEPTH, DEPTH),
    says('The mesh is only {:.0f} x {:.0f} km wide', EAST, NORTH),
]
GIVEN = ['at or below -1e30', '99 and -99 leave a side free']

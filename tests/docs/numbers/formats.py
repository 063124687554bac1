"""Numbers of docs/formats.md, which defines the layouts of files: limits that the sources set; its examples are another test's."""
import struct

from measured import says, setting

BOUNDS = 'src/formats/bounds_file.cpp'
NO_BOUND = setting(BOUNDS, r'noBoundMagnitude = ([\d.]+)F')
NO_DATA, DUMMY = (setting('src/survey/dummy_value.h', rf'{name} = static_cast<double>\((-[\de.]+)F\)') for name in ('dummyLimit', 'dummyValue'))

DEFINES = True
STATEMENTS = [
    says('A word of more than {:.0f} characters', setting('src/base/number_scan.h', r'longestWord = (\d+)')),
    says('are cut after {:.0f} characters', setting('src/formats/short_name.h', r'shortNameWidth = (\d+)')),
    says('a word is cut at {:.0f} characters and a line at {:.0f}', *(setting('src/base/tokens.h', rf'{name} = (\d+)') for name in ('tokenWidth', 'lineWidth'))),
    says('by their first {:.0f} characters', setting('src/survey/obs_set.h', r'lineNameWidth = (\d+)')),
    says('Values at or below {:.1e} are no-data cells. In a', NO_DATA),
    says('the single-precision number {:.11e}. A', *struct.unpack('f', struct.pack('f', DUMMY))),
    says('written exactly as {:.1e} is just above it', DUMMY),
    says('with 2 at least {:.5f}, with', setting('src/survey/positivity.h', r'strictPositiveMinimum = ([\d.e-]+)F')),
    says('a magnitude of {:.1f} and more', NO_BOUND), says('a side is free when its magnitude is above {:.1f}', NO_BOUND), says('(both at most {:.1f})', NO_BOUND),
    says('only free when its magnitude is above {:.0f}', setting(BOUNDS, r'noLowerMagnitude = ([\d.]+)F')),
    says('is padded to {:.0f} characters', setting('src/formats/observed_data.cpp', r'countLineWidth = (\d+)')),
]
GIVEN = ['a block of 0.5 g/cm³ in a mesh of 8 x 6 x 4 cells']

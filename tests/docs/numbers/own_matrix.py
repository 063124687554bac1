"""docs/own-matrix.md quotes no measurement in its text; its commands and their output are another test's."""
STATEMENTS = []
GIVEN = ['With mGal for 1 g/cm³ and nT for 1 SI']

"""docs/formats.md defines the layouts of files; its examples are another test's."""
DEFINES = True
STATEMENTS = []
GIVEN = ['a block of 0.5 g/cm³ in a mesh of 8 x 6 x 4 cells']

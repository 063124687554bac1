"""docs/control-file.md defines the control file; its examples are another test's."""
DEFINES = True
STATEMENTS = []
GIVEN = ['`2 2 0.3` removes 0.3 g/cm³', 'the mean over 400 m of its line', 'there are 300 iterations', 'in runs of more than 22 iterations', 'the unit of susceptibility is 0.03 SI']

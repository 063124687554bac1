"""README.md quotes no measurement but the table of the first example, which is another test's."""
STATEMENTS = []
GIVEN = ['[BSD 3-Clause]']

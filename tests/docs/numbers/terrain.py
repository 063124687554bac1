"""docs/terrain.md quotes no measurement in its text; its commands and their output are another test's."""
STATEMENTS = []
GIVEN = ['cells of the initial model to 0.', 'on line 8', 'the initial model to 0 in inactive cells']

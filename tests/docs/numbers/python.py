"""docs/python.md quotes no measurement."""
STATEMENTS = []
GIVEN = ['Python numbers count from 0; files and messages count from 1']

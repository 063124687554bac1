"""docs/terms.md quotes no measurement."""
STATEMENTS = []
GIVEN = ['the RMS misfit is 1']

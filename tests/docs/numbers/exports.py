"""docs/exports.md quotes no measurement."""
STATEMENTS = []
GIVEN = ['these cells are 0 there']

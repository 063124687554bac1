"""docs/architecture.md quotes no measurement."""
STATEMENTS = []
GIVEN = []

"""docs/index.md has no numbers."""
STATEMENTS = []
GIVEN = []

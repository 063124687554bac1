"""docs/faq.md quotes no measurement."""
STATEMENTS = []
GIVEN = ['(1 on line 1 of the control file)']

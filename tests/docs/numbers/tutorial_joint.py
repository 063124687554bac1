"""Numbers of docs/tutorial-joint.md; its other numbers are those of its commands and of the output that it shows."""
STATEMENTS = []
GIVEN = [
    'gravity as component 1 and the total field as component 2', '30 m, exponent 3',
    'component 1 is one product, of file 1 with model 1; component 2 is the product of file 2 with model 2',
    'densities up to 1 g/cm³ and susceptibilities up to 1 SI', 'the root of 2',
]

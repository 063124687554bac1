"""docs/theory.md quotes no measurement."""
STATEMENTS = []
GIVEN = [
    'a cell with property 1', 'a susceptibility of about 0.1 SI', '| 1 / standard deviation of each datum | 1 / data unit |',
    'At iterations 12, 22, 32, ...', 'keeps all cells above 0', 'cell distances of 1 m only', 'its projected gradient is 0',
    'an RMS misfit of 1 is too smooth',
]

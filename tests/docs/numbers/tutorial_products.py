"""Numbers of docs/tutorial-products.md; its other numbers are those of its commands and of the output that it shows."""
from measured import says, shown

PAGE = 'tutorial-products.md'

STATEMENTS = [
    says('Component {:.0f} is file {:.0f} times model {:.0f} times {:.2f}: the second model has units of {:.2f} SI', 3,
         *shown(PAGE, r'^1 (\d) (\d) (0.03)$'), *shown(PAGE, r'^1 3 2 (0.03)$')),
    says('divided by {:.2f} mGal and those of the second campaign by {:.0f} nT', *shown(PAGE, r'component 2: .* to ([\d.]+)$'),
         *shown(PAGE, r'component 3: .* to ([\d.]+)$')),
]
GIVEN = ['in section 2.']

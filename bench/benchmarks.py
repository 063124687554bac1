"""What all benchmarks share: their settings and the lines of the table.

A module of benchmarks has a routine run(settings, name) that yields a `Line` for each comparison. To add a benchmark, write it in a
module of this folder and name it in the list of bench/run_all.
"""
import os
from dataclasses import dataclass


@dataclass(frozen=True)
class Settings:
    """Where the programs are, where files go, and how much is run."""

    build: str         # folder of the build
    folder: str        # surveys and runs, kept from one call to the next
    coefficients: int  # of the large runs, at least
    rounds: int        # of the kernels

    @property
    def voxlith(self):
        return os.path.join(self.build, 'voxlith')

    @property
    def tools(self):
        return os.path.join(self.build, 'tools', 'voxlith-tools')

    @property
    def kernels(self):
        return os.path.join(self.build, 'bench', 'voxlith-bench-ratios')


@dataclass(frozen=True)
class Line:
    """One comparison: `ratio` is that of work over reference, `goal` the largest that is wanted."""

    work: str
    reference: str
    ratio: float
    goal: float | None = None
    lowest: float | None = None   # of single rounds
    highest: float | None = None
    note: str = ''


LAYOUT = '%-12s %-48s %-36s %8s %8s %8s %7s %s'


def heading():
    return LAYOUT % ('benchmark', 'work', 'reference', 'ratio', 'lowest', 'highest', 'goal', '')


def table_line(name, line):
    """The line as text, with "met" or "missed" when there is a goal; a note follows on a line of its own."""
    number = lambda value: '-' if value is None else '%.3f' % value
    verdict = '' if line.goal is None else 'met' if line.ratio <= line.goal else 'missed'
    text = LAYOUT % (name, line.work, line.reference, number(line.ratio), number(line.lowest), number(line.highest),
                     number(line.goal), verdict)
    return text.rstrip() + ('\n    ' + line.note if line.note else '')

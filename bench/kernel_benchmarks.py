"""Single kernels, timed by voxlith-bench-ratios in one process with their references."""
import subprocess

from benchmarks import Line


def run(settings, name):
    """The lines of one group of voxlith-bench-ratios."""
    command = [settings.kernels, '--tabs', '--only', name, '--folder', settings.folder, '--rounds', str(settings.rounds)]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as child:
        for text in child.stdout:
            work, reference, ratio, lowest, highest, goal, note = text.rstrip('\n').split('\t')
            yield Line(work, reference, float(ratio), float(goal) if goal else None, float(lowest), float(highest), note)
    if child.returncode:
        raise RuntimeError('voxlith-bench-ratios ended with exit status %d' % child.returncode)


"""The command line of voxlith-plot."""
import argparse
import os
import sys

from . import convergence, formats, maps, profiles, sections, style, zscores
from .formats import FormatError
from .run import Run

CONTROL = 'voxlith.inp'
PICTURES = ('convergence', 'data', 'sections', 'zscores')
EXAMPLES = """examples:
  voxlith-plot run1                             all pictures of the run in run1, as PNG in run1/plots
  voxlith-plot run1 --only sections             the sections alone
  voxlith-plot . --format png pdf --out paper   PNG and PDF, in the folder paper
  voxlith-plot run1 --at 500,650,-200           sections through x 500, y 650, elevation -200
  voxlith-plot run1 --iteration 40              the model stored at iteration 40 (voxlith_iter_040.den)
  voxlith-plot run1 --control second.inp        the run that second.inp controlled

A run may still be going on: the last finished iteration is drawn. A picture whose files are not there yet is left out
with a word on standard error; one that --only asks for is an error then. Pictures of data need the control file and the
data file of the run, sections need a sensitivity file too, for the mesh.

exit status: 0 all is drawn that can be, 1 a file is missing or damaged, 2 wrong arguments"""


# The folder comes first: behind an option that takes any number of words it would be taken for one of them.
USAGE = """voxlith-plot FOLDER [--control FILE] [--out DIR] [--only PICTURE ...]
                    [--true FILE] [--at X,Y,Z] [--iteration N] [--whole-mesh]
                    [--format KIND ...]
       voxlith-plot -h | --help"""


def parse(arguments):
    parser = argparse.ArgumentParser(
        prog='voxlith-plot', usage=USAGE, epilog=EXAMPLES, formatter_class=argparse.RawDescriptionHelpFormatter,
        description='Pictures of a run of voxlith, finished or still running: convergence, data, sections through the '
                    'model, z-scores.')
    parser.add_argument('folder', metavar='FOLDER', help='the folder of the run')
    parser.add_argument('--control', default=CONTROL, metavar='FILE',
                        help='the control file, seen from FOLDER (default: voxlith.inp)')
    parser.add_argument('--out', metavar='DIR', help='where the pictures go (default: FOLDER/plots)')
    parser.add_argument('--only', nargs='+', choices=PICTURES, metavar='PICTURE',
                        help='what to draw, of: ' + ', '.join(PICTURES) + ' (default: all)')
    parser.add_argument('--true', metavar='FILE',
                        help='outlines of the true bodies, JSON (default: true_bodies.json in FOLDER, if it is there)')
    parser.add_argument('--at', type=_place, metavar='X,Y,Z',
                        help='where the sections meet, Z an elevation (default: at the largest magnitude)')
    parser.add_argument('--iteration', type=int, metavar='N', help='sections of the model stored at iteration N')
    parser.add_argument('--whole-mesh', action='store_true', help='sections with padding cells and great depths')
    parser.add_argument('--format', nargs='+', choices=('png', 'pdf'), default=['png'], metavar='KIND',
                        help='png, pdf or both (default: png)')
    return parser.parse_args(arguments)


def _place(text):
    parts = text.split(',')
    try:
        if len(parts) != 3:
            raise ValueError
        return tuple(float(part) for part in parts)
    except ValueError:
        raise argparse.ArgumentTypeError("'%s' is not three numbers with commas" % text) from None


def draw_convergence(run, asked):
    yield 'convergence', convergence.draw(run)


def draw_zscores(run, asked):
    yield 'zscores', zscores.draw(run)


def draw_data(run, asked):
    survey = run.survey
    state = '' if run.iteration is None else ', iteration %d' % run.iteration
    place = profiles.along(survey)
    for number, component in enumerate(survey.components, 1):
        suffix = '_%d' % number if len(survey.components) > 1 else ''
        title = 'Data: %s%s' % (component.name, state)
        if place is None:
            yield 'data' + suffix, maps.draw(survey, component, title)
        else:
            yield 'data' + suffix, profiles.draw_single(place, component, title)
        if survey.lines and place is None:
            yield 'profiles' + suffix, profiles.draw_lines(survey, component, title)


def draw_sections(run, asked):
    bodies = []
    if asked.true:
        bodies = formats.read_bodies(asked.true)
    elif run.has('true_bodies.json'):
        bodies = formats.read_bodies(run.path('true_bodies.json'))
    iteration = run.iteration if asked.iteration is None else asked.iteration
    for model in run.models(asked.iteration):
        title = '%s model%s%s' % (model.quantity, ' ' + model.label if model.label else '',
                                  '' if iteration is None else ', iteration %d' % iteration)
        yield ('sections_' + model.label if model.label else 'sections',
               sections.draw(run.mesh, model, bodies, title, asked.at, asked.whole_mesh, run.style))


DRAWERS = {'convergence': draw_convergence, 'data': draw_data, 'sections': draw_sections, 'zscores': draw_zscores}


def main(arguments=None):
    asked = parse(sys.argv[1:] if arguments is None else arguments)
    try:
        run = Run(asked.folder, asked.control)
        named = [asked.true] if asked.true else []
        named += [run.path(asked.control)] if asked.control != CONTROL else []
        for path in named:
            if not os.path.isfile(path):
                raise FormatError('%s is not there' % path)
        return _draw_all(run, asked)
    except (FormatError, OSError) as error:
        _say(error)
        return 1


def _say(words):
    print('voxlith-plot: %s' % words, file=sys.stderr)


def _draw_all(run, asked):
    """Draws one picture after the other. One that cannot be drawn keeps no other from being drawn."""
    out = asked.out or os.path.join(asked.folder, 'plots')
    drawn, failed = 0, False
    for picture in asked.only or PICTURES:
        try:
            for name, figure in DRAWERS[picture](run, asked):
                for path in style.save(figure, out, name, asked.format):
                    print(path, flush=True)
                drawn += 1
        except FormatError as error:
            missing = isinstance(error, formats.Missing) and not asked.only
            failed = failed or not missing
            _say('no %s: %s' % (picture, error) if missing else error)
    if not drawn and not failed:
        raise FormatError('%s holds nothing to draw' % asked.folder)
    return 1 if failed else 0

"""What every example needs: a mesh, bodies in it, a survey over it, the programs, and a look at what they found.

Coordinates are metres: x east, y north, depth down from the top of the mesh. Models are lists in the order of the files: z fastest,
then x, then y. Needs Python 3 alone.
"""
import json
import os
import random
import re
import subprocess
import sys
import time


class Mesh:
    """A tensor mesh whose top lies at elevation `top`; widths run east, north and down."""

    def __init__(self, east, north, down, corner=(0.0, 0.0), top=0.0):
        self.east, self.north, self.down = list(east), list(north), list(down)
        self.corner, self.top = corner, top
        self.nx, self.ny, self.nz = len(self.east), len(self.north), len(self.down)
        self.x = centres(self.east, corner[0])
        self.y = centres(self.north, corner[1])
        self.depth = centres(self.down, 0.0)

    def write(self, path):
        with open(path, 'w') as f:
            f.write('%d %d %d ! cells east, north, down\n' % (self.nx, self.ny, self.nz))
            f.write('%.2f %.2f %.2f ! south-west corner, top\n' % (self.corner[0], self.corner[1], self.top))
            for widths in (self.east, self.north, self.down):
                f.write(' '.join('%g' % w for w in widths) + '\n')

    def cells(self):
        """Position, x, y and depth of each cell in file order."""
        p = 0
        for y in self.y:
            for x in self.x:
                for d in self.depth:
                    yield p, x, y, d
                    p += 1

    def volumes(self):
        """The volume of each cell in file order."""
        return [e * n * d for n in self.north for e in self.east for d in self.down]

    def model(self, bodies, background=0.0):
        values = [background] * (self.nx * self.ny * self.nz)
        for p, x, y, d in self.cells():
            for body in bodies:
                if body.holds(x, y, d):
                    values[p] = body.value
        return values


class Body:
    """A box with its true property."""

    def __init__(self, name, east, north, depth, value):
        self.name, self.east, self.north, self.depth, self.value = name, east, north, depth, value

    def holds(self, x, y, d, slack=0.0):
        return (self.east[0] - slack <= x <= self.east[1] + slack and self.north[0] - slack <= y <= self.north[1] + slack
                and self.depth[0] - slack <= d <= self.depth[1] + slack)

    def volume(self):
        sides = [high - low for low, high in (self.east, self.north, self.depth)]
        return sides[0] * sides[1] * sides[2]

    def centre(self):
        return tuple(0.5 * (a + b) for a, b in (self.east, self.north, self.depth))


def centres(widths, start):
    out, at = [], start
    for w in widths:
        out.append(at + 0.5 * w)
        at += w
    return out


def grid(x0, x1, nx, y0, y1, ny, elevation):
    """Stations on a regular grid, both ends included, row by row from the south."""
    step = lambda a, b, n, i: a + (b - a) * i / (n - 1) if n > 1 else 0.5 * (a + b)
    return [(step(x0, x1, nx, i), step(y0, y1, ny, j), elevation) for j in range(ny) for i in range(nx)]


def write_stations(path, stations, field=None):
    """A data file without data: zeros with unit deviations. `field`: ((incl, decl, nT), (aincl, adecl)) makes it magnetic."""
    with open(path, 'w') as f:
        if field:
            f.write('%.2f %.2f %.2f\n%.2f %.2f 1\n' % (field[0] + field[1]))
        f.write('%d\n' % len(stations))
        for s in stations:
            f.write('%.2f %.2f %.2f 0.0 1.0\n' % s)


def write_values(path, values):
    with open(path, 'w') as f:
        f.writelines('%g\n' % v for v in values)


def write_bodies(path, mesh, *bodies_of_models):
    """The outlines of the true bodies for pictures: one list of bodies a model type."""
    listed = [{'name': body.name, 'x': body.east, 'y': body.north, 'elevation': [mesh.top - d for d in reversed(body.depth)],
               'model': number} for number, bodies in enumerate(bodies_of_models, 1) for body in bodies]
    with open(path, 'w') as f:
        json.dump({'bodies': listed}, f, indent=1)
        f.write('\n')


def read_values(path):
    with open(path) as f:
        return [float(t) for t in f.read().split()]


def read_data(path, components=1, magnetic=False):
    """Rows of a data file with deviations: [x, y, z, d1, s1, d2, s2 ...]; a datum of stars gives None twice."""
    with open(path) as f:
        lines = f.readlines()[3 if magnetic else 1:]
    number = lambda word: None if '*' in word else float(word)
    return [[number(word) for word in line.split()[:3 + 2 * components]] for line in lines]


def write_data(path, stations, columns, field=None, lines=None):
    """A data file. `columns`: for each component a list of (datum or None, deviation), one a station. `lines`: (name, time) a
    station, for runs that average along lines."""
    with open(path, 'w') as f:
        if field:
            f.write('%.2f %.2f %.2f\n%.2f %.2f 1\n' % (field[0] + field[1]))
        f.write('%d\n' % len(stations))
        for i, station in enumerate(stations):
            words = ['%.2f %.2f %.2f' % station]
            words += ['* %g' % s if d is None else '%.7g %.7g' % (d, s) for d, s in (column[i] for column in columns)]
            words += ['%s %.2f' % lines[i]] if lines else []
            f.write(' '.join(words) + '\n')


def component_rms(observed, predicted, components):
    """Of each component, the root mean square of the residuals over their deviations; rows as of read_data."""
    out = []
    for c in range(components):
        d, s = 3 + 2 * c, 4 + 2 * c
        squares = [((p[d] - o[d]) / o[s]) ** 2 for o, p in zip(observed, predicted) if o[d] is not None]
        out.append((sum(squares) / len(squares)) ** 0.5)
    return out


def noisy(values, deviations, seed):
    """(datum, deviation) a value, with normal noise of that deviation."""
    source = random.Random(seed)
    return [(v + source.gauss(0.0, s), s) for v, s in zip(values, deviations)]


def rms(values):
    return (sum(v * v for v in values) / len(values)) ** 0.5


def correlation(a, b):
    ma, mb = sum(a) / len(a), sum(b) / len(b)
    product = sum((x - ma) * (y - mb) for x, y in zip(a, b))
    return product / (sum((x - ma) ** 2 for x in a) * sum((y - mb) ** 2 for y in b)) ** 0.5


class Workbench:
    """The folder of a run and the programs that work in it."""

    program = 'voxlith'  # or voxlith-run, which leaves the same results
    launcher = ()  # a command in front of the program
    options = ()  # of voxlith-run

    def __init__(self, build, folder):
        self.build, self.folder = os.path.abspath(build), os.path.abspath(folder)
        os.makedirs(self.folder, exist_ok=True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, text):
        with open(self.path(name), 'w') as f:
            f.write(text)

    def tools(self, *arguments):
        """Runs voxlith-tools and shows what it says."""
        self._run([os.path.join(self.build, 'tools', 'voxlith-tools')] + [str(a) for a in arguments], show=True)

    def voxlith(self, *arguments):
        """Runs the inversion program; its screen goes to screen.txt. Returns the seconds it took."""
        start = time.monotonic()
        command = [*self.launcher, os.path.join(self.build, self.program), *self.options]
        self._run(command + [str(a) for a in arguments], show=False)
        return time.monotonic() - start

    def _run(self, command, show):
        print('$ ' + ' '.join([os.path.basename(command[0])] + command[1:]), flush=True)
        # Programs that start others take them from the same build.
        environment = dict(os.environ, VOXLITH_PROGRAM=os.path.join(self.build, 'voxlith'))
        done = subprocess.run(command, cwd=self.folder, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if show or done.returncode:
            sys.stdout.write(''.join('    %s\n' % line for line in done.stdout.splitlines()))
        else:
            self.write('screen.txt', done.stdout)
        if done.returncode:
            raise SystemExit('%s ended with exit status %d' % (os.path.basename(command[0]), done.returncode))

    def progress(self):
        """Rows of the progress table: (iteration, RMS misfit, model norm, total norm)."""
        rows = []
        with open(self.path('voxlith.aux')) as f:
            for line in f.readlines()[3:]:
                items = re.sub(r'[+]', ' ', line).split()
                rows.append((int(items[0]),) + tuple(float(t) for t in items[1:4]))
        return rows


def peak_near(mesh, values, body, others):
    """The largest value (by the sign of the body) among the cells that lie nearer to this body's centre, seen from above, than to
    any other's: (value, x, y, depth)."""
    def distance(b, x, y):
        cx, cy, _ = b.centre()
        return (x - cx) ** 2 + (y - cy) ** 2
    sign = 1.0 if body.value >= 0 else -1.0
    best = None
    for p, x, y, d in mesh.cells():
        if any(distance(o, x, y) < distance(body, x, y) for o in others):
            continue
        if best is None or sign * values[p] > sign * best[0]:
            best = (values[p], x, y, d)
    return best


def recovered_body(mesh, values, body, others):
    """What was recovered near a body, as in peak_near: the centre of the cells whose value is at least half the peak, weighted by
    value and volume (x, y, depth), and the sum of value times volume up to the longest side of the body away from it."""
    def distance(b, x, y):
        cx, cy, _ = b.centre()
        return (x - cx) ** 2 + (y - cy) ** 2
    peak = peak_near(mesh, values, body, others)[0]
    around = max(high - low for low, high in (body.east, body.north, body.depth))
    total, weights, sums = 0.0, 0.0, [0.0, 0.0, 0.0]
    for (p, x, y, d), volume in zip(mesh.cells(), mesh.volumes()):
        if any(distance(o, x, y) < distance(body, x, y) for o in others):
            continue
        total += values[p] * volume if body.holds(x, y, d, around) else 0.0
        if values[p] / peak >= 0.5:
            weights += values[p] * volume
            sums = [s + values[p] * volume * c for s, c in zip(sums, (x, y, d))]
    return tuple(s / weights for s in sums) + (total,)


# Of each unit of a model, the heading of the sum of value times volume and what divides it: g/cm3 times m3 is tonnes.
EXCESS = {'g/cm3': ('excess mass Mt', 1.0e6), 'SI': ('SI x volume 1e6 m3', 1.0e6)}


class Report:
    """The table at the end of an example, and what `--check` holds it to."""

    def __init__(self):
        self.failures = []

    def require(self, condition, words):
        if not condition:
            self.failures.append(words)

    def misfit(self, progress, limit):
        print('\nRMS misfit: %.3f at the start, %.3f after %d iterations' % (progress[0][1], progress[-1][1], progress[-1][0]))
        self.require(progress[-1][1] < limit, 'RMS misfit %.3f is not below %g' % (progress[-1][1], limit))

    def bodies(self, mesh, values, bodies, unit):
        """Centre, excess and peak of each body, true and recovered; each peak must lie inside its body."""
        excess = EXCESS[unit]
        print('\n%-24s %8s %8s %8s %16s %12s' % ('body', 'x m', 'y m', 'depth m', excess[0], 'peak ' + unit))
        for body in bodies:
            others = [b for b in bodies if b is not body]
            value, x, y, d = peak_near(mesh, values, body, others)
            cx, cy, cd, volume = recovered_body(mesh, values, body, others)
            numbers = '%-24s %8.0f %8.0f %8.0f %16.3g %12.3g'
            print(numbers % ((body.name + ', true',) + body.centre() + (body.value * body.volume() / excess[1], body.value)))
            inside = body.holds(x, y, d)
            print(numbers % ('  recovered', cx, cy, cd, volume / excess[1], value) + ('' if inside else '   outside the body'))
            self.require(inside, 'the peak of %s lies outside the body' % body.name)

    def components(self, names, values, limit):
        """The misfit of each component, in units of its deviations."""
        for name, value in zip(names, values):
            print('RMS of %s: %.3f' % (name, value))
            self.require(value < limit, 'the RMS %.3f of %s is not below %g' % (value, name, limit))

    def close(self, words, value, true, margin):
        """A recovered number beside the true one."""
        print('%-44s true %10.4g   recovered %10.4g' % (words, true, value))
        self.require(abs(value - true) <= margin, '%s: %g is further than %g from %g' % (words, value, margin, true))

    def below(self, words, value, limit):
        print('%-44s %10.4g (below %g)' % (words, value, limit))
        self.require(value < limit, '%s: %g is not below %g' % (words, value, limit))

    def above(self, words, value, limit):
        print('%-44s %10.4g (above %g)' % (words, value, limit))
        self.require(value > limit, '%s: %g is not above %g' % (words, value, limit))

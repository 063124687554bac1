"""Small surveys of several kinds for the robustness tests, written with the companion tools, and checks of the files of a run.

Needs only Python 3.
"""
import math
import os
import resource
import shutil
import subprocess

CELLS = (16, 16, 8)
SPACING = 50.0
INPUTS = ('voxlith.inp', 'gz.obs', 'tmi.obs', 'both.obs', 'lines.obs', 'gz.mtx', 'tmi.mtx', 'record.mtx', 'dense.mtx')


class Kind:
    """One kind of run: its control lines, its keywords, and the model files that it rewrites at every iteration."""

    def __init__(self, name, files, line1='', mode=2, interval='', last='40', model='.rho', labels=(), keywords=(), disk=False,
                 positivity=0):
        self.name, self.files, self.line1, self.mode, self.interval, self.last = name, files, line1, mode, interval, last
        self.ending, self.labels, self.keywords, self.disk = model, labels, list(keywords), disk
        self.positivity = positivity
        self.address_space = None  # bytes, for the kind that reads its rows from disk

    @property
    def iterations(self):
        return int(self.last.split()[0])

    @property
    def running_models(self):
        return ['voxlith_%s%s' % (label, self.ending) for label in self.labels] or ['voxlith' + self.ending]

    @property
    def continued_model(self):
        return 'voxlith' + self.ending

    def control(self, restart):
        lines = ['%d %s' % (restart, self.line1), '%d 0 0' % self.mode, '0.01 0.02 %d %s' % (self.positivity, self.interval), self.files[0],
                 '|'.join(self.files[1:]), '0.001', '0.0', 'null', '0.0001 1. 1. 1.', 'null', 'null', self.last]
        return '\n'.join(lines) + '\n'


def kinds():
    return [
        Kind('plain', ['gz.obs', 'gz.mtx']),
        Kind('masked', ['gz.obs', 'gz.mtx'], keywords=['ObsClip(-10,0.6)']),
        Kind('magnetic', ['tmi.obs', 'tmi.mtx'], model='.kap'),
        Kind('record', ['gz.obs', 'record.mtx']),
        Kind('joint', ['both.obs', 'gz.mtx', 'tmi.mtx'], line1='2 2 2 dens susc', labels=('dens', 'susc')),
        Kind('averaged', ['lines.obs', 'gz.mtx'], interval='2.5'),
        Kind('every-iteration', ['gz.obs', 'gz.mtx'], last='40 1'),
        Kind('line-search', ['gz.obs', 'gz.mtx'], mode=-1),
        Kind('barrier', ['gz.obs', 'gz.mtx'], positivity=2),
        Kind('from-disk', ['gz.obs', 'dense.mtx'], last='15', disk=True),
    ]


def stations():
    side = 14
    step = CELLS[0] * SPACING / side
    return [((i + 0.5) * step, (j + 0.5) * step, 2.0) for j in range(side) for i in range(side)]


def datum(x, y, strength):
    return strength * math.exp(-((x - 350.0) ** 2 + (y - 450.0) ** 2) / 3.0e4) + 0.02 * math.sin(0.03 * x + 0.011 * y)


def write(folder, name, text):
    with open(os.path.join(folder, name), 'w') as f:
        f.write(text)


def write_inputs(folder, tools):
    """Mesh, data and sensitivity files for all kinds."""
    os.makedirs(folder, exist_ok=True)
    nx, ny, nz = CELLS
    write(folder, 'survey.msh', '%d %d %d\n0 0 0\n%d*%g\n%d*%g\n%d*%g\n' % (nx, ny, nz, nx, SPACING, ny, SPACING, nz, SPACING))
    positions = stations()
    field = '60 10 50000\n60 10 1\n'
    count = '%d\n' % len(positions)
    record = lambda s, strengths: '%.2f %.2f %.2f' % s + ''.join(' %.5f 0.02' % datum(s[0], s[1], a) for a in strengths)
    write(folder, 'gz.obs', count + ''.join(record(s, [1.0]) + '\n' for s in positions))
    write(folder, 'tmi.obs', field + count + ''.join(record(s, [40.0]) + '\n' for s in positions))
    write(folder, 'both.obs', count + ''.join(record(s, [1.0, 40.0]) + '\n' for s in positions))
    write(folder, 'lines.obs', count + ''.join(record(s, [1.0]) + ' L%d %d.0\n' % (n // 14, n) for n, s in enumerate(positions)))
    for name, data, kind, more in (('gz.mtx', 'gz.obs', 'gz', []), ('tmi.mtx', 'tmi.obs', 'tmi', []),
                                   ('record.mtx', 'gz.obs', 'gz', ['--form', 'record']),
                                   ('dense.mtx', 'gz.obs', 'gz', ['--tolerance', '1e-7'])):
        subprocess.run([tools, 'mtx', '--mesh', 'survey.msh', '--stations', data, '--type', kind, '--out', name] + more,
                       cwd=folder, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def new_folder(path, inputs, kind, restart=0):
    """A folder with the inputs of a kind; sensitivity files are shared by links."""
    os.makedirs(path)
    for name in kind.files:
        os.link(os.path.join(inputs, name), os.path.join(path, name))
    write(path, 'voxlith.inp', kind.control(restart))


def limits_of(kind):
    """Sets the limits of the program's process before it starts."""
    if kind.address_space is None:
        return None
    return lambda: resource.setrlimit(resource.RLIMIT_AS, (kind.address_space, kind.address_space))


def start(program, folder, kind, arguments=(), **options):
    options.setdefault('stdout', subprocess.DEVNULL)
    options.setdefault('stderr', subprocess.PIPE)
    return subprocess.Popen([program, 'voxlith.inp'] + list(arguments) + kind.keywords, cwd=folder, stdin=subprocess.DEVNULL,
                            preexec_fn=limits_of(kind), **options)


def run(program, folder, kind, arguments=()):
    """Exit status and standard error of a whole run."""
    process = start(program, folder, kind, arguments)
    errors = process.communicate()[1].decode(errors='replace')
    return process.returncode, errors


def read(folder, name):
    with open(os.path.join(folder, name), 'rb') as f:
        return f.read().decode('latin-1')


def has(folder, name):
    return os.path.exists(os.path.join(folder, name))


def find_disk_limit(program, inputs, work, kind, arguments=()):
    """An address space large enough for everything but the rows. None when there is none (a program under a sanitizer)."""
    for kilobytes in range(4096, 65536, 512):
        kind.address_space = kilobytes * 1024
        folder = os.path.join(work, 'limit')
        shutil.rmtree(folder, ignore_errors=True)
        new_folder(folder, inputs, kind)
        status, _ = run(program, folder, kind, arguments)
        log = read(folder, 'voxlith.log') if has(folder, 'voxlith.log') else ''
        if status == 0 and 'accessed from disk' in log and ' ended on' in log.lower():
            return kind.address_space
        if status == 0 and 'accessed from memory' in log:
            break
    kind.address_space = None
    return None


def line_counts(folder):
    """Number of lines of each file that is read as a whole. Hidden versions before are those of a run that was interrupted."""
    counts = {}
    for name in os.listdir(folder):
        if name in INPUTS or name.endswith(('.part', '.previous', '.log', '.aux', '.lsv')):
            continue
        counts[name] = read(folder, name).count('\n')
    return counts


def faults_of_whole_files(folder, reference):
    """Faults of the files in a folder that must be complete, by the line counts of a reference run."""
    faults = []
    for name, lines in line_counts(folder).items():
        if name.startswith('voxlith_iter_'):
            expected = CELLS[0] * CELLS[1] * CELLS[2]
        elif name in reference:
            expected = reference[name]
        elif name == 'voxlith.rho' or name == 'voxlith.kap':
            expected = CELLS[0] * CELLS[1] * CELLS[2]
        else:
            faults.append('%s is not a file of such a run' % name)
            continue
        text = read(folder, name)
        if lines != expected or not text.endswith('\n'):
            faults.append('%s has %d lines instead of %d' % (name, lines, expected))
        elif expected == CELLS[0] * CELLS[1] * CELLS[2]:
            try:
                values = [float(word) for word in text.split()]
            except ValueError as error:
                faults.append('%s: %s' % (name, error))
            else:
                if len(values) != expected:
                    faults.append('%s has %d values instead of %d' % (name, len(values), expected))
    return faults


def whole_rows(folder):
    """Iteration numbers of the rows of voxlith.aux whose number is complete: those that a continued run counts."""
    if not has(folder, 'voxlith.aux'):
        return []
    lines = read(folder, 'voxlith.aux').split('\n')
    if len(lines[-1]) < 12:
        lines.pop()
    numbers = []
    for line in lines[4 - 1:]:
        word = line.replace('+', ' ').split()[:1]
        if word and word[0].isdigit():
            numbers.append(int(word[0]))
    return numbers

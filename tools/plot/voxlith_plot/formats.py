"""The files of a run, read one by one: control file, progress table, log, data, models, bounds, true bodies.

A reader takes a path and gives a plain record. A file that is not there or cannot be used raises FormatError, whose
words name the file and the line. A row that a running program has not ended yet counts as not there. Masked data and
absent cells are NaN.
"""
import json
from dataclasses import dataclass, field

import numpy as np

from .mtx_head import read_mtx  # noqa: F401
from .text_input import FormatError, Missing, free_numbers, number, number_at, read_text, words_of

ABSENT = -1.0e30
FAR = 1.0e30


@dataclass
class Control:
    """What the pictures need of a control file. Terms: for each component its (file, model, coefficient), from 0."""
    mtx_files: list
    data_file: str
    models: int = 1
    components: int = 1
    labels: list = field(default_factory=list)
    interval: float = 0.0
    terms: list = field(default_factory=list)
    amplitude: list = field(default_factory=list)
    bounds: str = 'null'


def read_control(path):
    lines = read_text(path).splitlines()
    if len(lines) < 9:
        raise FormatError('%s ends at line %d: a control file has at least 9 lines' % (path, len(lines)))
    plain = [line.split('!')[0].strip() for line in lines]
    first = words_of(plain[0])
    counts = []
    for word in first[1:4]:
        try:
            counts.append(int(word))
        except ValueError:
            raise FormatError("%s, line 1: '%s' is no whole number" % (path, word)) from None
    n_mtx = counts[0] if counts else 1
    n_components = counts[1] if len(counts) > 1 else n_mtx
    n_models = counts[2] if len(counts) > 2 else 1
    for count, what in ((n_mtx, 'sensitivity files'), (n_components, 'components'), (n_models, 'model types')):
        if not 1 <= count <= 6:
            raise FormatError('%s, line 1: %d %s; 1 to 6 are possible' % (path, count, what))
    if not plain[3]:
        raise FormatError('%s, line 4: no name of a data file' % path)
    line3 = free_numbers(plain[2], 4)
    control = Control(_mtx_names(path, plain[4], n_mtx), plain[3], n_models, n_components)
    control.labels = (([word[:8] for word in first[4:]] + n_models * [''])[:n_models]) if n_models > 1 else ['']
    control.bounds = plain[7]
    control.interval = line3[3] if len(line3) > 3 else 0.0
    control.terms = [[(c, 0, 1.0)] for c in range(n_components)]
    control.amplitude = n_components * [False]
    if n_components > 1 or n_models > 1 or n_mtx > 1:
        for c, text in enumerate(lines[12:12 + n_components]):
            control.terms[c], control.amplitude[c] = _definition(path, 13 + c, text, n_mtx, n_models)
    return control


def _mtx_names(path, text, count):
    names = []
    for _ in range(count - 1):
        separator = next((s for s in '|, ' if s in text), None)
        name, _, text = text.partition(separator) if separator else (text, '', '')
        names.append(name.strip())
        text = text.strip()
    names.append(text.strip())
    for name in names:
        if not name:
            raise FormatError('%s, line 5: %d sensitivity files are needed' % (path, count))
    return names


def _definition(path, line, text, n_mtx, n_models):
    words = words_of(text)
    numbers = [number_at(path, line, word, 'product definition') for word in words[:1]]
    n_terms = int(numbers[0]) if numbers else 0
    triples = [number_at(path, line, word, 'product definition') for word in words[1:1 + 3 * n_terms]]
    terms = [(int(a) - 1, int(b) - 1, c) for a, b, c in zip(triples[0::3], triples[1::3], triples[2::3])
             if a > 0 and b > 0 and c != 0.0]
    for mtx, model, _ in terms:
        if mtx >= n_mtx or model >= n_models:
            raise FormatError('%s, line %d: file %d, model %d: there is no such' % (path, line, mtx + 1, model + 1))
    return terms, n_terms == 3 and 'RMS' in words[10:]


@dataclass
class Progress:
    """The table of iterations. `steps`: accepted trials of a conjugate-gradient iteration, -1 for all others."""
    iteration: np.ndarray
    misfit: np.ndarray
    norm: np.ndarray
    total: np.ndarray
    seconds: np.ndarray
    steps: np.ndarray


def read_progress(path):
    """voxlith.aux. The row of the starting state shows the norm without its root; here it has its root like all
    others."""
    rows = []
    for line_number, line in enumerate(_ended_lines(path), 1):
        if line_number <= 3 or not line.strip() or 'Iterations' in line:
            continue
        if len(line) < 54 and line[1:12].strip().isdigit():
            continue  # a run was stopped while it wrote this row, and a later one went on behind it
        rows.append(_progress_row(path, line_number, line))
        if rows[-1][0] == 0:
            rows[-1][2] = rows[-1][2] ** 0.5
    if not rows:
        raise Missing('%s holds no row yet' % path)
    columns = np.array(rows).T
    return Progress(columns[0].astype(int), *columns[1:5], columns[5].astype(int))


def _progress_row(path, line_number, line):
    fields = [line[12 + 14 * i:26 + 14 * i].strip() for i in range(3)] + [line[54:64].strip() or '0']
    try:
        row = [float(int(line[1:12]))] + [printed(text) for text in fields]
        return row + [float(int(line[64:68])) if line.rstrip().endswith('+') else -1.0]
    except ValueError:
        raise FormatError("%s, line %d: '%s' is no row of the table" % (path, line_number, line.strip())) from None


def _ended_lines(path):
    text = read_text(path)
    return text[:text.rfind('\n') + 1].split('\n')[:-1]


@dataclass
class Log:
    """What the pictures need of voxlith.log. `terms`: iteration -> the terms of the objective but for the misfit, the
    'reference' term and the smoothness 'x', 'y', 'z' times the trade-off, and the 'barrier'."""
    finished: bool = False
    tradeoff: float = 1.0
    style: int = None
    data_types: list = field(default_factory=list)
    shift: float = 0.0
    limits: dict = field(default_factory=dict)
    terms: dict = field(default_factory=dict)


def read_log(path):
    """The last run of the log decides, but for the terms, which a continued run adds to."""
    log, iteration, limits_follow = Log(), 0, False
    for line in _ended_lines(path):
        if line.startswith('VOXLITH version'):
            log = Log(terms=log.terms)
            if 'started on:' in line:
                log.terms, iteration = {}, 0
        elif line.startswith('VOXLITH ended on:'):
            log.finished = True
        elif line.startswith(' Data limits to be applied'):
            limits_follow = True
        elif limits_follow and line.strip():
            limits = _fixed(line, 4, (10, 10))
            if len(limits) == 2:
                log.limits[int(line[:4]) - 1] = tuple(limits)
        else:
            limits_follow = False
            iteration = _log_line(log, line, iteration)
    return log


def printed(text):
    """A number that a run has printed: not a number where stars stand for one too long, or where no run comes to."""
    value = np.nan if '*' in text else number(text)
    return value if abs(value) < FAR else np.nan


def _fixed(line, start, widths):
    found, at = [], start
    for width in widths:
        text, at = line[at:at + width].strip(), at + width
        try:
            found.append(printed(text))
        except ValueError:
            found.append(np.nan)
    return found


def _log_line(log, line, iteration):
    """Takes what one line says; gives the number of the iteration that the next lines belong to."""
    head, colon, tail = line.partition(':')
    key = head.strip()
    if key == 'Iteration' and tail.strip().isdigit():
        return int(tail)
    if key == 'Inversion style' and tail.strip().isdigit():
        log.style = int(tail)
    elif key.startswith('Data type ') and colon:
        log.data_types.append(tail.strip())
    elif key == 'Data shift to be added to observed data':
        log.shift = _fixed(tail, 0, (len(tail),))[0]
    elif key == 'tradeoff par':
        log.tradeoff = _fixed(tail, 0, (15,))[0]
    elif key in ('initial ref', 'model ref'):
        _add_terms(log, key, iteration, {'reference': log.tradeoff * _fixed(tail, 0, (15,))[0]})
    elif key in ('initial barrier', 'model barr'):
        _add_terms(log, key, iteration, {'barrier': _fixed(tail, 0, (15,))[0]})
    elif key in ('initial smth', 'model smth'):
        values = _fixed(tail, 0, (15, 14, 14, 14))
        _add_terms(log, key, iteration, dict(zip('yxz', [log.tradeoff * value for value in values[1:]])))
    return iteration


def _add_terms(log, key, iteration, found):
    """A continued run begins with the terms of the iteration before it, weighed by its own trade-off: these are not
    taken."""
    terms = log.terms.setdefault(iteration, {})
    if key.startswith('model') or not terms.keys() & found.keys():
        terms.update(found)


@dataclass
class DataFile:
    """Records of a data file. values, deviations: a row a component; lines: (name, time) a record, or empty."""
    x: np.ndarray
    y: np.ndarray
    z: np.ndarray
    values: np.ndarray
    deviations: np.ndarray
    lines: list


def read_data(path, components, magnetic, total_field=False, lined=False, predicted=False, most=None):
    """A file of the form of observed data. `predicted`: written by a run, which gives deviations to every record."""
    lines = read_text(path).splitlines()
    heading = 3 if magnetic else 1
    flag = free_numbers(lines[1], 3) if magnetic and len(lines) > 1 else []
    skip = 2 if total_field and len(flag) > 2 and flag[2] < 1 else 0
    first = words_of(lines[heading]) if len(lines) > heading else []
    with_deviations = predicted or len(first) >= 3 + skip + 2 * components
    step = 2 if with_deviations else 1
    records, names = [], []
    for line_number, line in enumerate(lines[heading:], heading + 1):
        if len(records) == most or not line.strip():
            break
        records.append(_data_record(path, line_number, words_of(line), components, skip, step))
        if lined:
            rest = words_of(line)[3 + skip + step * components:]
            if len(rest) < 2:
                raise FormatError('%s, line %d: no line name and time' % (path, line_number))
            names.append((rest[0][:16], number_at(path, line_number, rest[1], 'time')))
    if not records:
        raise FormatError('%s holds no data record' % path)
    columns = np.array(records).T
    values, deviations = columns[3::2].copy(), columns[4::2].copy()
    values[~(values > ABSENT)] = np.nan
    return DataFile(columns[0], columns[1], columns[2], values, deviations, names)


def _data_record(path, line_number, words, components, skip, step):
    if len(words) < 3:
        raise FormatError('%s, line %d: %d columns; x, y, z and data are needed' % (path, line_number, len(words)))
    record = [number_at(path, line_number, word, 'coordinate') for word in words[:3]]
    words = words[3 + skip:]
    for c in range(components):
        datum = words[step * c:step * (c + 1)]
        if not datum and (not words or '*' not in words[0]):
            raise FormatError('%s, line %d: component %d is missing' % (path, line_number, c + 1))
        if not datum or '*' in datum[0]:
            record += [np.nan, 0.0]
            continue
        record.append(number_at(path, line_number, datum[0], 'datum'))
        deviation = datum[1] if len(datum) > 1 else '0'
        record.append(0.0 if '*' in deviation else number_at(path, line_number, deviation, 'deviation'))
    return record


def _numbers(path, what):
    """All numbers of a file, with repeats as in 5*0.1."""
    text = read_text(path)
    try:
        return np.array(text.split(), dtype=float)
    except ValueError:
        values = []
    for line_number, line in enumerate(text.splitlines(), 1):
        for word in words_of(line):
            count, star, value = word.rpartition('*')
            repeat = int(count) if star and count.isdigit() else 1
            values += repeat * [number_at(path, line_number, value if repeat > 1 else word, what)]
    return np.array(values)


def read_model(path, cells):
    """`cells` numbers, z fastest; absent cells as NaN."""
    values = _numbers(path, 'cell')
    if len(values) != cells:
        raise FormatError('%s holds %d values; the mesh has %d cells' % (path, len(values), cells))
    values[~(values > ABSENT)] = np.nan
    return values


def read_held_at_zero(path, cells):
    """Of a bounds file of pairs: which cells have both bounds at zero, as air has."""
    pairs = _numbers(path, 'bound')[:2 * cells]
    count = len(pairs) // 2
    held = np.zeros(cells, dtype=bool)
    held[:count] = (pairs[0:2 * count:2] == 0.0) & (pairs[1:2 * count:2] == 0.0)
    return held


@dataclass
class TrueBody:
    """A box in the coordinates of the data file; `model` counts from 0."""
    name: str
    x: tuple
    y: tuple
    z: tuple
    model: int = 0


def read_bodies(path):
    """{"bodies": [{"name": ..., "x": [a, b], "y": [a, b], "elevation": [a, b], "model": 1}, ...]}"""
    text = read_text(path)
    try:
        listed = json.loads(text)['bodies']
        return [TrueBody(str(body['name']), *(tuple(sorted((float(body[k][0]), float(body[k][1]))))
                                              for k in ('x', 'y', 'elevation')), int(body.get('model', 1)) - 1)
                for body in listed]
    except json.JSONDecodeError as error:
        raise FormatError('%s, line %d: %s' % (path, error.lineno, error.msg)) from None
    except (KeyError, TypeError, ValueError, IndexError) as error:
        raise FormatError('%s: each of "bodies" needs "name" and pairs "x", "y", "elevation" (%s)'
                          % (path, type(error).__name__)) from None

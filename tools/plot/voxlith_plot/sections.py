"""Sections through a model with the outlines of the true bodies, axes to one scale."""
import numpy as np
from matplotlib import pyplot
from matplotlib.lines import Line2D
from matplotlib.patches import Patch, Rectangle
from matplotlib.patheffects import withStroke

from . import style
from .formats import FormatError

GROUNDLESS = '0.85'  # where the model has no value
LONGEST = 7.4  # inches of the two columns of panels together
LEAST_HEIGHT = 0.6  # inches of a vertical section before its scale is stretched


def draw(mesh, model, bodies, title, at=None, whole=False, style_code=0):
    """`at`: x, y, elevation of the sections; by default through the largest magnitude. `style_code`: the inversion
    style."""
    window = _window(mesh, whole)
    where = _peak(mesh, model, window) if at is None else at
    cut = tuple(_cell(nodes, value, axis) for nodes, value, axis in
                zip((mesh.x, mesh.y, mesh.z), where, ('x', 'y', 'elevation')))
    page = _Page(mesh, model, bodies, window, cut, where)
    page.layout(two_maps=style_code == 3)
    if style_code == 3:
        page.map(0, 0, 'Surface layer')
        page.map(1, 1, 'Below the surface layer')
    else:
        page.map(0, 0 if style_code in (1, 2) else cut[2], None if style_code not in (1, 2) else 'Top layer')
    page.section('x')
    page.section('y')
    page.finish(title)
    return page.figure


def _window(mesh, whole):
    """First and last-plus-one cell shown of each axis: all, or without padding cells and what lies deeper than wide."""
    full = [(0, len(nodes) - 1) for nodes in (mesh.x, mesh.y, mesh.z)]
    if whole:
        return full
    window = []
    for nodes in (mesh.x, mesh.y):
        widths = np.abs(np.diff(nodes))
        core = np.flatnonzero(widths <= 1.05 * widths.min())
        window.append((int(core[0]), int(core[-1]) + 1))
    reach = max(abs(nodes[b] - nodes[a]) for nodes, (a, b) in zip((mesh.x, mesh.y), window))
    depth = mesh.z[0] - mesh.z
    window.append((0, max(1, int(np.searchsorted(depth, reach * 1.001, side='right')) - 1)))
    return window


def _peak(mesh, model, window):
    """The centre of the shown cell with the largest magnitude."""
    (x0, x1), (y0, y1), (z0, z1) = window
    part = np.abs(model.values[y0:y1, x0:x1, z0:z1])
    if not np.isfinite(part).any():
        raise FormatError('all cells of the model are absent')
    j, i, k = np.unravel_index(np.nanargmax(part), part.shape)
    centre = lambda nodes, c: 0.5 * (nodes[c] + nodes[c + 1])
    return centre(mesh.x, x0 + i), centre(mesh.y, y0 + j), centre(mesh.z, z0 + k)


def _cell(nodes, value, axis):
    """The cell that holds a coordinate."""
    rising = nodes if nodes[-1] > nodes[0] else nodes[::-1]
    if not rising[0] <= value <= rising[-1]:
        raise FormatError('%s %s lies outside the mesh, %s to %s'
                          % (axis, metres(value), metres(rising[0]), metres(rising[-1])))
    cell = min(int(np.searchsorted(rising, value, side='right')) - 1, len(nodes) - 2)
    return cell if nodes[-1] > nodes[0] else len(nodes) - 2 - cell


class _Page:
    """One figure: maps in the left column, vertical sections beside or below, one colour bar."""

    def __init__(self, mesh, model, bodies, window, cut, where):
        self.mesh, self.model, self.bodies, self.cut, self.where = mesh, model, bodies, cut, where
        self.window = window
        self.x, self.y, self.z = (nodes[a:b + 1] for nodes, (a, b) in zip((mesh.x, mesh.y, mesh.z), window))
        (x0, x1), (y0, y1), (z0, z1) = window
        self.values = model.values[y0:y1, x0:x1, z0:z1]
        self.colours, self.low, self.high = style.value_limits(self.values)
        self.maps, self.outlined, self.last = [], set(), None
        self.cross = 'white' if self.colours == style.SEQUENTIAL else '0.3'

    def layout(self, two_maps):
        """Places panels in inches, so that a metre has one length in all of them."""
        dx, dy, dz = (abs(nodes[-1] - nodes[0]) for nodes in (self.x, self.y, self.z))
        left = 0.48 + 0.085 * len(metres(np.round(np.abs(self.y).max())))  # of the label and the ticks
        gap, top, bottom, bar = left + 0.05 if two_maps else 0.85, 0.95, 0.85, 1.1
        scale = LONGEST / (2.0 * dx if two_maps else dx + max(dx, dy))
        scale = min(scale, 6.0 / dy)
        self.stretch = _round_up(LEAST_HEIGHT / (dz * scale))
        deep = dz * scale * self.stretch
        wide, high, beside = dx * scale, dy * scale, max(dx, dy) * scale
        if two_maps:
            width, height = left + 2 * wide + gap + bar, top + high + 0.75 + deep + bottom
            maps = [(left, height - top - high), (left + wide + gap, height - top - high)]
            verticals = [(left, bottom), (left + wide + gap, bottom)]
        else:
            column = max(high, 2 * deep + 0.8)
            width, height = left + wide + gap + beside + bar, top + column + bottom
            maps = [(left, height - top - high)]
            verticals = [(left + wide + gap, height - top - deep), (left + wide + gap, height - top - 2 * deep - 0.8)]
        self.figure = pyplot.figure(figsize=(width, height))
        place = lambda x, y, w, h: self.figure.add_axes((x / width, y / height, w / width, h / height))
        self.maps = [place(x, y, wide, high) for x, y in maps]
        self.verticals = {'y': place(*verticals[0], wide, deep), 'x': place(*verticals[1], dy * scale, deep)}
        self.bar = place(width - bar + 0.22, bottom, 0.16, height - top - bottom)

    def _slab(self, axis):
        (x0, _), (y0, _), (z0, z1) = self.window
        return {'x': self.cut[0] - x0, 'y': self.cut[1] - y0, 'z': self.cut[2] - z0}[axis]

    def map(self, index, layer, words):
        """A layer from above. `layer` counts from the top of the mesh."""
        panel = self.maps[index]
        self._field(panel, self.x, self.y, self.model.values[self.window[1][0]:self.window[1][1],
                                                             self.window[0][0]:self.window[0][1], layer])
        upper, lower = self.mesh.z[layer], self.mesh.z[layer + 1]
        self._outlines(panel, 'x', 'y', ('z', lower, upper))
        panel.axvline(self.where[0], color=self.cross, linewidth=0.8, linestyle=':')
        panel.axhline(self.where[1], color=self.cross, linewidth=0.8, linestyle=':')
        style.metre_axes(panel)
        if index:
            panel.set_ylabel('')
        panel.set_title('%s, %s' % (words or 'Layer', self._heights(lower, upper)))

    def _heights(self, lower, upper):
        if self.mesh.z[0] == 0.0:
            return 'depth %s to %s m' % (metres(-upper), metres(-lower))
        return 'elevation %s to %s m' % (metres(lower), metres(upper))

    def section(self, normal):
        """The vertical section at a constant x or y."""
        panel, cell = self.verticals[normal], self._slab(normal)
        nodes, across, label = (self.x, 'x', 'x, east (m)') if normal == 'y' else (self.y, 'y', 'y, north (m)')
        own = self.mesh.y if normal == 'y' else self.mesh.x
        depth = self.mesh.z[0] == 0.0
        values = self.values[cell] if normal == 'y' else self.values[:, cell]
        self._field(panel, nodes, -self.z if depth else self.z, values.T)
        at = self.cut[1] if normal == 'y' else self.cut[0]
        self._outlines(panel, across, 'z', (normal, own[at], own[at + 1]), -1.0 if depth else 1.0)
        panel.axvline(self.where[0 if normal == 'y' else 1], color=self.cross, linewidth=0.8, linestyle=':')
        panel.axhline(-self.where[2] if depth else self.where[2], color=self.cross, linewidth=0.8, linestyle=':')
        style.metre_axes(panel, label, 'depth (m)' if depth else 'elevation (m)')
        if depth:
            panel.set_ylim(-self.z[-1], -self.z[0])
        panel.set_title('Section at %s %s to %s m' % (normal, metres(own[at]), metres(own[at + 1])))

    def _field(self, panel, across, along, values):
        panel.set_facecolor(GROUNDLESS)
        self.last = panel.pcolormesh(across, along, np.ma.masked_invalid(values), cmap=self.colours, vmin=self.low,
                                     vmax=self.high, rasterized=True)
        panel.set_xlim(across[0], across[-1])

    def _outlines(self, panel, across, along, plane, sign=1.0):
        """Boxes of the true bodies: solid where the plane of the panel cuts them, dashed where they lie beside it."""
        axis, low, high = plane
        for body in self.bodies:
            if body.model != self.model.number:
                continue
            a, b = getattr(body, across), sorted(sign * v for v in getattr(body, along))
            inside = getattr(body, axis)[0] < max(low, high) and getattr(body, axis)[1] > min(low, high)
            self.outlined.add(inside)
            panel.add_patch(Rectangle((a[0], b[0]), a[1] - a[0], b[1] - b[0], fill=False, edgecolor='black',
                                      linewidth=1.1, linestyle='-' if inside else (0, (4, 3)),
                                      path_effects=[withStroke(linewidth=2.4, foreground='white')]))

    def finish(self, title):
        unit = '%s (%s)' % (self.model.quantity, self.model.unit)
        self.figure.colorbar(self.last, cax=self.bar, label=unit)
        value = self.model.values[self.cut[1], self.cut[0], self.cut[2]]
        height = self.figure.get_size_inches()[1]
        self.figure.suptitle(title, y=1.0 - 0.12 / height, va='top')
        upward = ('depth', -self.where[2]) if self.mesh.z[0] == 0.0 else ('elevation', self.where[2])
        words = '%.4g %s at x %s, y %s, %s %s m' % (value, self.model.unit, metres(self.where[0]),
                                                   metres(self.where[1]), upward[0], metres(upward[1]))
        if self.stretch > 1.0:
            words += ';  vertical scale of the sections stretched %g times' % self.stretch
        self.figure.text(0.5, 1.0 - 0.36 / height, words, ha='center', va='top', fontsize=8.5)
        handles = [Line2D([], [], color='black', linewidth=1.1, linestyle='-' if inside else (0, (4, 3)), label=label)
                   for inside, label in ((True, 'true body, cut by the section'),
                                         (False, 'true body, beside the section'))
                   if inside in self.outlined]
        if self.model.air is not None and self.model.air.any():
            handles.append(Patch(facecolor=GROUNDLESS, edgecolor='0.4', linewidth=0.6, label='held at zero (air)'))
        if handles:
            self.figure.legend(handles=handles, loc='lower left', ncol=3, bbox_to_anchor=(0.01, 0.0), frameon=False)


def metres(value):
    """A coordinate in full, without an exponent and without a minus before zero."""
    return '%.12g' % (value + 0.0)


def _round_up(factor):
    """A stretch of 1, 2, 5, 10 ... that is enough."""
    if factor <= 1.0:
        return 1.0
    power = 10.0 ** np.floor(np.log10(factor))
    return float(next(power * step for step in (1, 2, 5, 10) if power * step >= factor))

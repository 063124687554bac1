"""Responses of prisms, number by number as ``voxlith-tools`` computes them, for small surveys.

Every operation is one of the C library or of IEEE arithmetic in the same order, so that the rows are the same to the
last bit. Formulas: Nagy 1966, Geophysics 31, 362-371; Blakely 1995, Potential Theory in Gravity and Magnetic
Applications, sections 9.1 and 9.3.
"""

from __future__ import annotations

import math

import numpy as np

GRAVITY_CONSTANT = 6.67430e-11
MILLIGAL = GRAVITY_CONSTANT * 1000.0 * 1.0e5
EOTVOS = GRAVITY_CONSTANT * 1000.0 * 1.0e9
GRADIENTS = {2: "zz", 10: "xx", 11: "yy", 12: "zz", 13: "xy", 14: "xz", 15: "yz"}


def unit_vector(incl, decl):
    i, d = incl * (math.pi / 180.0), decl * (math.pi / 180.0)
    vector = (math.cos(i) * math.sin(d), math.cos(i) * math.cos(d), math.sin(i))
    return [0.0 if abs(c) < 1.0e-15 else c for c in vector]


def weights_of(code, field=None, direction=None):
    """How much a datum takes of each derivative; `field` is (incl, decl, nT)."""
    if code == 0:
        return {"z": MILLIGAL}
    if code in GRADIENTS:
        return {GRADIENTS[code]: EOTVOS}
    f = unit_vector(*field[:2])
    t = unit_vector(*direction) if code == 1 else [float(axis == code - 20) for axis in range(3)]
    scale = field[2] / (4.0 * math.pi)
    found = {"xx": scale * t[0] * f[0], "yy": scale * t[1] * f[1], "zz": scale * t[2] * f[2],
             "xy": scale * (t[0] * f[1] + t[1] * f[0]), "xz": scale * (t[0] * f[2] + t[2] * f[0]),
             "yz": scale * (t[1] * f[2] + t[2] * f[1])}
    return {name: value for name, value in found.items() if value != 0.0}


def _odd_log(along, r, across):
    value = math.log((abs(along) + r) / across)
    return -value if along < 0 else value


def _length_times_log(x, y, r, across):
    return 0.0 if x == 0.0 else x * _odd_log(y, r, across)


def _face_angle(x, y, z, r):
    return 0.0 if x == 0.0 else math.atan(y * z / (x * r))


def _edge_log(along, r, across2, edge):
    across = math.sqrt(across2)
    if across < edge:
        return _odd_log(along, math.sqrt(along * along + edge * edge), edge)
    return _odd_log(along, r, across)


def corner_term(x, y, z, weights, edge):
    x2, y2, z2 = x * x, y * y, z * z
    r = math.sqrt(x2 + y2 + z2)
    total = 0.0
    if "z" in weights:
        total += weights["z"] * (z * _face_angle(z, x, y, r) - _length_times_log(x, y, r, math.sqrt(x2 + z2))
                                 - _length_times_log(y, x, r, math.sqrt(y2 + z2)))
    for name, angle in (("xx", (x, y, z)), ("yy", (y, x, z)), ("zz", (z, x, y))):
        if name in weights:
            total -= weights[name] * _face_angle(*angle, r)
    for name, along, across2 in (("xy", z, x2 + y2), ("xz", y, x2 + z2), ("yz", x, y2 + z2)):
        if name in weights:
            total += weights[name] * _edge_log(along, r, across2, edge)
    return total


def dense_row(mesh, station, weights):
    """Response of one station (x, y, elevation) to unit property in each cell, shape (cells,), in cell order."""
    depths = mesh.depth_nodes
    edge = 1.0e-4 * min(mesh.x_widths.min(), mesh.y_widths.min(), mesh.z_widths.min())
    x0, y0, depth0 = station[0], station[1], -station[2]
    corners = np.array([[[corner_term(x - x0, y - y0, z - depth0, weights, edge) for z in depths.tolist()]
                         for x in mesh.x_nodes.tolist()] for y in mesh.y_nodes.tolist()])
    north, south = corners[1:], corners[:-1]
    planes = (north[:, 1:] - north[:, :-1]) - (south[:, 1:] - south[:, :-1])
    return (planes[:, :, 1:] - planes[:, :, :-1]).ravel()

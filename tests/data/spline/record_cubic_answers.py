#!/usr/bin/env python3
"""Writes scipy_cubic.txt: answers of scipy.interpolate.CubicSpline for the tests of the cubic spline.

Run with SciPy 1.10 or later; the file is written beside the script. A case is the word "case" and a name, then
  n startCondition endCondition startData endData     (an end without data: 0)
  n knots
  n values, n first, n - 1 second and n - 1 third derivatives at the knots
  a count, and as many pairs: x, value at x
  a count, and as many triples: a, b, integral from a to b (beyond the knots the end cubics are extended)
"""
import os
import random

from scipy.interpolate import CubicSpline

SEED = 20240611


def endCondition(condition, data):
    return "not-a-knot" if condition == 0 else (condition, data)


def numbers(values):
    return " ".join(repr(float(value)) for value in values)


def writeCase(out, name, knots, values, start, startData, end, endData, generator):
    condition = (endCondition(start, startData), endCondition(end, endData))
    spline = CubicSpline(knots, values, bc_type=condition)
    n = len(knots)
    first, last = knots[0], knots[-1]
    span = last - first
    inside = list(knots) + [generator.uniform(first, last) for _ in range(8)]
    limits = [(first, last), (first - 0.3 * span, last + 0.2 * span), (last, last + span), (first - span, first)]
    for _ in range(8):
        limits.append(tuple(sorted(generator.uniform(first - 0.1 * span, last + 0.1 * span) for _ in range(2))))
    out.write(f"case {name}\n{n} {start} {end} {startData!r} {endData!r}\n")
    out.write(numbers(knots) + "\n" + numbers(values) + "\n" + numbers(spline(knots, 1)) + "\n")
    out.write(numbers(spline(knots[:-1], 2)) + "\n" + numbers(spline(knots[:-1], 3)) + "\n")
    out.write(f"{len(inside)}\n")
    for x in inside:
        out.write(numbers((x, spline(x))) + "\n")
    out.write(f"{len(limits)}\n")
    for a, b in limits:
        out.write(numbers((a, b, spline.integrate(a, b))) + "\n")


def main():
    generator = random.Random(SEED)
    target = os.path.join(os.path.dirname(os.path.abspath(__file__)), "scipy_cubic.txt")
    with open(target, "w", encoding="ascii") as out:
        for n in (2, 3, 4, 6, 25):
            for start in (0, 1, 2):
                for end in (0, 1, 2):
                    if n < 4 and (start == 0) != (end == 0):
                        continue  # fewer points than the not-a-knot end of a mixed pair needs there
                    knots = [generator.uniform(-5.0, 5.0)]
                    while len(knots) < n:
                        knots.append(knots[-1] + generator.uniform(0.2, 2.0))
                    values = [generator.uniform(-3.0, 3.0) for _ in knots]
                    startData = generator.uniform(-1.0, 1.0) if start else 0.0
                    endData = generator.uniform(-1.0, 1.0) if end else 0.0
                    name = f"{n} knots, ends {start} and {end}"
                    writeCase(out, name, knots, values, start, startData, end, endData, generator)


if __name__ == "__main__":
    main()

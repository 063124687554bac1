#!/usr/bin/python3
"""How far a regional plane is too high below a broad anomaly, with the options that keep the anomaly out of the fit.

    broad_anomaly.py [--seed N ...] [--csv FILE]

A point mass at a depth of 350 m gives 12 x 12 gravity stations, 100 m apart, an anomaly of 0.6 mGal that reaches the edges of the survey.
The plane below it is known. docs/regional.md shows the results.
"""
from __future__ import annotations

import argparse
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python"))
sys.dont_write_bytecode = True
import numpy as np  # noqa: E402
from results import write_table  # noqa: E402

from voxlith import Survey  # noqa: E402
from voxlith.regional import polynomial_regional  # noqa: E402

STATIONS, SPACING, DEPTH, PEAK, DEVIATION = 12, 100.0, 350.0, 0.6, 0.03  # along a side, metres, metres, mGal, mGal
OPTIONS: dict[str, dict[str, object]] = {
    "none": {}, "anomaly": {"anomaly": "positive"}, "outside": {"outside": (150.0, 950.0, 150.0, 950.0)}}


def too_high(seed: int) -> dict[str, float]:
    """Mean height of the fitted plane above the true one, mGal, for each of OPTIONS."""
    x, y = (a.ravel() * SPACING for a in np.meshgrid(np.arange(STATIONS), np.arange(STATIONS)))
    plane = 5.0 + 0.001 * x - 0.0005 * y
    middle = 0.5 * SPACING * (STATIONS - 1)
    distance = np.sqrt((x - middle) ** 2 + (y - middle) ** 2 + DEPTH**2)
    noise = np.random.default_rng(seed).normal(0.0, DEVIATION, x.shape)
    survey = Survey(x, y, 0.0 * x, [plane + PEAK * (DEPTH / distance) ** 3 + noise], (0,), [np.full(x.shape, DEVIATION)])
    return {name: float((polynomial_regional(survey, 1, **options).values - plane).mean()) for name, options in OPTIONS.items()}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seed", nargs="+", type=int, default=list(range(10)), help="of the noise")
    parser.add_argument("--csv", type=Path, help="file for the table")
    asked = parser.parse_args()
    rows = [[seed, *(f"{value:.4f}" for value in too_high(seed).values())] for seed in asked.seed]
    write_table(asked.csv, ["seed", *OPTIONS], rows)


if __name__ == "__main__":
    main()

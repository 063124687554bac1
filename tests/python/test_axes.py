"""Components whose x is north or whose z is upwards: the check finds the axes, and ``obs`` converts them."""

from __future__ import annotations

import numpy as np
import pytest

from voxlith import Survey
from voxlith.checks.axes import ODD_IN_Z, X_NORTH, check_axes

CODES = {"gz": 0, "gzz": 12, "gxx": 10, "gyy": 11, "gxy": 13, "gxz": 14, "gyz": 15}


@pytest.fixture(scope="module")
def components():
    """Components of three spheres, of which none is below the middle of the stations: mGal and Eotvos over a common factor."""
    x, y = (a.ravel() for a in np.meshgrid(np.arange(14) * 50.0, np.arange(11) * 60.0))
    found = {code: 0.0 * x for code in (*CODES.values(), 20, 21, 22)}
    for east, north, depth, mass in ((200.0, 150.0, 120.0, 1.0), (480.0, 300.0, 90.0, -0.4), (350.0, 560.0, 150.0, 1.3)):
        away = np.array([east - x, north - y, depth + 0.0 * x])
        r = np.sqrt(np.square(away).sum(axis=0))
        for code, (a, b) in {10: (0, 0), 11: (1, 1), 12: (2, 2), 13: (0, 1), 14: (0, 2), 15: (1, 2)}.items():
            found[code] = found[code] + mass * 1.0e10 * (3.0 * away[a] * away[b] / r**5 - (a == b) / r**3)
        for code, a in ((0, 2), (20, 0), (21, 1), (22, 2)):
            found[code] = found[code] + mass * 1.0e6 * away[a] / r**3
    generator = np.random.default_rng(4)
    return x, y, {code: data + generator.normal(0.0, 0.02 * np.abs(data).max(), len(x)) for code, data in found.items()}


def as_written(components, codes, x_north, upwards):
    """A survey as another program writes it, with the codes that its columns have there."""
    x, y, known = components
    data = [known[X_NORTH.get(code, code) if x_north else code] * (-1.0 if upwards and code in ODD_IN_Z else 1.0)
            for code in codes]
    return Survey(x, y, 0.0 * x, data, codes)


@pytest.mark.parametrize("codes", [(14, 15), (10, 11, 12), (0, 10), (10, 12, 14), (20, 21, 22), (10, 11, 12, 13, 14, 15)])
def test_exchanged_axes_are_found(components, codes):
    assert check_axes(as_written(components, codes, False, False)) == []
    finding, = check_axes(as_written(components, codes, True, False))
    assert finding.severity == "error" and "--x-north" in finding.remedy and "--upwards" not in finding.remedy


@pytest.mark.parametrize("codes", [(0, 12), (10, 12, 14), (20, 21, 22)])
def test_upward_components_are_found(components, codes):
    finding, = check_axes(as_written(components, codes, False, True))
    assert "--upwards" in finding.remedy and "--x-north" not in finding.remedy


def test_both_at_once_are_found_and_converted(components, tools, tmp_path):
    """From the table of another program to the data of this one."""
    x, y, known = components
    names = ["gxx", "gzz", "gxz"]
    written = as_written(components, [CODES[name] for name in names], True, True)
    rows = [",".join(map(repr, row)) for row in np.column_stack([x, y, *written.data]).tolist()]
    (tmp_path / "ned.csv").write_text("x,y,gxx,gzz,gxz\n" + "\n".join(rows) + "\n")
    words = ("obs", "ned.csv", "--elevation", "0", "--data", *names, "--type", *names, "--floor", "1", "--out", "d.obs")
    done = tools(*words)
    assert done.status == 0 and "--x-north --upwards" in done.errors
    checked = tools("check", "ned.csv", "--elevation", "0", "--data", *names, "--type", *names, "--floor", "1")
    assert checked.status == 1 and "error    axes" in checked.out
    done = tools(*words, "--x-north", "--upwards")
    assert done.status == 0 and "contradict" not in done.errors
    read = Survey.read(tmp_path / "d.obs")
    assert sorted(read.codes) == [11, 12, 15]
    for code, data in zip(read.codes, read.data):
        assert data == pytest.approx(known[code], rel=1e-4, abs=1e-3)


def test_too_little_to_say_is_no_finding(components):
    x, y, known = components
    generator = np.random.default_rng(1)
    assert check_axes(Survey(x, y, 0.0 * x, [known[10]], (10,))) == []
    assert check_axes(Survey(x[:9], y[:9], 0.0 * x[:9], [known[11][:9], known[10][:9]], (10, 11))) == []
    assert check_axes(Survey(x, y, 0.0 * x, generator.normal(size=(2, len(x))), (10, 11))) == []
    assert check_axes(Survey(x, y, 0.0 * x, [known[11], 0.0 * x], (10, 11))) == []
    assert check_axes(Survey(0.0 * x, 0.0 * y, 0.0 * x, [known[11], known[10]], (10, 11))) == []


def test_a_constant_offset_changes_nothing(components):
    survey = as_written(components, (0, 12), False, False)
    assert check_axes(survey.with_data([survey.data[0] + 500.0, survey.data[1] - 3000.0])) == []


def test_another_unit_is_no_finding_of_axes(components):
    """Sources fit no choice of axes then."""
    survey = as_written(components, (0, 10), False, False)
    assert check_axes(survey.with_data([survey.data[0], 1.0e-9 * survey.data[1]])) == []

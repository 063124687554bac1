"""Bodies recovered at the noise level lie at their depth: the way of a user, from data to model.

All cases: VOXLITH_SLOW=1 scripts/test-python -k depth_of_bodies
"""

from __future__ import annotations

import sys

import pytest
from conftest import BUILD, ROOT

sys.path[:0] = [str(ROOT / "bench"), str(ROOT / "tests" / "docs")]
import recovered_depth  # noqa: E402
from measured import only, table  # noqa: E402

CELL = recovered_depth.CELL
SINGLE = [name for name, case in recovered_depth.CASES.items() if len(case.bodies) == 1]


def recovered(name, tmp_path, norm="smooth"):
    found = recovered_depth.recover(recovered_depth.CASES[name], norm, BUILD, tmp_path)
    assert all(0.9 <= body.misfit <= 1.05 for body in found)
    return found


def assert_at_its_place(body):
    assert body.depth == pytest.approx(body.true_depth, rel=0.2)
    assert body.aside <= CELL


@pytest.mark.parametrize("name", [SINGLE[0], *(pytest.param(name, marks=pytest.mark.slow) for name in SINGLE[1:])])
def test_depth_place_and_mass(tmp_path, name):
    body, = recovered(name, tmp_path)
    assert_at_its_place(body)
    assert body.mass == pytest.approx(1.0, abs=0.3)
    shown = only(table("recovered-depth.csv"), case=name, norm="smooth", seed=7, sign="", decay="")
    for column, share in (("depth", 0.05), ("mass", 0.05), ("peak", 0.05)):
        assert getattr(body, column) == pytest.approx(float(shown[column]), rel=share)


@pytest.mark.slow
@pytest.mark.parametrize("norm", ["blocky", "compact"])
@pytest.mark.parametrize("name", recovered_depth.CASES)
def test_sparse_norms_keep_the_mass(tmp_path, name, norm):
    """All bodies, also a pair of opposite sign, by one definition of the mass."""
    for body in recovered(name, tmp_path, norm):
        assert_at_its_place(body)
        assert body.mass == pytest.approx(1.0, abs=0.25)


PAIR = "gz pair 100-240 m"


@pytest.mark.parametrize("name", [PAIR, *(pytest.param(name, marks=pytest.mark.slow) for name in SINGLE)])
def test_commands_that_init_names_by_itself(tmp_path, name):
    """Without any option, not even the sign: depth within 20 %, place within one cell, mass within 30 %."""
    for body in recovered(name, tmp_path, recovered_depth.RECOMMENDED):
        assert_at_its_place(body)
        assert body.mass == pytest.approx(1.0, abs=0.3)


@pytest.mark.slow
def test_a_smooth_pair_of_opposite_sign(tmp_path):
    """The data hold the sum of both masses; a part of equal size that both have more, they hardly see."""
    first, second = recovered("gz pair 100-240 m", tmp_path)
    for body in (first, second):
        assert_at_its_place(body)
        assert body.mass_above_a_fifth == pytest.approx(1.0, abs=0.3)
    assert abs(first.mass - second.mass) < 0.1


@pytest.mark.slow
def test_without_weights_the_body_is_too_shallow(tmp_path):
    body, = recovered("gz 100-240 m", tmp_path, "none")
    assert body.depth < 0.5 * body.true_depth

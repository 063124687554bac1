"""Bodies recovered at the noise level lie at their depth: the way of a user, from data to model."""

from __future__ import annotations

import sys

import pytest
from conftest import BUILD, ROOT

sys.path.insert(0, str(ROOT / "bench"))
import recovered_depth  # noqa: E402

CELL = 50.0


@pytest.mark.parametrize("name", list(recovered_depth.CASES))
def test_depth_place_and_mass(tmp_path, name):
    for found in recovered_depth.recover(recovered_depth.CASES[name], "auto", BUILD, tmp_path):
        assert 0.9 <= found.misfit <= 1.05
        assert found.depth == pytest.approx(found.true_depth, rel=0.2)
        assert found.aside <= CELL
        assert found.mass == pytest.approx(1.0, abs=0.31)


def test_without_weights_the_body_is_too_shallow(tmp_path):
    found, = recovered_depth.recover(recovered_depth.CASES["gz 100-240 m"], "none", BUILD, tmp_path)
    assert found.depth < 0.5 * found.true_depth

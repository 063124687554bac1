"""Reading takes little more than copying, and little memory. Wide limits: other work may go on beside."""

import resource
import sys
import time

import numpy as np
from conftest import ROOT

sys.path.insert(0, str(ROOT / "bench"))
import mtx_reading  # noqa: E402

from voxlith.io.mtx_file import MtxFile  # noqa: E402


def test_sensitivities_are_read_row_by_row(tmp_path):
    path = tmp_path / "a.mtx"
    mtx_reading.make_file(path, 64, 20000)

    def copy():
        with open(path, "rb", buffering=0) as source:
            while source.read(1 << 17):
                pass

    copying = min(mtx_reading.best(copy))
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    reading = mtx_reading.best(lambda: mtx_reading.read_rows(path, True))[1]
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 50 * 1024
    assert reading < 5.0 * copying + 0.05


def test_a_long_file_of_short_rows(tmp_path):
    path = tmp_path / "a.mtx"
    mtx_reading.make_file(path, 16, 20)
    start = time.process_time()
    with MtxFile(path) as mtx:
        assert mtx.row_counts().sum() == 20 * mtx.header.n_data
        last = mtx.row(mtx.header.n_data - 1)
    assert time.process_time() - start < 5.0
    np.testing.assert_array_equal(last.positions, np.sort(last.positions))


def test_text_in_mixed_spellings_takes_time_in_proportion(tmp_path):
    """Every tenth number needs the slow path."""
    from voxlith.io.model_file import read_model_file
    times = []
    for count in (20000, 200000):
        (tmp_path / "m").write_text(("1.25 2.5\n" * 4 + "5D0 7.25\n") * (count // 10))
        start = time.process_time()
        read_model_file(tmp_path / "m", count)
        times.append(time.process_time() - start)
    assert times[1] < 40 * times[0] + 0.5

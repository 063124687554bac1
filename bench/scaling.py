#!/usr/bin/python3
"""Times and memory of runs of any size, as docs/scaling.md shows them. Elapsed times: nothing else may run meanwhile.

    scaling.py --build DIR iterations --coefficients N [--mesh NX NY NZ] [--threads N ...]    seconds of single iterations
    scaling.py --build DIR rows [--mesh NX NY NZ]                                            seconds of a row of `mtx`
    scaling.py --build DIR bandwidth                                                         bytes a second from memory (a build with bench/)
    scaling.py --build DIR survey                                                            from stations to a model with an RMS misfit of 1
    scaling.py --build DIR peers [--solver NAME ...]                                         other solvers on the same survey, CPU seconds

--csv FILE appends the results to a table. Surveys are kept in --folder; --prepare only makes them.
"""
from __future__ import annotations

import argparse
import csv
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.dont_write_bytecode = True
sys.path[:0] = [str(ROOT / "bench"), str(ROOT / "python")]
import kernel_benchmarks  # noqa: E402
import large_survey  # noqa: E402
import peer_benchmarks  # noqa: E402
from benchmarks import Settings  # noqa: E402
from results import write_table  # noqa: E402
from thread_benchmarks import ITERATIONS, UNCOUNTED  # noqa: E402
from whole_run_benchmarks import ITERATION_LINE, LARGE_MESH, Run  # noqa: E402

NAMES = ["what", "cells", "data", "coefficients", "threads", "value", "lowest", "highest", "unit"]
SURVEY = (128, 128, 64, 100)  # cells, stations along a side
Row = list[object]


def watched(command: list[str], folder: str) -> tuple[list[float], float, float, float]:
    """Times at which iterations end, elapsed and CPU seconds and largest resident bytes of a run."""
    start, ends = time.monotonic(), []
    child = subprocess.Popen(command, cwd=folder, stdout=subprocess.PIPE, bufsize=0)
    assert child.stdout is not None
    for line in child.stdout:
        if ITERATION_LINE.match(line):
            ends.append(time.monotonic() - start)
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode:
        raise RuntimeError(f"{command[0]} failed in {folder}")
    return ends, time.monotonic() - start, usage.ru_utime + usage.ru_stime, 1024.0 * usage.ru_maxrss


def iterations(settings: Settings, asked: argparse.Namespace) -> Iterator[Row]:
    run = Run(settings, tuple(asked.mesh), round(asked.coefficients))
    if asked.prepare:
        return
    large_survey.write_run(run.folder, ITERATIONS)
    head = [run.cells, run.data, run.coefficients]
    for threads in asked.threads:
        ends, _, _, peak = watched([os.path.join(settings.build, "voxlith-run"), "--threads", str(threads), "voxlith.inp"], run.folder)
        seconds = [after - before for before, after in zip(ends, ends[1:])][UNCOUNTED:]
        yield ["iteration", *head, threads, *(f"{value:.4g}" for value in (statistics.median(seconds), min(seconds), max(seconds))), "s"]
        yield ["start", *head, threads, f"{ends[0]:.3g}", "", "", "s"]
        yield ["memory", *head, threads, f"{peak:.4g}", "", "", "B"]


def rows(settings: Settings, asked: argparse.Namespace) -> Iterator[Row]:
    """The sensitivities of a small survey, computed anew."""
    if asked.prepare:
        return
    with tempfile.TemporaryDirectory(dir=settings.folder) as folder:
        start = time.monotonic()
        base = large_survey.base_file(settings.tools, folder, *asked.mesh, side=asked.side)
        seconds = time.monotonic() - start
    count = sum(len(values) for _, values in base.rows)
    yield ["row of mtx", base.cells, base.stations, count, len(os.sched_getaffinity(0)), f"{seconds / base.stations:.4g}", "", "", "s"]


def bandwidth(settings: Settings, asked: argparse.Namespace) -> Iterator[Row]:
    """A pass over memory by one core and by all."""
    if asked.prepare:
        return
    for line in kernel_benchmarks.run(settings, "threads"):
        found = re.match(r"([\d.]+) ms beside ([\d.]+) ms; (\d+) bytes", line.note)
        if line.work.startswith("memory pass") and found:
            for threads, milliseconds in ((len(os.sched_getaffinity(0)), found[1]), (1, found[2])):
                yield ["memory pass", "", "", "", threads, f"{float(found[3]) / float(milliseconds) * 1e3:.4g}", "", "", "B/s"]
            return


def survey_files(settings: Settings) -> str:
    """Mesh, stations, data and control file of the survey, without sensitivities."""
    folder = os.path.join(settings.folder, "scaling-survey")
    if not os.path.exists(os.path.join(folder, "data.obs")):
        peer_benchmarks.write_files(folder, *SURVEY)
        peer_benchmarks.write_data(settings, folder)
    return folder


def survey(settings: Settings, asked: argparse.Namespace) -> Iterator[Row]:
    folder = survey_files(settings)
    if asked.prepare:
        return
    head: Row = [SURVEY[0] * SURVEY[1] * SURVEY[2], SURVEY[3] ** 2]
    threads = len(os.sched_getaffinity(0))
    if asked.step != "run":
        _, elapsed, seconds, peak = watched([settings.tools, "mtx", "--mesh", "mesh.msh", "--type", "gz", "--stations", "data.obs",
                                             "--out", "new.mtx"], folder)
        os.replace(os.path.join(folder, "new.mtx"), os.path.join(folder, "rows.mtx"))
        info = subprocess.run([settings.tools, "info", "rows.mtx"], cwd=folder, check=True, stdout=subprocess.PIPE, text=True).stdout
        found = re.search(r"(?m)^coefficients: +(\d+)", info)
        head.append(found[1] if found else "")
        yield ["mtx, file", *head, threads, os.path.getsize(os.path.join(folder, "rows.mtx")), "", "", "B"]
        yield from measured("mtx", head, threads, elapsed, seconds, peak)
    else:
        head.append("")
    if asked.step != "mtx":
        _, elapsed, seconds, peak = watched([os.path.join(settings.build, "voxlith-run"), "voxlith.inp", "--target-rms", "1"], folder)
        with open(os.path.join(folder, "voxlith_tradeoff.csv"), encoding="ascii") as file:
            tried = list(csv.DictReader(file))
        yield from measured("target", head, threads, elapsed, seconds, peak)
        yield ["target, trade-offs", *head, threads, len(tried), "", "", ""]
        yield ["target, products", *head, threads, tried[-1]["products"], "", "", ""]


def measured(name: str, head: Row, threads: int, elapsed: float, seconds: float, peak: float) -> Iterator[Row]:
    yield [name + ", elapsed", *head, threads, f"{elapsed:.3g}", "", "", "s"]
    yield [name + ", processor", *head, threads, f"{seconds:.3g}", "", "", "s"]
    yield [name + ", memory", *head, threads, f"{peak:.4g}", "", "", "B"]


def peers(settings: Settings, asked: argparse.Namespace) -> Iterator[Row]:
    folder = survey_files(settings)
    if asked.prepare:
        return
    head: Row = [SURVEY[0] * SURVEY[1] * SURVEY[2], SURVEY[3] ** 2, ""]
    for solver in asked.solver:
        if solver == "voxlith":
            seconds, peak, count = peer_benchmarks.run_voxlith(settings, folder)
            yield ["voxlith, iterations", *head, 1, count, "", "", ""]
        else:
            seconds, peak = peer_benchmarks.child_seconds([sys.executable, peer_benchmarks.__file__, folder, solver], folder)
        yield [solver + ", processor", *head, 1, f"{seconds:.3g}", "", "", "s"]
        yield [solver + ", memory", *head, 1, f"{peak:.4g}", "", "", "B"]


PARTS = {"iterations": iterations, "rows": rows, "bandwidth": bandwidth, "survey": survey, "peers": peers}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("part", choices=list(PARTS))
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    parser.add_argument("--folder", type=Path, default=Path(tempfile.gettempdir()) / "voxlith-bench")
    parser.add_argument("--csv", type=Path, help="table to which the results are appended")
    parser.add_argument("--mesh", nargs=3, type=int, default=list(LARGE_MESH), help="cells east, north, down")
    parser.add_argument("--side", type=int, default=16, help="rows: stations along a side")
    parser.add_argument("--coefficients", type=float, default=1e8)
    parser.add_argument("--threads", nargs="+", type=int, default=[1, 2])
    parser.add_argument("--step", choices=["both", "mtx", "run"], default="both", help="survey: the sensitivities, or the inversion")
    parser.add_argument("--solver", nargs="+", choices=["voxlith", "lsqr", "lsmr", "L-BFGS-B"], default=["voxlith", "lsqr", "lsmr", "L-BFGS-B"])
    parser.add_argument("--prepare", action="store_true", help="only make the survey")
    asked = parser.parse_args()
    asked.folder.mkdir(parents=True, exist_ok=True)
    settings = Settings(build=str(asked.build.resolve()), folder=str(asked.folder.resolve()), coefficients=0, rounds=9)
    if shutil.disk_usage(settings.folder).free < 9.0 * asked.coefficients and asked.part == "iterations":
        raise SystemExit(f"scaling.py: {settings.folder}: not enough space for {asked.coefficients:.3g} coefficients")
    found = list(PARTS[asked.part](settings, asked))
    if not asked.prepare:
        write_table(asked.csv, NAMES, found, append=True)


if __name__ == "__main__":
    main()

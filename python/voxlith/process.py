"""Finding the program, its keywords, and a run while it goes on."""

from __future__ import annotations

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator, Sequence
from pathlib import Path
from typing import IO, Literal

from .errors import FileError, PathLike, RunError, UsageError
from .io.numbers import number_text
from .io.output import read_bytes
from .io.progress_file import IterationRow, rows_of

PROGRAM_VARIABLE = "VOXLITH_PROGRAM"
COMPLETED = "Inversion completed"


def find_program(program: PathLike | None = None, name: str = "voxlith") -> str:
    """Full name of the program.

    Parameters
    ----------
    program : path, optional
        The program itself. Without it: what the environment variable ``VOXLITH_PROGRAM`` names, then `name` on the
        PATH, beside the Python that runs, and in the build folder of the source tree that holds this package.

    Raises
    ------
    RunError
        When there is none.
    """
    named = os.fspath(program) if program is not None else os.environ.get(PROGRAM_VARIABLE, "")
    if named:
        found = shutil.which(named)
        if found is None:
            source = "" if program is not None else f" (from {PROGRAM_VARIABLE})"
            raise RunError(f"{named}{source}: there is no such program")
        return os.path.abspath(found)
    beside = [Path(sys.prefix) / "bin", *(Path(__file__).resolve().parents[2] / folder
                                          for folder in ("bin", "build/release", "build"))]
    for folder in (None, *map(str, beside)):
        found = shutil.which(name, path=folder)
        if found is not None:
            return os.path.abspath(found)
    raise RunError(f"{name}: the program is neither on the PATH nor beside this package; name it or set "
                   f"{PROGRAM_VARIABLE}")


def keyword_arguments(*, misfit: tuple[float, float] | None = None, tradeoff: float | None = None,
                      offset: float | None = None, obs_clip: Sequence[tuple[float, float]] | None = None,
                      clip_layer: int | None = None) -> list[str]:
    """Keywords of the command line.

    Parameters
    ----------
    misfit : tuple of 2 float
        New standard deviations of all data: percent of the datum, and floor in data units.
    tradeoff : float
        Replaces the one of the control file.
    offset : float
        Added to every datum, in data units.
    obs_clip : sequence of (float, float)
        Minimum and maximum per component; data outside are masked.
    clip_layer : int
        In style 0, fixes all cells from this layer (from 1) down.

    Raises
    ------
    UsageError
        For numbers that the program would ignore.

    Examples
    --------
    >>> keyword_arguments(misfit=(2, 0.02), obs_clip=[(0, 0.5)])
    ['Misfit=(2,0.02)', 'ObsClip=(0,0.5)']
    """
    found = []
    if misfit is not None:
        if min(misfit) < 0.0 or max(misfit) == 0.0:
            raise UsageError(f"misfit {misfit}: expected percent and floor of 0 or more, not both 0")
        found.append(f"Misfit=({number_text(misfit[0])},{number_text(misfit[1])})")
    if tradeoff is not None:
        if not tradeoff > 0.0:
            raise UsageError(f"tradeoff {tradeoff}: expected a number above 0")
        found.append(f"Tradeoff={number_text(tradeoff)}")
    if offset is not None:
        found.append(f"Offset={number_text(offset)}")
    if obs_clip is not None:
        numbers = ",".join(number_text(limit) for limits in obs_clip for limit in limits)
        found.append(f"ObsClip=({numbers})")
    if clip_layer is not None:
        found.append(f"Clip={int(clip_layer)}")
    return found


class _Table:
    """The rows that the table of iterations gains.

    `present`: what becomes of a table that is there. A new run replaces it when it begins to iterate, and a continued
    one extends it; rows of a run that goes on are taken.
    """

    def __init__(self, path: Path, present: Literal["replaced", "extended", "taken"]) -> None:
        self._path = path
        self._offset = 0
        self._line = 1
        self._earlier = _signature(path) if present == "replaced" else None
        if present == "extended" and path.is_file():
            content = read_bytes(path)
            self._offset = content.rfind(b"\n") + 1
            self._line = content.count(b"\n") + 1

    def new_rows(self) -> list[IterationRow]:
        """Rows in complete lines since the last call."""
        signature = _signature(self._path)
        if signature is None or signature == self._earlier:
            return []
        self._earlier = None
        content = read_bytes(self._path)
        if len(content) < self._offset:
            self._offset, self._line = 0, 1  # another run has begun a table of its own
        rows, taken = rows_of(content[self._offset:], self._path, first_line=self._line, strict=False)
        self._line += content[self._offset: self._offset + taken].count(b"\n")
        self._offset += taken
        return rows


def _signature(path: Path) -> tuple[int, int] | None:
    try:
        state = os.stat(path)
    except OSError:
        return None
    return state.st_mtime_ns, state.st_size


class Process:
    """A run that this program has started.

    It goes on when this program is interrupted or ends; only :meth:`stop` stops it.

    Parameters
    ----------
    program : str
        Full name of the program.
    folder : path
        Folder of the run.
    arguments : sequence of str
        Control file and keywords.
    continued : bool
        Whether the run continues the one whose files are there.

    Raises
    ------
    RunError
        When the program cannot be started.
    """

    def __init__(self, program: str, folder: PathLike, arguments: Sequence[str], *, continued: bool = False) -> None:
        self._table = _Table(Path(folder) / "voxlith.aux", "extended" if continued else "replaced")
        self._screen: IO[bytes] = tempfile.TemporaryFile()
        try:
            self._process = subprocess.Popen([program, *arguments], cwd=folder, stdin=subprocess.DEVNULL,
                                             stdout=self._screen, stderr=subprocess.STDOUT, start_new_session=True)
        except OSError as error:
            raise RunError(f"{program}: cannot be started: {error.strerror}") from error
        self.stopped = False

    @property
    def pid(self) -> int:
        """Number of the process."""
        return self._process.pid

    @property
    def running(self) -> bool:
        """Whether the run goes on."""
        return self._process.poll() is None

    def screen(self) -> str:
        """What the program has written to the screen so far."""
        size = os.fstat(self._screen.fileno()).st_size
        return os.pread(self._screen.fileno(), size, 0).decode("utf-8", "replace")

    def follow(self, interval: float = 0.2) -> Iterator[IterationRow]:
        """Rows of the table of iterations as the run writes them, until it ends.

        Parameters
        ----------
        interval : float
            Seconds between looks at the table.
        """
        while True:
            ended = not self.running
            yield from self._table.new_rows()
            if ended:
                return
            time.sleep(interval)

    def wait(self, timeout: float | None = None) -> None:
        """Wait for the end of the run.

        Parameters
        ----------
        timeout : float, optional
            Seconds to wait at most; the run then goes on.

        Raises
        ------
        RunError
            When the run ended without its results, with what it says; after :meth:`stop`; or after `timeout`.
        """
        try:
            status = self._process.wait(timeout)
        except subprocess.TimeoutExpired as error:
            raise RunError(f"the run has not ended within {timeout} s and goes on") from error
        if status == 0 and COMPLETED in self.screen():
            return
        if self.stopped:
            raise RunError("the run was stopped; it can be continued")
        if status < 0:
            raise RunError(f"the run was ended by signal {-status} ({signal.Signals(-status).name})")
        lines = [line.strip() for line in self.screen().splitlines() if line.strip()]
        raise RunError(f"the run ended without results: {lines[-1] if lines else f'exit status {status}'}")

    def stop(self, patience: float = 10.0) -> None:
        """Stop the run. Its files stay whole, and it can be continued from them.

        Parameters
        ----------
        patience : float
            Seconds after which the process is killed.
        """
        if not self.running:
            return
        self.stopped = True
        self._process.terminate()
        try:
            self._process.wait(patience)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()


def follow_table(path: PathLike, finished: Path, interval: float, patience: float) -> Iterator[IterationRow]:
    """Rows of the table of a run that another program started: those that are there, and those that come.

    Ends when the log `finished` says so, or when no row has come for `patience` seconds.
    """
    table = _Table(Path(path), "taken")
    last = time.monotonic()
    while True:
        ended = _has_ended(finished)
        rows = table.new_rows()
        yield from rows
        if rows:
            last = time.monotonic()
        if ended or time.monotonic() - last > patience:
            return
        time.sleep(interval)


def _has_ended(log: Path) -> bool:
    try:
        content = read_bytes(log)
    except FileError:
        return False
    last_run = max(content.rfind(b"VOXLITH version"), 0)
    return b"\nVOXLITH ended on:" in content[last_run:]

"""What the programs say, and how they end."""

from __future__ import annotations

import io
import os
import sys
from collections.abc import Callable, Mapping

from ..errors import PathLike, UsageError, VoxlithError, escaped
from ..packages import is_lack_of_memory

FAILED = 1
"""Exit status for a failure."""
CANNOT_START = 2
"""Exit status for options that do not go together, and for too little memory."""


def say(line: str = "") -> None:
    """A line of the report on standard output."""
    print(escaped(line))


def warn(program: str, text: str) -> None:
    """A warning on standard error, after what has been reported so far."""
    sys.stdout.flush()
    print(f"{program}: warning: {escaped(text)}", file=sys.stderr)


def check_output(output: PathLike, inputs: Mapping[str, PathLike | None]) -> None:
    """Refuse a file to write that is one of those that are read.

    Parameters
    ----------
    output : path
    inputs : dict
        Files by the option that names them; None and empty names are left out.

    Raises
    ------
    UsageError
        ``--out NAME: expected another file than that of OPTION``.
    """
    for option, name in inputs.items():
        try:
            same = bool(name) and os.path.samefile(name or "", output)
        except (OSError, ValueError):
            continue
        if same:
            raise UsageError(f"--out {os.fspath(output)}: expected another file than that of {option}")


def run_program(program: str, main: Callable[[], int]) -> int:
    """Run a program; its failures are one line on standard error.

    Returns
    -------
    int
        Exit status: that of `main`, 1 for a failure, 2 for options that do not go together and for too little memory.
    """
    # Names need not be text of the language that the terminal shows.
    if isinstance(sys.stdout, io.TextIOWrapper):
        sys.stdout.reconfigure(errors="backslashreplace")
    try:
        status = main()
        sys.stdout.flush()
        return status
    except UsageError as error:
        return _fail(program, str(error), CANNOT_START)
    except VoxlithError as error:
        return _fail(program, str(error))
    except MemoryError:
        return _fail(program, "not enough memory", CANNOT_START)
    except ImportError as error:
        if not is_lack_of_memory(error):
            raise
        return _fail(program, "not enough memory", CANNOT_START)
    except KeyboardInterrupt:
        return _fail(program, "interrupted", 130)
    except BrokenPipeError:
        # Who reads has seen enough. The rest of the text must not be tried again at the end.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return FAILED
    except OSError as error:
        where = f"{error.filename}: " if error.filename else "standard output: "
        return _fail(program, f"{where}{error.strerror or error}")


def _fail(program: str, text: str, status: int = FAILED) -> int:
    try:
        sys.stdout.flush()
    except OSError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    print(f"{program}: {escaped(text)}", file=sys.stderr)
    return status

"""The program that computes for ``voxlith-tools``: where it is, and how it gets numbers."""

from __future__ import annotations

import os
import shutil
import sys
import tempfile
from typing import IO, TYPE_CHECKING

from .errors import RunError

if TYPE_CHECKING:
    import numpy as np
    import numpy.typing as npt

FORWARD_VARIABLE = "VOXLITH_FORWARD_PROGRAM"
_NAME = "voxlith-forward"


def find_forward_program() -> str:
    """Full name of the program that computes.

    It is what the environment variable ``VOXLITH_FORWARD_PROGRAM`` names; else ``voxlith-forward`` beside the start
    script, in ``libexec/voxlith`` of the same installation, in the build folder of the source tree that holds this
    package, or in the installation or build folder of the ``voxlith`` on the PATH.

    Raises
    ------
    RunError
        When there is none.
    """
    named = os.environ.get(FORWARD_VARIABLE, "")
    if named:
        if not _is_program(named):
            raise RunError(f"{named} (from {FORWARD_VARIABLE}): there is no such program")
        return named
    start = os.path.dirname(os.path.realpath(sys.argv[0]))
    package = os.path.dirname(os.path.realpath(__file__))
    candidates = [os.path.join(start, _NAME)]
    candidates += [os.path.join(prefix, "libexec", "voxlith", _NAME) for prefix in
                   (os.path.dirname(start), os.path.normpath(os.path.join(package, "../../../..")), sys.prefix)]
    candidates += [os.path.join(os.path.dirname(os.path.dirname(package)), "build", folder, "tools", _NAME)
                   for folder in ("release", "")]
    main = shutil.which("voxlith")
    if main:
        beside = os.path.dirname(os.path.realpath(main))
        candidates += [os.path.join(os.path.dirname(beside), "libexec", "voxlith", _NAME), os.path.join(beside, "tools", _NAME)]
    for candidate in candidates:
        if _is_program(candidate):
            return os.path.normpath(candidate)
    raise RunError(f"{_NAME}: the program that computes is not beside this package; set {FORWARD_VARIABLE} to its name")


def _is_program(name: str) -> bool:
    return os.path.isfile(name) and os.access(name, os.X_OK)


def numbers_file(values: npt.NDArray[np.float64]) -> IO[bytes]:
    """A file without a name that holds numbers of 8 bytes, for a program that is started."""
    return content_file(values.astype("<f8").tobytes())


def content_file(content: bytes) -> IO[bytes]:
    """A file without a name, for a program that is started."""
    file = tempfile.TemporaryFile()
    file.write(content)
    file.flush()
    file.seek(0)
    os.set_inheritable(file.fileno(), True)
    return file


def inherited_name(file: IO[bytes]) -> str:
    """The name by which a started program opens it."""
    return f"/proc/self/fd/{file.fileno()}"

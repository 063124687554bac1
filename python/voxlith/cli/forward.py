"""``voxlith-tools mtx`` and ``predict``: handed to the program that computes.

Options go through as they are. Of topography, the surface is interpolated here: the program says where it needs the
elevations, and gets them in a file without a name.
"""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Sequence
from typing import NoReturn

from ..forward_program import find_forward_program, inherited_name, numbers_file


def run_forward(command: str, arguments: Sequence[str]) -> int:
    """Become the program that computes. Returns only when it cannot say where it needs the surface.

    Raises VoxlithError.
    """
    program = find_forward_program()
    words = [program, command, *arguments]
    topography = _value_of("--topography", arguments)
    if topography is None or "--help" in arguments or "-h" in arguments:
        _become(words)
    asked = subprocess.run([*words, "--surface-points"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=False)
    if asked.returncode != 0:
        return asked.returncode
    import numpy as np

    from ..terrain import Terrain
    places = np.frombuffer(asked.stdout, dtype="<f8").reshape(-1, 2)
    surface = Terrain.read(topography)(places[:, 0], places[:, 1])
    with numbers_file(surface) as file:
        _become([*words, "--surface", inherited_name(file)])


def _become(words: list[str]) -> NoReturn:
    sys.stdout.flush()
    os.execv(words[0], words)


def _value_of(option: str, arguments: Sequence[str]) -> str | None:
    """The value of an option, ``--option VALUE`` or ``--option=VALUE``; None without it."""
    for number, word in enumerate(arguments):
        if word == option and number + 1 < len(arguments):
            return arguments[number + 1]
        if word.startswith(f"{option}="):
            return word[len(option) + 1:]
    return None

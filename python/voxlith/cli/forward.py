"""``voxlith-tools mtx`` and ``predict``: handed to the program that computes.

Options go through as they are. Of topography, the surface is interpolated here: the program says where it needs the
elevations, and gets them in a file without a name.
"""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Sequence
from typing import TYPE_CHECKING, NoReturn

from ..forward_program import find_forward_program, inherited_name, numbers_file

if TYPE_CHECKING:
    import numpy as np
    import numpy.typing as npt


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

    from ..side_file import read_side_file
    from ..terrain_input import read_terrain
    from .output import warn
    places = np.frombuffer(asked.stdout, dtype="<f8").reshape(-1, 2)
    side = read_side_file(_value_of("--stations", arguments) or "")
    terrain, warning = read_terrain(topography, places, _step(places), crs=side.crs, shift=side.shift)
    if warning:
        warn("voxlith-tools", warning)
    surface = terrain(places[:, 0], places[:, 1])
    with numbers_file(surface) as file:
        _become([*words, "--surface", inherited_name(file)])


def _step(places: npt.NDArray[np.float64]) -> float:
    """Distance of points of a raster that shows what lies between the places: half their smallest distance along an axis."""
    import numpy as np
    steps = [np.diff(np.unique(places[:, axis])) for axis in (0, 1)]
    extent = max(float(np.ptp(places[:, axis])) for axis in (0, 1))
    least = min((float(values[values > 1.0e-3 * extent].min()) for values in steps if (values > 1.0e-3 * extent).any()),
                default=extent)
    return max(0.5 * least, extent / 1000.0, 1.0e-3)


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

"""``voxlith-tools mtx`` and ``predict``: handed to the program that computes.

Options go through as they are. Of topography, the surface is interpolated here: the program says where it needs the
elevations, and gets them in a file without a name. In another such file it gets what is to be remembered of the
coordinates beside its output.
"""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Sequence
from typing import TYPE_CHECKING, NoReturn

from ..errors import UsageError
from ..forward_program import content_file, find_forward_program, inherited_name, numbers_file
from ..side_file import SideInfo, other_coordinates, read_side_file, side_content

if TYPE_CHECKING:
    import numpy as np
    import numpy.typing as npt


def run_forward(command: str, arguments: Sequence[str]) -> int:
    """Become the program that computes. Returns its status when it cannot say where it needs the surface.

    Raises VoxlithError.
    """
    words = [find_forward_program(), command, *arguments]
    if "--help" in arguments or "-h" in arguments:
        _become(words)
    _warn_of_field(arguments)
    side = _side(command, arguments)
    topography = _value_of("--topography", arguments)
    surface = None
    if topography is not None:
        asked = subprocess.run([*words, "--surface-points"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=False)
        if asked.returncode != 0:
            return asked.returncode
        surface = _surface(topography, _value_of("--terrain-crs", arguments) or "", asked.stdout, side)
    files = []  # open until the program has taken the place of this one
    out = _value_of("--out", arguments)
    if out:
        read_side_file(out)  # a file of another kind under that name is an error now rather than after hours
        files.append(content_file(side_content(out, side)))
        words += ["--side", inherited_name(files[-1])]
    if surface is not None:
        files.append(numbers_file(surface))
        words += ["--surface", inherited_name(files[-1])]
    _become(words)


def _side(command: str, arguments: Sequence[str]) -> SideInfo:
    """Coordinates of the stations, else of the mesh, and the direction of magnetisation of sensitivities, which their file does
    not hold. Raises UsageError when the coordinates of both are known and differ."""
    stations, mesh = (_value_of(option, arguments) or "" for option in ("--stations", "--mesh"))
    first, second = (read_side_file(name).coordinates if name else SideInfo() for name in (stations, mesh))
    other = other_coordinates(first, second)
    if other:
        raise UsageError(f"{stations} and {mesh}: expected the same coordinates, found {other}")
    found = second if first.is_empty else first
    direction = _value_of("--magnetisation", arguments)
    return found.with_step("magnetisation", direction=direction) if command != "predict" and direction else found


def _warn_of_field(arguments: Sequence[str]) -> None:
    """Says where --field is not the inducing field of the stations' file: the data of that file then belong to other rows."""
    stations, given = _value_of("--stations", arguments), _value_of("--field", arguments)
    own = _field_lines(stations) if stations and given else None
    asked = given.split(",") if given else []
    if own is None or len(asked) != 3:
        return
    try:
        differs = any(abs(float(text) - number) > 1.0e-3 * max(1.0, abs(number)) for text, number in zip(asked, own))
    except ValueError:
        return  # the program says what is wrong
    if differs:
        from .output import warn
        warn("voxlith-tools", f"{stations}: its inducing field is {','.join(f'{number:.7g}' for number in own)}, but --field is {given}; "
             "sensitivities of another field do not fit these data; leave --field out")


def _field_lines(stations: str) -> list[float] | None:
    """Inclination, declination and strength on the first line of a data file; None where it has the number of data there."""
    try:
        with open(stations, encoding="utf-8", errors="replace") as file:
            words = file.readline(1000).split("!")[0].replace(",", " ").split()
        return [float(word) for word in words[:3]] if len(words) >= 3 else None
    except (OSError, ValueError):
        return None


def _surface(topography: str, terrain_crs: str, places_as_bytes: bytes, side: SideInfo) -> npt.NDArray[np.float64]:
    """Elevations where the program needs them."""
    import numpy as np

    from ..terrain_input import read_terrain
    from .output import warn
    places = np.frombuffer(places_as_bytes, dtype="<f8").reshape(-1, 2)
    terrain, warning = read_terrain(topography, places, _step(places), crs=side.crs, terrain_crs=terrain_crs, shift=side.shift)
    if warning:
        warn("voxlith-tools", warning)
    return terrain(places[:, 0], places[:, 1])


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

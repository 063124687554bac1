"""Writes files of data; the form is described in :mod:`voxlith.io.obs_file`."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import replace
from typing import Literal

import numpy as np
import numpy.typing as npt

from ..codes import DUMMY
from ..errors import PathLike, UsageError
from .exponent_text import WIDTH, exponent_fields
from .numbers import fixed_field, integer_field, number_text, parse_real
from .obs_file import LINE_NAME_WIDTH, ObsFile
from .output import write_bytes
from .text_lines import LINE_WIDTH, to_bytes

Reals = npt.NDArray[np.float64]
ObsDigits = Literal["auto", "fixed", "full"]

_COUNT_LINE_WIDTH = 512
_STAR = "*".rjust(WIDTH)


def write_obs_file(path: PathLike, obs: ObsFile, *, digits: ObsDigits = "auto") -> None:
    """Write a file of data.

    Parameters
    ----------
    path : path
    obs : ObsFile
    digits : {"auto", "fixed", "full"}
        ``"fixed"``: coordinates with 2 decimals and data with 6 digits, the same bytes that ``voxlith`` writes.
        ``"full"``: the fewest digits that read back as the same numbers, the same bytes that ``voxlith-tools obs``
        writes. ``"auto"``: fixed when nothing is lost by it, else full.

    Raises
    ------
    UsageError
        When shapes do not fit together, a coordinate or uncertainty is not finite, a name is not fit for a record, or
        a number does not fit its fixed field.
    FileError
        When the file cannot be written.

    Notes
    -----
    A masked datum is written as asterisks, component by component. A run writes a masked later component as 0 and at
    most six asterisks per record; such files are taken for data of 0 when they are read again.
    """
    if obs.angles is not None and obs.uncertainty is None:
        obs = replace(obs, uncertainty=np.zeros(obs.data.shape))  # the downhole form has them in any case
    _check(obs)
    if digits == "auto":
        digits = "fixed" if _fixed_holds_all(obs) else "full"
    if digits not in ("fixed", "full"):
        raise UsageError(f"digits {digits!r}: expected 'auto', 'fixed' or 'full'")
    lines = _fixed_lines(obs) if digits == "fixed" else _full_lines(obs)
    for number, line in enumerate(lines[3 if obs.header else 1:], 1):
        if len(to_bytes(line)) > LINE_WIDTH:
            raise UsageError(f"record {number} takes {len(line)} characters; at most {LINE_WIDTH} are read of a line")
    write_bytes(path, to_bytes("\n".join(lines) + "\n"))


def _check(obs: ObsFile) -> None:
    count = len(obs.x)
    if obs.data.ndim != 2 or not 1 <= len(obs.data) <= 6:
        raise UsageError(f"data: expected 1 to 6 components, shape (components, {count}), found {obs.data.shape}")
    shapes = {"x": (obs.x, (count,)), "y": (obs.y, (count,)), "elevation": (obs.elevation, (count,)),
              "data": (obs.data, (len(obs.data), count)), "uncertainty": (obs.uncertainty, obs.data.shape),
              "angles": (obs.angles, (count, 2)), "time": (obs.time, (count,))}
    for name, (array, shape) in shapes.items():
        if array is not None and array.shape != shape:
            raise UsageError(f"{name}: expected the shape {shape}, found {array.shape}")
        if array is not None and name != "data" and not np.isfinite(array).all():
            raise UsageError(f"{name}: expected finite numbers")
    if count < 1:
        raise UsageError("expected at least one record")
    if np.isinf(obs.data).any():
        raise UsageError("data: expected finite numbers, NaN where masked")
    if (obs.line is None) != (obs.time is None):
        raise UsageError("line names and times go together")
    if obs.line is not None:
        _check_names(obs, obs.line)
    downhole = obs.header is not None and obs.header.idir < 1 and (not obs.codes or obs.codes[0] == 1)
    if downhole != (obs.angles is not None):
        raise UsageError("angles per record go together with a total-field file whose direction flag idir is below 1")


def _check_names(obs: ObsFile, names: Sequence[str]) -> None:
    if obs.uncertainty is None or obs.angles is not None:
        raise UsageError("line names and times follow uncertainties, and do not occur in the downhole form")
    if len(names) != len(obs.x):
        raise UsageError(f"line: expected {len(obs.x)} names, found {len(names)}")
    for name in set(names):
        if not name or len(to_bytes(name)) > LINE_NAME_WIDTH or any(c in " ,\t\r\n" for c in name):
            raise UsageError(f"line name {name!r}: expected 1 to {LINE_NAME_WIDTH} bytes without spaces and commas")


def _count_text(obs: ObsFile) -> str:
    """Count line as a run writes it."""
    count = integer_field(len(obs.x), 7)
    if len(obs.data) == 1:
        return f"{count}{'':23}  !! # of data"
    codes = "".join(integer_field(code, 4) for code in obs.codes)
    text = f"{count}{integer_field(len(obs.data), 4)}{codes}  !! # of data, # components, data types"
    return text.ljust(_COUNT_LINE_WIDTH)


def _fixed_header(obs: ObsFile) -> list[str]:
    if obs.header is None:
        return [_count_text(obs)]
    head = obs.header
    angles = fixed_field(head.inclination, 10, 2) + fixed_field(head.declination, 10, 2)
    measured = fixed_field(head.measured_inclination, 10, 2) + fixed_field(head.measured_declination, 10, 2)
    return [f"{angles}{fixed_field(head.strength, 10, 2)}  !! incl, decl, geomag",
            f"{measured}     {integer_field(head.idir, 2)}     !! aincl, adecl, idir",
            _count_text(obs)]


def _fixed_columns(values: Reals, width: int) -> list[str]:
    return [fixed_field(value, width, 2) for value in values.tolist()]


def _separated(column: list[str]) -> list[str]:
    """A column whose numbers are separated from the column before."""
    wide = next((text for text in column if not text.startswith(" ")), None)
    if wide is not None:
        raise UsageError(f"a number fills its field, {wide}; write the file with digits='full'")
    return column


def _exponent_columns(values: Reals) -> list[str]:
    text = exponent_fields(values).tobytes().decode()
    return [text[at: at + WIDTH] for at in range(0, len(text), WIDTH)]


def _fixed_lines(obs: ObsFile) -> list[str]:
    columns = [_separated(_fixed_columns(values, 12)) for values in (obs.x, obs.y, obs.elevation)]
    if obs.angles is not None:
        columns += [_separated(_fixed_columns(obs.angles[:, n], 8)) for n in (0, 1)]
    # Downhole records hold numbers alone.
    star = _STAR if obs.angles is None else _exponent_columns(np.array([DUMMY]))[0]
    for component, data in enumerate(obs.data):
        masked = np.isnan(data).tolist()
        columns.append([star if mask else text for mask, text in zip(masked, _exponent_columns(data))])
        if obs.uncertainty is not None:
            texts = _exponent_columns(obs.uncertainty[component])
            if obs.angles is None:
                texts = [_STAR if mask else text for mask, text in zip(masked, texts)]
            columns.append(texts)
    if obs.line is not None and obs.time is not None:
        columns.append([f" {name} {number_text(time)}" for name, time in zip(obs.line, obs.time.tolist())])
    return _fixed_header(obs) + ["".join(words) for words in zip(*columns)]


def _full_header(obs: ObsFile) -> list[str]:
    count = str(len(obs.x))
    lines = [f"{count}  !! # of data"]
    if len(obs.data) > 1:
        numbers = " ".join(map(str, (len(obs.data), *obs.codes)))
        lines = [f"{count} {numbers}  !! # of data, # components, data types"]
    if obs.header is None:
        return lines
    head = obs.header
    field = " ".join(map(number_text, (head.inclination, head.declination, head.strength)))
    measured = " ".join(map(number_text, (head.measured_inclination, head.measured_declination)))
    return [f"{field}  !! incl, decl, geomag", f"{measured} {head.idir}  !! aincl, adecl, idir", *lines]


def _full_lines(obs: ObsFile) -> list[str]:
    columns = [list(map(number_text, values.tolist())) for values in (obs.x, obs.y, obs.elevation)]
    widths = [12, 12, 12]
    if obs.angles is not None:
        columns += [[number_text(value) for value in obs.angles[:, n].tolist()] for n in (0, 1)]
        widths += [0, 0]
    star = "*" if obs.angles is None else number_text(DUMMY)
    for component, data in enumerate(obs.data):
        columns.append([star if value != value else number_text(value) for value in data.tolist()])
        widths.append(13)
        if obs.uncertainty is not None:
            columns.append(["*" if masked and obs.angles is None else number_text(value) for masked, value in
                            zip(np.isnan(data).tolist(), obs.uncertainty[component].tolist())])
            widths.append(13)
    if obs.line is not None and obs.time is not None:
        columns += [obs.line, [number_text(time) for time in obs.time.tolist()]]
        widths += [0, 0]
    return _full_header(obs) + [_full_record(words, widths) for words in zip(*columns)]


def _full_record(words: Sequence[str], widths: Sequence[int]) -> str:
    """Right-aligned after a space; without the alignment when the line would be too long with it."""
    text = "".join(f" {word.rjust(width)}" for word, width in zip(words, widths))
    return text if len(to_bytes(text)) <= LINE_WIDTH else "".join(f" {word}" for word in words)


def _fixed_holds_all(obs: ObsFile) -> bool:
    """Whether the fixed form reads back as the same numbers."""
    head = obs.header
    numbers: list[tuple[Reals, int]] = [(obs.x, 12), (obs.y, 12), (obs.elevation, 12)]
    if obs.angles is not None:
        numbers += [(obs.angles[:, 0], 8), (obs.angles[:, 1], 8)]
    if head is not None:
        numbers.append((np.array([head.inclination, head.declination, head.strength, head.measured_inclination,
                                  head.measured_declination]), 10))
    if not all(parse_real(text.lstrip()) == value and (len(text.lstrip()) < width)
               for values, width in numbers for text, value in zip(_fixed_columns(values, width), values.tolist())):
        return False
    fields = [obs.data]
    if obs.uncertainty is not None:
        hidden = np.isnan(obs.data) if obs.angles is None else np.zeros(obs.data.shape, dtype=bool)
        fields.append(np.where(hidden, 0.0, obs.uncertainty))
    return all(parse_real(text.lstrip()) == value for values in fields
               for text, value in zip(_exponent_columns(values.ravel()), values.ravel().tolist()) if value == value)

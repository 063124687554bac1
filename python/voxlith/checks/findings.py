"""What a check has found, as a record, as a table and as JSON."""

from __future__ import annotations

import json
from collections.abc import Sequence
from dataclasses import asdict, dataclass
from typing import Final, Literal

import numpy as np
import numpy.typing as npt

Severity = Literal["error", "warning", "note"]

_ORDER: Final[tuple[Severity, ...]] = ("error", "warning", "note")
_MOST_NAMED = 5


@dataclass(frozen=True)
class Finding:
    """One finding.

    Attributes
    ----------
    severity : {"error", "warning", "note"}
        An error spoils a run; a warning may; a note is worth knowing.
    name : str
        Short name of the check, such as ``duplicate-stations``.
    text : str
        What was found.
    remedy : str
        What to do about it.
    stations : tuple of str
        Names of the stations concerned.
    """

    severity: Severity
    name: str
    text: str
    remedy: str
    stations: tuple[str, ...] = ()


def named(names: Sequence[str], mask: npt.NDArray[np.bool_]) -> tuple[str, ...]:
    """Names of the chosen stations."""
    return tuple(names[number] for number in np.flatnonzero(mask).tolist())


def worst(findings: Sequence[Finding]) -> Severity | None:
    """The highest severity; None without findings."""
    return min((finding.severity for finding in findings), key=_ORDER.index, default=None)


def ordered(findings: Sequence[Finding]) -> list[Finding]:
    """Errors first, notes last."""
    return sorted(findings, key=lambda finding: _ORDER.index(finding.severity))


def findings_table(findings: Sequence[Finding]) -> list[str]:
    """Lines of a table: severity, name, what was found, stations, and what to do.

    Examples
    --------
    >>> print("\\n".join(findings_table([Finding("error", "no-data-code", "2 data are -9999", "mask them", ("A1", "A7"))])))
    error    no-data-code   2 data are -9999
                            stations: A1, A7
                            do: mask them
    """
    width = max((len(finding.name) for finding in findings), default=0) + 3
    lines = []
    for finding in ordered(findings):
        lines.append(f"{finding.severity:<9}{finding.name:<{width}}{finding.text}")
        indent = " " * (9 + width)
        if finding.stations:
            lines.append(f"{indent}stations: {listed(finding.stations)}")
        lines.append(f"{indent}do: {finding.remedy}")
    return lines


def listed(names: Sequence[str], most: int = _MOST_NAMED) -> str:
    """Names with commas; of many the first ones and the count of the others.

    >>> listed("abcdefgh")
    'a, b, c, d, e and 3 more'
    """
    if len(names) <= most:
        return ", ".join(names)
    return f"{', '.join(names[:most])} and {len(names) - most} more"


def findings_json(findings: Sequence[Finding]) -> str:
    """A JSON array of all findings with all station names."""
    return json.dumps([asdict(finding) for finding in ordered(findings)], indent=1, ensure_ascii=False)


def sentence(finding: Finding) -> str:
    """A finding as the text of a warning: what was found, the stations, and what to do."""
    stations = f" ({listed(finding.stations)})" if finding.stations else ""
    return f"{finding.text}{stations}; {finding.remedy}"

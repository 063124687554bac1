"""Counts, bytes and times as reports say them."""

from __future__ import annotations


def count_text(count: int, one: str, several: str = "") -> str:
    """A count with its noun; several of them are `several`, by default with an s.

    >>> count_text(1, "station"), count_text(0, "station"), count_text(2, "datum", "data")
    ('1 station', '0 stations', '2 data')
    """
    return f"{count} {one if count == 1 else several or one + 's'}"


def bytes_text(count: float) -> str:
    """Bytes in the unit that leaves at most three digits before the point.

    >>> bytes_text(512.0), bytes_text(3211264.0), bytes_text(4.2e10)
    ('512 bytes', '3.2 MB', '42 GB')
    """
    units = ("bytes", "kB", "MB", "GB", "TB", "PB")
    unit = 0
    while count >= 1000.0 and unit + 1 < len(units):
        count /= 1000.0
        unit += 1
    return f"{count:.1f} {units[unit]}" if unit and count < 10.0 else f"{count:.0f} {units[unit]}"


def duration_text(seconds: float) -> str:
    """A time in the two largest of hours, minutes and seconds.

    >>> duration_text(12.2), duration_text(200.0), duration_text(7500.0)
    ('12 s', '3 min 20 s', '2 h 5 min')
    """
    whole = round(seconds)
    if whole < 60:
        return f"{whole} s"
    if whole < 3600:
        return f"{whole // 60} min {whole % 60} s"
    return f"{whole // 3600} h {whole // 60 % 60} min"

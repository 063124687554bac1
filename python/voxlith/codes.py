"""Codes of data types: names, units, and which of them are magnetic.

===== ==== ======= =============================================================
code  name unit    quantity
===== ==== ======= =============================================================
0     Gz   mGal    vertical attraction, positive downwards
1     TMI  nT      total magnetic intensity, anomaly along the measured direction
2, 12 Gzz  Eotvos  gravity gradient; x east, y north, z down
10    Gxx  Eotvos  gravity gradient
11    Gyy  Eotvos  gravity gradient
13    Gxy  Eotvos  gravity gradient
14    Gxz  Eotvos  gravity gradient
15    Gyz  Eotvos  gravity gradient
20-22 Tx.. nT      magnetic components to the east, to the north, downwards
===== ==== ======= =============================================================

Codes 3 to 6 (VKa, VKc, Gne, Guv) are further gradients; any other code counts as Gz.
"""

from __future__ import annotations

from typing import Final

from .errors import UsageError

DUMMY: Final = -1.0000000331813535e32
"""What a masked datum or a no-data cell holds: the single-precision number -1.0e32."""

DUMMY_LIMIT: Final = -1.0000000150474662e30
"""A value is valid when it is above this number: the single-precision number -1.0e30."""

MOST_FILES: Final = 6
"""Largest number of sensitivity files, of data components and of model types of a run."""

_NAMES = {1: "TMI", 2: "Gzz", 3: "VKa", 4: "VKc", 5: "Gne", 6: "Guv", 10: "Gxx", 11: "Gyy", 12: "Gzz", 13: "Gxy",
          14: "Gxz", 15: "Gyz", 20: "Tx", 21: "Ty", 22: "Tz"}


def data_type_name(code: int) -> str:
    """Name of a data type as the log shows it.

    >>> data_type_name(12), data_type_name(0), data_type_name(99)
    ('Gzz', 'Gz', 'Gz')
    """
    return _NAMES.get(code, "Gz")


def data_type_code(name: str) -> int:
    """Code of a data type by its name, in any case; ``"gzz"`` is 12.

    Raises
    ------
    UsageError
        When there is no such type.

    >>> data_type_code("tmi"), data_type_code("Gz"), data_type_code("gzz")
    (1, 0, 12)
    """
    wanted = name.strip().lower()
    if wanted == "gz":
        return 0
    for code, known in reversed(_NAMES.items()):
        if wanted == known.lower():
            return code
    known_names = ", ".join(["Gz", *dict.fromkeys(_NAMES.values())])
    raise UsageError(f"data type {name}: expected one of {known_names}")


def is_magnetic(code: int) -> bool:
    """Whether a data type is magnetic, so that its model is a susceptibility."""
    return code == 1 or 20 <= code <= 22


def has_magnetic_layout(code: int) -> bool:
    """Whether files of data have the two lines of the field, and models the endings .sus and .kap.

    The code of the first sensitivity file decides. The rule differs from :func:`is_magnetic` above code 22.
    """
    return code == 1 or code >= 20


def data_unit(code: int) -> str:
    """Unit of a data type.

    >>> data_unit(0), data_unit(1), data_unit(13)
    ('mGal', 'nT', 'Eotvos')
    """
    if is_magnetic(code):
        return "nT"
    return "Eotvos" if code in _NAMES else "mGal"


def default_uncertainty(code: int) -> float:
    """Standard deviation that replaces a missing one, in data units; `code` is that of the first component.

    A run stores it in single precision.

    >>> default_uncertainty(1), default_uncertainty(0)
    (1.0, 0.009999999776482582)
    """
    return 1.0 if has_magnetic_layout(code) else 0.009999999776482582


def model_quantity(code: int) -> tuple[str, str]:
    """Quantity and unit of the model that explains a data type.

    >>> model_quantity(0)
    ('density contrast', 'g/cm3')
    >>> model_quantity(1)
    ('susceptibility', 'SI')
    """
    return ("susceptibility", "SI") if is_magnetic(code) else ("density contrast", "g/cm3")


def unit_text(unit: str) -> str:
    """A unit as pictures and reports show it. Files, tables and messages have the plain letters.

    >>> unit_text("0.5 g/cm3")
    '0.5 g/cm³'
    """
    for plain, shown in (("g/cm3", "g/cm³"), ("Eotvos", "Eötvös")):
        unit = unit.replace(plain, shown)
    return unit

"""Control files: read, edited and written with their comments.

A control file has twelve lines in a fixed order, of which the last three may be missing, and one line per data
component with product definitions in joint runs. A comment follows ``!``.
"""

from __future__ import annotations

import dataclasses
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

from ..errors import FileError, PathLike, UsageError
from .control_values import ControlValues, Product, ProductTerm, check_values, parse_lines
from .numbers import number_text
from .output import read_bytes, write_bytes
from .text_lines import to_bytes

__all__ = ["ControlFile", "ControlValues", "Product", "ProductTerm", "read_control_file", "write_control_file"]

_COMMENTS = ("iRestart, sensitivity files, data components, model types",
             "iMode, iBackground, BackVal",
             "trade-off, tolc, positivity flag, integration interval",
             "observed data",
             "sensitivity files",
             "initial model",
             "reference model",
             "bounds",
             "alphaS, alphaE, alphaN, alphaZ",
             "weighting",
             "data offset",
             "iterations, output step, InversionMethod")
_COMMENT_COLUMN = 24


@dataclass
class ControlFile:
    """A control file with its comments, and what it says.

    Attributes
    ----------
    values : ControlValues
        What the lines say.
    lines : list of str
        The lines with their comments.
    path : path
        Where it was read from; names messages.

    Examples
    --------
    >>> control = ControlFile.new(data_file="gz.obs", mtx_files=("gz.mtx",), tradeoff=0.01, max_iterations=60)
    >>> control.set(max_iterations=80, bounds="0.0,1.0")
    >>> print(control.lines[7])
    0.0,1.0                 ! bounds
    >>> control.values.max_iterations
    80
    """

    values: ControlValues
    lines: list[str]
    path: PathLike = "voxlith.inp"
    _last_end: str = "\n"

    @classmethod
    def new(cls, **changes: Any) -> ControlFile:
        """A control file with the usual comments; `changes` are fields of :class:`ControlValues`."""
        values = _changed(ControlValues(), changes)
        lines = [_with_comment(write(values), f"! {comment}", _COMMENT_COLUMN)
                 for write, comment in zip(_WRITERS, _COMMENTS)]
        control = cls(values, [*lines, *map(_product_text, values.products)])
        control._check()
        return control

    def set(self, **changes: Any) -> None:
        """Change values; lines whose values change are written anew, their comments and all other lines stay.

        Parameters
        ----------
        **changes
            Fields of :class:`ControlValues`. With `mtx_files` alone, `mtx_count` follows.

        Raises
        ------
        UsageError
            For a field that does not exist, or values that a control file cannot hold. Nothing is changed then.
        """
        values = _changed(self.values, changes)
        lines = list(self.lines)
        last = max((n for n, fields in enumerate(_FIELDS) if any(_differs(self.values, values, f) for f in fields)),
                   default=-1)
        for number, (write, fields) in enumerate(zip(_WRITERS, _FIELDS)):
            if number >= len(lines) and (number <= last or values.products):
                lines.append(_with_comment(write(values), f"! {_COMMENTS[number]}", _COMMENT_COLUMN))
            elif any(_differs(self.values, values, name) for name in fields):
                lines[number] = _replaced(lines[number], write(values))
        if values.products != self.values.products:
            lines[12: 12 + len(self.values.products)] = [_product_text(product) for product in values.products]
        changed = ControlFile(values, lines, self.path, self._last_end)
        changed._check()
        self.values, self.lines = values, lines

    def write(self, path: PathLike) -> None:
        """Write the file; without changes the same bytes that were read. Raises FileError."""
        write_bytes(path, to_bytes("\n".join(self.lines) + self._last_end))

    def _check(self) -> None:
        """Require that the lines say what the values are."""
        check_values(self.values)
        try:
            lines = [to_bytes(line).decode("latin-1").rstrip("\r") for line in self.lines]
            said = parse_lines(lines, self.path, True)
        except FileError as error:
            raise UsageError(f"control file: line {error.line}: {error.problem}") from error
        for name in (item.name for item in dataclasses.fields(ControlValues)):
            if _differs(said, self.values, name):
                raise UsageError(f"control file: {name} = {getattr(self.values, name)!r} would be read as "
                                 f"{getattr(said, name)!r}")


def read_control_file(path: PathLike, *, strict: bool = True) -> ControlFile:
    """Read a control file.

    Parameters
    ----------
    path : path
    strict : bool
        Whether what ``voxlith`` takes without a message is an error: text instead of an optional number, names that
        are cut or hold a tab, labels that give two models the same files.

    Raises
    ------
    FileError
        The file, the line, what was expected and what was found.
    """
    content = read_bytes(path)
    last_end = "\n" if content.endswith(b"\n") else ""
    lines = content.removesuffix(b"\n").split(b"\n") if content else []
    values = parse_lines([line.decode("latin-1").rstrip("\r") for line in lines], path, strict)
    return ControlFile(values, [line.decode("utf-8", "surrogateescape") for line in lines], path, last_end)


def write_control_file(path: PathLike, control: ControlFile) -> None:
    """Write a control file; see :meth:`ControlFile.write`."""
    control.write(path)


def _changed(values: ControlValues, changes: dict[str, Any]) -> ControlValues:
    known = {item.name for item in dataclasses.fields(ControlValues)}
    unknown = sorted(set(changes) - known)
    if unknown:
        raise UsageError(f"control file: unknown {', '.join(unknown)}; known are {', '.join(sorted(known))}")
    changes = {name: tuple(value) if isinstance(value, list) else value for name, value in changes.items()}
    if "mtx_files" in changes and "mtx_count" not in changes:
        changes["mtx_count"] = len(changes["mtx_files"])
        if "component_count" not in changes and values.component_count == values.mtx_count:
            changes["component_count"] = changes["mtx_count"]
    if changes.get("model_count", values.model_count) > 1 and not changes.get("labels", values.labels):
        changes["labels"] = ("",) * changes.get("model_count", values.model_count)
    return dataclasses.replace(values, **changes)


def _differs(a: ControlValues, b: ControlValues, name: str) -> bool:
    return bool(getattr(a, name) != getattr(b, name))


def _with_comment(text: str, comment: str, column: int) -> str:
    return f"{text.ljust(column - 1)} {comment}"


def _replaced(line: str, text: str) -> str:
    """A line with another text in front of its comment, which stays in its column when there is space."""
    old, mark, comment = line.partition("!")
    if not mark:
        return text + ("\r" if line.endswith("\r") else "")
    return _with_comment(text, mark + comment, len(old))


def _product_text(product: Product) -> str:
    words = [str(len(product.terms))]
    for term in product.terms:
        words += [str(term.mtx), str(term.model), number_text(term.coefficient)]
    return " ".join([*words, "RMS"] if product.amplitude else words)


def _line_1(values: ControlValues) -> str:
    words = [values.restart, values.mtx_count, values.component_count, values.model_count]
    if values.model_count == 1:
        words.pop()
        if values.component_count == values.mtx_count:
            words.pop()
            if values.mtx_count == 1:
                words.pop()
    labels = list(values.labels)
    while labels and not labels[-1]:
        labels.pop()
    # A blank label before another one is an empty word between two commas.
    text = ("," if "" in labels else " ").join(labels)
    return " ".join([*map(str, words), text] if text else map(str, words))


def _line_3(values: ControlValues) -> str:
    words = [number_text(values.tradeoff), number_text(values.tolc)]
    if values.positivity is not None or values.integration_interval:
        words.append(str(-999 if values.positivity is None else values.positivity))
    if values.integration_interval:
        words.append(number_text(values.integration_interval))
    return " ".join(words)


def _line_12(values: ControlValues) -> str:
    words = [values.max_iterations, values.output_step, values.inversion_method]
    while len(words) > 1 and words[-1] == 0:
        words.pop()
    return " ".join(map(str, words))


_WRITERS: tuple[Callable[[ControlValues], str], ...] = (
    _line_1,
    lambda values: f"{values.mode} {values.background} {number_text(values.background_value)}",
    _line_3,
    lambda values: values.data_file,
    lambda values: " | ".join(values.mtx_files),
    lambda values: values.initial_model,
    lambda values: values.reference_model,
    lambda values: values.bounds,
    lambda values: " ".join(map(number_text, values.alphas)),
    lambda values: " | ".join(values.weight_files),
    lambda values: values.data_offset,
    _line_12,
)
_FIELDS: tuple[tuple[str, ...], ...] = (
    ("restart", "mtx_count", "component_count", "model_count", "labels"),
    ("mode", "background", "background_value"),
    ("tradeoff", "tolc", "positivity", "integration_interval"),
    ("data_file",),
    ("mtx_files",),
    ("initial_model",),
    ("reference_model",),
    ("bounds",),
    ("alphas",),
    ("weight_files",),
    ("data_offset",),
    ("max_iterations", "output_step", "inversion_method"),
)

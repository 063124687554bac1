"""What the lines of a control file say."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass, field

import numpy as np

from ..codes import MOST_FILES
from ..errors import FileError, PathLike, UsageError, shown
from .free_format import FreeFormat, Status
from .text_lines import LINE_WIDTH, to_text, tokens

NAME_WIDTH = 80
LABEL_WIDTH = 8
DEFAULT_ITERATIONS = 300
DEFAULT_ALPHAS = (1.0e-4, 1.0, 1.0, 1.0)


@dataclass(frozen=True)
class ProductTerm:
    """One term of a product definition: sensitivity file times model type times coefficient, counted from 1."""

    mtx: int
    model: int
    coefficient: float

    @property
    def takes_part(self) -> bool:
        """Whether the term counts; others are ignored."""
        return self.mtx > 0 and self.model > 0 and self.coefficient != 0.0


@dataclass(frozen=True)
class Product:
    """How one data component is predicted: the sum of its terms or, if `amplitude`, the root of the sum of their
    squares."""

    terms: tuple[ProductTerm, ...]
    amplitude: bool = False


@dataclass(frozen=True)
class ControlValues:
    """Values of a control file, line by line.

    Attributes
    ----------
    restart : int
        0 a new run, above 0 a continued one.
    mtx_count, component_count, model_count : int
        Sensitivity files, data components, model types; 1 to 6 each.
    labels : tuple of str
        A label of at most 8 characters per model type, blank where none is given; empty with one model type.
    mode : int
        2; -1 opens ``voxlith.lsv`` besides.
    background : int
        0 none, 1 fitted, 2 for `background_value`.
    background_value : float
        In the unit of the sensitivity file.
    tradeoff : float
        Multiplier of the model norm; 0 or less takes the default of the data type.
    tolc : float
        Read and not used.
    positivity : int or None
        -1 at most 0, 0 none, 1 at least 0, 2 at least 1e-5; None takes the default of the data type.
    integration_interval : float
        Along-line length over which each datum is a mean, in the unit of the time column; 0 for none.
    data_file : str
        Name of the observed data.
    mtx_files : tuple of str
        Names of the sensitivity files.
    initial_model, reference_model, bounds : str
        Text of lines 6 to 8: null, numbers, or the name of a file.
    alphas : tuple of 4 float
        alphaS, alphaE, alphaN, alphaZ.
    weight_files : tuple of str
        One name or four; null for weights of 1.
    data_offset : str
        null, numbers in units of the standard deviation, or the name of a file of reference data.
    max_iterations : int
        Iterations of this run.
    output_step : int
        Every how many iterations models get a name of their own; 0 never.
    inversion_method : int
        Read and not used.
    products : tuple of Product
        A definition per component, or none.
    """

    restart: int = 0
    mtx_count: int = 1
    component_count: int = 1
    model_count: int = 1
    labels: tuple[str, ...] = ()
    mode: int = 2
    background: int = 0
    background_value: float = 0.0
    tradeoff: float = 0.0
    tolc: float = 0.0
    positivity: int | None = None
    integration_interval: float = 0.0
    data_file: str = ""
    mtx_files: tuple[str, ...] = ("",)
    initial_model: str = "null"
    reference_model: str = "null"
    bounds: str = "null"
    alphas: tuple[float, float, float, float] = DEFAULT_ALPHAS
    weight_files: tuple[str, ...] = ("null",)
    data_offset: str = "null"
    max_iterations: int = DEFAULT_ITERATIONS
    output_step: int = 0
    inversion_method: int = 0
    products: tuple[Product, ...] = ()

    @property
    def is_joint(self) -> bool:
        """Whether product definitions are read."""
        return (self.mtx_count, self.component_count, self.model_count) != (1, 1, 1)

    def terms_of(self, component: int) -> Product:
        """How a component (from 0) is predicted, also where no definition is given."""
        return self.products[component] if self.products else Product((ProductTerm(component + 1, 1, 1.0),))


@dataclass
class _Lines:
    """The lines without comments, taken one after the other."""

    path: PathLike
    lines: list[str]
    strict: bool
    number: int = 0
    text: str = field(default="")

    def next(self) -> bool:
        if self.number >= len(self.lines):
            return False
        self.text = self.lines[self.number][:LINE_WIDTH].partition("!")[0]
        self.number += 1
        return True

    def require(self, what: str) -> None:
        if not self.next():
            raise FileError(self.path, f"expected {what}, found the end of the file", line=self.number + 1)

    def error(self, what: str, found: str | None = None) -> FileError:
        text = to_text(self.text.rstrip(" ") if found is None else found)
        return FileError(self.path, f"expected {what}, found {shown(text)}", line=self.number)


def parse_lines(lines: list[str], path: PathLike, strict: bool) -> ControlValues:
    """Values of a control file from its lines, one character per byte; see ``read_control_file``."""
    source = _Lines(path, lines, strict)
    values = {**_line_1(source), **_line_2(source), **_line_3(source)}
    source.require("the name of the observed data file")
    values["data_file"] = _name(source, source.text, "the name of the observed data file", required=True)
    count = values["mtx_count"]
    assert isinstance(count, int)
    values["mtx_files"] = _line_5(source, count)
    for key, what in (("initial_model", "the initial model"), ("reference_model", "the reference model"),
                      ("bounds", "the bounds")):
        source.require(what)
        values[key] = _name(source, source.text, what)
    values["alphas"] = _line_9(source)
    products: tuple[Product, ...] = ()
    if source.next():
        values["weight_files"] = _line_10(source)
        if source.next():
            values["data_offset"] = _name(source, source.text, "the data offset", width=LINE_WIDTH)
            if source.next():
                readable = _line_12(source, values)
                joint = ControlValues(**values)  # type: ignore[arg-type]
                products = _products(source, joint) if readable and joint.is_joint else ()
    found = ControlValues(**values, products=products)  # type: ignore[arg-type]
    _check_product_count(source, found)
    return found


def _word_number(word: str, default: int | None = None) -> int | None:
    """A word as an integer, as it is read free-format: `default` where a slash leaves it out, None for text or nothing.
    """
    with FreeFormat.of_text(word) as reader:
        value = reader.integer(0)
        if reader.status is not Status.GOOD:
            return None
        return value if reader.given else default


def _line_1(source: _Lines) -> dict[str, object]:
    source.require("the integer iRestart")
    words = tokens(source.text)
    restart = _word_number(words[0]) if words else None
    if restart is None:
        raise source.error("the integer iRestart")
    counts: list[int] = []
    for word, what in zip(words[1:4], ("sensitivity files", "data components", "model types")):
        count = _word_number(word, None if source.strict else 1 if len(counts) != 1 else counts[0])
        if count is None:
            if source.strict:
                raise source.error(f"the number of {what}", word)
            break
        counts.append(count)
    mtx = counts[0] if counts else 1
    components = counts[1] if len(counts) > 1 else mtx
    models = counts[2] if len(counts) > 2 else 1
    for count, what in ((mtx, "sensitivity files"), (components, "data components"), (models, "model types")):
        if not 1 <= count <= MOST_FILES:
            raise source.error(f"1 to {MOST_FILES} {what}", str(count))
    given = words[4: 4 + models] if models > 1 and len(counts) == 3 else []
    labels = tuple(to_text(word[:LABEL_WIDTH]) for word in given)
    labels += ("",) * (models - len(labels) if models > 1 else 0)
    _check_labels(source, labels)
    return {"restart": max(restart, 0), "mtx_count": mtx, "component_count": components, "model_count": models,
            "labels": labels}


def _check_labels(source: _Lines, labels: tuple[str, ...]) -> None:
    for index, label in enumerate(labels):
        if "/" in label:
            raise source.error('a model label without "/"', label)
        if source.strict and label and label in labels[:index]:
            raise source.error("labels that differ, since they become names of files", label)


def _numbers(source: _Lines, default: Sequence[float | int], required: int, what: str) -> list[float | int]:
    """Leading numbers of the line, of the types of `default`, which replaces those left out; the first `required` must
    be there."""
    found: list[float | int] = []
    with FreeFormat.of_text(source.text) as reader:
        for index, value_left_out in enumerate(default):
            value = (reader.integer(value_left_out) if isinstance(value_left_out, int)
                     else reader.real(value_left_out))
            if reader.status is not Status.GOOD:
                if index < required or (source.strict and reader.status is Status.BAD):
                    raise source.error(what)
                break
            if source.strict and reader.given <= index:
                raise source.error(what)
            found.append(value)
    return found


def _line_2(source: _Lines) -> dict[str, object]:
    source.require("the integer iMode")
    numbers = _numbers(source, (0, 0, 0.0), 1, "the integer iMode (and iBackground, BackVal)")
    names = ("mode", "background", "background_value")
    return dict(zip(names, numbers))


def _line_3(source: _Lines) -> dict[str, object]:
    source.require("two numbers, trade-off and tolc")
    what = "two numbers, trade-off and tolc (and positivity flag, integration interval)"
    numbers = _numbers(source, (0.0, 0.0, -999, 0.0), 2, what)
    values: dict[str, object] = dict(zip(("tradeoff", "tolc", "positivity", "integration_interval"), numbers))
    if values.get("positivity") == -999:
        values["positivity"] = None
    return values


def _name(source: _Lines, text: str, what: str, *, required: bool = False, width: int = NAME_WIDTH) -> str:
    """The name, or the text, that a line holds; spaces around it do not count."""
    name = text.strip(" ")
    if required and not name:
        raise source.error(what)
    if source.strict and ("\t" in name or "\r" in name):
        raise source.error(f"{what} without tabs, which become part of a name", name)
    if source.strict and len(text.rstrip(" ")) > width:
        raise source.error(f"{what} within {width} characters, since further ones are not read", name)
    return to_text(text[:width].strip(" "))


def _line_5(source: _Lines, count: int) -> tuple[str, ...]:
    source.require("the name of the sensitivity file")
    rest, names = source.text, []
    for _ in range(count - 1):
        separator = next((mark for mark in "|, " if mark in rest), "|")
        name, _, rest = rest.partition(separator)
        names.append(name)
    names.append(rest)
    what = "the name of the sensitivity file" if count == 1 else f"{count} names of sensitivity files"
    return tuple(_name(source, name, what, required=True, width=LINE_WIDTH) for name in names)


def _line_9(source: _Lines) -> tuple[float, float, float, float]:
    what = "four numbers, alphaS alphaE alphaN alphaZ"
    source.require(what)
    if source.text[:4] in ("null", "NULL"):
        return DEFAULT_ALPHAS
    with FreeFormat.of_text(source.text) as reader:
        alphas = reader.reals(np.array(DEFAULT_ALPHAS)).tolist()
        if reader.status is not Status.GOOD or (source.strict and reader.given < 4):
            raise source.error(what)
    if min(alphas) < 0.0 or max(alphas) == 0.0:
        raise source.error("alphas of 0 or more, not all of them 0")
    return alphas[0], alphas[1], alphas[2], alphas[3]


def _line_10(source: _Lines) -> tuple[str, ...]:
    if "|" not in source.text:
        return (_name(source, source.text, "the weighting file", width=LINE_WIDTH),)
    names = source.text.split("|", 3)
    names += [""] * (4 - len(names))
    return tuple(_name(source, name, "the weighting files", width=LINE_WIDTH) for name in names)


def _line_12(source: _Lines, values: dict[str, object]) -> bool:
    """Takes line 12; false when it ends the reading of the file."""
    what = "the number of iterations (and output step, InversionMethod)"
    if not source.strict:
        with FreeFormat.of_text(source.text) as reader:
            reader.integer(DEFAULT_ITERATIONS)
            if reader.status is not Status.GOOD:
                return False
    numbers = _numbers(source, (DEFAULT_ITERATIONS, 0, 0), 1, what)
    if numbers[0] > 0:
        values["max_iterations"] = numbers[0]
    values.update(zip(("output_step", "inversion_method"), numbers[1:]))
    return True


def _products(source: _Lines, values: ControlValues) -> tuple[Product, ...]:
    found: list[Product] = []
    while len(found) < values.component_count and source.number < len(source.lines):
        source.text = source.lines[source.number][:LINE_WIDTH]
        source.number += 1
        found.append(_product(source, values))
    return tuple(found)


def _product(source: _Lines, values: ControlValues) -> Product:
    words = tokens(source.text)
    count = _word_number(words[0]) if words else None
    if count is None:
        raise source.error("the number of terms of a product definition")
    terms = []
    for index in range(1, 1 + 3 * max(count, 0), 3):
        three = words[index: index + 3]
        mtx, model = (_word_number(three[n]) if len(three) > n else None for n in (0, 1))
        coefficient = _coefficient(three[2]) if len(three) > 2 else None
        if mtx is None or model is None or coefficient is None:
            raise source.error(f"{count} terms, each a file, a model type and a coefficient")
        terms.append(ProductTerm(mtx, model, coefficient))
        if terms[-1].takes_part and (mtx > values.mtx_count or model > values.model_count):
            raise source.error(f"files up to {values.mtx_count} and model types up to {values.model_count}")
    rest = words[1 + 3 * max(count, 0):]
    return Product(tuple(terms), count == 3 and any("RMS" in word for word in rest))


def _coefficient(word: str) -> float | None:
    with FreeFormat.of_text(word) as reader:
        value = reader.real(0.0)
        return value if reader.status is Status.GOOD and reader.given else None


def _check_product_count(source: _Lines, values: ControlValues) -> None:
    found, wanted = len(values.products), values.component_count
    if values.model_count == 1:
        bad = found != wanted if found else wanted != values.mtx_count
    else:
        bad = found not in (0, wanted)
    if bad:
        raise FileError(source.path, f"expected {wanted} product definitions, one per data component, found {found}",
                        line=source.number)


def check_values(values: ControlValues) -> None:
    """Require values that a control file can hold. Raises UsageError."""
    names = (values.data_file, values.initial_model, values.reference_model, values.bounds)
    for name in (*names, *values.mtx_files, *values.weight_files, values.data_offset, *values.labels):
        if any(mark in name for mark in "!\n\r\t"):
            raise UsageError(f"control file: {name!r}: expected a text without !, tabs and line ends")
    if len(values.mtx_files) != values.mtx_count or not all(values.mtx_files):
        raise UsageError(f"control file: expected {values.mtx_count} names of sensitivity files")
    if values.mtx_count > 1 and any("|" in name for name in values.mtx_files):
        raise UsageError("control file: expected names of sensitivity files without |")
    if len(values.weight_files) not in (1, 4):
        raise UsageError("control file: expected one weighting file or four")
    if any(" " in label or "," in label for label in values.labels):
        raise UsageError("control file: expected labels without spaces and commas")

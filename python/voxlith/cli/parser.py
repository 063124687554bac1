"""Command lines: options, their values, and what is said of wrong ones."""

from __future__ import annotations

import argparse
import difflib
import math
import re
import sys
import textwrap
from collections.abc import Callable, Iterable, Sequence
from typing import Any, NoReturn

from .. import __version__
from ..errors import UsageError, escaped

_HELP_WIDTH = 100

WRONG_USE = 2
"""Exit status for a wrong command line."""
_MISSING = "the following arguments are required: "


class _Once(argparse.Action):
    """Keeps a value; an option that is given twice is an error."""

    def __call__(self, parser: argparse.ArgumentParser, namespace: argparse.Namespace, values: Any,
                 option_string: str | None = None) -> None:
        _note_once(self, parser, namespace)
        setattr(namespace, self.dest, values)


class _FlagOnce(argparse.Action):
    """A flag without a value; given twice it is an error."""

    def __init__(self, option_strings: Sequence[str], dest: str, help: str | None = None) -> None:
        super().__init__(option_strings, dest, nargs=0, default=False, help=help)

    def __call__(self, parser: argparse.ArgumentParser, namespace: argparse.Namespace, values: Any,
                 option_string: str | None = None) -> None:
        _note_once(self, parser, namespace)
        setattr(namespace, self.dest, True)


def _note_once(action: argparse.Action, parser: argparse.ArgumentParser, namespace: argparse.Namespace) -> None:
    given: set[str] = namespace.__dict__.setdefault("_given", set())
    if action.dest in given:
        parser.error(f"{action.option_strings[0] if action.option_strings else action.dest}: given twice")
    given.add(action.dest)


class _Help(argparse.RawDescriptionHelpFormatter):
    """The layout that the help of the compiled programs has, too: manual pages and completions are made from it."""

    def __init__(self, prog: str) -> None:
        super().__init__(prog, max_help_position=30, width=_HELP_WIDTH)

    def _format_args(self, action: argparse.Action, default_metavar: str) -> str:
        (placeholder,) = self._metavar_formatter(action, default_metavar)(1)
        return f"{placeholder} ..." if action.nargs == argparse.ONE_OR_MORE else super()._format_args(action, default_metavar)


class Parser(argparse.ArgumentParser):
    """A parser that names what is wrong in one line and ends with status 2.

    Parameters
    ----------
    prog : str
        Program, with the subcommand if it has one.
    description, examples : str
        What help shows above and below the options.
    """

    def __init__(self, prog: str, description: str, examples: str = "") -> None:
        super().__init__(prog, description=description, epilog=examples, formatter_class=_Help, allow_abbrev=False,
                         add_help=False)
        self._words: list[str] = []
        self.register("action", None, _Once)
        self.register("action", "store", _Once)
        self.register("action", "store_true", _FlagOnce)
        # Values such as -0.01 and -60,10,50000 are no options.
        self._negative_number_matcher = re.compile(r"^-\.?[0-9]")
        self.add_argument("-h", "--help", action="help", help="Show this help and end")
        self.add_argument("--version", action="version", version=f"{prog.split()[0]} {__version__}",
                          help="Show the version and end")

    def format_help(self) -> str:
        """The help, with arguments, required options and a word for all other options as usage."""
        self.usage = self._short_usage()
        return super().format_help()

    def _short_usage(self) -> str:
        # Arguments come first: after an option that takes any number of words they would be taken for one of them.
        formatter = self._get_formatter()
        words = [self.prog]
        for action in self._actions:
            if not action.option_strings:
                words.append(f"[{action.metavar}]" if action.nargs == argparse.OPTIONAL else str(action.metavar))
        for action in self._actions:
            if action.option_strings and action.required:
                words.append(f"{action.option_strings[0]} {formatter._format_args(action, action.dest.upper())}")
        return textwrap.fill(" ".join([*words, "[OPTIONS]"]), _HELP_WIDTH - len("usage: "), break_long_words=False,
                             break_on_hyphens=False, subsequent_indent=" " * len(f"usage: {self.prog} "))

    def error(self, message: str) -> NoReturn:
        """End with one line on standard error and exit status 2."""
        if message.startswith(_MISSING):
            # An option that is misspelt may be the one that is missing.
            unknown = (self._unknown(word) for word in map(_option_name, self._words) if self._is_unknown(word))
            message = next(unknown, message)
        program, _, command = self.prog.partition(" ")
        print(f"{program}: {escaped(self._in_our_words(message))}", file=sys.stderr)
        sys.exit(WRONG_USE)

    def parse(self, arguments: Sequence[str]) -> argparse.Namespace:
        """Options of a command line; unknown ones are named with the nearest known one."""
        self._words = list(arguments)
        found, rest = self.parse_known_args(arguments)
        if rest:
            word = next((word for word in rest if word.startswith("-")), rest[0])
            self.error(self._unknown(_option_name(word)))
        return found

    def exclusive(self, options: argparse.Namespace, *names: str) -> None:
        """Refuse more than one of these options."""
        given = [f"--{name}" for name in names if getattr(options, name.replace("-", "_")) not in (None, "", False)]
        if len(given) > 1:
            self.error(f"{given[0]} and {given[1]} exclude each other")

    def _is_unknown(self, word: str) -> bool:
        known = {option for action in self._actions for option in action.option_strings}
        is_option = len(word) > 1 and word.startswith("-") and not self._negative_number_matcher.match(word)
        return is_option and word not in known

    def _unknown(self, word: str) -> str:
        known = [option for action in self._actions for option in action.option_strings if option.startswith("--")]
        command = self.prog.partition(" ")[2]
        text = f"{word}: no such option{f' of {command}' if command else ''}"
        if not word.startswith("-"):
            return f"{word}: expected no further argument"
        return text + suggestion(word, known)

    def _in_our_words(self, message: str) -> str:
        found = re.fullmatch(_MISSING + r"([^,]*).*", message, re.DOTALL)
        if found:
            return f"{found[1]} is required"
        message = re.sub(r"^argument (?:-\w, ?)?", "", message)
        found = re.fullmatch(r"([^:]*): invalid choice: '(.*)' \(choose from (.*)\)", message, re.DOTALL)
        if found:
            choices = re.findall(r"'([^']*)'", found[3])
            return f"{found[1]} {found[2]}: expected one of {', '.join(choices)}{suggestion(found[2], choices)}"
        found = re.fullmatch(r"([^:]*): expected (one|at least one) argument", message)
        return f"{found[1]}: expected a value" if found else message


def _option_name(word: str) -> str:
    return word.partition("=")[0]


def suggestion(word: str, known: Iterable[str]) -> str:
    """``"; did you mean WORD?"`` with the nearest of the known words; empty when none is near.

    >>> suggestion("--stationss", ["--stations", "--cell"])
    '; did you mean --stations?'
    """
    near = difflib.get_close_matches(word, known, 1, 0.6)
    return f"; did you mean {near[0]}?" if near else ""


def number(text: str) -> float:
    """A finite number, for `type` of an option."""
    from ..io.numbers import parse_real
    value = parse_real(text)
    if value is None or not math.isfinite(value):
        raise argparse.ArgumentTypeError(f"expected a number, found {text}")
    return value


def number_from(least: float, *, above: bool = False) -> Callable[[str], float]:
    """A number of `least` or more, or above it."""
    def parse(text: str) -> float:
        value = number(text)
        if not (value > least if above else value >= least):
            raise argparse.ArgumentTypeError(f"expected a number {'above' if above else 'of'} {least:g}"
                                             f"{'' if above else ' or more'}, found {text}")
        return value
    return parse


def integer_within(least: int, most: int) -> Callable[[str], int]:
    """A whole number from `least` to `most`."""
    def parse(text: str) -> int:
        from ..io.numbers import parse_integer
        value = parse_integer(text)
        if value is None or not least <= value <= most:
            raise argparse.ArgumentTypeError(f"expected a whole number from {least} to {most}, found {text}")
        return value
    return parse


def number_list(option: str, form: str, text: str, *counts: int) -> list[float]:
    """Numbers with commas between them; `form` says what was expected.

    Raises
    ------
    UsageError
        When the text is not one of these counts of finite numbers.

    >>> number_list("--field", "incl,decl,nT", "-60,10,5e4", 3)
    [-60.0, 10.0, 50000.0]
    """
    from ..io.numbers import parse_real
    from ..io.text_lines import words_of
    values = [parse_real(word) for word in words_of(text)]
    good = [value for value in values if value is not None and math.isfinite(value)]
    if len(good) != len(values) or len(good) not in counts:
        raise UsageError(f"{option} {text}: expected {form}")
    return good

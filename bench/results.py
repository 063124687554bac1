"""Tables of results as files: docs/measured has one for each page that quotes measurements."""
from __future__ import annotations

import csv
import io
import shlex
import sys
from collections.abc import Iterable
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]


def write_table(path: Path | None, names: list[str], rows: Iterable[Iterable[object]], append: bool = False) -> None:
    """Write rows with the command that made them; without a path to standard output.

    `append` keeps the commands and rows of an earlier table: all commands come first, then the rows of all.
    The command names the script by its place in the source tree, without --build and --folder, which differ between machines.
    """
    words = list(sys.argv[1:])
    for option in ("--build", "--folder"):
        if option in words:
            at = words.index(option)
            del words[at:at + 2]
    if path is not None:
        words = [path.name if word == str(path) and ROOT not in path.resolve().parents else word for word in words]
    before = path.read_text(encoding="ascii").splitlines(keepends=True) if append and path is not None and path.exists() else []
    text = io.StringIO()
    csv.writer(text, lineterminator="\n").writerows(rows)
    head = io.StringIO()
    csv.writer(head, lineterminator="\n").writerow(names)
    commands = [line for line in before if line.startswith("#")] + [f"# bench/{shlex.join([Path(sys.argv[0]).name, *words])}\n"]
    whole = "".join([*commands, head.getvalue(), *before[len(commands):], text.getvalue()])
    if path is None:
        sys.stdout.write(whole)
    else:
        path.write_text(whole, encoding="ascii")

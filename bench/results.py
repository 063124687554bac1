"""Tables of results as files: docs/measured has one for each page that quotes measurements."""
from __future__ import annotations

import csv
import io
import shlex
import sys
from collections.abc import Iterable
from pathlib import Path


def write_table(path: Path | None, names: list[str], rows: Iterable[Iterable[object]], remark: str = "") -> None:
    """Write rows with the command that made them; without a path to standard output.

    The command names the script by its place in the source tree, without --build, which differs between machines.
    """
    words = list(sys.argv[1:])
    if "--build" in words:
        at = words.index("--build")
        del words[at:at + 2]
    lines = [f"# bench/{shlex.join([Path(sys.argv[0]).name, *words])}"] + [f"# {line}" for line in remark.splitlines()]
    text = io.StringIO()
    csv.writer(text, lineterminator="\n").writerows([names, *rows])
    whole = "\n".join(lines) + "\n" + text.getvalue()
    if path is None:
        sys.stdout.write(whole)
    else:
        path.write_text(whole, encoding="ascii")

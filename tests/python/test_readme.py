"""The code of the package's README does what the README shows."""

import contextlib
import io
import re

import pytest
from conftest import BUILD, ROOT

BLOCKS = re.compile(r"```python\n(.*?)```\n(?:\s*```text\n(.*?)```)?", re.DOTALL)


def test_the_readme(tmp_path, monkeypatch):
    pytest.importorskip("pandas")
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("VOXLITH_PROGRAM", str(BUILD / "voxlith"))
    names: dict[str, object] = {}
    blocks = BLOCKS.findall((ROOT / "python" / "README.md").read_text())
    assert len(blocks) >= 6
    for code, shown in blocks:
        screen = io.StringIO()
        with contextlib.redirect_stdout(screen):
            exec(code, names)
        assert screen.getvalue() == shown, code

"""The notebooks run from the first cell to the last; the repository holds them without outputs."""

import json
import os
import re

import pytest
from conftest import BUILD, ROOT

NOTEBOOKS = sorted((ROOT / "examples" / "notebooks").glob("*.ipynb"))


def test_there_are_three():
    assert [path.stem for path in NOTEBOOKS] == ["gravity", "magnetics", "own_matrix"]


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.stem)
def test_outputs_are_stripped(path):
    cells = json.loads(path.read_text())["cells"]
    code = [cell for cell in cells if cell["cell_type"] == "code"]
    assert len(code) > 5 and all(not cell["outputs"] and cell["execution_count"] is None for cell in code)


@pytest.mark.parametrize("path", NOTEBOOKS, ids=lambda path: path.stem)
def test_notebook(path, monkeypatch, tmp_path):
    nbclient = pytest.importorskip("nbclient")
    nbformat = pytest.importorskip("nbformat")
    pytest.importorskip("ipykernel")
    monkeypatch.setenv("PATH", os.pathsep.join([str(BUILD), str(BUILD / "tools"), os.environ["PATH"]]))
    monkeypatch.setenv("PYTHONPATH", str(ROOT / "python"))
    monkeypatch.setenv("VOXLITH_PROGRAM", str(BUILD / "voxlith"))
    monkeypatch.setenv("IPYTHONDIR", str(tmp_path))
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    notebook = nbformat.read(path, as_version=4)
    nbclient.NotebookClient(notebook, timeout=120, kernel_name="python3",
                            resources={"metadata": {"path": str(path.parent)}}).execute()
    text = "".join(output.get("text", "") for cell in notebook.cells if cell.cell_type == "code" for output in cell.outputs)
    # Warnings, and what mtx will take, which a terminal shows, are no errors.
    assert not re.search(r"voxlith[a-z-]*: ", re.sub(r"voxlith-tools: (warning: |\d+ rows, )", "", text)), text
    pictures = [cell for cell in notebook.cells if cell.cell_type == "code" and "plot." in cell.source.splitlines()[-1]]
    assert pictures
    for cell in pictures:
        assert any("image/png" in output.get("data", {}) for output in cell.outputs), cell.source

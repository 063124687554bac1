"""The gallery page: every example with its pictures, none too large, none that nobody shows."""

import os
import re
import sys

import matplotlib.image
from conftest import ROOT

from voxlith import Run, plot

sys.path.append(str(ROOT / "examples"))
import run_example  # noqa: E402
import run_gallery  # noqa: E402

DOCS = ROOT / "docs"
PAGE = (DOCS / "gallery.md").read_text()


def test_every_example_has_a_chapter_and_its_pictures():
    chapters = dict(re.findall(r"(?ms)^## (\w+)\n(.*?)(?=^## |\Z)", PAGE))
    assert sorted(chapters) == run_example.names()
    for name, text in chapters.items():
        example = run_example.load(name)
        assert example.__doc__.strip() in text, f"{name} has changed: run_gallery.py --pictures"
        assert re.search(r"The whole example took \d+\.\d s", text)
        shown = re.findall(rf"\]\(pictures/{name}_(\w+)\.png\)", text)
        pictures = getattr(example, "PICTURES", ["sections"])
        parts = getattr(example, "FOLDERS", [""])  # a run in each
        assert shown == [f"{picture}_{part}" if part else picture for part in parts for picture in pictures]


def test_the_page_has_the_runs_to_the_target():
    assert PAGE.endswith(run_gallery.converged_table())
    assert {row.split(" | ")[0][2:].split(",")[0] for row in run_gallery.converged_table().splitlines()[8:]} == set(run_example.names()) - {"mixed_data"}


def test_pictures_are_small():
    for path in re.findall(r"\]\((pictures/.+?\.png)\)", PAGE):
        assert os.path.getsize(DOCS / path) < 150_000, path
        height, width = matplotlib.image.imread(DOCS / path).shape[:2]
        assert 500 <= width <= 1600 and 300 <= height <= 1600, path


def test_findings():
    said = run_example.load("two_blocks").__doc__.strip()
    said += "\n\n$ voxlith a\n    4 s\nRMS 1\n\n\n\nmore\n\nAll files are in x.\n"
    assert run_gallery.findings("two_blocks", said) == "RMS 1\n\nmore"


def test_page_against_example():
    on_page = run_gallery.findings_on_page("two_blocks", str(DOCS))
    assert "RMS misfit: " in on_page
    assert run_gallery.same_but_for_times(on_page, re.sub(r"took [\d.]+ s", "took 77.7 s", on_page))
    changed = on_page.replace("RMS misfit: 2", "RMS misfit: 3")
    assert changed != on_page and not run_gallery.same_but_for_times(on_page, changed)
    assert run_gallery.findings_on_page("no_example", str(DOCS)) == ""


def test_a_palette_keeps_the_colours(gravity, tmp_path):
    source, target = tmp_path / "sections.png", tmp_path / "small.png"
    plot.save(plot.sections(Run(gravity.folder)), source)
    run_gallery.small_copy(str(source), str(target))
    before, after = (matplotlib.image.imread(path)[:, :, :3] for path in (source, target))
    assert abs(before - after).max() * 255 < 12
    assert os.path.getsize(target) < os.path.getsize(source)

"""voxlith-tools as a whole: help, versions, wrong use, damaged files at every subcommand, headers of sensitivity files."""

import os
import subprocess
import time

import pytest
from conftest import BUILD, Bench, one_line
from hypothesis import given
from hypothesis import strategies as st
from test_damage import damaged, examples  # noqa: F401

import voxlith
from voxlith.cli.tools import SUBCOMMANDS, main

HERE = [name for name in SUBCOMMANDS if name not in ("mtx", "mtx-join", "predict")]


def start(*words, **options):
    return subprocess.run([BUILD / "tools" / "voxlith-tools", *words], capture_output=True, text=True, timeout=60, **options)


def test_help_comes_at_once(tools):
    said = tools("--help").out
    assert all(f"\n  {name} " in said for name in SUBCOMMANDS)
    best = min(_seconds(lambda: start("--help")) for _ in range(5))
    assert best < 0.3, f"{best:.2f} s"


def _seconds(call):
    begin = time.perf_counter()
    call()
    return time.perf_counter() - begin


def test_versions(tools):
    assert tools("--version").out == f"voxlith-tools {voxlith.__version__}\n"
    for name in SUBCOMMANDS:
        assert tools(name, "--version").out == f"voxlith-tools {voxlith.__version__}\n"


@pytest.mark.parametrize("words, problem", [
    ((), "a subcommand is required: "), (("msh",), "msh: no such subcommand; did you mean mesh?"),
    (("--hepl",), "--hepl: no such option; did you mean --help?"),
    (("mesh", "--extent", "0,1,0,1", "--cel", "1", "--depth", "1", "--out", "m"),
     "--cel: no such option of mesh; did you mean --cell?"),
    (("mesh", "--extent", "-1,1,0,1", "--top", "-1", "--depth", "1", "--out", "m"), "--cell is required"),
    (("info", "--mtx"), "--mtx: no such option of info"), (("info",), "FILE is required"),
    (("info", "a.mtx", "b.mtx"), "b.mtx: expected no further argument"),
    (("info", "a.mtx", "--verbose"), "--verbose: no such option of info"),
    (("vtr", "--mesh", "m", "--model", "a", "--uot", "g"), "--uot: no such option of vtr; did you mean --out?"),
    (("vtr", "--mesh", "m", "--model", "a", "--out", "g", "--meshs", "g"), "--meshs: no such option of vtr; did you mean --mesh?"),
    (("vtr", "--mesh", "m", "--mesh", "n", "--model", "a", "--out", "g"), "--mesh: given twice"),
    (("bounds", "--mesh"), "--mesh: expected a value")])
def test_wrong_use(words, problem):
    done = start(*words)
    assert one_line(done_as(done), 2).startswith(problem)


@pytest.mark.parametrize("name", SUBCOMMANDS)
def test_a_wrong_option_counts_before_a_missing_one(name):
    assert one_line(done_as(start(name, "--outt=x")), 2).startswith(f"--outt: no such option of {name}")


def done_as(done):
    from conftest import Outcome
    return Outcome(done.returncode, done.stdout, done.stderr)


def test_the_version_of_a_sensitivity_file_is_no_question(gravity):
    gravity.tools("mtx", "--mesh", "mesh.msh", "--stations", "data.obs", "--type", "gz", "--out", "old.mtx", "--version", "1")
    assert start("mtx", "--mesh", "mesh.msh", "--version", "3").returncode == 2


def test_too_little_memory_is_a_state_of_its_own(capsys):
    from voxlith.cli.output import run_program

    def hungry():
        raise MemoryError

    def unloadable():
        try:
            raise ImportError("liblapack.so.3: failed to map segment from shared object")
        except ImportError as error:
            raise ImportError("many lines\nof advice") from error

    for main_routine in (hungry, unloadable):
        assert run_program("voxlith-tools", main_routine) == 2
        assert capsys.readouterr().err == "voxlith-tools: not enough memory\n"


def test_short_memory_ends_in_one_line(tmp_path):
    """Also while Python loads its modules."""
    import resource
    for megabytes in (20, 25, 30, 40):
        limit = megabytes << 20
        done = start("info", "absent.mtx", preexec_fn=lambda limit=limit: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
        assert "Traceback" not in done.stderr and done.stderr.count("\n") == 1, (megabytes, done.stderr)
        assert done.returncode in (1, 2)


def test_control_characters_are_shown_as_such(tools):
    assert one_line(tools("info", "a\x1b[2J\n.mtx")).startswith(r"a\x1b[2J\n.mtx: cannot be read")


def test_output_that_nobody_reads(gravity):
    with open("/dev/full", "w") as full:
        done = subprocess.run([BUILD / "tools" / "voxlith-tools", "info", gravity.path("data.mtx")], stdout=full,
                              stderr=subprocess.PIPE, text=True, timeout=60)
    assert done.returncode == 1 and done.stderr == "voxlith-tools: standard output: No space left on device\n"


@pytest.mark.parametrize("form, layout", [("tagged", "tagged form, version 2"), ("bare", "bare form"), ("record", "record form")])
def test_headers_of_all_layouts(gravity, tools, tmp_path, form, layout):
    gravity.tools("mtx", "--mesh", "mesh.msh", "--stations", "data.obs", "--type", "gz", "--out", tmp_path / "gz.mtx",
                  "--form", form)
    done = tools("info", "gz.mtx")
    assert done.status == 0, done.errors
    said = dict(line.split(":", 1) for line in done.out.splitlines())
    said = {label: text.strip() for label, text in said.items()}
    assert said["layout"] == layout and said["cells x, y, z"] == "8 x 6 x 4" and said["padded x, y, z"] == "8 x 8 x 4"
    assert said["file size"] == f"{os.path.getsize(tmp_path / 'gz.mtx')} bytes" and said["data"] == "30"
    assert said["data type"] == "0 Gz" + (" (by the file's name)" if form == "record" else "")
    assert said["x nodes"] == "1000 to 1800" and said["filter"].startswith("4: 0.48")
    assert ("stations x" in said) == (form == "tagged") and ("weight parameters" in said) == (form != "record")


COMMANDS = {
    "info": ("info", "{}"),
    "csv": ("obs", "{}", "--out", "o.obs", "--x", "x", "--y", "y", "--z", "z", "--data", "d", "--floor", "1"),
    "obs": ("obs", "{}", "--csv", "o.csv", "--data", "d:e"),
    "stations": ("mesh", "--stations", "{}", "--cell", "50", "--depth", "100", "--out", "o.msh"),
    "units": ("bounds", "--mesh", "good.msh", "--units", "{}", "--default", "0,1", "--out", "o.txt"),
    "mesh": ("bounds", "--mesh", "{}", "--units", "good.mod", "--default", "0,1", "--out", "o.txt"),
    "table": ("bounds", "--mesh", "good.msh", "--units", "good.mod", "--table", "{}", "--out", "o.txt"),
    "model": ("vtr", "--mesh", "good.msh", "--model", "{}", "--out", "o.vtr"),
    "init": ("init", "--data", "{}", "--mtx", "good.mtx", "--tradeoff", "1", "--out", "o.inp"),
}


@pytest.fixture(scope="module")
def place(gravity: Bench, tmp_path_factory):
    """A folder with good files, to be used beside damaged ones."""
    folder = tmp_path_factory.mktemp("damaged")
    for name, source in (("good.msh", "mesh.msh"), ("good.mod", "true.mod"), ("good.mtx", "data.mtx")):
        (folder / name).write_bytes(gravity.path(source).read_bytes())
    (folder / "good.mod").write_text("192*1\n")
    return folder


CSV = [b"x,y,z,d\n1,2,3,4\n5,6,7,8\n9,1,2,3\n", b'x;y;z;d\n"1";2;3;4\n5;6;"7\n";8\n', b"\xff\xfex\0,\0y\0,\0z\0,\0d\0\n\0"]


@pytest.mark.parametrize("command", COMMANDS)
@given(data=st.data())
def test_damaged_files_at_every_subcommand(command, place, examples, capsys, data):  # noqa: F811
    """A result, or one line that begins with the name of the file or of an option."""
    (place / "x.dat").write_bytes(data.draw(damaged([*CSV, *examples] if command == "csv" else examples)))
    here = os.getcwd()
    os.chdir(place)
    try:
        for name in ("o.obs", "o.csv", "o.msh", "o.txt", "o.vtr", "o.inp"):
            if os.path.exists(name):
                os.remove(name)
        capsys.readouterr()
        status = main([word.format("x.dat") for word in COMMANDS[command]])
        said = capsys.readouterr().err
        left = [name for name in os.listdir() if name.startswith("o.") or name.startswith(".o.")]
        assert status in (0, 1, 2)
        errors = [line for line in said.splitlines() if not line.startswith("voxlith-tools: warning: ")]
        assert len(errors) == (status != 0), said
        assert all(line.startswith("voxlith-tools: ") and line.isprintable() for line in errors), said
        assert not (status and left), left
    finally:
        os.chdir(here)

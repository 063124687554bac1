"""Reports in a browser: what they draw, what their controls change, and that they ask for nothing."""

from __future__ import annotations

import json
import re
import socket
import struct
import subprocess
import threading
import time
import urllib.error
import urllib.request
from collections.abc import Iterator
from pathlib import Path

import numpy as np
import pytest
from browser import Browser, assert_like_stored
from conftest import BUILD, Bench, lay_survey

from voxlith import Run, Survey
from voxlith.report import ReportOptions, write_report
from voxlith.report.server import FollowServer

HOSTILE = '<img src="http://127.0.0.1:9/x" onerror="document.body.remove()"></script><script>alert(1)</script>'


@pytest.fixture(scope="module")
def browser(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Browser]:
    found = Browser(tmp_path_factory.mktemp("profile"))
    yield found
    found.close()


def show(browser: Browser, bench: Bench, path: Path, **options: object) -> Run:
    run = Run(bench.folder)
    write_report(run, path, ReportOptions(**options))  # type: ignore[arg-type]
    browser.open(path.as_uri())
    return run


def test_texts_are_those_of_the_files(browser: Browser, gravity: Bench, tmp_path: Path) -> None:
    run = show(browser, gravity, tmp_path / "report.html", title="Gravity")
    table, fit, model = run.table, run.fit(), run.model()
    assert browser.text("title") == "Gravity"
    summary = dict(browser.table("summary-table"))
    assert summary["Iterations"] == str(table[-1].iteration)
    assert summary["Density contrast"] == f"{model.values.min():.6g} to {model.values.max():.6g} g/cm³"
    masked = int(np.isnan(fit.observed.data).sum())
    rms = np.sqrt(np.nanmean(fit.zscore**2))
    assert masked > 0
    assert summary["RMS misfit at the end"] == f"{rms:.4f}"
    assert summary["RMS misfit at the start"] == f"{table[0].misfit / fit.noise_level:.4f}" != f"{table[0].misfit:.4f}"
    assert browser.table("fit-table")[1] == ["Gz (mGal)", str(30 - masked), str(masked), f"{rms:.4f}"]
    rows = browser.table("iteration-table")
    assert len(rows) == len(table) + 1 and float(rows[-1][1]) == pytest.approx(rms, abs=2e-4)
    values = browser.script("return Array.from(valuesOf(report, 0))")
    order = model.cube.transpose(0, 2, 1).ravel()
    np.testing.assert_array_equal(np.array(values, dtype=np.float32), order.astype(np.float32))
    observed = browser.script("return Array.from(report.components[0].observed)")
    np.testing.assert_array_equal(np.array(observed, dtype=float), fit.observed.data[0].astype(np.float32).astype(float))
    assert browser.errors() == []


def test_controls_change_the_pictures(browser: Browser, gravity: Bench, tmp_path: Path) -> None:
    show(browser, gravity, tmp_path / "report.html")
    scene, section = browser.canvas("scene-canvas"), browser.canvas("section-x")
    text = browser.text("scene-text")
    assert int(re.search(r"(\d+) triangles", text)[1]) > 20  # type: ignore[index]
    browser.set("threshold", 200)
    lower = browser.canvas("scene-canvas")
    assert (lower != scene).any() and browser.text("scene-text") != text
    assert "g/cm³" in browser.text("threshold-value")
    assert (browser.canvas("section-x") == section).all()
    for axis, count in (("x", 8), ("y", 6), ("z", 4)):
        before, plane = browser.canvas("scene-canvas"), browser.canvas(f"section-{axis}")
        at = int(browser.script("return document.getElementById(arguments[0]).value", f"slice-{axis}"))
        browser.set(f"slice-{axis}", 0 if at else 1)
        assert (browser.canvas("scene-canvas") != before).any(), axis
        assert (browser.canvas(f"section-{axis}") != plane).any(), axis
        assert browser.text(f"slice-{axis}-value").endswith(f"of {count})")
    before = browser.canvas("scene-canvas")
    for part in ("surface", "slices", "stations"):
        browser.set(f"show-{part}", False)
        after = browser.canvas("scene-canvas")
        assert (after != before).any(), part
        before = after
    browser.script("document.getElementById('view-above').click()")
    browser.set("stretch", 3)
    assert (browser.canvas("scene-canvas") != before).any() and browser.text("stretch-value") == "3 ×"
    assert browser.errors() == []


def test_sections_meet_where_a_map_is_clicked(browser: Browser, gravity: Bench, tmp_path: Path) -> None:
    run = show(browser, gravity, tmp_path / "report.html")
    survey = run.fit().observed
    n = int(np.flatnonzero(~np.isnan(survey.data[0]))[4])
    browser.script("const plot = report.plots['map-observed'], box = plot.canvas.getBoundingClientRect();"
                   "plot.canvas.dispatchEvent(new MouseEvent('click', { clientX: box.left + plot.x(arguments[0]),"
                   "clientY: box.top + plot.y(arguments[1]) }))", survey.x[n], survey.y[n])
    browser.wait(lambda: browser.text("map-readout"))
    assert browser.text("map-readout").startswith(f"Station {n + 1} at {survey.x[n]:g}, {survey.y[n]:g} m")
    mesh = run.mesh
    i = int(np.searchsorted(mesh.x_nodes, survey.x[n], side="right")) - 1
    browser.wait(lambda: f"({i + 1} of 8)" in browser.text("slice-x-value"))
    assert f"northing {survey.y[n]:g} m" in browser.text("profile-text")


def test_stations_on_one_line(browser: Browser, gravity: Bench, tmp_path: Path) -> None:
    """The profile follows the line, straight or oblique; stations off it are none."""
    show(browser, gravity, tmp_path / "report.html")
    assert browser.script("return report.line") is None
    along = "return (([x, y]) => { const found = straightLine({ x: Float64Array.from(x), y: Float64Array.from(y) });" \
            "return found && [found.label, Array.from(found.along)]; })(arguments)"
    label, distance = browser.script(along, [0, 60, 30, 90], [0, 80, 40, 120.2])
    assert label.startswith("Distance")
    np.testing.assert_allclose(distance, [0.0, 100.0, 50.0, 150.16], atol=0.3)
    assert browser.script(along, [5, 5, 5], [10, 40, 20]) == ["Northing", [10, 40, 20]]
    assert browser.script(along, [7000000, 7000010, 7000020.0], [3, 3, 3.01])[0] == "Easting"
    for x, y in (([0, 60, 30, 90], [0, 80, 40, 110]), ([1, 1, 1], [2, 2, 2]), ([0, 1], [0, 1])):
        assert browser.script(along, x, y) is None
    browser.script("report.line = straightLine({ x: report.stations.x, y: report.stations.x }); report.profile = 2;"
                   "fillControls(); drawProfile(report);")
    assert browser.text("profile-text") == "30 stations on one line"
    assert browser.script("return document.getElementById('profile-choice').selectedOptions[0].textContent") == \
        "Along the line of stations"


def test_long_coordinates_stay_beside_their_axis(browser: Browser, gravity: Bench, tmp_path: Path) -> None:
    show(browser, gravity, tmp_path / "report.html")
    left = "return openPlot(document.getElementById('section-z'), { x: { range: [0, 1], label: '' }, " \
           "y: { range: [arguments[0], arguments[0] + 900], label: 'Northing (m)' }, height: 330, equal: true }).left"
    widths = [browser.script(left, at) for at in (0, 5318000, 55318000)]
    assert widths[0] == 66 and 66 < widths[1] < widths[2] < 100


def test_keys_turn_the_view_and_move_sliders(browser: Browser, gravity: Bench, tmp_path: Path) -> None:
    from selenium.webdriver.common.keys import Keys
    show(browser, gravity, tmp_path / "report.html")
    before, turn = browser.canvas("scene-canvas"), browser.script("return report.scene.turn")
    browser.driver.find_element("id", "scene-canvas").send_keys(Keys.ARROW_LEFT, "+")
    assert browser.script("return report.scene.turn") != turn and browser.script("return report.scene.zoom") > 1.1
    assert (browser.canvas("scene-canvas") != before).any()
    text = browser.text("threshold-value")
    browser.driver.find_element("id", "threshold").send_keys(Keys.PAGE_UP)
    browser.wait(lambda: browser.text("threshold-value") != text)


def test_controls_and_pictures_have_names(browser: Browser, joint: Bench, tmp_path: Path) -> None:
    show(browser, joint, tmp_path / "report.html")
    unnamed = browser.script("return Array.from(document.querySelectorAll('input, select, button, canvas'))"
                             ".filter((e) => !e.closest('[hidden]') && !e.closest('[aria-hidden]'))"
                             ".filter((e) => !(e.labels && e.labels.length) && !e.textContent.trim() && !e.ariaLabel)"
                             ".map((e) => e.id)")
    assert unnamed == []
    heights = browser.script("return ['histogram-1', 'histogram-2', 'map-residual', 'profile']"
                             ".map((id) => document.getElementById(id).getAttribute('aria-label'))")
    assert "RMS" in heights[0] and "Gz" in heights[0] and "TMI" in heights[1]
    assert "standard deviations" in heights[2] and "mGal" in heights[3]
    browser.set("model-choice", 1)
    assert "susceptibility susc" in browser.text("scene-text")
    browser.set("component-choice", 1)
    assert "nT" in browser.script("return document.getElementById('profile').getAttribute('aria-label')")


def test_prints_without_controls(browser: Browser, gravity: Bench, tmp_path: Path) -> None:
    show(browser, gravity, tmp_path / "report.html")
    browser.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
    shown = browser.script("return ['.controls', '#scene', '#summary-table', '#misfit']"
                           ".map((name) => document.querySelector(name).getBoundingClientRect().height)")
    browser.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})
    assert shown[0] == 0 and min(shown[1:]) > 30


def test_asks_for_nothing_and_shows_names_as_text(browser: Browser, copied, tmp_path: Path, gravity: Bench) -> None:
    bench = copied(gravity)
    run = Run(bench.folder)
    survey = Survey.read(bench.path("data.obs"), "gz")
    bench.write("<b>run&.inp", bench.path("voxlith.inp").read_text())
    path = tmp_path / "report.html"
    write_report(Run(bench.folder, "<b>run&.inp"), path, ReportOptions(title=HOSTILE))
    browser.open(path.as_uri())
    assert browser.text("title") == HOSTILE and browser.driver.title == HOSTILE
    assert dict(browser.table("parameter-table"))["Control file"] == "<b>run&.inp"
    assert browser.script("return document.querySelectorAll('img, script[src], main b').length") == 0
    assert {address.partition(":")[0] for address in browser.requests()} <= {"file", "data"}
    assert browser.errors() == []
    refused = browser.driver.execute_async_script(
        "const done = arguments[0]; const seen = [];"
        "document.addEventListener('securitypolicyviolation', (event) => seen.push(event.effectiveDirective));"
        "const image = new Image(); image.src = 'http://127.0.0.1:9/x'; document.body.append(image);"
        "const script = document.createElement('script'); script.textContent = 'window.broken = true';"
        "document.body.append(script);"
        "fetch('http://127.0.0.1:9/x').catch(() => setTimeout(() => done([seen.sort(), window.broken]), 100));")
    assert refused == [["connect-src", "img-src", "script-src-elem"], None]
    assert not any(address.startswith("http") for address in browser.requests())
    assert run.state == "finished" and survey.n_stations == 30


def test_pictures_are_like_the_stored_ones(browser: Browser, gravity: Bench, tmp_path: Path) -> None:
    show(browser, gravity, tmp_path / "report.html")
    for name in ("scene-canvas", "section-z", "section-x", "map-observed", "map-residual", "histogram-1", "misfit"):
        assert_like_stored(browser.canvas(name), f"report-{name}")


def test_follows_a_run(browser: Browser, tmp_path: Path) -> None:
    bench = Bench(tmp_path / "followed")
    lay_survey(bench)
    bench.control(l12="100000")
    program = subprocess.Popen([BUILD / "voxlith", "voxlith.inp"], cwd=bench.folder, stdout=subprocess.DEVNULL)
    server = FollowServer(Run(bench.folder))
    thread = threading.Thread(target=server.serve)
    thread.start()
    try:
        deadline = time.monotonic() + 20
        while not bench.path("voxlith.pre").exists() and time.monotonic() < deadline:
            time.sleep(0.05)
        browser.open(server.address)
        first = browser.wait(lambda: browser.text("live"))
        assert re.fullmatch(r"Iteration \d+ of 100000, RMS misfit [\d.]+, about .* left\. The run goes on\.", first)
        rows = len(browser.table("iteration-table"))
        browser.wait(lambda: browser.text("live") != first)
        browser.wait(lambda: len(browser.table("iteration-table")) > rows)
        assert browser.text("section-readout").endswith("g/cm³")
        assert {address.startswith((server.address, "data:")) for address in browser.requests()} == {True}
        assert browser.errors() == []
        assert program.poll() is None
        server.close()
        thread.join()
        browser.wait(lambda: "does not answer" in browser.text("live"), seconds=120)
        assert program.poll() is None, "the run goes on without the server"
    finally:
        server.close()
        thread.join()
        program.kill()
        program.wait()


def test_server_answers_nothing_else(gravity: Bench) -> None:
    server = FollowServer(Run(gravity.folder))
    thread = threading.Thread(target=server.serve)
    thread.start()
    base = f"http://127.0.0.1:{server.port}/"

    def status(address: str, method: str = "GET", host: str | None = None) -> int:
        request = urllib.request.Request(address, method=method, data=b"x" if method == "POST" else None,
                                         headers={"Host": host} if host else {})
        try:
            with urllib.request.urlopen(request, timeout=20) as answer:
                return int(answer.status)
        except urllib.error.HTTPError as error:
            return error.code

    try:
        assert status(server.address) == 200 and status(server.address, "HEAD") == 200
        assert status(server.address + "status.json") == 200
        for path in ("", "status.json", "x/status.json", f"{server.token}", f"{server.token}/voxlith.log",
                     f"{server.token}/../{server.token}/", f"{server.token}/%2e%2e/voxlith.inp", "//etc/passwd",
                     f"{server.token}/../../etc/passwd", f"{server.token}/status.json/", f"{server.token}x/"):
            assert status(base + path) == 404, path
        assert status(server.address, host="survey.example") == 404
        for method in ("POST", "PUT", "DELETE"):
            assert status(server.address, method) == 501
        assert len(server.token) >= 24 and server.token != FollowServer(Run(gravity.folder)).token
    finally:
        server.close()
        thread.join()


def test_server_outlives_its_readers_and_the_folder(gravity: Bench, copied, capfd: pytest.CaptureFixture[str]) -> None:
    """Readers that close the page while it is sent leave no trace; a folder that is gone is named."""
    bench = copied(gravity)
    server = FollowServer(Run(bench.folder))
    thread = threading.Thread(target=server.serve)
    thread.start()
    try:
        for _ in range(3):
            with socket.create_connection(("127.0.0.1", server.port)) as reader:
                reader.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))  # reset when closed
                reader.sendall(f"GET /{server.token}/ HTTP/1.1\r\nHost: 127.0.0.1:{server.port}\r\n\r\n".encode())
        status = server.address + "status.json"
        with urllib.request.urlopen(status, timeout=20) as answer:
            assert json.load(answer)["text"].endswith("The run has finished.")
        moved = bench.folder.rename(bench.folder.with_name("moved"))
        with urllib.request.urlopen(status, timeout=20) as answer:
            found = json.load(answer)
        assert "voxlith.inp is not there: the folder of the run was moved or deleted" in found["text"] and found["stamp"] == ""
        with pytest.raises(urllib.error.HTTPError, match="503"):
            urllib.request.urlopen(server.address, timeout=20)
        moved.rename(bench.folder)
        with urllib.request.urlopen(status, timeout=20) as answer:
            assert json.load(answer)["stamp"]
    finally:
        server.close()
        thread.join()
    assert capfd.readouterr().err == ""


@pytest.fixture(scope="module")
def vector(tmp_path_factory: pytest.TempPathFactory) -> Bench:
    """A finished run of three models that are a vector, with true bodies and a ground surface."""
    bench = Bench(tmp_path_factory.mktemp("vector"))
    lay_survey(bench)
    bench.control(l1="0 1 1 3 mx my mz", l13="1 1 1 1.0", l14="1 1 2 0.5", l15="1 1 3 -0.3")
    bench.voxlith()
    bench.write("true_bodies.json", '{"bodies": [{"name": "<i>a", "x": [1250, 1550], "y": [2150, 2450], '
                                    '"elevation": [-60, 60]}]}')
    bench.write("ground.topo", "4\n1000 2000 118\n1800 2000 90\n1000 2600 118\n1800 2600 60\n")
    return bench


def test_surroundings_are_drawn(browser: Browser, vector: Bench, tmp_path: Path) -> None:
    show(browser, vector, tmp_path / "report.html", topography=vector.path("ground.topo"))
    assert browser.script("return report.data.vectors") == {"models": [0, 1, 2], "down": True}
    for part, layer in (("terrain", "terrain"), ("bodies", "bodies"), ("arrows", "arrows")):
        assert browser.script("return report.scene.layers.get(arguments[0]).count", layer) > 3
        before = browser.canvas("scene-canvas")
        browser.set(f"show-{part}", False)
        assert (browser.canvas("scene-canvas") != before).any(), part
        browser.set(f"show-{part}", True)
        assert (browser.canvas("scene-canvas") == before).all(), part
    # mz is downwards: the tip of an arrow of a cell with positive mz lies below its start.
    rises = ("let start = null; const kept = putLayer; putLayer = (scene, name, layer) => { start = layer.positions; };"
             "report.data.vectors.down = arguments[0]; putArrows(report); putLayer = kept; report.data.vectors.down = true;"
             "return start[5] - start[2];")
    assert browser.script(rises, True) == pytest.approx(-browser.script(rises, False)) != 0.0
    strongest = ("const length = (n) => Math.hypot(...[0, 1, 2].map((m) => valuesOf(report, m)[n]));"
                 "let best = 0; for (let n = 0; n < valuesOf(report, 0).length; n++) { if (length(n) > length(best)) { best = n; } }"
                 "return valuesOf(report, 2)[best];")
    assert browser.script(rises, True) * browser.script(strongest) < 0.0
    few = browser.script("return report.scene.layers.get('arrows').count")
    browser.set("threshold", 100)
    assert browser.script("return report.scene.layers.get('arrows').count") > few
    assert browser.errors() == []
    assert_like_stored(browser.canvas("scene-canvas"), "report-vectors")

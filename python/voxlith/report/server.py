"""A page that follows a run: a small server for one reader on this machine.

It listens on the loopback address alone, answers three fixed names below a random token and nothing else, and only reads.
Ending it does not touch the run.
"""

from __future__ import annotations

import http.server
import json
import os
import secrets
import sys
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass
from http import HTTPStatus

from ..errors import VoxlithError
from ..io.progress_file import IterationRow
from ..run import Run
from .contents import Contents, ReportOptions, report_contents
from .html_page import page_bytes, security_policy

HOST = "127.0.0.1"
_WATCHED = ("voxlith.aux", "voxlith.log", "voxlith.pre")
_RECENT_ROWS = 10
_LONG_SILENCE = 30.0  # seconds


@dataclass(frozen=True)
class Status:
    """Where a run stands.

    Attributes
    ----------
    text : str
        One line for the reader.
    stamp : str
        Differs when the results differ.
    """

    text: str
    stamp: str


@dataclass(frozen=True)
class _Times:
    """Seconds from the start of the run to its last row, and since then."""

    elapsed: float
    silent: float


class Follower:
    """Contents of the page of one run, made again when its files have changed."""

    def __init__(self, run: Run, options: ReportOptions | None = None) -> None:
        self.run = run
        self.options = options
        self._lock = threading.Lock()
        self._kept: tuple[str, Contents] | None = None

    def status(self) -> Status:
        """Where the run stands, from its table and its log. The stamp is empty where its folder is not there."""
        if not self.run.path(self.run.control_name).is_file():
            return Status(f"{self.run.path(self.run.control_name)} is not there: the folder of the run was moved or deleted. "
                          "The page keeps what it showed last.", "")
        try:
            rows, state = self.run.table, self.run.state
        except VoxlithError:
            return Status("The run has no table of iterations yet.", self._stamp())
        return Status(_status_text(rows, state, _last_iteration(self.run), self._times()), self._stamp())

    def contents(self) -> Contents:
        """Contents of the page. Raises VoxlithError."""
        with self._lock:
            status = self.status()
            if self._kept is None or self._kept[0] != status.stamp:
                known = None if self._kept is None else self._kept[1]["findings"]
                found = report_contents(self.run, self.options, known)
                self._kept = status.stamp, found
            return {**self._kept[1], "live": True, "stamp": status.stamp, "status": {"text": status.text}}

    def _times(self) -> _Times:
        try:
            written = os.stat(self.run.path("voxlith.aux")).st_mtime
            started = self.run.log[-1].started
        except (OSError, VoxlithError):
            return _Times(0.0, 0.0)
        elapsed = written - started.timestamp() if started is not None else 0.0
        return _Times(max(elapsed, 0.0), max(time.time() - written, 0.0))

    def _stamp(self) -> str:
        marks = []
        for name in _WATCHED:
            try:
                state = os.stat(self.run.path(name))
                marks.append(f"{state.st_mtime_ns}.{state.st_size}")
            except OSError:
                marks.append("0")
        return "-".join(marks)


def _last_iteration(run: Run) -> int | None:
    """Number of the last iteration that the run is asked for; None when it continues another or cannot be read."""
    try:
        values = run.control.values
        continued = any(log.continued for log in run.log)
    except VoxlithError:
        return None
    return None if continued else values.max_iterations


def _status_text(rows: list[IterationRow], state: str, last: int | None, times: _Times) -> str:
    if not rows:
        return "The run has no finished iteration yet."
    row = rows[-1]
    text = f"Iteration {row.iteration}{f' of {last}' if last else ''}, RMS misfit {row.misfit:.4f}"
    if state == "finished":
        return f"{text}. The run has finished."
    # The table has tenths of a second; of faster iterations the time since the start tells more.
    recent = [one.seconds for one in rows[-_RECENT_ROWS:]]
    each = sum(recent) / len(recent) if min(recent) > 0.0 else times.elapsed / max(row.iteration, 1)
    if last and last > row.iteration and each > 0.0:
        text += f", about {_duration((last - row.iteration) * each)} left"
    if times.silent > max(_LONG_SILENCE, 3.0 * each):
        return f"{text}. Nothing was written for {_duration(times.silent)}: the run was stopped, or an iteration takes long."
    return f"{text}. The run goes on."


def _duration(seconds: float) -> str:
    """A duration in the unit that suits it.

    >>> _duration(40.0), _duration(400.0), _duration(40000.0)
    ('40 s', '7 min', '11.1 h')
    """
    if seconds < 90.0:
        return f"{seconds:.0f} s"
    return f"{seconds / 60.0:.0f} min" if seconds < 5400.0 else f"{seconds / 3600.0:.1f} h"


class _Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request: object, client_address: object) -> None:
        """A page that is closed while it is sent leaves a broken connection, which is no error of the server."""
        if not isinstance(sys.exception(), (ConnectionError, TimeoutError)):
            super().handle_error(request, client_address)  # type: ignore[arg-type]


class FollowServer:
    """The server of one page.

    Parameters
    ----------
    run : Run
    options : ReportOptions, optional
    port : int
        Port on the loopback address; 0 takes a free one.

    Raises
    ------
    OSError
        When the port is taken.

    Examples
    --------
    ::

        server = FollowServer(Run("survey"))
        print(server.address)
        server.serve()          # until it is interrupted
    """

    def __init__(self, run: Run, options: ReportOptions | None = None, port: int = 0) -> None:
        self.token = secrets.token_urlsafe(18)
        self._server = _Server((HOST, port), _handler(Follower(run, options), self.token))
        self.port = int(self._server.server_address[1])

    @property
    def address(self) -> str:
        """Address of the page, with the token."""
        return f"http://{HOST}:{self.port}/{self.token}/"

    def serve(self) -> None:
        """Answer until :meth:`close` is called or the process is interrupted."""
        try:
            self._server.serve_forever(poll_interval=0.2)
        finally:
            self._server.server_close()

    def close(self) -> None:
        """End :meth:`serve`, from another thread."""
        self._server.shutdown()


def _handler(follower: Follower, token: str) -> type[http.server.BaseHTTPRequestHandler]:
    def page() -> tuple[str, bytes]:
        return "text/html; charset=utf-8", page_bytes(follower.contents())

    def contents() -> tuple[str, bytes]:
        return "application/json", json.dumps(follower.contents(), allow_nan=False).encode()

    def status() -> tuple[str, bytes]:
        found = follower.status()
        return "application/json", json.dumps({"text": found.text, "stamp": found.stamp}).encode()

    answers: dict[str, Callable[[], tuple[str, bytes]]] = {"": page, "contents.json": contents, "status.json": status}

    class Handler(http.server.BaseHTTPRequestHandler):
        server_version = "voxlith-tools"
        sys_version = ""
        timeout = 30

        def do_GET(self) -> None:
            self._answer(body=True)

        def do_HEAD(self) -> None:
            self._answer(body=False)

        def _answer(self, *, body: bool) -> None:
            answer = self._chosen()
            if answer is None:
                self.send_error(HTTPStatus.NOT_FOUND)
                return
            try:
                kind, content = answer()
                code = HTTPStatus.OK
            except VoxlithError as error:
                kind, content, code = "text/plain; charset=utf-8", f"{error}\n".encode(), HTTPStatus.SERVICE_UNAVAILABLE
            self.send_response(code)
            self.send_header("Content-Type", kind)
            self.send_header("Content-Length", str(len(content)))
            self.send_header("Cache-Control", "no-store")
            self.send_header("Content-Security-Policy", security_policy(live=True) + "; frame-ancestors 'none'")
            self.send_header("X-Content-Type-Options", "nosniff")
            self.send_header("Referrer-Policy", "no-referrer")
            self.end_headers()
            if body:
                self.wfile.write(content)

        def _chosen(self) -> Callable[[], tuple[str, bytes]] | None:
            """What is asked for; None without the token, below another name of this machine, and for any other path."""
            port = str(self.connection.getsockname()[1])
            if self.headers.get("Host") not in (f"{HOST}:{port}", f"localhost:{port}"):
                return None
            parts = self.path.split("/")
            if len(parts) != 3 or not secrets.compare_digest(parts[1].encode(), token.encode()):
                return None
            return answers.get(parts[2])

        def log_message(self, format: str, *args: object) -> None:
            """Requests are not logged: their paths hold the token."""

    return Handler

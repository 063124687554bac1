"""The HTML of a report: one file that loads nothing, with its style, script and contents inside.

The content security policy allows the script and the style by their hashes and nothing else. All texts of the run are JSON
data; the script shows them as text, never as markup.
"""

from __future__ import annotations

import base64
import hashlib
import html
import json
from functools import cache
from importlib import resources

from .contents import Contents

_SCRIPTS = ("decode.js", "colours.js", "plot.js", "isosurface.js", "scene.js", "model_view.js", "data_view.js", "follow.js",
            "report.js")


@cache
def _part(name: str) -> str:
    return resources.files(__package__).joinpath("page", name).read_text(encoding="utf-8")


@cache
def _script() -> str:
    return '"use strict";\n' + "\n".join(_part(name) for name in _SCRIPTS)


def _hash(text: str) -> str:
    return "'sha256-" + base64.b64encode(hashlib.sha256(text.encode("utf-8")).digest()).decode("ascii") + "'"


def security_policy(*, live: bool = False) -> str:
    """The content security policy of a page; a live page may ask the server that sent it."""
    connect = "; connect-src 'self'" if live else ""
    return (f"default-src 'none'; script-src {_hash(_script())}; style-src {_hash(_part('style.css'))}; img-src data:{connect}; "
            "base-uri 'none'; form-action 'none'")


def contents_text(contents: Contents) -> str:
    """Contents as JSON that can stand inside HTML."""
    text = json.dumps(contents, allow_nan=False, separators=(",", ":"))
    return text.replace("<", "\\u003c").replace(">", "\\u003e").replace("&", "\\u0026")


def page_bytes(contents: Contents) -> bytes:
    """The page of a report."""
    title = html.escape(str(contents["title"]))
    return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="{html.escape(security_policy(live=bool(contents['live'])), quote=False)}">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="referrer" content="no-referrer">
<title>{title}</title>
<link rel="icon" href="data:,">
<style>{_part('style.css')}</style>
</head>
<body>
{_part('page.html')}<script type="application/json" id="contents">{contents_text(contents)}</script>
<script>{_script()}</script>
</body>
</html>
""".encode("utf-8", errors="replace")

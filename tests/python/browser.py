"""A headless Chromium for the tests of pages: it reports errors of the console and every request of a page."""

from __future__ import annotations

import io
import json
import os
from pathlib import Path
from typing import Any

import numpy as np
from PIL import Image
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.support.ui import WebDriverWait

PICTURES = Path(__file__).resolve().parent / "pictures"
_FLAGS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-background-networking", "--no-first-run",
          "--disable-component-update", "--disable-sync", "--disable-default-apps", "--use-angle=swiftshader",
          "--enable-unsafe-swiftshader", "--force-device-scale-factor=1", "--window-size=1100,1400")


class Browser:
    """One browser; pages are opened one after the other."""

    def __init__(self, profile: Path) -> None:
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for flag in (*_FLAGS, f"--user-data-dir={profile}"):
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.driver.set_page_load_timeout(60)

    def open(self, address: str) -> None:
        """Open a page; what earlier pages have logged is dropped."""
        self.driver.get_log("browser")
        self.driver.get_log("performance")
        self.driver.get(address)

    def errors(self) -> list[str]:
        """Messages of the console that are errors: of scripts, of the security policy, of the network."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]

    def requests(self) -> list[str]:
        """Addresses that the page has asked for since it was opened, without those that its policy has refused."""
        found, refused = {}, set()
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            about = message["params"]
            if message["method"] == "Network.requestWillBeSent":
                found[about["requestId"]] = about["request"]["url"]
            elif message["method"] == "Network.loadingFailed" and about.get("blockedReason") == "csp":
                refused.add(about["requestId"])
        return [address for number, address in found.items() if number not in refused]

    def text(self, name: str) -> str:
        """Text of an element by its id."""
        return str(self.script("return document.getElementById(arguments[0]).textContent", name))

    def table(self, name: str) -> list[list[str]]:
        """Texts of the rows of a table."""
        return list(self.script("return Array.from(document.getElementById(arguments[0]).rows, "
                                "(row) => Array.from(row.cells, (cell) => cell.textContent))", name))

    def script(self, text: str, *arguments: Any) -> Any:
        """Run a script in the page."""
        return self.driver.execute_script(text, *arguments)

    def set(self, name: str, value: object) -> None:
        """Set a control, as a reader does, and wait until the page has drawn."""
        self.driver.execute_async_script(
            "const control = document.getElementById(arguments[0]), done = arguments[2];"
            "if (control.type === 'checkbox') { control.checked = arguments[1]; } else { control.value = arguments[1]; }"
            "control.dispatchEvent(new Event('input', { bubbles: true }));"
            "requestAnimationFrame(() => requestAnimationFrame(() => done()));", name, value)

    def wait(self, condition: Any, seconds: float = 30.0) -> Any:
        """Wait until `condition()` is true; gives it."""
        return WebDriverWait(self.driver, seconds, 0.1).until(lambda _: condition())

    def canvas(self, name: str) -> np.ndarray:
        """Pixels of a canvas, shape (height, width, 3)."""
        text = self.script("return document.getElementById(arguments[0]).toDataURL('image/png')", name)
        import base64
        with Image.open(io.BytesIO(base64.b64decode(text.partition(",")[2]))) as picture:
            return np.asarray(picture.convert("RGB"))

    def close(self) -> None:
        self.driver.quit()


def small(pixels: np.ndarray, width: int = 200) -> np.ndarray:
    """A picture reduced to this width, so that details of fonts and antialiasing do not count."""
    picture = Image.fromarray(pixels)
    height = max(round(picture.height * width / picture.width), 1)
    return np.asarray(picture.resize((width, height), Image.Resampling.BOX))


def assert_like_stored(pixels: np.ndarray, name: str) -> None:
    """Compare a picture with the stored one; VOXLITH_ACCEPT_PICTURES=1 stores it anew."""
    path, found = PICTURES / f"{name}.png", small(pixels)
    if os.environ.get("VOXLITH_ACCEPT_PICTURES"):
        PICTURES.mkdir(exist_ok=True)
        Image.fromarray(found).save(path, optimize=True)
    with Image.open(path) as picture:
        stored = np.asarray(picture.convert("RGB"))
    assert found.shape == stored.shape, (name, found.shape, stored.shape)
    difference = np.abs(found.astype(float) - stored.astype(float)).mean()
    assert difference < 3.0, f"{name}: differs by {difference:.2f} of 255 from {path}"
    assert found.std() > 8.0, f"{name}: the picture is empty"

"""A headless Firefox, controlled by the protocol that it speaks itself (Marionette): Debian has no
geckodriver."""

import base64
import itertools
import json
import os
import socket
import subprocess
import tempfile
from pathlib import Path
from types import TracebackType
from typing import Any, Self

from servers.server import wait_until

# Nothing is fetched that the test does not ask for.
PREFERENCES: dict[str, Any] = {
    "marionette.port": 0,
    "app.normandy.enabled": False,
    "app.update.disabledForTesting": True,
    "browser.newtabpage.enabled": False,
    "browser.safebrowsing.malware.enabled": False,
    "browser.safebrowsing.phishing.enabled": False,
    "browser.shell.checkDefaultBrowser": False,
    "browser.startup.page": 0,
    "datareporting.policy.dataSubmissionEnabled": False,
    "extensions.getAddons.cache.enabled": False,
    "extensions.update.enabled": False,
    "network.captive-portal-service.enabled": False,
    "network.connectivity-service.enabled": False,
    "network.dns.disablePrefetch": True,
    "services.settings.server": "http://127.0.0.1:9/",
    "toolkit.telemetry.reportingpolicy.firstRun": False,
}
START = ("setpriv", "--pdeathsig", "TERM", "firefox-esr", "--headless", "--marionette")


class Firefox:
    """For a with statement. Elements are named by CSS selectors."""

    def __enter__(self) -> Self:
        self._home = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self._numbers = itertools.count()
        profile = Path(self._home.name, "profile")
        profile.mkdir()
        settings = (
            f"user_pref({json.dumps(k)}, {json.dumps(v)});\n" for k, v in PREFERENCES.items()
        )
        (profile / "user.js").write_text("".join(settings), encoding="utf-8")
        self._log = open(Path(self._home.name, "log"), "wb")
        self._process = subprocess.Popen(
            [*START, "--profile", profile],
            env=os.environ | {"HOME": self._home.name, "TMPDIR": self._home.name},
            stdin=subprocess.DEVNULL,
            stdout=self._log,
            stderr=subprocess.STDOUT,
        )
        try:
            port = profile / "MarionetteActivePort"
            wait_until(lambda: port.exists() and port.read_text() != "", "Firefox did not start")
            self._socket = socket.create_connection(("127.0.0.1", int(port.read_text())))
            self._read()  # its greeting
            self._ask("WebDriver:NewSession", {})
        except BaseException:
            self.__exit__(None, None, None)
            raise
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        try:
            self._ask("Marionette:Quit", {"flags": ["eForceQuit"]})
            self._process.wait(30)
        except (OSError, AttributeError, subprocess.TimeoutExpired):
            self._process.kill()
            self._process.wait()
        finally:
            if hasattr(self, "_socket"):
                self._socket.close()
            self._log.close()
            self._home.cleanup()

    def visit(self, address: str) -> None:
        """Opens an address and waits until the page is loaded."""
        self._ask("WebDriver:Navigate", {"url": address})

    def run(self, script: str, *arguments: Any) -> Any:
        """Runs a script in the page; returns what it returns."""
        found = self._ask("WebDriver:ExecuteScript", {"script": script, "args": list(arguments)})
        return found["value"]

    def choose(self, selector: str, paths: list[str]) -> None:
        """Chooses files in a file field."""
        keys = {"text": "\n".join(paths)}
        self._ask("WebDriver:ElementSendKeys", {"id": self._find(selector), **keys})

    def click(self, selector: str) -> None:
        """Clicks on an element, and waits for the next page if one begins to load."""
        self._ask("WebDriver:ElementClick", {"id": self._find(selector)})

    def take_screenshot(self, path: str) -> None:
        """Writes what the window shows to a PNG file."""
        found = self._ask("WebDriver:TakeScreenshot", {"full": False})
        Path(path).write_bytes(base64.b64decode(found["value"]))

    def _find(self, selector: str) -> str:
        wanted = {"using": "css selector", "value": selector}
        (identifier,) = self._ask("WebDriver:FindElement", wanted)["value"].values()
        return identifier

    def _ask(self, command: str, arguments: dict[str, Any]) -> Any:
        message = json.dumps([0, next(self._numbers), command, arguments]).encode()
        self._socket.sendall(b"%d:%s" % (len(message), message))
        _, _, error, result = self._read()
        if error:
            raise AssertionError(f"{command}: {error['message']}")
        return result

    def _read(self) -> Any:
        size = b""
        while not size.endswith(b":"):
            size += self._receive(1)
        return json.loads(self._receive(int(size[:-1])))

    def _receive(self, count: int) -> bytes:
        got = b""
        while len(got) < count:
            more = self._socket.recv(count - len(got))
            if not more:
                raise ConnectionError("Firefox closed the connection")
            got += more
        return got

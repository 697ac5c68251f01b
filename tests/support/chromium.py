"""A headless Chromium for tests."""

import os
from collections.abc import Mapping

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

FLAGS = (
    *("headless=new", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run"),
    *("disable-background-networking", "disable-component-update", "disable-sync"),
    *("disable-dev-shm-usage", "hide-scrollbars", "lang=en"),
)


def start(
    home: str,
    *flags: str,
    logs: Mapping[str, str] | None = None,
    preferences: Mapping[str, str] | None = None,
) -> webdriver.Chrome:
    """Starts one whose files are all in the folder `home`; quit() ends it."""
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in (*FLAGS, *flags, f"user-data-dir={home}/profile"):
        options.add_argument(f"--{flag}")
    options.add_experimental_option("prefs", dict(preferences or {}))
    options.set_capability("goog:loggingPrefs", dict(logs or {}))
    environment = os.environ | {"HOME": home, "TMPDIR": home}
    service = Service("/usr/bin/chromedriver", env=environment)
    return webdriver.Chrome(service=service, options=options)

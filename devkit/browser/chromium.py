"""Chromium with the dev extension, driven by Selenium."""

from __future__ import annotations

import os
import shutil
from collections.abc import Mapping
from pathlib import Path
from types import TracebackType
from typing import ClassVar

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

from .native_host import EXTENSION, EXTENSION_ID, announce_host

PANEL_URL = f"chrome-extension://{EXTENSION_ID}/panel/panel.html"

_SWITCHES = (
    "--no-first-run",
    "--no-default-browser-check",
    "--disable-dev-shm-usage",
    "--disable-gpu",
    "--disable-background-networking",
    "--disable-component-update",
    "--password-store=basic",
    "--hide-scrollbars",
    # The panel and the page that the agent works on are tabs of one window: one is never in front.
    "--disable-renderer-backgrounding",
    "--disable-backgrounding-occluded-windows",
    "--disable-background-timer-throttling",
    f"--load-extension={EXTENSION}",
    "--disable-features=DisableLoadExtensionCommandLineSwitch,Translate,MediaRouter",
)


def _program(*names: str) -> str:
    for name in names:
        if path := shutil.which(name):
            return path
    raise FileNotFoundError(f"{names[0]} is not installed")


def _options(profile: Path, headless: bool) -> webdriver.ChromeOptions:
    options = webdriver.ChromeOptions()
    options.page_load_strategy = "none"  # whoever opens a page waits for what he needs of it
    options.binary_location = _program("chromium", "chromium-browser")
    for switch in (*_SWITCHES, f"--user-data-dir={profile}"):
        options.add_argument(switch)
    # Without it an unpacked extension that is reloaded stays switched off.
    options.add_experimental_option("prefs", {"extensions.ui.developer_mode": True})
    if headless:
        options.add_argument("--headless=new")
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")  # root may not have one
    return options


class Browser:
    """A browser with a profile of its own below `folder` while it is entered.

    build        the host that it starts
    environment  what to add to the environment of that host
    report       where to write what is said against the protocol; nothing is looked at without it
    """

    running: ClassVar[list[Browser]] = []

    def __init__(
        self,
        folder: Path,
        build: str = "windows",
        environment: Mapping[str, str] | None = None,
        headless: bool = True,
        report: Path | None = None,
    ) -> None:
        self.profile = folder
        announce_host(folder, build, environment or {}, report)
        self._headless = headless

    def __enter__(self) -> Browser:
        service = Service(_program("chromedriver"))
        self.driver = webdriver.Chrome(
            service=service, options=_options(self.profile, self._headless))
        self.driver.set_page_load_timeout(60)
        self.driver.set_script_timeout(60)
        self.pid = int(self._own_pid())
        self.running.append(self)
        return self

    def _own_pid(self) -> str:
        """The browser's process: the target of the lock that it keeps in its profile."""
        return os.readlink(self.profile / "SingletonLock").rsplit("-", 1)[1]

    def __exit__(
        self,
        _type: type[BaseException] | None,
        _value: BaseException | None,
        _trace: TracebackType | None,
    ) -> None:
        self.running.remove(self)
        try:
            self.driver.quit()
        finally:
            self.driver.service.stop()

# SPDX-License-Identifier: MIT
"""Headless Chromium, and access to the elements of the live page in it."""

import pathlib
import tempfile

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from waiting import wait_for

OPTIONS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--force-device-scale-factor=1", "--hide-scrollbars")

DESKTOP = (1440, 1000)
PHONE = (390, 844)


class Browser:
    """Chromium, until the context is left. Elements are named by their id."""

    def __enter__(self):
        self.profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        options = Options()
        options.binary_location = "/usr/bin/chromium"
        for option in (*OPTIONS, f"--user-data-dir={self.profile.name}"):
            options.add_argument(option)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        self.driver.set_page_load_timeout(30)
        return self

    def __exit__(self, *_):
        self.driver.quit()
        self.profile.cleanup()

    def open(self, url):
        self.driver.get(url)

    def element(self, name):
        return self.driver.find_element(By.ID, name)

    def text(self, name):
        return self.element(name).text

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def resize(self, width, height, phone=False):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": phone})

    def prefer(self, scheme):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def press(self, *keys):
        """Sends key presses to the focused element."""
        ActionChains(self.driver, duration=0).send_keys(*keys).perform()

    def fill(self, name, value):
        """Focuses an input field with the keyboard and replaces its text."""
        self.tab_to(name)
        ActionChains(self.driver, duration=0).key_down(Keys.CONTROL).send_keys("a").key_up(Keys.CONTROL).perform()
        self.press(value)

    def focused(self):
        return self.run("return document.activeElement.id || document.activeElement.getAttribute('aria-label')"
                        " || document.activeElement.className || document.activeElement.tagName")

    def tab_to(self, name, max_presses=60):
        for _ in range(max_presses):
            if self.focused() == name:
                return
            self.press(Keys.TAB)
        raise AssertionError(f"{name} cannot be focused with the keyboard")

    def wait(self, condition, what, seconds=20):
        return wait_for(condition, f"{what}; the page shows the answer \"{self.shown_answer()}\"", seconds)

    def shown_answer(self):
        return self.run("return document.getElementById('answer')?.textContent")

    def console_errors(self):
        """Errors and warnings in the page's console."""
        return [line for line in self.driver.get_log("browser")
                if line["level"] in ("SEVERE", "WARNING") and not line["message"].startswith("chrome://")]

    def save_screenshot(self, directory, name):
        pathlib.Path(directory).mkdir(parents=True, exist_ok=True)
        self.driver.save_screenshot(str(pathlib.Path(directory) / name))

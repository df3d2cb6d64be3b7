# SPDX-License-Identifier: MIT
"""A headless browser, and access to the elements of the live page in it.

The environment variable BROWSER selects it: "chromium" or "firefox".
"""

import base64
import os
import pathlib
import re
import tempfile

from selenium import webdriver
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from marionette import Marionette, PageUnloaded
from waiting import wait_for

OPTIONS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--force-device-scale-factor=1", "--hide-scrollbars")

DESKTOP = (1440, 1000)
PHONE = (390, 844)


class Browser:
    """What the tests use of a browser, until the context is left. Elements are named by their id.

    A browser has these functions besides: open(url), url(), source(), text(name), is_displayed(name), run(script, *arguments),
    resize(width, height, phone), prefer(scheme), perform(actions) of WebDriver, press(*keys), select_all() by keyboard, console_errors(), screenshot() as PNG.
    """

    def fill(self, name, value):
        """Focuses an input field with the keyboard and replaces its text."""
        self.tab_to(name)
        self.select_all()
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

    def attribute(self, name, attribute):
        return self.run("return document.getElementById(arguments[0]).getAttribute(arguments[1])", name, attribute)

    def position(self, name, x, y):
        """\\return the position of a point of an element in the window; x and y are shares of its width and height"""
        left, top, width, height = self.run("""
            const element = document.getElementById(arguments[0]);
            element.scrollIntoView({block: 'center', behavior: 'instant'});
            const box = element.getBoundingClientRect();
            return [box.left, box.top, box.width, box.height];""", name)
        return round(left + x * width), round(top + y * height)

    def move_pointer(self, *positions, pressed=False):
        """Moves the mouse from one position to the others, with its button pressed on the way or not."""
        actions = [{"type": "pointerMove", "duration": 0, "x": x, "y": y, "origin": "viewport"} for x, y in positions]
        if pressed:
            actions = [actions[0], {"type": "pointerDown", "button": 0}, *actions[1:], {"type": "pointerUp", "button": 0}]
        self.perform({"type": "pointer", "id": "mouse", "parameters": {"pointerType": "mouse"}, "actions": actions})

    def turn_wheel(self, position, down):
        """\\param down  pixels"""
        self.perform({"type": "wheel", "id": "wheel", "actions": [
            {"type": "scroll", "duration": 0, "x": position[0], "y": position[1], "deltaX": 0, "deltaY": down, "origin": "viewport"}]})

    def wait(self, condition, what, seconds=20):
        def holds():
            try:
                return condition()
            except PageUnloaded:  # the browser loads another one
                return None
        try:
            return wait_for(holds, what, seconds)
        except AssertionError as error:
            raise AssertionError(f"{error}; the page shows the answer \"{self.shown_answer()}\"") from None

    def source(self):
        """\\return the HTML text of the page, empty while another one is being loaded"""
        return self.run("return document.documentElement?.outerHTML") or ""

    def shown_answer(self):
        return self.run("return document.getElementById('answer')?.textContent")

    def save_screenshot(self, directory, name):
        pathlib.Path(directory).mkdir(parents=True, exist_ok=True)
        (pathlib.Path(directory) / name).write_bytes(self.screenshot())


class Chromium(Browser):
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

    def url(self):
        return self.driver.current_url

    def text(self, name):
        return self.driver.find_element(By.ID, name).text

    def is_displayed(self, name):
        return self.driver.find_element(By.ID, name).is_displayed()

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

    def perform(self, actions):
        self.driver.execute("actions", {"actions": [actions]})

    def select_all(self):
        ActionChains(self.driver, duration=0).key_down(Keys.CONTROL).send_keys("a").key_up(Keys.CONTROL).perform()

    def console_errors(self):
        """Errors and warnings in the page's console, except those of the browser's own pages, and of requests that are refused or for
        a frame that has been replaced, which only this browser reports."""
        return [line["message"] for line in self.driver.get_log("browser")
                if line["level"] in ("SEVERE", "WARNING") and not line["message"].startswith("chrome://")
                and not re.search(r" status of (409|410) ", line["message"])]

    def screenshot(self):
        return self.driver.get_screenshot_as_png()


class Firefox(Browser):
    def __enter__(self):
        self.marionette = Marionette().__enter__()
        self.run = self.marionette.script
        # Without the tool bars, the focus returns to the page's start after its last control.
        self.marionette.privileged_script("document.getElementById('navigator-toolbox').hidden = true")
        return self

    def __exit__(self, *exception):
        self.marionette.__exit__(*exception)

    def open(self, url):
        self.marionette.command("WebDriver:Navigate", url=url)

    def url(self):
        return self.marionette.command("WebDriver:GetCurrentURL")

    def text(self, name):
        return self.marionette.command("WebDriver:GetElementText", id=self.marionette.find(name))

    def is_displayed(self, name):
        return self.marionette.command("WebDriver:IsElementDisplayed", id=self.marionette.find(name))

    def resize(self, width, height, phone=False):
        """A window of Firefox cannot be as narrow as a phone, but the page in it can."""
        self.marionette.privileged_script("""
            window.resizeTo(Math.max(arguments[0], 500), arguments[1] + 200);
            const style = gBrowser.selectedBrowser.style;
            style.minWidth = style.maxWidth = `${arguments[0]}px`;
            style.minHeight = style.maxHeight = `${arguments[1]}px`;""", width, height)
        self.wait(lambda: self.run("return [window.innerWidth, window.innerHeight]") == [width, height], f"a page of {width} x {height}")

    def prefer(self, scheme):
        self.marionette.privileged_script("gBrowser.selectedBrowser.browsingContext.prefersColorSchemeOverride = arguments[0]", scheme)

    def press(self, *keys):
        """Sends key presses to the focused element."""
        self.marionette.press(*((kind, key) for key in "".join(keys) for kind in ("keyDown", "keyUp")))

    def perform(self, actions):
        self.marionette.command("WebDriver:PerformActions", actions=[actions])

    def select_all(self):
        self.marionette.press(("keyDown", Keys.CONTROL), ("keyDown", "a"), ("keyUp", "a"), ("keyUp", Keys.CONTROL))

    def console_errors(self):
        """Errors and warnings that the page caused or wrote to its console."""
        caused = self.marionette.privileged_script("""
            return Services.console.getMessageArray()
              .filter((one) => one instanceof Ci.nsIScriptError && one.sourceName.startsWith(arguments[0]))
              .map((one) => `${one.sourceName}: ${one.errorMessage}`)""", self.run("return location.origin"))
        written = [line for line in self.marionette.log_text().splitlines() if line.startswith(("console.error:", "console.warn:"))]
        return caused + written

    def screenshot(self):
        return base64.b64decode(self.marionette.command("WebDriver:TakeScreenshot", full=False))


def start_browser():
    """\\return the browser that the environment selects, a context manager"""
    return {"chromium": Chromium, "firefox": Firefox}[os.environ["BROWSER"]]()

# SPDX-License-Identifier: MIT
"""The live page in a browser: what it shows of a recording and how it controls the recording."""

import os
import pathlib
import re
import sys
import tempfile
import unittest

from browser import DESKTOP, PHONE, start_browser
from camera_process import Camera
from gevctl import gevctl
from recorder import Recording
from selenium.webdriver.common.keys import Keys

CONFIGURATION = """
[image]
width = 1280
height = 1024
[timing]
frame_rate_hz = 50.0
[gain]
auto = "Off"
db = 0
[exposure]
auto = "Off"
time_us = 1000
[tone]
enable = true
[output]
format = "none"
[web]
address = "127.0.0.1:0"
[log]
level = "info"
"""

SCREENSHOTS = os.environ.get("MEDIAGRABBER_SCREENSHOTS")
TOKEN = "a-token-of-the-tests-0123456789"


def page_of(recording):
    """The URL of the live page."""
    recording.wait_for_log("live page: ")
    return re.search(r"live page: (\S+)", recording.log).group(1)


class LivePage(unittest.TestCase):
    """One recording and one browser for all tests, which run in the order of their names."""

    @classmethod
    def setUpClass(cls):
        cls.camera = cls.enterClassContext(Camera())
        cls.recording = cls.enterClassContext(Recording(CONFIGURATION))
        cls.page = page_of(cls.recording)
        cls.recording.wait_for_frames(1)
        cls.browser = cls.enterClassContext(start_browser())
        cls.browser.resize(*DESKTOP)
        cls.browser.open(cls.page)

    def mean(self):
        return float(self.browser.run("return document.getElementById('histogram').dataset.mean || 'nan'"))

    def pixels(self):
        """The middle row of the preview, as text."""
        return self.browser.run("""
            const image = document.getElementById('image');
            const line = new OffscreenCanvas(image.width, 1).getContext('2d', {willReadFrequently: true});
            line.drawImage(image, 0, -image.height / 2);
            return line.getImageData(0, 0, image.width, 1).data.join()""")

    def frame(self):
        return int(self.browser.run("return document.getElementById('image').dataset.frame || '0'"))

    def test_01_updates_the_image(self):
        self.browser.wait(lambda: self.frame() > 0, "a first image", seconds=5)
        before, pixels = self.frame(), self.pixels()
        self.browser.wait(lambda: self.frame() > before and self.pixels() != pixels, "another image", seconds=5)

    def test_02_shows_counters_and_values(self):
        self.browser.wait(lambda: self.browser.text("state") == "recording", "the state")
        self.browser.wait(lambda: re.match(r"[1-9]\d*\.\d$", self.browser.text("rate")), "the frame rate")
        for element, pattern in (("camera-name", "GO-5100M-PGE"), ("gain-now", r"^0\.0 dB$"), ("exposure-now", r"^1\.00 ms$"),
                                 ("clock-now", r"^Exposure times are known to \S+ \S+ about a constant delay \(arrivals\)\.$"),
                                 ("temperature", r"^\d+\.\d °C$"), ("dropped-queue-full", "^0$")):
            self.browser.wait(lambda: re.search(pattern, self.browser.text(element)), f"{pattern} in {element}")
        self.browser.wait(lambda: self.page in self.browser.run("return document.getElementById('log').textContent"),
                          "the log")
        self.browser.wait(lambda: re.match(r"\d+\.\d+ ms$", self.browser.text("interval-now")), "the interval")
        self.browser.wait(lambda: "CS000001" in self.browser.text("identity"), "the camera's identity")

    def test_03_changes_the_gain_with_the_keyboard_and_updates_the_histogram(self):
        before = self.browser.wait(self.mean, "a histogram")
        self.browser.tab_to("gain-slider")
        self.browser.press(*[Keys.ARROW_UP] * 60)
        self.browser.wait(lambda: self.browser.shown_answer() == "gain.db = 6", "the camera's answer")
        self.browser.wait(lambda: self.mean() > before + 0.05, "a brighter histogram")
        self.browser.wait(lambda: self.browser.text("gain-now") == "6.0 dB", "the new gain")

    def test_04_shows_the_value_that_the_camera_kept(self):
        self.browser.fill("gain", "60")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: "gain.db: requested 60, but the camera has" in self.browser.shown_answer(), "the value of the camera")
        self.browser.fill("gain", "2")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: self.browser.shown_answer() == "gain.db = 2", "the camera's answer")

    def test_05_draws_the_gamma_curve(self):
        self.browser.fill("gamma", "0.7")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: self.browser.text("tone") == "gamma 0.70", "the curve's name")

    def test_06_changes_the_region(self):
        for name, value in (("width", "640"), ("height", "480"), ("offset-x", "64"), ("offset-y", "32")):
            self.browser.fill(name, value)
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: "image.width = 640" in self.browser.shown_answer(), "the camera's answer")
        self.browser.wait(lambda: self.browser.run("const c = document.getElementById('image');"
                                                   "return [c.width, c.height]") == [640, 480], "an image of the new size")
        self.browser.wait(lambda: "640 × 480" in self.browser.text("image-format"), "its size")
        # The camera refuses a width that is not a multiple of 8.
        self.assertFalse(self.browser.is_displayed("differences"))
        self.browser.fill("width", "645")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: "image.width: requested 645, but the camera delivers 640" in self.browser.text("differences"),
                          "the difference")
        self.assertTrue(self.browser.is_displayed("differences"))
        self.browser.run("document.getElementById('width').value = 1280; document.getElementById('height').value = 1024;"
                         "document.getElementById('region-form').requestSubmit()")
        self.browser.wait(lambda: "image.width = 1280" in self.browser.shown_answer(), "the camera's answer")
        self.browser.wait(lambda: not self.browser.is_displayed("differences"), "no difference")

    def test_07_draws_the_curve_of_a_calculated_lut(self):
        for name in ("table", "table12"):
            self.browser.tab_to(name)
            self.browser.press(Keys.ENTER)
            self.browser.wait(lambda: self.browser.shown_answer().startswith("a histogram-equalised LUT was calculated"), name)
            self.browser.wait(lambda: self.browser.run(
                "return document.getElementById('histogram').dataset.tone") == "calculated", "the curve")
            self.browser.run("document.getElementById('answer').textContent = ''")
        self.browser.wait(lambda: self.browser.text("tone").endswith("2"), "the second LUT")

    def test_08_reloads_the_configuration_file(self):
        self.browser.tab_to("reload")
        self.browser.press(Keys.SPACE)
        self.browser.wait(lambda: self.browser.shown_answer() == "reloaded, confirmed by a frame", "the answer")

    def test_09_every_control_is_reachable_with_the_keyboard(self):
        controls = self.browser.run("""
            return [...document.querySelectorAll('body input, body button, body select, #log, #stage')]
              .filter((one) => !one.closest('dialog')).map((one) => one.id || one.getAttribute('aria-label'))""")
        self.browser.run("document.activeElement.blur()")
        reached = set()
        for _ in range(len(controls) + 5):
            self.browser.press(Keys.TAB)
            reached.add(self.browser.focused())
            outline = self.browser.run("return getComputedStyle(document.activeElement).outlineStyle")
            self.assertTrue(outline != "none" or self.browser.focused() == "BODY", self.browser.focused())
        self.assertEqual(set(controls) - reached, set())

    def test_10_every_control_has_an_accessible_name(self):
        unnamed = self.browser.run("""
            return [...document.querySelectorAll('input, button, select, canvas, #stage')].filter((one) =>
              !one.getAttribute('aria-label') && !(one.labels && one.labels.length) && !one.textContent.trim())
              .map((one) => one.id)""")
        self.assertEqual(unnamed, [])
        self.assertEqual(self.browser.attribute("answer", "aria-live"), "polite")

    def test_11_supports_light_and_dark_schemes_and_phones(self):
        if SCREENSHOTS:  # so that the charts have data
            self.browser.wait(lambda: self.browser.text("running") >= "0:01:20", "a minute", seconds=120)
        self.browser.fill("gamma", "0.75")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: self.browser.text("tone") == "gamma 0.75", "a curve")
        backgrounds = {}
        for scheme in ("light", "dark"):
            self.browser.prefer(scheme)
            backgrounds[scheme] = self.browser.run("return getComputedStyle(document.body).backgroundColor")
            before = self.frame()
            self.browser.wait(lambda: self.frame() > before + 50, "more images")
            self.save_screenshot(f"live_page_{scheme}.png")
        self.assertNotEqual(backgrounds["light"], backgrounds["dark"])
        for width in (PHONE[0], 320):
            self.browser.resize(width, PHONE[1], phone=True)
            widths = self.browser.run("return [document.documentElement.scrollWidth, window.innerWidth]")
            self.assertLessEqual(widths[0], width, widths)
        self.browser.resize(PHONE[0], 1400, phone=True)
        before = self.frame()
        self.browser.wait(lambda: self.frame() > before + 25, "more images")
        self.save_screenshot("live_page_phone.png")
        self.browser.resize(*DESKTOP)

    def save_screenshot(self, name):
        if SCREENSHOTS:
            self.browser.run("window.scrollTo(0, 0); document.activeElement.blur()")
            self.browser.save_screenshot(SCREENSHOTS, name)

    def test_12_loads_nothing_from_elsewhere_and_logs_no_errors(self):
        loaded = self.browser.run("return performance.getEntriesByType('resource').map((one) => one.name)")
        self.assertGreater(len(loaded), 10)
        self.assertEqual([one for one in loaded if not one.startswith(self.page)], [])
        self.assertEqual(self.browser.console_errors(), [])
        self.browser.run("console.error('an error of the test')")
        self.browser.wait(lambda: "an error of the test" in " ".join(self.browser.console_errors()), "the error in the console")
        self.assertEqual(self.browser.text("dropped-queue-full"), "0")


class TokenAndStop(unittest.TestCase):
    def test_a_token_gives_access_and_a_confirmed_stop_ends_the_recording(self):
        self.enterContext(Camera("--ptp"))
        gevctl("set", "127.0.0.1", "PtpEnable=true")
        with Recording(CONFIGURATION, "--web-token", self.token_file()) as recording, start_browser() as browser:
            recording.wait_for_frames(1)
            browser.resize(*DESKTOP)
            browser.open(page_of(recording))
            self.assertTrue(browser.url().endswith("/login"))
            in_field = lambda: browser.run("return document.activeElement?.tagName") == "INPUT"
            browser.wait(in_field, "the focus in the token's field")
            browser.press("not the token", Keys.ENTER)
            browser.wait(lambda: "wrong token" in browser.source(), "the refusal")
            browser.wait(in_field, "the focus in the token's field")
            browser.press(TOKEN, Keys.ENTER)
            browser.wait(lambda: browser.run("return document.getElementById('image')?.dataset.frame"), "an image")
            self.assertEqual(browser.run("return document.cookie"), "")
            browser.wait(lambda: re.search(r"^Exposure times are known to \S+ \S+ \(ptp\)\.$", browser.text("clock-now")),
                         "exposure times without an unknown delay")

            browser.tab_to("stop")
            browser.press(Keys.ENTER)
            browser.wait(lambda: browser.is_displayed("stop-dialog"), "the confirmation dialog")
            self.assertIn("The chunk settings of the camera are restored, its other settings stay as they are.",
                          browser.text("stop-dialog"))
            browser.press(Keys.ESCAPE)
            browser.wait(lambda: not browser.is_displayed("stop-dialog"), "the dialog to close")
            self.assertIsNone(recording.process.poll())

            browser.tab_to("stop")
            browser.press(Keys.ENTER)
            browser.wait(lambda: browser.is_displayed("stop-dialog"), "the confirmation dialog")
            browser.press(Keys.TAB)
            self.assertEqual(browser.focused(), "stop-now")
            browser.press(Keys.ENTER)
            self.assertEqual(recording.finish(), 0, recording.log)
            browser.wait(lambda: browser.shown_answer() == "stopping", "the answer")
            browser.wait(lambda: browser.text("state").startswith("not reachable"), "the page to show it")

    def token_file(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        path = pathlib.Path(directory) / "token"
        path.touch(mode=0o600)
        path.write_text(TOKEN + "\n")
        return str(path)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

"""What an operator sees of a recording in a browser, and does there."""

import os
import pathlib
import re
import sys
import tempfile
import unittest

from browser import DESKTOP, PHONE, Browser
from camera_process import Camera
from recorder import Recording
from selenium.webdriver.common.keys import Keys

CONFIGURATION = """
[image]
width = 1280
height = 1024
[timing]
frame_rate = 50.0
[gain]
mode = "manual"
db = 0
[exposure]
mode = "manual"
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
    recording.wait_for_log("the page is at ")
    return re.search(r"the page is at (\S+)", recording.log).group(1)


class LivePage(unittest.TestCase):
    """One recording and one browser for all of it, in the order of the names."""

    @classmethod
    def setUpClass(cls):
        cls.camera = cls.enterClassContext(Camera())
        cls.recording = cls.enterClassContext(Recording(CONFIGURATION))
        cls.page = page_of(cls.recording)
        cls.recording.wait_for_frames(1)
        cls.browser = cls.enterClassContext(Browser())
        cls.browser.resize(*DESKTOP)
        cls.browser.open(cls.page)

    def mean(self):
        return float(self.browser.run("return document.getElementById('histogram').dataset.mean || 'nan'"))

    def pixels(self):
        """Some of the picture, as a text."""
        return self.browser.run("""
            const picture = document.getElementById('picture');
            const line = new OffscreenCanvas(picture.width, 1).getContext('2d', {willReadFrequently: true});
            line.drawImage(picture, 0, -picture.height / 2);
            return line.getImageData(0, 0, picture.width, 1).data.join()""")

    def frame(self):
        return int(self.browser.run("return document.getElementById('picture').dataset.frame || '0'"))

    def test_01_shows_the_picture_as_it_changes(self):
        self.browser.wait(lambda: self.frame() > 0, "a first picture", seconds=5)
        before, pixels = self.frame(), self.pixels()
        self.browser.wait(lambda: self.frame() > before and self.pixels() != pixels, "another picture", seconds=5)

    def test_02_tells_what_it_counts(self):
        self.browser.wait(lambda: self.browser.text("state") == "recording", "the state")
        self.browser.wait(lambda: re.match(r"[1-9]\d*\.\d$", self.browser.text("rate")), "the frame rate")
        self.assertIn("GO-5100M-PGE", self.browser.text("camera-name"))
        self.assertEqual(self.browser.text("gain-now"), "0.0 dB")
        self.assertEqual(self.browser.text("exposure-now"), "1.00 ms")
        self.assertRegex(self.browser.text("temperature"), r"^\d+\.\d °C$")
        self.assertEqual(self.browser.text("overrun"), "0")
        self.browser.wait(lambda: self.page in self.browser.run("return document.getElementById('log').textContent"),
                          "the log")
        self.browser.wait(lambda: re.match(r"\d+\.\d+ ms$", self.browser.text("interval-now")), "the interval")
        self.browser.wait(lambda: "CS000001" in self.browser.text("identity"), "the camera's identity")

    def test_03_the_keyboard_moves_the_gain_and_the_histogram_follows(self):
        before = self.browser.wait(self.mean, "a histogram")
        self.browser.tab_to("gain-slider")
        self.browser.press(*[Keys.ARROW_UP] * 60)
        self.browser.wait(lambda: self.browser.shown_answer() == "gain.db = 6", "the camera's answer")
        self.browser.wait(lambda: self.mean() > before + 0.05, "the histogram to follow")
        self.browser.wait(lambda: self.browser.text("gain-now") == "6.0 dB", "the new gain")

    def test_04_the_camera_says_what_it_has_instead(self):
        self.browser.fill("gain", "60")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: "gain.db: asked for 60, the camera has" in self.browser.shown_answer(), "what it has")
        self.browser.fill("gain", "2")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: self.browser.shown_answer() == "gain.db = 2", "the camera's answer")

    def test_05_gamma_draws_its_curve(self):
        self.browser.fill("gamma", "0.7")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: self.browser.text("tone") == "gamma 0.70", "the curve's name")

    def test_06_the_region_changes(self):
        for name, value in (("width", "640"), ("height", "480"), ("offset-x", "64"), ("offset-y", "32")):
            self.browser.fill(name, value)
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: "image.width = 640" in self.browser.shown_answer(), "the camera's answer")
        self.browser.wait(lambda: self.browser.run("const c = document.getElementById('picture');"
                                                   "return [c.width, c.height]") == [640, 480], "the new picture")
        self.browser.wait(lambda: "640 × 480" in self.browser.text("picture-format"), "its size")
        self.browser.run("document.getElementById('width').value = 1280; document.getElementById('height').value = 1024;"
                         "document.getElementById('region-form').requestSubmit()")
        self.browser.wait(lambda: "image.width = 1280" in self.browser.shown_answer(), "the camera's answer")

    def test_07_a_calculated_table_draws_its_curve(self):
        for name in ("table", "table12"):
            self.browser.tab_to(name)
            self.browser.press(Keys.ENTER)
            self.browser.wait(lambda: self.browser.shown_answer().startswith("a look-up table was calculated"), name)
            self.browser.wait(lambda: self.browser.run(
                "return document.getElementById('histogram').dataset.tone") == "calculated", "the curve")
            self.browser.run("document.getElementById('answer').textContent = ''")
        self.browser.wait(lambda: self.browser.text("tone").endswith("2"), "the second table")

    def test_08_the_file_is_reloaded(self):
        self.browser.tab_to("reload")
        self.browser.press(Keys.SPACE)
        self.browser.wait(lambda: self.browser.shown_answer() == "reloaded, frames have come since", "the answer")

    def test_09_the_keyboard_reaches_every_control(self):
        controls = self.browser.run("""
            return [...document.querySelectorAll('body input, body button, #log')]
              .filter((one) => !one.closest('dialog')).map((one) => one.id || one.getAttribute('aria-label'))""")
        self.browser.run("document.activeElement.blur()")
        reached = set()
        for _ in range(len(controls) + 5):
            self.browser.press(Keys.TAB)
            reached.add(self.browser.focused())
            outline = self.browser.run("return getComputedStyle(document.activeElement).outlineStyle")
            self.assertTrue(outline != "none" or self.browser.focused() == "BODY", self.browser.focused())
        self.assertEqual(set(controls) - reached, set())

    def test_10_every_control_has_a_name(self):
        unnamed = self.browser.run("""
            return [...document.querySelectorAll('input, button, canvas')].filter((one) =>
              !one.getAttribute('aria-label') && !(one.labels && one.labels.length) && !one.textContent.trim())
              .map((one) => one.id)""")
        self.assertEqual(unnamed, [])
        self.assertEqual(self.browser.element("answer").get_attribute("aria-live"), "polite")

    def test_11_light_dark_and_phone(self):
        if SCREENSHOTS:  # with something to see in the charts
            self.browser.wait(lambda: self.browser.text("running") >= "0:01:20", "a minute", seconds=120)
        self.browser.fill("gamma", "0.75")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: self.browser.text("tone") == "gamma 0.75", "a curve")
        grounds = {}
        for scheme in ("light", "dark"):
            self.browser.prefer(scheme)
            grounds[scheme] = self.browser.run("return getComputedStyle(document.body).backgroundColor")
            before = self.frame()
            self.browser.wait(lambda: self.frame() > before + 50, "more pictures")
            self.photograph(f"live_page_{scheme}.png")
        self.assertNotEqual(grounds["light"], grounds["dark"])
        for width in (PHONE[0], 320):
            self.browser.resize(width, PHONE[1], phone=True)
            wide = self.browser.run("return [document.documentElement.scrollWidth, window.innerWidth]")
            self.assertLessEqual(wide[0], width, wide)
        self.browser.resize(PHONE[0], 1400, phone=True)
        before = self.frame()
        self.browser.wait(lambda: self.frame() > before + 25, "more pictures")
        self.photograph("live_page_phone.png")
        self.browser.resize(*DESKTOP)

    def photograph(self, name):
        if SCREENSHOTS:
            self.browser.run("window.scrollTo(0, 0); document.activeElement.blur()")
            self.browser.photograph(SCREENSHOTS, name)

    def test_12_everything_came_from_here_and_nothing_was_complained_of(self):
        loaded = self.browser.run("return performance.getEntriesByType('resource').map((one) => one.name)")
        self.assertGreater(len(loaded), 10)
        self.assertEqual([one for one in loaded if not one.startswith(self.page)], [])
        complaints = [one for one in self.browser.complaints() if "409" not in one["message"]]
        self.assertEqual(complaints, [])
        self.assertEqual(self.browser.text("overrun"), "0")


class TokenAndStop(unittest.TestCase):
    def test_a_token_lets_in_and_a_confirmed_stop_ends_the_recording(self):
        with Camera(), Recording(CONFIGURATION, "--web-token", self.token_file()) as recording, Browser() as browser:
            recording.wait_for_frames(1)
            browser.resize(*DESKTOP)
            browser.open(page_of(recording))
            self.assertTrue(browser.driver.current_url.endswith("/login"))
            browser.press("not the token", Keys.ENTER)
            browser.wait(lambda: "that is not the token" in browser.driver.page_source, "the refusal")
            browser.press(TOKEN, Keys.ENTER)
            browser.wait(lambda: browser.run("return document.getElementById('picture')?.dataset.frame"), "a picture")
            self.assertEqual(browser.run("return document.cookie"), "")

            browser.tab_to("stop")
            browser.press(Keys.ENTER)
            browser.wait(lambda: browser.element("stop-dialog").is_displayed(), "the question")
            browser.press(Keys.ESCAPE)
            browser.wait(lambda: not browser.element("stop-dialog").is_displayed(), "its end")
            self.assertIsNone(recording.process.poll())

            browser.tab_to("stop")
            browser.press(Keys.ENTER)
            browser.press(Keys.TAB)
            self.assertEqual(browser.focused(), "stop-now")
            browser.press(Keys.ENTER)
            self.assertEqual(recording.finish(), 0, recording.log)
            browser.wait(lambda: browser.shown_answer() == "stopping", "the answer")
            browser.wait(lambda: browser.text("state").startswith("not reachable"), "the page to see it")

    def token_file(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        path = pathlib.Path(directory) / "token"
        path.touch(mode=0o600)
        path.write_text(TOKEN + "\n")
        return str(path)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

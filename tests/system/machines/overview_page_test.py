# SPDX-License-Identifier: MIT
"""The page of `mediagrabber overview` in a browser, with recordings of this machine and with a hostile one."""

import json
import pathlib
import sys
import tempfile
import unittest

from browser import DESKTOP, PHONE, start_browser
from camera_process import Camera
from overview_process import Overview, ScriptedPage
from recorder import Recording
from selenium.webdriver.common.keys import Keys
from web_client import get

CONFIGURATION = """
camera.name = "left"
[image]
width = 640
height = 480
[timing]
frame_rate_hz = 20.0
[output]
format = "none"
[web]
address = "127.0.0.1:0"
"""
TOKEN = "5ee6bc8b27e14ec1a9a1f30ae6ea4c3d"
DEAD = "http://127.0.0.1:9"
SCRIPT = "<img src=x onerror=\"document.title='attacked'\">"


def hostile_page(status):
    """\\return a live page whose texts are HTML, and whose image is a script"""
    texts = dict.fromkeys(("name", "state", "waiting_reason"), SCRIPT)
    losses = {"counts": {**status["counts"], "packets_lost": 12345}}
    image = b"<svg xmlns='http://www.w3.org/2000/svg' onload='document.title=1'/>"
    return ScriptedPage({"/status.json": ("application/json", json.dumps({**status, **texts, **losses}).encode()),
                         "/frame.jpg": ("image/svg+xml", image)})


class OverviewPage(unittest.TestCase):
    """One overview and one browser for all tests, which run in the order of their names."""

    @classmethod
    def setUpClass(cls):
        runtime = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.enterClassContext(Camera())
        cls.recording = cls.enterClassContext(Recording(CONFIGURATION, environment={"XDG_RUNTIME_DIR": runtime}))
        cls.recording.wait_for_frames(3)
        cls.recording.wait_for_log("live page: http://")
        cls.link = cls.recording.log.split("live page: ")[1].split()[0]
        status = json.loads(get(int(cls.link.split(":")[2].rstrip("/")), "/status.json")[1])
        cls.hostile = cls.enterClassContext(hostile_page(status))
        cls.overview = cls.enterClassContext(Overview(runtime, DEAD, cls.hostile.url))
        cls.browser = cls.enterClassContext(start_browser())
        cls.browser.resize(*DESKTOP)
        cls.browser.open(cls.overview.page)

    def sections(self):
        """What the page shows of each recording, by its link."""
        shown = self.browser.run("""
            const text = (one, selector) => one.querySelector(selector).textContent;
            return [...document.querySelectorAll('main.overview > section')].map((one) => ({
              link: one.querySelector('a').getAttribute('href'), title: text(one, 'a'), state: text(one, '.state'),
              kind: one.querySelector('.state').className, frames: text(one, '.frames'), losses: text(one, '.losses'),
              has_losses: one.querySelector('.losses').classList.contains('some'), reason: text(one, '.reason'),
              note: text(one, '.picture p'), source: one.querySelector('img').getAttribute('src'),
              alternative: one.querySelector('img').alt, width: one.querySelector('img').naturalWidth}))""")
        return {(one["link"] or "").rstrip("/"): one for one in shown}

    def section(self, link):
        return self.sections().get(link.rstrip("/"))

    def wait(self, link, condition, what):
        """\\return what the page shows of the recording with this link, when the condition holds"""
        self.browser.wait(lambda: (one := self.section(link)) and condition(one), f"{what} of {link}")
        return self.section(link)

    def test_1_shows_image_state_and_losses_of_a_recording_and_links_to_its_page(self):
        one = self.wait(self.link, lambda one: one["width"] == 320, "a small image")
        self.assertEqual((one["title"], one["state"], one["kind"]), ("left", "recording", "state good"))
        self.assertRegex(one["frames"], r"^[\d\s]+ frames saved")
        self.assertEqual((one["losses"], one["has_losses"]), ("no losses", False))
        self.assertEqual(one["alternative"], "Latest image of left")
        self.assertEqual(one["reason"], "")
        self.assertEqual(one["note"], "")
        source = one["source"]
        self.wait(self.link, lambda one: one["source"] != source and one["width"] == 320, "another image")

    def test_2_shows_a_machine_that_does_not_respond_with_the_reason(self):
        one = self.wait(DEAD, lambda one: one["reason"], "the reason")
        self.assertEqual((one["state"], one["kind"]), ("not reachable", "state bad"))
        self.assertIn("Connection refused", one["reason"])
        self.assertEqual((one["source"], one["frames"], one["losses"]), (None, "", ""))
        self.assertEqual(self.section(self.link)["state"], "recording")

    def test_3_shows_texts_of_other_machines_as_text(self):
        one = self.wait(self.hostile.url, lambda one: one["note"], "the error of the image")
        self.assertEqual((one["title"], one["state"], one["reason"], one["kind"]), (SCRIPT, SCRIPT, SCRIPT, "state "))
        self.assertEqual(one["note"], "the answer is not a JPEG image")
        self.assertIsNone(one["source"])
        self.assertEqual((one["losses"].split("\u202f"), one["has_losses"]), (["12", "345 packets lost"], True))
        self.assertEqual(self.browser.run("return document.title"), "mediagrabber: overview")
        self.assertEqual(self.browser.run("return document.querySelectorAll('main.overview img[onerror]').length"), 0)

    def test_4_counts_the_recordings_and_fits_a_phone(self):
        self.browser.wait(lambda: self.browser.text("state") == "2 not recording", "the state of all")
        self.assertEqual(self.browser.text("counts"), "1 of 3 record")
        self.browser.resize(*PHONE, phone=True)
        widths = self.browser.run("return [document.documentElement.scrollWidth, window.innerWidth]")
        self.assertLessEqual(widths[0], widths[1])
        self.browser.resize(*DESKTOP)

    def test_5_removes_an_image_that_is_not_there_any_more(self):
        shown = self.browser.run("""
            const section = document.querySelector('main.overview > section');
            const one = {id: section.dataset.id, place: '', link: null, error: '', summary: null, image_error: ''};
            const image = section.querySelector('img');
            return [1, 0].map((number) => {
              show(section, {...one, image: number});
              return image.hasAttribute('src');
            });""")
        self.assertEqual(shown, [True, False])

    def test_5_links_pages_that_this_browser_can_open(self):
        for link, shown in (("http://0.0.0.0:8080/", "http://127.0.0.1:8080/"), ("http://[::]:8080/", "http://127.0.0.1:8080/"),
                            ("https://cell-2/", "https://cell-2/"), ("javascript:alert(1)", None), (None, None)):
            self.assertEqual(self.browser.run("return linkOf({link: arguments[0]})", link), shown)

    def test_5_says_why_the_recordings_of_this_machine_are_not_shown(self):
        shown = self.browser.run("""
            showAll({recordings: [], error: 'Permission denied'});
            const failure = document.getElementById('failure');
            return [failure.textContent, failure.hidden];""")
        self.assertEqual(shown, ["Permission denied", False])
        self.browser.wait(lambda: self.browser.run("return document.getElementById('failure').hidden"), "the end of the error")

    def test_5_loads_nothing_from_elsewhere_and_logs_no_errors(self):
        loaded = self.browser.run("return performance.getEntriesByType('resource').map((one) => one.name)")
        self.assertGreater(len(loaded), 3)
        self.assertEqual([one for one in loaded if not one.startswith(self.overview.page)], [])
        self.assertEqual(self.browser.console_errors(), [])

    def test_6_shows_that_a_recording_has_ended_and_that_the_overview_has(self):
        self.assertEqual(self.recording.stop(), 0, self.recording.log)
        self.browser.wait(lambda: self.section(self.link) is None, "the end of the recording")
        self.assertEqual(self.overview.stop(), 0, self.overview.log)
        self.browser.wait(lambda: self.browser.text("state") == "the overview is not reachable", "the end of the overview")


class Login(unittest.TestCase):
    def test_is_asked_for_again_when_the_session_has_ended(self):
        runtime = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        token = runtime / "token"
        token.write_text(TOKEN + "\n")
        token.chmod(0o600)
        with Overview(runtime, "--web-token", token) as overview, start_browser() as browser:
            browser.open(overview.page)
            browser.wait(lambda: browser.run("return document.activeElement?.tagName") == "INPUT", "the focus in the token's field")
            browser.press(TOKEN, Keys.ENTER)
            browser.wait(lambda: "no recording" in browser.source(), "the overview")
            browser.run("fetch('/logout', {method: 'POST', body: new URLSearchParams()})")
            browser.wait(lambda: browser.url().endswith("/login"), "the page that asks for the token")
            self.assertEqual(overview.stop(), 0, overview.log)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

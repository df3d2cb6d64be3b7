# SPDX-License-Identifier: MIT
"""Focusing and aligning a camera with the live page in a browser: zoom, pixel values, overlays, focus figure and profile.

Where numbers are compared, the page is paused, and the frame that it shows is read from the server.
"""

import io
import json
import os
import pathlib
import re
import sys
import unittest

import numpy
from browser import DESKTOP, start_browser
from camera_process import Camera
from live_page_test import page_of
from PIL import Image
from recorder import Recording
from selenium.webdriver.common.keys import Keys
from waiting import wait_for
from web_client import get

WIDTH, HEIGHT = 1280, 1024
MAX_VALUE = 4095
CONFIGURATION = f"""
[image]
width = {WIDTH}
height = {HEIGHT}
format = "%s"
[timing]
frame_rate_hz = 10.0
[gain]
auto = "Off"
db = 0
[exposure]
auto = "Off"
time_us = 1000
[output]
format = "none"
[web]
address = "127.0.0.1:0"
"""
SCREENSHOTS = os.environ.get("MEDIAGRABBER_SCREENSHOTS")
SMALL = (1100, 740)  # of a screenshot
RED, YELLOW, CYAN, GREEN = "255,32,32", "255,211,69", "0,229,255", "124,255,107"
ORANGE, MAGENTA = "255,166,64", "255,92,244"


class AlignedPage(unittest.TestCase):
    """One recording and one browser for all tests of a class, which run in the order of their names."""
    PIXEL_FORMAT, DATA_TYPE = "", ""

    @classmethod
    def setUpClass(cls):
        cls.camera = cls.enterClassContext(Camera())
        cls.recording = cls.enterClassContext(Recording(CONFIGURATION % cls.PIXEL_FORMAT))
        cls.page = page_of(cls.recording)
        cls.port = int(cls.page.rstrip("/").rsplit(":", 1)[1])
        cls.recording.wait_for_frames(1)
        cls.browser = cls.enterClassContext(start_browser())
        cls.browser.resize(*DESKTOP)
        cls.browser.open(cls.page)
        cls.browser.wait(cls.frame, "a first image")
        # The warning that a busy machine does not deliver the frame rate would move the image while a test points at it.
        cls.browser.run("document.getElementById('differences').style.display = 'none'")

    @classmethod
    def frame(cls):
        return int(cls.browser.run("return document.getElementById('image').dataset.frame || '0'"))

    def setUp(self):
        """Each test begins with the whole live frame and without overlays."""
        self.browser.run("""
            for (const id of ['pause', 'crosshair', 'grid', 'saturation', 'focus-on', 'profile-on']) {
              if (document.getElementById(id).checked) document.getElementById(id).click();
            }
            document.getElementById('drag').value = 'move';
            document.getElementById('zoom-fit').click();""")
        self.browser.wait(lambda: self.browser.text("zoom") == "whole frame", "the whole frame")
        before = self.frame()
        self.browser.wait(lambda: self.frame() > before, "another image")

    def check(self, name):
        """Checks a box with the keyboard."""
        self.browser.tab_to(name, max_presses=90)
        self.browser.press(Keys.SPACE)
        self.assertTrue(self.browser.run("return document.getElementById(arguments[0]).checked", name))

    def press_in_view(self, *keys):
        self.browser.tab_to("stage", max_presses=90)
        self.browser.press(*keys)

    def paused(self):
        """Pauses the page. \\return the frame that it shows"""
        def frame():
            number = int(self.pause().group(1))
            self.assertEqual(self.frame(), number)
            found = self.held(number)
            if found is None:  # a busy machine: requests from before the pause have replaced it
                self.check_off("pause")
                return None
            return [found]  # the truth of an array is not defined
        return self.browser.wait(frame, "a paused frame that the server still holds")[0]

    def frames_saved(self):
        return json.loads(get(self.port, "/status.json")[1])["counts"]["saved"]

    def held(self, number):
        """\\return the frame; None if the server does not hold it any more"""
        parts = []
        for y in range(0, HEIGHT, HEIGHT // 2):
            response, body = get(self.port, f"/tile.raw?frame={number}&x=0&y={y}&width={WIDTH}&height={HEIGHT // 2}")
            if response.status == 410:
                return None
            self.assertEqual(response.status, 200, body)
            parts.append(numpy.frombuffer(body, self.DATA_TYPE).reshape(-1, WIDTH))
        return numpy.concatenate(parts).astype(int)

    def pause(self):
        """\\return the announcement, the first group of which is the number of the frame"""
        self.browser.run("document.getElementById('announcement').textContent = '';")  # of an earlier pause
        self.check("pause")
        try:
            return self.browser.wait(lambda: re.search(r"Paused at frame (\d+)", self.announcement()), "the paused frame")
        except AssertionError as error:
            raise AssertionError(f"{error}; it announces \"{self.announcement()}\"") from None

    def announcement(self):
        """What a screen reader reads; the element is not visible."""
        return self.browser.run("return document.getElementById('announcement').textContent")

    def marked(self, colour):
        """\\return the number of pixels of the overlay that have this colour, more or less opaque"""
        return self.browser.run("""
            const marks = document.getElementById('marks');
            const copy = new OffscreenCanvas(marks.width, marks.height).getContext('2d', {willReadFrequently: true});
            copy.drawImage(marks, 0, 0);
            const data = copy.getImageData(0, 0, marks.width, marks.height).data;
            const wanted = arguments[0].split(',').map(Number);
            let count = 0;
            for (let i = 0; i < data.length; i += 4) {
              if (data[i + 3] > 60 && wanted.every((value, channel) => Math.abs(data[i + channel] - value) < 12)) ++count;
            }
            return count;""", colour)

    def check_off(self, name):
        self.browser.tab_to(name, max_presses=90)
        self.browser.press(Keys.SPACE)
        self.assertFalse(self.browser.run("return document.getElementById(arguments[0]).checked", name))

    def drawn(self):
        """\\return the colours of the middle row of the view, from the left"""
        values = self.browser.run("""
            const image = document.getElementById('image');
            const line = new OffscreenCanvas(image.width, 1).getContext('2d', {willReadFrequently: true});
            line.drawImage(image, 0, -(image.height >> 1));
            return [...line.getImageData(0, 0, image.width, 1).data];""")
        return numpy.array(values).reshape(-1, 4)[:, :3]

    def assert_drawn(self, expected):
        """The view shows this image at 1:1, in its middle at least. The view may begin within a pixel."""
        drawn = self.drawn()
        middle = len(drawn) // 2
        differences = [numpy.abs(expected[row, WIDTH // 2 - 100 + shift:WIDTH // 2 + 100 + shift] - drawn[middle - 100:middle + 100]).max()
                       for row in range(HEIGHT // 2 - 2, HEIGHT // 2 + 3) for shift in (-1, 0, 1)]
        self.assertEqual(min(differences), 0)

    def focus_value(self):
        return float(self.browser.run("return document.getElementById('focus').dataset.value || 'nan'"))

    def choose_rectangle(self):
        """\\return the slices of its rows and columns"""
        for name, value in (("rectangle-x", "100"), ("rectangle-y", "60"), ("rectangle-width", "90"), ("rectangle-height", "70")):
            self.browser.fill(name, value)
        self.check("focus-on")
        return slice(60, 130), slice(100, 190)


class Align(AlignedPage):
    PIXEL_FORMAT, DATA_TYPE = "Mono12", "<u2"

    def pixel(self):
        """\\return x, y and value that the page shows, or nothing"""
        found = re.fullmatch(r"x (\d+), y (\d+): (\d+) of (\d+)", self.browser.text("pixel"))
        if found is None:
            return None
        self.assertEqual(int(found.group(4)), MAX_VALUE)
        return tuple(int(number) for number in found.groups()[:3])

    def pixel_at(self, position):
        """Points at a position of the window. \\return the pixel there"""
        self.browser.run("""
            window.pointed = null;
            document.onpointermove = (event) => { window.pointed = [Math.round(event.clientX), Math.round(event.clientY)]; };""")
        self.browser.move_pointer((position[0] - 2, position[1]), position)
        self.browser.wait(lambda: self.browser.run("return window.pointed") == list(position), "the pointer")
        return self.browser.wait(self.pixel, "the value of the pixel")

    def field(self, name):
        return int(self.browser.run("return document.getElementById(arguments[0]).value", name))

    def drawn_points(self, name):
        """\\return the number of pixels of a chart that are not transparent"""
        return self.browser.run("""
            const chart = document.getElementById(arguments[0]);
            const data = chart.getContext('2d').getImageData(0, 0, chart.width, chart.height).data;
            return data.filter((value, i) => i % 4 === 3 && value).length;""", name)

    def test_00_begins_with_a_line_across_the_middle(self):
        line = [self.field(name) for name in ("line-x1", "line-y1", "line-x2", "line-y2")]
        self.assertEqual(line, [0, HEIGHT // 2, WIDTH - 1, HEIGHT // 2])

    def test_01_zooms_and_moves_with_the_keyboard(self):
        middle = self.browser.position("stage", 0.5, 0.5)
        self.press_in_view("1")
        self.browser.wait(lambda: self.browser.text("zoom") == "1:1", "the zoom 1:1")
        self.press_in_view("+")
        self.browser.wait(lambda: self.browser.text("zoom") == "2:1", "the zoom 2:1")
        self.browser.wait(lambda: self.announcement() == "Zoom 2 to 1", "the announcement")
        x, y, _ = self.pixel_at(middle)
        self.assertAlmostEqual(x, WIDTH / 2, delta=2)
        self.assertAlmostEqual(y, HEIGHT / 2, delta=2)
        self.press_in_view(Keys.ARROW_RIGHT, Keys.ARROW_RIGHT, Keys.ARROW_UP)

        def has_moved():
            moved = self.pixel_at(middle)
            return moved[0] > x + 10 and moved[1] < y - 10
        self.browser.wait(has_moved, "the view to move to the right and up")
        self.press_in_view(*[Keys.ARROW_LEFT] * 40, Keys.ARROW_RIGHT)  # it stops at the edge
        self.browser.wait(lambda: 0 < self.pixel_at(middle)[0] < WIDTH / 4, "the left edge")
        self.press_in_view("-", "-", "-")
        self.browser.wait(lambda: self.browser.text("zoom") == "whole frame", "the whole frame")

    def test_02_zooms_with_the_wheel_at_the_pointer(self):
        position = self.browser.position("stage", 0.4, 0.6)
        before = self.pixel_at(position)
        for zoom in ("1:1", "2:1", "4:1"):
            self.browser.turn_wheel(position, -120)
            self.browser.wait(lambda: self.browser.text("zoom") == zoom, f"the zoom {zoom}")
        after = self.pixel_at(position)
        for one, other in zip(before[:2], after[:2]):
            self.assertAlmostEqual(one, other, delta=3)
        self.browser.turn_wheel(position, 120)
        self.browser.wait(lambda: self.browser.text("zoom") == "2:1", "the zoom 2:1")

    def test_03_moves_by_dragging(self):
        self.press_in_view("1", "+", "+")
        self.browser.wait(lambda: self.browser.text("zoom") == "4:1", "the zoom 4:1")
        begin, between, end = (self.browser.position("stage", *shares) for shares in ((0.5, 0.5), (0.55, 0.65), (0.6, 0.7)))
        x, y, _ = self.pixel_at(begin)
        self.browser.move_pointer(begin, between, end, pressed=True)
        expected = x - (end[0] - begin[0]) / 4, y - (end[1] - begin[1]) / 4

        def has_moved():
            return all(abs(one - other) <= 2 for one, other in zip(self.pixel_at(begin), expected))
        self.browser.wait(has_moved, f"the pixel {expected} at the beginning of the drag")

    def test_04_updates_the_zoomed_view(self):
        self.press_in_view("1")
        before = self.frame()
        self.browser.wait(lambda: self.frame() > before + 2, "further frames")
        for path in ("/tile.raw?after=", "/frame.jpg"):  # the latter is for the histogram
            self.browser.run("performance.clearResourceTimings()")
            self.browser.wait(lambda: path in self.browser.run(
                "return performance.getEntriesByType('resource').map((one) => one.name).join()"), f"a request for {path}")

    def test_05_shows_values_in_full_depth(self):
        truth = self.paused()
        for shares in ((0.4, 0.4), (0.55, 0.6), (0.5, 0.95)):  # the frame comes in two parts
            x, y, value = self.pixel_at(self.browser.position("stage", *shares))
            self.assertEqual(value, truth[y, x])
        self.browser.move_pointer((1, 1))  # away from the image
        self.press_in_view("1")
        self.move_cursor(Keys.ARROW_RIGHT, Keys.ARROW_DOWN)
        x, y = WIDTH // 2 + 1, HEIGHT // 2 + 1
        expected = f"x {x}, y {y}: {truth[y, x]} of {MAX_VALUE}"
        self.browser.wait(lambda: self.announcement() == expected, f"the announcement {expected}")
        # What is drawn at 1:1 is the frame itself.
        self.assert_drawn(numpy.repeat(truth[:, :, None] >> 4, 3, 2))

    def move_cursor(self, *keys):
        """With the keyboard only. The cursor begins in the middle."""
        presses = [{"type": kind, "value": key} for key in keys for kind in ("keyDown", "keyUp")]
        self.browser.perform({"type": "key", "id": "keyboard", "actions": [
            {"type": "keyDown", "value": Keys.SHIFT}, *presses, {"type": "keyUp", "value": Keys.SHIFT}]})

    def test_05_follows_the_cursor_out_of_the_view(self):
        self.browser.move_pointer((1, 1))
        self.press_in_view("1", "+", "+", "+", "+", "+")
        self.browser.wait(lambda: self.browser.text("zoom") == "32:1", "the zoom 32:1")
        self.move_cursor(*[Keys.ARROW_LEFT] * 60)
        self.browser.wait(lambda: (shown := self.pixel()) and shown[:2] == (WIDTH // 2 - 60, HEIGHT // 2), "the value there")
        self.browser.wait(lambda: self.marked(MAGENTA) > 50, "the cursor in the view")

    def test_05_holds_the_frame_while_it_is_paused_in_the_zoomed_view(self):
        self.press_in_view("1")
        self.browser.wait(lambda: self.browser.text("zoom") == "1:1", "the zoom 1:1")
        truth = self.paused()
        paused_at = self.frame()
        begin = self.frames_saved()
        wait_for(lambda: self.frames_saved() > begin + 3, "further frames")
        self.assertEqual(self.frame(), paused_at)
        middle = self.browser.position("stage", 0.5, 0.5)
        self.press_in_view(*[Keys.ARROW_UP] * 8)  # out of the view
        x, y, value = self.pixel_at(middle)
        self.assertLess(y, HEIGHT / 4)
        self.assertEqual(value, truth[y, x])

    def test_05_pauses_at_the_next_frame_if_one_is_replaced(self):
        self.browser.run("""
            window.unchanged = window.fetch;
            window.replaced = 0;
            window.fetch = (path, options) => path.startsWith('/tile.raw?frame=') && window.replaced++ < 2
              ? Promise.resolve(new Response('', {status: 410})) : window.unchanged(path, options);""")
        try:
            truth = self.paused()
            self.assertGreater(self.browser.run("return window.replaced"), 2)
        finally:
            self.browser.run("window.fetch = window.unchanged;")
        self.assertEqual(truth.shape, (HEIGHT, WIDTH))

    def test_05_requests_no_other_frame_until_it_has_paused(self):
        self.press_in_view("0")
        self.move_cursor(Keys.ARROW_UP)
        self.check("saturation")
        self.browser.run("""
            window.unchanged = window.fetch;
            window.others = 0;
            window.wait_for_tiles = new Promise((done) => { window.let_tiles_pass = done; });
            window.fetch = async (path, options) => {
              if (path.startsWith('/tile.raw?after=')) ++window.others;
              if (path.startsWith('/tile.raw?frame=')) await window.wait_for_tiles;
              return window.unchanged(path, options);
            };""")
        others = lambda: self.browser.run("return window.others")
        try:
            self.browser.wait(lambda: others() > 2, "requests for the marks and the value")
            self.browser.run("document.getElementById('pause').click();")
            begin = others()
            frames = self.frames_saved()
            wait_for(lambda: self.frames_saved() > frames + 10, "further frames")
            self.assertEqual(others(), begin)
            self.browser.run("window.let_tiles_pass();")
            self.browser.wait(lambda: "Paused at frame" in self.announcement(), "the paused frame")
        finally:
            self.browser.run("window.let_tiles_pass(); window.fetch = window.unchanged;")

    def test_05_says_why_no_frame_is_held(self):
        self.browser.run("""
            window.unchanged = window.fetch;
            window.fetch = (path, options) => path.startsWith('/tile.raw?frame=')
              ? Promise.resolve(new Response('', {status: 410})) : window.unchanged(path, options);""")
        try:
            self.check("pause")
            self.browser.wait(lambda: re.search(r"The frame cannot be held: /tile.raw.*: 410", self.announcement()), "the reason")
        finally:
            self.browser.run("window.fetch = window.unchanged;")

    def test_06_marks_saturated_pixels(self):
        self.assertEqual(self.marked(RED), 0)
        self.browser.fill("gain", "24")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: self.browser.shown_answer() == "gain.db = 24", "the camera's answer")
        self.check("saturation")
        self.browser.wait(lambda: self.marked(RED) > 0, "marks on the live image")
        truth = self.paused()
        self.browser.resize(500, 900)  # each pixel of the view shows several of the frame

        def marks_its_blocks():
            text = re.match(r"(\d+) blocks of (\d) × \2 ", self.browser.text("saturated"))
            by = int(text.group(2)) if text else 1
            blocks = truth.reshape(HEIGHT // by, by, WIDTH // by, by).max((1, 3))
            return by > 1 and int(text.group(1)) == (blocks == MAX_VALUE).sum()
        self.browser.wait(marks_its_blocks, "the number of its blocks with saturated pixels")
        self.browser.resize(*DESKTOP)
        self.press_in_view("1")
        expected = str((truth == MAX_VALUE).sum())
        self.browser.wait(lambda: self.browser.text("saturated") == f"{expected} saturated", f"{expected} saturated pixels")
        self.check_off("saturation")
        self.browser.wait(lambda: self.marked(RED) == 0, "no marks")
        self.check_off("pause")
        self.browser.fill("gain", "0")
        self.browser.press(Keys.ENTER)
        self.browser.wait(lambda: self.browser.shown_answer() == "gain.db = 0", "the camera's answer")

    def test_07_measures_the_focus_of_a_rectangle(self):
        truth = self.paused()
        rows, columns = self.choose_rectangle()

        def expect_figure(columns):
            part = truth[rows, columns]
            laplacian = 4 * part[1:-1, 1:-1] - part[1:-1, :-2] - part[1:-1, 2:] - part[:-2, 1:-1] - part[2:, 1:-1]
            expected = laplacian.var() / part[1:-1, 1:-1].mean() ** 2
            self.browser.wait(lambda: abs(self.focus_value() - expected) <= 1e-9 * expected, f"the figure {expected}")
            self.assertIn("100 % of the best", self.browser.text("focus-now"))
            return expected

        expect_figure(columns)
        self.assertGreater(self.marked(GREEN), 100)
        self.assertGreater(self.drawn_points("focus"), 500)
        for x in (900, 100):  # one of them has a lower figure
            self.browser.fill("rectangle-x", str(x))
            expected = expect_figure(slice(x, x + 90))
        self.assertIn("Focus figure: ", self.browser.attribute("focus", "aria-label"))
        self.check_off("pause")
        self.browser.wait(lambda: self.focus_value() != expected, "the figure of another frame")
        self.browser.fill("rectangle-x", str(WIDTH - 50))
        self.browser.wait(lambda: f"within the frame of {WIDTH} × {HEIGHT}" in self.browser.text("align-note"), "the error")
        self.browser.fill("rectangle-x", "100")
        self.browser.wait(lambda: self.browser.text("align-note") == "", "no error")

    def test_07_forgets_the_figures_of_the_last_minute_and_the_best_one(self):
        now_and_best = lambda: re.fullmatch(r"(\S+), \d+ % of the best (\S+)", self.browser.text("focus-now")).groups()
        points = lambda: int(self.browser.run("return document.getElementById('focus').dataset.points"))
        self.choose_rectangle()
        self.browser.wait(lambda: self.browser.text("focus-now") and points() > 5, "some figures")
        self.browser.run("const real = performance.now.bind(performance); performance.now = () => real() + 3.6e6;")
        self.browser.wait(lambda: points() < 4, "the end of the old figures")

        def pauses_below_the_best():
            self.pause()
            now, best = now_and_best()
            if now == best:
                self.check_off("pause")
            return now != best
        self.browser.wait(pauses_below_the_best, "a paused frame whose figure is below the best one")
        self.browser.run("document.getElementById('focus-reset').click()")
        self.browser.wait(lambda: self.browser.text("focus-now").count("100 % of the best"), "the only figure")
        self.assertEqual(*now_and_best())

    def test_07_forgets_a_request_for_another_rectangle(self):
        self.browser.run("""
            const real = window.fetch;
            window.held = [];
            window.fetch = (url, ...more) => {
              if (!/tile.raw.*width=90/.test(url)) return real(url, ...more);
              return new Promise((resolve) => window.held.push(() => resolve(real(url, ...more))));
            };
            window.restore = () => {
              window.fetch = real;
              window.held.splice(0).forEach((release) => release());
            };""")
        self.addCleanup(self.browser.run, "window.restore();")
        held = lambda: self.browser.run("return window.held.length")
        self.choose_rectangle()
        self.browser.wait(lambda: held() == 1, "a request")
        self.browser.fill("rectangle-x", "900")
        self.browser.run("window.held.shift()();")
        self.browser.wait(lambda: held() == 1, "the next request")
        self.assertEqual(self.browser.text("focus-now"), "")
        self.browser.run("window.restore();")
        self.browser.wait(lambda: "100 % of the best" in self.browser.text("focus-now"), "the figure of the new rectangle")

    def test_08_shows_the_profile_along_a_line(self):
        truth = self.paused()
        for name, value in (("line-x1", "10"), ("line-y1", "20"), ("line-x2", "209"), ("line-y2", "20")):
            self.browser.fill(name, value)
        self.check("profile-on")
        values = lambda: self.browser.run("return document.getElementById('profile').dataset.values")
        expected = ",".join(str(value) for value in truth[20, 10:210])
        self.browser.wait(lambda: values() == expected, "the values of the row")
        self.assertGreater(self.marked(ORANGE), 50)
        self.assertGreater(self.drawn_points("profile"), 500)
        self.assertIn(f"minimum {truth[20, 10:210].min()}, ", self.browser.text("profile-now"))
        for name, value in (("line-x2", "10"), ("line-y2", "99")):
            self.browser.fill(name, value)
        expected = ",".join(str(value) for value in truth[20:100, 10])
        self.browser.wait(lambda: values() == expected, "the values of the column")
        self.browser.fill("line-x2", str(WIDTH))
        self.browser.wait(lambda: f"within the frame of {WIDTH} × {HEIGHT}" in self.browser.text("profile-note"), "the error")
        self.browser.fill("line-x2", "10")
        self.browser.wait(lambda: self.browser.text("profile-note") == "", "no error")

    def test_09_sets_rectangle_and_line_with_the_mouse(self):
        begin, end = self.browser.position("stage", 0.45, 0.45), self.browser.position("stage", 0.55, 0.6)
        first, last = self.pixel_at(begin), self.pixel_at(end)
        for kind, fields, expected in (
                ("rectangle", ("rectangle-x", "rectangle-y", "rectangle-width", "rectangle-height"),
                 [first[0], first[1], last[0] - first[0] + 1, last[1] - first[1] + 1]),
                ("line", ("line-x1", "line-y1", "line-x2", "line-y2"), [first[0], first[1], last[0], last[1]])):
            self.browser.run("document.getElementById('drag').value = arguments[0]", kind)
            self.browser.position("stage", 0, 0)
            self.browser.move_pointer(begin, end, pressed=True)
            self.browser.wait(lambda: [self.field(name) for name in fields] == expected, f"the {kind} {expected}")
        for name in ("focus-on", "profile-on"):
            self.assertTrue(self.browser.run("return document.getElementById(arguments[0]).checked", name))
        self.browser.wait(lambda: self.browser.text("focus-now") and self.browser.text("profile-now"), "figure and profile")

    def test_10_draws_crosshair_and_grid(self):
        self.save_screenshot()
        for name, colour in (("crosshair", CYAN), ("grid", YELLOW)):
            self.assertEqual(self.marked(colour), 0)
            self.check(name)
            self.browser.wait(lambda: self.marked(colour) > 500, name)
            self.check_off(name)
            self.assertEqual(self.marked(colour), 0)

    def save_screenshot(self):
        """The whole frame with all overlays in Chromium, the zoomed view in Firefox."""
        if not SCREENSHOTS:
            return
        zoomed = os.environ["BROWSER"] == "firefox"
        self.browser.resize(*SMALL)
        self.browser.run("""
            for (const id of ['crosshair', 'grid', 'focus-on', 'profile-on']) document.getElementById(id).click();
            document.getElementById('focus-reset').click();
            if (arguments[0]) for (const id of ['grid', 'zoom-one', 'zoom-in', 'zoom-in', 'zoom-in']) document.getElementById(id).click();
            scrollTo(0, 0);""", zoomed)
        begin = self.frame()
        self.browser.wait(lambda: self.frame() > begin + 150, "a focus figure of some seconds", seconds=120)
        # 128 colours are enough, and the files are small.
        image = Image.open(io.BytesIO(self.browser.screenshot())).convert("RGB").quantize(128)
        image.save(pathlib.Path(SCREENSHOTS) / ("live_page_zoom.png" if zoomed else "live_page_focus.png"), optimize=True)
        self.browser.resize(*DESKTOP)
        self.setUp()

    def test_11_logs_no_errors(self):
        self.assertEqual(self.browser.console_errors(), [])


class AlignInColour(AlignedPage):
    PIXEL_FORMAT, DATA_TYPE = "BayerRG8", "<u1"

    def coloured(self, levels):
        """\\return what the view shows of these levels: each cell of 2 x 2 pixels in its colour"""
        green = (levels[0::2, 1::2] + levels[1::2, 0::2]) >> 1
        return numpy.stack((levels[0::2, 0::2], green, levels[1::2, 1::2]), 2).repeat(2, 0).repeat(2, 1)

    def test_1_draws_the_colours_of_the_cells(self):
        truth = self.paused()
        self.press_in_view("1")
        self.assert_drawn(self.coloured(truth))
        self.check("stretch")
        low, high = truth.min(), truth.max()
        self.assertGreater(low, 0)
        self.assert_drawn(self.coloured(numpy.minimum((truth - low) * 256 // (high - low), 255)))
        self.check_off("stretch")

    def test_2_measures_the_focus_of_pixels_of_one_colour(self):
        truth = self.paused()
        part = truth[self.choose_rectangle()]
        laplacian = 4 * part[2:-2, 2:-2] - part[2:-2, :-4] - part[2:-2, 4:] - part[:-4, 2:-2] - part[4:, 2:-2]
        expected = laplacian.var() / part[2:-2, 2:-2].mean() ** 2
        self.browser.wait(lambda: abs(self.focus_value() - expected) <= 1e-9 * expected, f"the figure {expected}")


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

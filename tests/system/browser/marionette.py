# SPDX-License-Identifier: MIT
"""A client of Marionette, the protocol by which Firefox is controlled, because Debian 12 does not package geckodriver.

A message is the length of a JSON text in decimal, a colon and the text. A command is [0, ID, NAME, PARAMETERS], its response is
[1, ID, ERROR or null, RESULT]. Commands are those of WebDriver, with the prefix "WebDriver:", and some of Firefox itself.
"""

import itertools
import json
import os
import pathlib
import socket
import subprocess
import tempfile

from waiting import wait_for

FIREFOX = "/usr/bin/firefox-esr"
TIMEOUT_SECONDS = 60
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key of an element's reference, from the WebDriver standard
# A free port, which Firefox writes to a file in the profile; nothing is fetched from its makers.
PREFERENCES = {
    "marionette.port": 0,
    "app.normandy.enabled": False,
    "app.update.disabledForTesting": True,
    "browser.aboutConfig.showWarning": False,
    "browser.shell.checkDefaultBrowser": False,
    "browser.startup.homepage_override.mstone": "ignore",
    "browser.startup.page": 0,
    # What pages write to their console is in the log of Firefox, without what the browser itself writes.
    "devtools.console.stdout.chrome": False,
    "devtools.console.stdout.content": True,
    "datareporting.policy.dataSubmissionEnabled": False,
    "network.captive-portal-service.enabled": False,
    "network.connectivity-service.enabled": False,
    # A page that still scrolls has its elements elsewhere a moment later.
    "general.smoothScroll": False,
    "messaging-system.log": "off",
    "toolkit.telemetry.enabled": False,
}


class MarionetteError(RuntimeError):
    """An error that Firefox reports."""


class PageUnloaded(MarionetteError):
    """The page of a command went away before its result."""


class Marionette:
    """Headless Firefox with a profile of its own, and a connection to it, until the context is left."""

    def __enter__(self):
        self.directory = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        self.profile = pathlib.Path(self.directory.name)
        lines = (f"user_pref({json.dumps(name)}, {json.dumps(value)});\n" for name, value in PREFERENCES.items())
        (self.profile / "user.js").write_text("".join(lines))
        self.numbers = itertools.count(1)
        self.log = (self.profile / "firefox.log").open("wb")
        # The sandbox of pages needs capabilities that the user namespace of a test lacks.
        environment = {**os.environ, "HOME": self.directory.name, "MOZ_HEADLESS": "1", "MOZ_DISABLE_CONTENT_SANDBOX": "1",
                       "MOZ_CRASHREPORTER_DISABLE": "1"}
        self.process = subprocess.Popen([FIREFOX, "--marionette", "--remote-allow-system-access", "--profile", self.directory.name],
                                        stdin=subprocess.DEVNULL, stdout=self.log, stderr=subprocess.STDOUT, env=environment)
        try:
            self.socket = socket.create_connection(("127.0.0.1", wait_for(self._port, "Firefox")), TIMEOUT_SECONDS)
            self.input = self.socket.makefile("rb")
            self._read()  # the greeting
            self.command("WebDriver:NewSession")
        except BaseException:
            print(self.log_text())
            self._end()
            raise
        return self

    def log_text(self):
        return (self.profile / "firefox.log").read_text(errors="replace")

    def _port(self):
        assert self.process.poll() is None, "Firefox ended"
        path = self.profile / "MarionetteActivePort"
        return int(path.read_text() or "0") if path.exists() else 0

    def __exit__(self, *_):
        try:
            self.command("Marionette:Quit", flags=["eForceQuit"])
            self.process.wait(TIMEOUT_SECONDS)
        finally:
            self.input.close()
            self.socket.close()
            self._end()

    def _end(self):
        self.process.kill()
        self.process.wait()
        self.log.close()
        self.directory.cleanup()

    def _read(self):
        length = b""
        while not length.endswith(b":"):
            digit = self.input.read(1)
            if not digit:
                raise MarionetteError("Firefox closed the connection")
            length += digit
        return json.loads(self.input.read(int(length[:-1])))

    def command(self, name, **parameters):
        """Executes a command. \\return its result"""
        number = next(self.numbers)
        message = json.dumps([0, number, name, parameters]).encode()
        self.socket.sendall(b"%d:%s" % (len(message), message))
        kind, answered, error, result = self._read()
        if (kind, answered) != (1, number):
            raise MarionetteError(f"response {answered} to command {number}")
        if error:
            unloaded = any(text in error["message"] for text in ("Document was unloaded", "AbortError"))
            raise (PageUnloaded if unloaded else MarionetteError)(f"{name}: {error['error']}: {error['message']}")
        return result["value"] if isinstance(result, dict) and set(result) == {"value"} else result

    def script(self, text, *arguments):
        """Executes JavaScript in the page. \\return what it returns"""
        return self.command("WebDriver:ExecuteScript", script=text, args=list(arguments), sandbox=None)

    def privileged_script(self, text, *arguments):
        """Executes JavaScript in the browser itself. \\return what it returns"""
        self.command("Marionette:SetContext", value="chrome")
        try:
            return self.script(text, *arguments)
        finally:
            self.command("Marionette:SetContext", value="content")

    def find(self, name):
        """\\return the reference of the element with this id"""
        return self.command("WebDriver:FindElement", using="css selector", value=f"#{name}")[ELEMENT]

    def press(self, *events):
        """Sends key events to the focused element: pairs of "keyDown" or "keyUp" and a character."""
        actions = [{"type": kind, "value": key} for kind, key in events]
        self.command("WebDriver:PerformActions", actions=[{"type": "key", "id": "keyboard", "actions": actions}])

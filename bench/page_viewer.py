# SPDX-License-Identifier: MIT
"""A viewer of the live page: a thread that sends the same requests as the page."""

import contextlib
import http.client
import json
import os
import threading
import time

from web_client import get

FIGURES = ("/status.json", "/history.json", "/log.json")
CONTINUED = {  # requests that continue after the last answer: the number in it
    "/history.json": lambda answer: answer["bins"][-2]["last"] if len(answer["bins"]) > 1 else None,  # the last second is incomplete
    "/log.json": lambda answer: answer["lines"][-1]["number"] if answer["lines"] else None,
}


class Page(threading.Thread):
    """Requests images continuously and figures every half second, until the recording ends."""

    def __init__(self, port, figures=FIGURES):
        super().__init__(daemon=True)
        self.port = port
        self.figures = figures
        self.images = 0
        self.after = dict.fromkeys(CONTINUED, 0)
        self.answers = dict.fromkeys(figures, 0)  # with status 200, by path

    def run(self):
        os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))  # a real viewer uses another machine
        frame = 0
        figures_due = 0.0
        with contextlib.suppress(OSError, http.client.HTTPException):  # the recording has ended
            while True:
                response, _ = get(self.port, f"/frame.jpg?after={frame}")
                if response.status == 200:
                    frame = int(response.getheader("X-Frame"))
                    self.images += 1
                if time.monotonic() >= figures_due:
                    figures_due = time.monotonic() + 0.5
                    for path in self.figures:
                        self._request(path)

    def _request(self, path):
        response, body = get(self.port, f"{path}?after={self.after[path]}" if path in CONTINUED else path)
        if response.status == 200:
            self.answers[path] += 1
            if path in CONTINUED:
                self.after[path] = CONTINUED[path](json.loads(body)) or self.after[path]

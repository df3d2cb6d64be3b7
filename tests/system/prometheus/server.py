# SPDX-License-Identifier: MIT
"""A Prometheus server on the loopback interface, with the project's alert rules.

Paths are in the environment variables PROMETHEUS, PROMTOOL and ALERT_RULES.
"""

import json
import os
import pathlib
import re
import subprocess
import tempfile
import threading
import urllib.request

from waiting import wait_for

PROMETHEUS = os.environ["PROMETHEUS"]
PROMTOOL = os.environ["PROMTOOL"]
ALERT_RULES = pathlib.Path(os.environ["ALERT_RULES"])
PORT = 9090
TARGET = "127.0.0.1:8080"
CONFIGURATION = f"""
global: {{scrape_interval: 500ms, scrape_timeout: 500ms, evaluation_interval: 250ms}}
rule_files: [rules.yml]
scrape_configs:
  - job_name: mediagrabber
    static_configs: [{{targets: ["{TARGET}"]}}]
"""
SHORT_WINDOW, SHORT_FOR = "[8s]", "for: 2s"


def shortened(rules):
    """The rules for a test that cannot wait for minutes: every range is 8 s, every `for` 2 s. Nothing else is changed.

    RecordingDown and RequestedValueDiffers wait longer: a busy machine neither answers requests nor holds the frame rate for seconds.
    """
    rules = re.sub(r"\bfor: \w+", SHORT_FOR, re.sub(r"\[\d+\w\]", SHORT_WINDOW, rules))
    return re.sub(rf"((?:RecordingDown|RequestedValueDiffers)\n.*\n +){SHORT_FOR}", r"\1for: 10s", rules)


class Prometheus:
    """The server, until the context is left."""

    def __enter__(self):
        self.directory = tempfile.TemporaryDirectory()
        root = pathlib.Path(self.directory.name)
        (root / "prometheus.yml").write_text(CONFIGURATION)
        (root / "rules.yml").write_text(shortened(ALERT_RULES.read_text()))
        self.log = ""
        self.process = subprocess.Popen(
            [PROMETHEUS, f"--config.file={root}/prometheus.yml", f"--storage.tsdb.path={root}/data",
             f"--web.listen-address=127.0.0.1:{PORT}"], stderr=subprocess.PIPE, text=True)
        self.reader = threading.Thread(target=self._read)
        self.reader.start()
        try:
            wait_for(self._is_ready, "Prometheus")
        except BaseException:
            self.__exit__()
            print(self.log)
            raise
        return self

    def _read(self):
        for line in self.process.stderr:
            self.log += line

    def _is_ready(self):
        assert self.process.poll() is None, self.log
        try:
            return self.get("targets")["activeTargets"]
        except OSError:
            return False

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.reader.join()
        self.process.stderr.close()
        self.directory.cleanup()

    def get(self, what):
        """\\return the data of an API response"""
        with urllib.request.urlopen(f"http://127.0.0.1:{PORT}/api/v1/{what}", timeout=20) as response:
            answer = json.load(response)
        assert answer["status"] == "success", answer
        return answer["data"]

    def rules(self):
        """\\return the state of each rule by name"""
        return {rule["name"]: rule for group in self.get("rules")["groups"] for rule in group["rules"]}

    def alerts(self, *states):
        """\\return the alerts in one of these states"""
        return [alert for alert in self.get("alerts")["alerts"] if alert["state"] in states]

    def firing(self):
        """\\return the names of the alerts that fire"""
        return {alert["labels"]["alertname"] for alert in self.alerts("firing")}

    def wait_for_evaluations(self):
        """Waits until each rule has been evaluated, without an error, on what was scraped after this call."""
        scraped = self.targets()["lastScrape"]
        wait_for(lambda: self.targets()["lastScrape"] > scraped, "another scrape")
        before = {name: rule["lastEvaluation"] for name, rule in self.rules().items()}
        evaluated = lambda: all(rule["lastEvaluation"] > before[name] and rule["health"] == "ok" for name, rule in self.rules().items())
        wait_for(evaluated, f"an evaluation of each rule; the log of Prometheus:\n{self.log}")

    def targets(self):
        """\\return the state of the only target"""
        target, = self.get("targets")["activeTargets"]
        return target

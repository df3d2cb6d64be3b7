# SPDX-License-Identifier: MIT
"""MQTT messages of a recording, and the recording while the broker is unavailable."""

import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from broker import PORT, Authority, Broker, Subscriber
from host_process import Recording
from waiting import wait_for

SUCCESS, FRAMES_LOST, USAGE = range(3)
UNAVAILABLE = 11
PLAIN = f'mqtt.broker = "mqtt://127.0.0.1:{PORT}"\n'
TOPIC = "mediagrabber/0"
CONNECTED = "await GATE; grab 1"  # opened when the broker has been contacted, however long that takes


def resident_bytes(pid):
    return int(pathlib.Path(f"/proc/{pid}/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE")


class BrokerTest(unittest.TestCase):
    """Base class with a temporary directory."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def open_gate_when_online(self, recording, subscriber):
        recording.wait_while_running(lambda: "online" in subscriber.of(TOPIC + "/status"), "the online status")
        recording.open_gate()

    def secret_file(self, name, text, mode=0o600):
        """\\return the path of a new file with this content"""
        path = self.directory / name
        path.write_text(text)
        path.chmod(mode)
        return path


class Messages(BrokerTest):
    def test_for_frames_equal_the_frame_index(self):
        with Broker(self.directory), Subscriber(TOPIC + "/#") as subscriber:
            configuration = PLAIN + "mqtt.frames = true\nlog.instance = 0"
            with Recording(CONNECTED, "--frames", 300, configuration=configuration) as recording:
                self.open_gate_when_online(recording, subscriber)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of(TOPIC + "/status"), "the offline status")
                messages = subscriber.json_of(TOPIC + "/frame")
                self.assertEqual(messages, [{**line, "file": None} for line in recording.frame_index()])
                self.assertEqual(len(messages), 300)

    def test_for_frames_are_off_by_default(self):
        with Broker(self.directory), Subscriber(TOPIC + "/#") as subscriber:
            with Recording(CONNECTED, "--frames", 20, configuration=PLAIN) as recording:
                self.open_gate_when_online(recording, subscriber)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of(TOPIC + "/status"), "the offline status")
                self.assertEqual(subscriber.of(TOPIC + "/frame"), [])
                self.assertNotEqual(subscriber.of(TOPIC + "/health"), [])

    def test_about_health_are_periodic_and_end_with_the_final_counts(self):
        with Broker(self.directory), Subscriber("hall/left/#") as subscriber:
            configuration = PLAIN + ('mqtt.topic = "hall/{name}"\nmqtt.health_interval_s = 0.1\n'
                                     "log.instance = 7\ncamera.name = \"left\"\n")
            with Recording("grab", configuration=configuration) as recording:
                health = lambda: subscriber.json_of("hall/left/health")
                recording.wait_while_running(lambda: len(health()) >= 4, "four health messages")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of("hall/left/status"), "the offline status")
                frames = len(recording.frame_index())
                saved = [message["frames"]["saved"] for message in health()]
                self.assertEqual(saved, sorted(saved))
                self.assertEqual(saved[-1], frames)
                self.assertEqual((health()[-1]["name"], health()[-1]["instance"]), ("left", 7))
                self.assertEqual(health()[-1]["newest"]["frame"], frames)
                self.assertTrue(any(message["capturing"] for message in health()))
                self.assertEqual(subscriber.of("hall/left/status"), ["online", "offline"])

    def test_about_health_and_status_are_retained(self):
        with Broker(self.directory), Recording("grab", configuration=PLAIN) as recording:
            recording.wait_for_log("connected to the MQTT broker")
            with Subscriber(TOPIC + "/#") as subscriber:
                wait_for(lambda: subscriber.of(TOPIC + "/health"), "a retained health message")
                self.assertEqual(subscriber.of(TOPIC + "/status"), ["online"])
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            with Subscriber(TOPIC + "/#") as subscriber:
                wait_for(lambda: subscriber.of(TOPIC + "/status") == ["offline"], "the retained offline status")


class CleanDisconnect(BrokerTest):
    def test_is_replaced_by_the_last_will_of_a_killed_recording(self):
        with Broker(self.directory), Subscriber(TOPIC + "/#") as subscriber:
            with Recording("grab", configuration=PLAIN) as recording:
                recording.wait_while_running(lambda: subscriber.of(TOPIC + "/status") == ["online"], "the online status")
                recording.signal(signal.SIGKILL)
                wait_for(lambda: subscriber.of(TOPIC + "/status") == ["online", "offline"], "the last will")

    def test_happens_even_if_the_plugin_does_not_return(self):
        with Broker(self.directory), Subscriber(TOPIC + "/#") as subscriber:
            configuration = PLAIN + "run.grace_time_s = 0.1"
            with Recording("frames 6; hang", configuration=configuration) as recording:
                recording.wait_for_frames(5)
                recording.wait_for_log("connected to the MQTT broker")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), 5, recording.log)
                wait_for(lambda: subscriber.of(TOPIC + "/status") == ["online", "offline"], "the offline status")
                self.assertEqual(subscriber.json_of(TOPIC + "/health")[-1]["frames"]["saved"], 5)

    def expect_bounded_exit(self, configuration):
        """The recording must stop within a few seconds, in any state of the broker."""
        with Recording("grab", configuration=configuration) as recording:
            recording.wait_for_frames(50)
            recording.signal(signal.SIGTERM)
            stopped = time.monotonic()
            self.assertEqual(recording.finish(seconds=20), SUCCESS, recording.log)
            self.assertLess(time.monotonic() - stopped, 9, recording.log)  # of which MQTT may take 2.5 s
            self.assertGreaterEqual(len(recording.frame_index()), 50)
            return recording.log

    def test_times_out_if_the_broker_does_not_answer(self):
        with socket.create_server(("127.0.0.1", PORT)):  # the kernel accepts connections, but no data is read
            self.expect_bounded_exit(PLAIN)

    def test_times_out_if_the_connection_is_not_accepted(self):
        with socket.create_server(("127.0.0.1", PORT), backlog=0) as server:
            fillers = [socket.socket() for _ in range(4)]
            for filler in fillers:
                filler.setblocking(False)
                filler.connect_ex(server.getsockname())
            self.expect_bounded_exit(PLAIN)
            for filler in fillers:
                filler.close()

    def test_times_out_if_the_name_server_does_not_answer(self):
        resolver = self.secret_file("resolv.conf", "nameserver 127.0.0.1\noptions timeout:30 attempts:5\n", 0o644)
        hosts = self.secret_file("nsswitch.conf", "hosts: dns\n", 0o644)
        for source, target in ((resolver, "/etc/resolv.conf"), (hosts, "/etc/nsswitch.conf")):
            subprocess.run(["mount", "--bind", str(source), target], check=True)
            self.addCleanup(subprocess.run, ["umount", target], check=True)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
            silent.bind(("127.0.0.1", 53))
            self.expect_bounded_exit('mqtt.broker = "mqtt://broker.test"\n')
            self.assertIn(b"broker", silent.recv(512), "the broker's name was not queried")


class Credentials(BrokerTest):
    def setUp(self):
        super().setUp()
        passwords = self.secret_file("passwords", "me:secret\n")
        subprocess.run(["mosquitto_passwd", "-U", str(passwords)], check=True, capture_output=True)
        self.broker = Broker(self.directory, f"listener {PORT} 127.0.0.1\nallow_anonymous false\n"
                                             f"password_file {passwords}\n")

    def configuration(self, password):
        self.secret_file("password", password + "\n")
        return PLAIN + f'mqtt.username = "me"\nmqtt.password_file = "{self.directory}/password"\n'

    def test_are_accepted(self):
        with self.broker, Subscriber(TOPIC + "/#", "-u", "me", "-P", "secret") as subscriber:
            with Recording(CONNECTED, "--frames", 20, configuration=self.configuration("secret")) as recording:
                self.open_gate_when_online(recording, subscriber)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                self.assertIn("the password is sent in plain text", recording.log)
                self.assertNotIn("secret", recording.log)
                wait_for(lambda: subscriber.of(TOPIC + "/status") == ["online", "offline"], "the online and offline status")

    def test_that_are_wrong_are_logged_once_and_do_not_block(self):
        with self.broker, Recording("grab", configuration=self.configuration("guess")) as recording:
            recording.wait_for_log("not connected to the MQTT broker at 127.0.0.1:1883")
            wait_for(lambda: self.broker.log.count("not authorised") >= 2, "a second attempt")
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual(recording.log.count("not connected to the MQTT broker"), 1, recording.log)
            self.assertRegex(recording.log, "(?i)not authori[sz]ed")

    def test_with_a_missing_file_are_an_error_at_startup(self):
        configuration = PLAIN + 'mqtt.username = "me"\nmqtt.password_file = "/none"\n'
        with Recording("grab", configuration=configuration) as recording:
            self.assertEqual(recording.finish(), UNAVAILABLE)
            self.assertIn("run.toml:4:22: mqtt.password_file: /none: cannot be opened", recording.log)
            self.assertFalse(recording.output.exists())

    def test_that_every_user_can_read_are_an_error_at_startup(self):
        path = self.secret_file("open", "secret", 0o644)
        configuration = PLAIN + f'mqtt.username = "me"\nmqtt.password_file = "{path}"\n'
        with Recording("grab", configuration=configuration) as recording:
            self.assertEqual(recording.finish(), USAGE)
            self.assertIn("is accessible to every user of this machine", recording.log)


class Encryption(BrokerTest):
    def setUp(self):
        super().setUp()
        self.authority = Authority(self.directory, "authority")
        certificate, key = self.authority.issue("broker", "IP:127.0.0.1")
        self.listener = (f"listener {PORT} 127.0.0.1\nallow_anonymous true\ncafile {self.authority.certificate}\n"
                         f"certfile {certificate}\nkeyfile {key}\n")
        self.encrypted = f'mqtt.broker = "mqtts://127.0.0.1:{PORT}"\n'

    def expect_messages(self, listener, configuration, *options):
        with Broker(self.directory, listener), \
                Subscriber(TOPIC + "/#", "--cafile", str(self.authority.certificate), *options) as subscriber:
            configuration = self.encrypted + "mqtt.frames = true\n" + configuration
            with Recording(CONNECTED, "--frames", 50, configuration=configuration) as recording:
                self.open_gate_when_online(recording, subscriber)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of(TOPIC + "/status"), f"the offline status; the log so far:\n{recording.log}")
                self.assertEqual([message["frame"] for message in subscriber.json_of(TOPIC + "/frame")],
                                 list(range(1, 51)))

    def expect_refusal(self, configuration, reason, broker="127.0.0.1"):
        with Broker(self.directory, self.listener) as running:
            encrypted = self.encrypted.replace("127.0.0.1", broker)
            with Recording("grab", configuration=encrypted + configuration) as recording:
                recording.wait_for_log("not connected to the MQTT broker")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                self.assertRegex(recording.log, reason)
            self.assertNotIn("as mg-", running.log)  # no client was accepted

    def test_works_with_a_broker_that_the_authority_has_certified(self):
        self.expect_messages(self.listener, f'mqtt.ca_file = "{self.authority.certificate}"')

    def test_authenticates_with_a_client_certificate(self):
        certificate, key = self.authority.issue("recorder", "DNS:recorder")
        listener = self.listener + "require_certificate true\nuse_identity_as_username true\n"
        configuration = (f'mqtt.ca_file = "{self.authority.certificate}"\nmqtt.certificate_file = "{certificate}"\n'
                         f'mqtt.key_file = "{key}"\n')
        self.expect_messages(listener, configuration, "--cert", str(certificate), "--key", str(key))

    def test_refuses_a_broker_of_another_authority(self):
        other = Authority(self.directory, "other")
        self.expect_refusal(f'mqtt.ca_file = "{other.certificate}"', "certificate verify failed")

    def test_refuses_a_broker_unknown_to_the_system_authorities(self):
        self.expect_refusal("", "certificate verify failed")

    def test_refuses_a_broker_with_the_certificate_of_another_address(self):
        certificate, key = self.authority.issue("another", "IP:127.0.0.2")
        self.listener = (f"listener {PORT} 127.0.0.1\nallow_anonymous true\ncertfile {certificate}\nkeyfile {key}\n")
        self.expect_refusal(f'mqtt.ca_file = "{self.authority.certificate}"', "(?i)TLS|certificate")

    def test_with_a_missing_file_is_an_error_at_startup(self):
        with Recording("grab", configuration=self.encrypted + 'mqtt.ca_file = "none.pem"') as recording:
            self.assertEqual(recording.finish(), UNAVAILABLE)
            self.assertRegex(recording.log, "mqtt.ca_file: .*/none.pem: cannot be opened: No such file")


class BrokerReconnect(BrokerTest):
    def test_is_automatic_and_dropped_messages_are_counted(self):
        broker = Broker(self.directory)
        configuration = PLAIN + "mqtt.frames = true\nmqtt.queue_frames = 10\nmqtt.health_interval_s = 0.1\n"
        with Recording("grab", configuration=configuration) as recording:
            recording.wait_for_log("not connected to the MQTT broker at 127.0.0.1:1883, retrying: Connection refused")
            frames = len(recording.frame_index())
            recording.wait_for_frames(frames + 100)
            with broker, Subscriber(TOPIC + "/#") as subscriber:
                recording.wait_while_running(lambda: len(subscriber.of(TOPIC + "/frame")) > 50, "frame messages")
                dropped = lambda: max((health["messages"]["dropped"] for health in subscriber.json_of(TOPIC + "/health")), default=0)
                recording.wait_while_running(lambda: dropped() > 50, "more than 50 dropped messages")
                before = dropped()
            frames = len(recording.frame_index())
            recording.wait_for_frames(frames + 200)
            with broker, Subscriber(TOPIC + "/#") as subscriber:
                recording.wait_while_running(lambda: len(subscriber.of(TOPIC + "/frame")) > 50, "frame messages after the reconnect")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of(TOPIC + "/status"), "the offline status")
                received = [one["frame"] for one in subscriber.json_of(TOPIC + "/frame")]
                numbers = [line["frame"] for line in recording.frame_index()]
                self.assertEqual(numbers, list(range(1, len(numbers) + 1)), "the recording is not complete")
                self.assertEqual(received, sorted(set(received)), "a frame was published twice or out of order")
                self.assertEqual(received[-1], numbers[-1], "the last frame was not published")
                self.assertGreater(subscriber.json_of(TOPIC + "/health")[-1]["messages"]["dropped"],
                                   before + 100)
                self.assertRegex(recording.log, r"\d+ MQTT messages were dropped, \d+ were sent")

    def test_is_not_needed_by_a_recording_while_the_broker_hangs(self):
        """SIGSTOP suspends the connected broker, so the socket buffers fill and then the queue. Memory must not grow."""
        for buffers in ("tcp_wmem", "tcp_rmem"):
            pathlib.Path("/proc/sys/net/ipv4", buffers).write_text("4096 16384 65536")
        with Broker(self.directory) as broker:
            configuration = PLAIN + "mqtt.frames = true\nmqtt.queue_frames = 10\noutput.format = \"none\"\n"
            with Recording("grab 0", configuration=configuration) as recording:
                recording.wait_for_log("connected to the MQTT broker")
                broker.process.send_signal(signal.SIGSTOP)
                recording.wait_for_frames(2000)
                frames, settled = len(recording.frame_index()), resident_bytes(recording.process.pid)
                recording.wait_for_frames(frames + 20000)  # 6 MB of messages
                if not os.environ["SANITIZE"]:  # sanitizers keep freed memory
                    self.assertLess(resident_bytes(recording.process.pid) - settled, 3_000_000)
                recording.signal(signal.SIGTERM)
                # Without a frame period the plug-in may be faster than the disk, which costs frames.
                self.assertIn(recording.finish(), (SUCCESS, FRAMES_LOST), recording.log)
                given_up, = re.findall(r"(\d+) MQTT messages were dropped, \d+ were sent", recording.log)
                self.assertGreater(int(given_up), 19000)


class BrokerUnavailable(BrokerTest):
    def test_costs_no_frame(self):
        configuration = PLAIN + "mqtt.frames = true\n"
        with Recording(CONNECTED, "--frames", 200, configuration=configuration) as recording:
            recording.wait_for_log("not connected to the MQTT broker at 127.0.0.1:1883, retrying: Connection refused")
            recording.open_gate()
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual([line["frame"] for line in recording.frame_index()], list(range(1, 201)))
            self.assertRegex(recording.log, "200 MQTT messages were dropped, 0 were sent")

    def test_with_an_invalid_address_is_an_error_at_startup(self):
        with Recording("grab", configuration='mqtt.broker = "127.0.0.1"') as recording:
            self.assertEqual(recording.finish(), USAGE)
            self.assertIn("run.toml:2:15: mqtt.broker: it does not begin with mqtt:// or mqtts://", recording.log)

    def test_with_another_protocol_is_logged_and_does_not_block(self):
        with socket.create_server(("127.0.0.1", PORT)) as server:
            def answer():
                try:
                    while True:
                        client = server.accept()[0]
                        client.sendall(b"HTTP/1.1 400 Bad Request\r\n\r\n" * 100)
                        client.close()
                except OSError:
                    pass
            threading.Thread(target=answer, daemon=True).start()
            with Recording("grab", configuration=PLAIN) as recording:
                recording.wait_for_log("not connected to the MQTT broker")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
            server.shutdown(socket.SHUT_RDWR)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

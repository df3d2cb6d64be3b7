"""What a broker and its subscribers get of a recording, and what becomes of the recording when there is none."""

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
from recording_process import wait_for

SUCCESS, FRAMES_LOST, USAGE = range(3)
PLAIN = f'mqtt.broker = "mqtt://127.0.0.1:{PORT}"\n'
TOPIC = "mediagrabber/0"


def resident_bytes(pid):
    return int(pathlib.Path(f"/proc/{pid}/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE")


class BrokerTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)

    def secret(self, name, text, mode=0o600):
        path = self.directory / name
        path.write_text(text)
        path.chmod(mode)
        return path


class Messages(BrokerTest):
    def test_tell_of_every_frame_as_the_journal_does(self):
        with Broker(self.directory), Subscriber(TOPIC + "/#") as subscriber:
            configuration = PLAIN + "mqtt.frames = true\nlog.instance = 0"
            with Recording("grab 1", "--frames", 300, configuration=configuration) as recording:
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of(TOPIC + "/status"), "the farewell")
                told = subscriber.json_of(TOPIC + "/frame")
                self.assertEqual(told, [{**line, "file": None} for line in recording.journal()])
                self.assertEqual(len(told), 300)

    def test_tell_of_no_frame_unless_that_is_asked_for(self):
        with Broker(self.directory), Subscriber(TOPIC + "/#") as subscriber:
            with Recording("grab 1", "--frames", 20, configuration=PLAIN) as recording:
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of(TOPIC + "/status"), "the farewell")
                self.assertEqual(subscriber.of(TOPIC + "/frame"), [])
                self.assertNotEqual(subscriber.of(TOPIC + "/health"), [])

    def test_tell_again_and_again_how_it_goes_and_at_last_what_came_of_it(self):
        with Broker(self.directory), Subscriber("hall/7/#") as subscriber:
            configuration = PLAIN + ('mqtt.topic = "hall/{instance}"\nmqtt.health_interval_s = 0.1\n'
                                     "log.instance = 7\n")
            with Recording("grab 1", configuration=configuration) as recording:
                health = lambda: subscriber.json_of("hall/7/health")
                recording.wait_while_running(lambda: len(health()) >= 4, "four messages about health")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of("hall/7/status"), "the farewell")
                frames = len(recording.journal())
                kept = [told["frames"]["kept"] for told in health()]
                self.assertEqual(kept, sorted(kept))
                self.assertEqual(kept[-1], frames)
                self.assertEqual(health()[-1]["instance"], 7)
                self.assertEqual(health()[-1]["newest"]["frame"], frames)
                self.assertTrue(any(told["capturing"] for told in health()))
                self.assertEqual(subscriber.of("hall/7/status"), ["online", "offline"])

    def test_about_health_and_presence_are_there_for_those_who_come_later(self):
        with Broker(self.directory), Recording("grab 1", configuration=PLAIN) as recording:
            recording.wait_for_log("messages go to the broker")
            with Subscriber(TOPIC + "/#") as subscriber:
                wait_for(lambda: subscriber.of(TOPIC + "/health"), "health that is retained")
                self.assertEqual(subscriber.of(TOPIC + "/status"), ["online"])
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            with Subscriber(TOPIC + "/#") as subscriber:
                wait_for(lambda: subscriber.of(TOPIC + "/status") == ["offline"], "the end that is retained")


class Farewell(BrokerTest):
    def test_is_said_by_the_broker_for_a_recording_that_was_killed(self):
        with Broker(self.directory), Subscriber(TOPIC + "/#") as subscriber:
            with Recording("grab 1", configuration=PLAIN) as recording:
                recording.wait_while_running(lambda: subscriber.of(TOPIC + "/status") == ["online"], "it was online")
                recording.signal(signal.SIGKILL)
                wait_for(lambda: subscriber.of(TOPIC + "/status") == ["online", "offline"], "the last will")

    def test_comes_too_when_the_plugin_does_not_return(self):
        with Broker(self.directory), Subscriber(TOPIC + "/#") as subscriber:
            configuration = PLAIN + "run.grace_time_s = 0.1"
            with Recording("frames 6; hang", configuration=configuration) as recording:
                recording.wait_for_frames(5)
                recording.wait_for_log("messages go to the broker")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), 5, recording.log)
                wait_for(lambda: subscriber.of(TOPIC + "/status") == ["online", "offline"], "the farewell")
                self.assertEqual(subscriber.json_of(TOPIC + "/health")[-1]["frames"]["kept"], 5)

    def expect_bounded_end(self, configuration):
        with Recording("grab 1", configuration=configuration) as recording:
            recording.wait_for_frames(50)
            recording.signal(signal.SIGTERM)
            asked = time.monotonic()
            self.assertEqual(recording.finish(seconds=20), SUCCESS, recording.log)
            self.assertLess(time.monotonic() - asked, 9, recording.log)  # of which the messages may take 2.5
            self.assertGreaterEqual(len(recording.journal()), 50)
            return recording.log

    def test_is_given_up_when_the_broker_does_not_answer(self):
        with socket.create_server(("127.0.0.1", PORT)):  # the kernel accepts, and nobody reads
            self.expect_bounded_end(PLAIN)

    def test_is_given_up_when_the_network_swallows_the_connection(self):
        with socket.create_server(("127.0.0.1", PORT), backlog=0) as swallower:
            fillers = [socket.socket() for _ in range(4)]
            for filler in fillers:
                filler.setblocking(False)
                filler.connect_ex(swallower.getsockname())
            self.expect_bounded_end(PLAIN)
            for filler in fillers:
                filler.close()

    def test_is_given_up_when_the_name_system_does_not_answer(self):
        resolver = self.secret("resolv.conf", "nameserver 127.0.0.1\noptions timeout:30 attempts:5\n", 0o644)
        hosts = self.secret("nsswitch.conf", "hosts: dns\n", 0o644)
        for source, target in ((resolver, "/etc/resolv.conf"), (hosts, "/etc/nsswitch.conf")):
            subprocess.run(["mount", "--bind", str(source), target], check=True)
            self.addCleanup(subprocess.run, ["umount", target], check=True)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
            silent.bind(("127.0.0.1", 53))
            self.expect_bounded_end('mqtt.broker = "mqtt://broker.test"\n')
            self.assertIn(b"broker", silent.recv(512), "it did ask")


class Credentials(BrokerTest):
    def setUp(self):
        super().setUp()
        passwords = self.secret("passwords", "me:secret\n")
        subprocess.run(["mosquitto_passwd", "-U", str(passwords)], check=True, capture_output=True)
        self.broker = Broker(self.directory, f"listener {PORT} 127.0.0.1\nallow_anonymous false\n"
                                             f"password_file {passwords}\n")

    def configuration(self, password):
        self.secret("password", password + "\n")
        return PLAIN + f'mqtt.username = "me"\nmqtt.password_file = "{self.directory}/password"\n'

    def test_let_it_in(self):
        with self.broker, Subscriber(TOPIC + "/#", "-u", "me", "-P", "secret") as subscriber:
            with Recording("grab 1", "--frames", 20, configuration=self.configuration("secret")) as recording:
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                self.assertIn("the password can be read on the network", recording.log)
                self.assertNotIn("secret", recording.log)
                wait_for(lambda: subscriber.of(TOPIC + "/status") == ["online", "offline"], "it was let in")

    def test_that_are_wrong_are_told_once_and_hold_up_nothing(self):
        with self.broker, Recording("grab 1", configuration=self.configuration("guess")) as recording:
            recording.wait_for_log("no messages reach the broker at 127.0.0.1:1883")
            wait_for(lambda: self.broker.log.count("not authorised") >= 2, "a second attempt")
            recording.signal(signal.SIGTERM)
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual(recording.log.count("no messages reach"), 1, recording.log)
            self.assertRegex(recording.log, "(?i)not authori[sz]ed")

    def test_that_are_not_there_end_it_before_it_begins(self):
        configuration = PLAIN + 'mqtt.username = "me"\nmqtt.password_file = "/none"\n'
        with Recording("grab", configuration=configuration) as recording:
            self.assertEqual(recording.finish(), USAGE)
            self.assertIn("run.toml:4:22: mqtt.password_file: /none: can't be opened", recording.log)
            self.assertFalse(recording.output.exists())

    def test_that_everybody_can_read_end_it_before_it_begins(self):
        path = self.secret("open", "secret", 0o644)
        configuration = PLAIN + f'mqtt.username = "me"\nmqtt.password_file = "{path}"\n'
        with Recording("grab", configuration=configuration) as recording:
            self.assertEqual(recording.finish(), USAGE)
            self.assertIn("is open to every user of this machine", recording.log)


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
            with Recording("grab 1", "--frames", 50, configuration=configuration) as recording:
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of(TOPIC + "/status"), f"the farewell;\n{recording.log}")
                self.assertEqual([told["frame"] for told in subscriber.json_of(TOPIC + "/frame")],
                                 list(range(1, 51)))

    def expect_refusal(self, configuration, reason, broker="127.0.0.1"):
        with Broker(self.directory, self.listener) as running:
            encrypted = self.encrypted.replace("127.0.0.1", broker)
            with Recording("grab 1", configuration=encrypted + configuration) as recording:
                recording.wait_for_log("no messages reach the broker")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                self.assertRegex(recording.log, reason)
            self.assertNotIn("as mg-", running.log)  # it has let in nobody

    def test_hides_messages_to_the_broker_that_the_authority_knows(self):
        self.expect_messages(self.listener, f'mqtt.ca_file = "{self.authority.certificate}"')

    def test_proves_to_the_broker_who_this_is(self):
        certificate, key = self.authority.issue("recorder", "DNS:recorder")
        listener = self.listener + "require_certificate true\nuse_identity_as_username true\n"
        configuration = (f'mqtt.ca_file = "{self.authority.certificate}"\nmqtt.certificate_file = "{certificate}"\n'
                         f'mqtt.key_file = "{key}"\n')
        self.expect_messages(listener, configuration, "--cert", str(certificate), "--key", str(key))

    def test_refuses_a_broker_that_another_authority_knows(self):
        other = Authority(self.directory, "other")
        self.expect_refusal(f'mqtt.ca_file = "{other.certificate}"', "certificate verify failed")

    def test_refuses_a_broker_that_the_systems_authorities_do_not_know(self):
        self.expect_refusal("", "certificate verify failed")

    def test_refuses_a_broker_whose_certificate_is_anothers(self):
        certificate, key = self.authority.issue("another", "IP:127.0.0.2")
        self.listener = (f"listener {PORT} 127.0.0.1\nallow_anonymous true\ncertfile {certificate}\nkeyfile {key}\n")
        self.expect_refusal(f'mqtt.ca_file = "{self.authority.certificate}"', "(?i)TLS|certificate")

    def test_with_a_file_that_is_missing_ends_it_before_it_begins(self):
        with Recording("grab", configuration=self.encrypted + 'mqtt.ca_file = "none.pem"') as recording:
            self.assertEqual(recording.finish(), USAGE)
            self.assertRegex(recording.log, "mqtt.ca_file: .*/none.pem: can't be opened: No such file")


class LostBroker(BrokerTest):
    def test_is_found_again_and_frames_that_found_no_room_are_counted(self):
        broker = Broker(self.directory)
        configuration = PLAIN + "mqtt.frames = true\nmqtt.queue = 10\nmqtt.health_interval_s = 0.1\n"
        with Recording("grab 1", configuration=configuration) as recording:
            recording.wait_for_log("no messages reach the broker at 127.0.0.1:1883")
            self.assertIn("Connection refused", recording.log)
            frames = len(recording.journal())
            recording.wait_for_frames(frames + 100)
            with broker, Subscriber(TOPIC + "/#") as subscriber:
                recording.wait_while_running(lambda: len(subscriber.of(TOPIC + "/frame")) > 50, "frames were told of")
                health = subscriber.json_of(TOPIC + "/health")[-1]["messages"]
                self.assertGreater(health["dropped"], 50)
            frames = len(recording.journal())
            recording.wait_for_frames(frames + 200)
            with broker, Subscriber(TOPIC + "/#") as subscriber:
                recording.wait_while_running(lambda: len(subscriber.of(TOPIC + "/frame")) > 50, "it was found again")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
                wait_for(lambda: "offline" in subscriber.of(TOPIC + "/status"), "the farewell")
                told = [one["frame"] for one in subscriber.json_of(TOPIC + "/frame")]
                numbers = [line["frame"] for line in recording.journal()]
                self.assertEqual(numbers, list(range(1, len(numbers) + 1)), "the recording is complete")
                self.assertEqual(told, sorted(set(told)), "each frame is told of once, in order")
                self.assertEqual(told[-1], numbers[-1], "to the end")
                self.assertGreater(subscriber.json_of(TOPIC + "/health")[-1]["messages"]["dropped"],
                                   health["dropped"] + 100)
                self.assertRegex(recording.log, r"\d+ messages were given up, \d+ were sent")

    def test_that_does_not_read_holds_up_nothing_and_takes_no_memory(self):
        """The broker is stopped while it is connected to: the network fills, then the queue."""
        for buffers in ("tcp_wmem", "tcp_rmem"):
            pathlib.Path("/proc/sys/net/ipv4", buffers).write_text("4096 16384 65536")
        with Broker(self.directory) as broker:
            configuration = PLAIN + "mqtt.frames = true\nmqtt.queue = 10\noutput.format = \"none\"\n"
            with Recording("grab 0", configuration=configuration) as recording:
                recording.wait_for_log("messages go to the broker")
                broker.process.send_signal(signal.SIGSTOP)
                recording.wait_for_frames(2000)
                frames, settled = len(recording.journal()), resident_bytes(recording.process.pid)
                recording.wait_for_frames(frames + 20000)  # 6 MB of messages
                if not os.environ["SANITIZE"]:  # sanitizers keep what is given back
                    self.assertLess(resident_bytes(recording.process.pid) - settled, 3_000_000)
                recording.signal(signal.SIGTERM)
                # As fast as it can, the plug-in may be faster than the disk.
                self.assertIn(recording.finish(), (SUCCESS, FRAMES_LOST), recording.log)
                given_up, = re.findall(r"(\d+) messages were given up, \d+ were sent", recording.log)
                self.assertGreater(int(given_up), 19000)


class AbsentBroker(BrokerTest):
    def test_leaves_the_recording_complete(self):
        configuration = PLAIN + "mqtt.frames = true\n"
        with Recording("grab 1", "--frames", 200, configuration=configuration) as recording:
            self.assertEqual(recording.finish(), SUCCESS, recording.log)
            self.assertEqual([line["frame"] for line in recording.journal()], list(range(1, 201)))
            self.assertIn("no messages reach the broker at 127.0.0.1:1883, which is tried again and again:"
                          " Connection refused", recording.log)
            self.assertRegex(recording.log, "200 messages were given up, 0 were sent")

    def test_that_can_be_none_ends_it_before_it_begins(self):
        with Recording("grab", configuration='mqtt.broker = "127.0.0.1"') as recording:
            self.assertEqual(recording.finish(), USAGE)
            self.assertIn("run.toml:2:15: mqtt.broker: it does not begin with mqtt:// or mqtts://", recording.log)

    def test_that_speaks_something_else_is_told_and_holds_up_nothing(self):
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
            with Recording("grab 1", configuration=PLAIN) as recording:
                recording.wait_for_log("no messages reach the broker")
                recording.signal(signal.SIGTERM)
                self.assertEqual(recording.finish(), SUCCESS, recording.log)
            server.shutdown(socket.SHUT_RDWR)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:], "--verbose"])

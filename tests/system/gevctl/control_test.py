# SPDX-License-Identifier: MIT
"""Another program has control: reading works, and writing fails at once with the name of that program."""

import time
import unittest

from camera_process import Camera, feature
from gevctl import CONTROLLED, INCOMPLETE, get, gevctl, gevctl_json
from gvcp import EXCLUSIVE, Application

WRITING = (("set", "127.0.0.1", "Width=640"), ("execute", "127.0.0.1", "AcquisitionStop"),
           ("register", "127.0.0.1", "0x0938", "4000"), ("user-set", "127.0.0.1", "load", "Default"),
           ("set-ip", "127.0.0.1", "dhcp"))


class UnderControl(unittest.TestCase):
    def test_reading_works(self):
        with Camera(), Application() as other:
            other.take_control()
            self.assertEqual(get("Width"), ["2464"])
            gevctl("features", "127.0.0.1")
            gevctl("xml", "127.0.0.1")
            gevctl("dump", "127.0.0.1", status=INCOMPLETE)
            gevctl("register", "127.0.0.1", "0x0938")
            gevctl("suits", "127.0.0.1")

    def test_writing_fails_at_once_and_names_the_program(self):
        with Camera(), Application() as other:
            other.take_control()
            address, port = other.socket.getsockname()
            for arguments in WRITING:
                with self.subTest(arguments[0]):
                    begin = time.monotonic()
                    text = gevctl(*arguments, status=CONTROLLED)
                    # A camera acknowledges in ms; a retry or a search would take longer.
                    self.assertLess(time.monotonic() - begin, 0.9)
                    self.assertIn(f"is controlled by {address}:{port}. Stop that program first", text)
            self.assertEqual(feature("Width"), "2464")

    def test_the_other_program_keeps_control(self):
        with Camera(), Application() as other:
            other.take_control()
            gevctl("set", "127.0.0.1", "Width=640", status=CONTROLLED)
            self.assertEqual(other.write(0x0938, 5000), 0)

    def test_exclusive_access_is_named(self):
        with Camera(), Application() as other:
            other.take_control(EXCLUSIVE)
            serial = gevctl_json("list")[0]["serial"]
            self.assertIn("exclusive access", gevctl("get", serial, "Width", status=CONTROLLED))


if __name__ == "__main__":
    unittest.main()

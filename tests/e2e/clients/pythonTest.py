"""The Python package against the real daemon."""

import os
import signal
import subprocess
import sys
import unittest
from concurrent.futures import ThreadPoolExecutor

sys.path.insert(0, "/vemra/lib/python3/dist-packages")
import ostrel  # noqa: E402
from ostrel import Transaction, Type  # noqa: E402


class Client(unittest.TestCase):
    def setUp(self):
        self.daemon = subprocess.Popen(["/vemra/bin/ostrelServer", "--debug", "--key-create-allowed"])
        self.addCleanup(self.daemon.wait)
        self.addCleanup(self.daemon.kill)
        self.session = self.enterContext(ostrel.Session("pythonTest", timeout=10))
        while self.daemon.poll() is None:
            try:
                return self.session.connect()
            except (ostrel.NotRunning, ostrel.StaleSocket):
                pass

    def test_values_come_back_as_they_were_set(self):
        values = {"bool": (True, None), "byte": (255, Type.BYTE), "dword": (0xFFFFFFFF, None),
                  "ip": ("::1", Type.IP), "text \u00fc\udcff": ("\u00fc\udcff", None)}
        with self.session.transaction() as change:
            for name, (value, type) in values.items():
                change.set(name, value, type=type)
            change.set("v", 7, index=3)
        self.assertEqual(self.session.read_many(values), [value for value, _ in values.values()])
        self.assertEqual(self.session.read_many(["none", ("v", 3)]), [None, 7])
        self.assertEqual((self.session.type("byte"), self.session["bool"] is True), (Type.BYTE, True))
        with ostrel.Session("pythonTest", daemon_user=1) as other:
            self.assertEqual(other["byte"], 255, "root is trusted, too")
        self.assertEqual((self.session.list("v"), self.session.count("v")), ([3], 1))
        with self.assertRaisesRegex(KeyError, "^no such key, or .*: none$"):
            self.session["none"]

    def test_transactions_are_all_or_nothing(self):
        with self.assertRaises(ZeroDivisionError), self.session.transaction() as change:
            change.set("lan.domain", 1 / 0)
        with self.session.transaction() as change:
            host = change.new_instance("host", "host", "dns")
            change.set("host.name", "printer", host)
        self.assertEqual(self.session["host.name", host.key], "printer")
        change = Transaction()
        host = change.new_instance("host", "host", "dns")
        self.session.check(change)
        change.line = 7
        change.set("host.address", 5, host)
        with self.assertRaises(ostrel.Refused) as refused:
            self.session.apply(change)
        self.assertEqual(refused.exception.fault[:4], (1, 7, "host.address", host))
        self.assertFalse(refused.exception.may_be_applied)
        self.assertEqual(self.session.count("host", "dns"), 2)

    def test_what_ctypes_would_cut_is_refused(self):
        for misuse in (lambda change: change.set("a", "x\0y"), lambda change: change.set("a", 2**32),
                       lambda change: change.set("a", 1, index=-1),
                       lambda change: change.remove("host", Transaction().new_instance("host", "host", 1))):
            change = Transaction()
            change.new_instance("host", "host", "dns")
            self.assertRaises(ValueError, misuse, change)
            with self.assertRaisesRegex(ostrel.Invalid, "could not be staged"):
                self.session.apply(change)

    def test_threads_share_a_session_until_it_is_closed(self):
        with ThreadPoolExecutor(4) as pool:
            seen = pool.map(lambda _: self.session["lan.domain"], range(400))
        self.assertEqual(set(seen), {"lan"})
        self.session.close()
        self.assertRaises(ostrel.Invalid, self.session.connect)

    def test_each_failure_is_an_exception_of_its_own(self):
        with self.session.transaction() as change:
            for index in range(1, 301):
                change.set("long", index, index)
        with self.assertRaises(ostrel.Incomplete) as incomplete:
            self.session.list("long")
        self.assertEqual(incomplete.exception.keys[:190], list(range(1, 191)))
        self.daemon.send_signal(signal.SIGSTOP)
        self.session.timeout = 0.2
        with self.assertRaises(ostrel.Busy) as busy, self.session.transaction() as change:
            change.set("lan.domain", "late")
        self.assertFalse(busy.exception.may_be_applied)
        self.daemon.kill()
        self.daemon.wait()
        self.assertRaises(ostrel.StaleSocket, self.session.connect)
        os.unlink("/tmp/ostrel.sock")
        self.assertRaises(ostrel.NotRunning, self.session.connect)


unittest.main()

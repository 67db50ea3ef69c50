#!/usr/bin/env python3
"""Runs "netro mail" on spool folders: deliveries that are killed at random moments or share a folder,
and the bounce, read with Python's email package.

Usage: spool_test.py PATH_OF_NETRO [unittest arguments]
"""

import email
import email.policy
import json
import os
import random
import signal
import subprocess
import tempfile
import threading
import unittest

from netro_command import NETRO, run
from smtp_server import SmtpServer

MAILS = 1000
HOSTILE = b"550-5.7.1 red \x1b[31m C1 \xc2\x9b broken \xff\r\n550 5.7.1 gr\xc3\xbc\xc3\x9f dich"


class KillingServer(SmtpServer):
    """Has fatal(when, line) called before and after each reply. arrived has the recipient of each
    message that came whole, whether or not the client has lived to see the reply."""

    def __init__(self):
        self.arrived, self.session = [], threading.local()
        self.fatal = lambda when, line: None
        super().__init__()

    def reply(self, connection, line, word):
        self.fatal("before", line)
        good = super().reply(connection, line, word)
        self.fatal("after", line)
        if word == b"RCPT":
            self.session.recipient = line[len(b"RCPT TO:<"):-1].decode()
        return good

    def message(self, stream):
        lines = []
        while (line := stream.readline()) != b".\r\n":
            if not line:
                raise ConnectionError
            lines.append(line[1:] if line.startswith(b".") else line)
        self.arrived.append(self.session.recipient)
        return b"".join(lines)


class SpoolTestCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = os.path.join(folder.name, "spool")
        self.server = KillingServer()
        self.addCleanup(self.server.close)

    def spool(self, to, status=0):
        done = run("mail", "--from", "Jänè <jane@xy.test>", "--to", to, "--subject", "Größe",
                   "--text", "Hello.", "--header", "X-Long: " + "ä" * 60, "--spool", self.folder)
        self.assertEqual(done.returncode, status, done)
        return done.stdout.decode().strip()

    def fill(self, count):
        """As many messages, each to one of its own; a file is copied, since starting takes long."""
        first = self.spool("r@xy.test")
        with open(self.path(first), "rb") as file:
            content = file.read()
        os.remove(self.path(first))
        for number in range(count):
            with open(self.path(f"{number:04}"), "wb") as file:
                file.write(content.replace(b"to r@xy.test\n", b"to r%d@xy.test\n" % number))
        return {f"r{number}@xy.test" for number in range(count)}

    def path(self, mail):
        return os.path.join(self.folder, mail + ".mail")

    def command(self, *options):
        return ("mail", "--deliver", self.folder, "--server", self.server.address, *options)

    def list(self):
        done = run("mail", "--list", self.folder, "--json")
        self.assertEqual(done.returncode, 0, done)
        return json.loads(done.stdout)["messages"]

    def pending(self):
        return {recipient["address"] for mail in self.list() for recipient in mail["recipients"]
                if recipient["state"] == "pending"}


class Kills(SpoolTestCase):
    def deliver_until(self, when, line, times):
        """Kills the delivery at such a moment of the server; True when it came to its end before."""
        left = [times]
        lock = threading.Lock()
        child = subprocess.Popen([NETRO, *self.command()], stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL)

        def fatal(now, command):
            if now == when and command.startswith(line):
                with lock:
                    left[0] -= 1
                    if left[0] == 0:
                        child.send_signal(signal.SIGKILL)

        self.server.fatal = fatal
        status = child.wait()
        self.server.fatal = lambda now, command: None
        self.assertIn(status, (0, -signal.SIGKILL))
        return status == 0

    def test_nothing_is_lost_and_no_recorded_answer_repeated(self):
        wanted = self.fill(MAILS)
        kills = 0
        while True:
            # Twice as often in the one window that cannot be closed: taken, and not recorded yet.
            moment = random.choice([("before", b""), ("after", b""), ("before", b"."),
                                    ("after", b"."), ("after", b".")])
            seen = len(self.server.arrived)
            pending = self.pending()
            if self.deliver_until(*moment, random.randint(1, 300 if moment[1] == b"" else 60)):
                break
            kills += 1
            self.assertLessEqual(set(self.server.arrived[seen:]), pending, "a recorded one again")
        self.assertEqual(set(self.server.arrived), wanted)
        again = len(self.server.arrived) - len(wanted)
        self.assertLessEqual(again, kills, "one at most is under way when the end comes")
        self.assertEqual([name for name in os.listdir(self.folder) if name.endswith(".mail")], [])
        self.assertGreater(kills, 5)

    def test_deliveries_share_a_folder(self):
        wanted = self.fill(100)
        children = [subprocess.Popen([NETRO, *self.command()], stdout=subprocess.DEVNULL)
                    for _ in range(3)]
        self.assertEqual([child.wait() for child in children], [0, 0, 0])
        self.assertEqual(sorted(self.server.arrived), sorted(wanted))


class Bounces(SpoolTestCase):
    def test_a_failure_comes_back_as_a_report(self):
        mail = self.spool("good@xy.test, bad@xy.test, later@xy.test")
        self.server.replies[b"RCPT TO:<bad@xy.test>"] = HOSTILE
        self.server.replies[b"RCPT TO:<later@xy.test>"] = b"451 not now"
        done = run(*self.command("--json"))
        self.assertEqual(done.returncode, 1, done)
        events = json.loads(done.stdout)["events"]
        self.assertEqual([(event["event"], event["id"]) for event in events],
                         [("delivered", mail), ("failed", mail), ("deferred", mail),
                          ("bounced", mail), ("delivered", mail + "-b1-1")])
        self.assertEqual(self.pending(), {"later@xy.test"})
        self.assertTrue(any(line.startswith(b"MAIL FROM:<>") for line in self.server.commands))
        self.check_report(*self.server.messages[-1])

    def check_report(self, recipient, text):
        self.assertEqual(recipient, "jane@xy.test")
        report = email.message_from_bytes(text, policy=email.policy.default)
        parts = list(report.iter_parts())
        for part in [report, *report.walk()]:
            self.assertEqual(part.defects, [])
        self.assertEqual([part.get_content_type() for part in [report, *parts]],
                         ["multipart/report", "text/plain", "message/delivery-status",
                          "text/rfc822-headers"])
        self.assertEqual(report.get_param("report-type"), "delivery-status")
        self.assertEqual(report["Auto-Submitted"], "auto-replied")
        self.assertIn("<bad@xy.test>: was refused", parts[0].get_content())
        self.assertIn("grüß dich", parts[0].get_content())
        self.assertNotIn("\x1b", parts[0].get_content())
        of_message, of_recipient = parts[1].get_payload()
        self.assertTrue(of_message["Reporting-MTA"].startswith("dns; "))
        self.assertEqual(of_recipient["Final-Recipient"], "rfc822; bad@xy.test")
        self.assertEqual((of_recipient["Action"], of_recipient["Status"]), ("failed", "5.7.1"))
        self.assertTrue(of_recipient["Diagnostic-Code"].startswith("smtp; 550-5.7.1 red"))
        original = email.message_from_string(parts[2].get_content(), policy=email.policy.default)
        self.assertEqual(original["Subject"], "Größe")


if __name__ == "__main__":
    unittest.main()

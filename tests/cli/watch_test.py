#!/usr/bin/env python3
"""Runs "netro watch" in a network namespace of its own: lines, table, page, mails, exit statuses.

Usage: watch_test.py PATH_OF_NETRO [unittest arguments]
"""

import csv
import http.server
import json
import os
import re
import signal
import tempfile
import threading
import time
import unittest
import xml.etree.ElementTree

import echo_network

HAS_NETWORK = echo_network.enter()

from netro_command import LIMIT, CommandTestCase, Started, Terminal
from smtp_server import SmtpServer

LOG_ONLY = "[DownActions]\n1=log\n[UpActions]\n1=log\n"
HOSTILE = "\"><script>alert('1')</script>&amp;<!--"


class WebServer(http.server.ThreadingHTTPServer):
    """Answers /NUMBER with that status and HOSTILE as its reason; /changing with changing; /silent
    not at all."""

    def __init__(self):
        super().__init__(("127.0.0.1", 0), WebHandler)
        self.changing = 503
        self.asked = threading.Event()
        self.closing = threading.Event()
        threading.Thread(target=self.serve_forever, args=(0.01,), daemon=True).start()

    def url(self, path, user=""):
        return f"http://{user}127.0.0.1:{self.server_port}/{path}|http"

    def close(self):
        self.closing.set()
        self.shutdown()
        self.server_close()


class WebHandler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.server.asked.set()
        if self.path == "/silent":
            self.server.closing.wait()
            return
        status = self.server.changing if self.path == "/changing" else int(self.path[1:])
        self.send_response(status, HOSTILE + "\x1b[31m")
        self.end_headers()

    def log_message(self, *arguments):
        pass


class DumbServer(SmtpServer):
    def serve_connection(self, connection, stream):
        stream.read()


class WatchTestCase(CommandTestCase):
    command = "watch",

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.web = self.serve(WebServer())

    def path(self, name):
        return os.path.join(self.folder, name)

    def settings(self, hosts, more="", actions=LOG_ONLY):
        """A file that reports each failure at once; returns its path."""
        with open(self.path("hosts.ini"), "w", errors="surrogateescape") as file:
            file.write("[HostNames]\n")
            file.writelines(f"{name} = {host}\n" for name, host in hosts.items())
            file.write(f"[Settings]\nDownCycle=1\nUpCycle=1\n{more}\n{actions}")
        return file.name

    def log(self):
        with open(self.path("hosts.csv"), newline="") as file:
            return list(csv.DictReader(file))

    def page(self):
        with open(self.path("hosts.html")) as file:
            text = file.read()
        return text, xml.etree.ElementTree.fromstring(text.removeprefix("<!DOCTYPE html>"))

    def start(self, *arguments):
        process = Started("watch", *arguments)
        for clean in process.wait, process.kill, process.stdout.close, process.stderr.close:
            self.addCleanup(clean)
        return process


class SettingsTest(WatchTestCase):
    def test_wrong_usage(self):
        self.check_usage(
            ([], b"SETTINGS is required"),
            (["--example", "x.ini"], b"--example"),
            (["--example", "--json"], b"--example"),
            ([__file__, "--html", __file__], b"would replace the settings"),
            (["a/x.ini", "--html", "./a/b/../x.csv"], b"would replace the log"),
            (["x.ini", "--html", ""], b"--html: must not be empty"),
            ([self.path("none")], b"Settings file not found: '" + self.path("none").encode()),
            ([self.settings({"a": "b"}, actions="[DownActions]\n1=dance\n")], b"'dance'"))

    @unittest.skipUnless(HAS_NETWORK, "no network namespace can be made here")
    def test_example(self):
        """It works, and as well when the settings in its comments are taken over."""
        example = self.text("--example")
        taken = re.sub(r"(?m)^; (\w+ = )", r"\1", example.replace("; 2 = mail", ""))
        for key in ("UpDelay", "DownActionMsg", "MailServer", "PlaySonarSound", "HTTPTimeout"):
            self.assertRegex(taken, rf"(?m)^{key} = ")
        for text in example, taken:
            with open(self.path("hosts.ini"), "w") as file:
                file.write(text)
            shown = json.loads(self.text(file.name, "--once", "--json"))
            self.assertEqual(shown["hosts"][0]["last_answer"], "Success: 0 ms", shown)


class WatchTest(WatchTestCase):
    def test_once(self):
        """One round, whose outcome is the exit status."""
        good = self.settings({"good": self.web.url(200), "moved": self.web.url(302)})
        shown = self.text(good, "--once").splitlines()
        self.assertEqual(len(shown), 3)
        self.assertRegex(shown[0], r"\A\d{4}-\d\d-\d\dT[\d:.]{12}Z up     (good|moved) \(http://127\S+"
                         r"\): Success: \d+ ms\Z")
        self.assertEqual(shown[2], "2 of 2 hosts have answered")
        self.assertEqual(self.log(), [])
        bad = self.settings({"good": self.web.url(200), "bad": self.web.url(500)})
        shown = self.text(bad, "--once", status=1)
        self.assertIn(" down   bad (http", shown)
        self.assertIn(": HTTP answer: HTTP/1.0 500 " + HOSTILE + "?[31m", shown)
        self.assertIn("\n1 of 2 hosts have answered\n", shown)
        self.assertEqual([(line["state"], line["name"]) for line in self.log()], [("down", "bad")])

    def test_json(self):
        settings = self.settings({"good": self.web.url(200, "user:secret@"),
                                  "bad": self.web.url(500, "user:secret@")}, "DownDelay=1")
        shown = self.text(settings, "--once", "--json", status=1)
        self.assertNotIn("secret", shown)
        self.assertRegex([line["host"] for line in self.log()][0], r"http://\*\*\*@127")
        told, shown = map(json.loads, shown.splitlines())  # as it happened, and at the end
        self.assertEqual((told.pop("type"), told["name"]), ("change", "bad"))
        self.assertEqual([shown[key] for key in ("ok", "interrupted", "error", "rounds")],
                         [False, False, {"number": 0, "text": ""}, 1])
        good, bad = shown["hosts"]
        keys = "name", "kind", "state", "successes", "failures"
        self.assertEqual([good[key] for key in keys], ["good", "http", "up", 1, 0])
        self.assertEqual([bad[key] for key in keys], ["bad", "http", "down", 0, 1])
        self.assertEqual([(day["probes"], day["failed"]) for day in good["days"] + bad["days"]],
                         [(1, 0), (1, 1)])
        self.assertEqual(bad["outages"][0]["reason"], bad["last_answer"])
        self.assertEqual((good["times"], bad["times"], bad["ms"]), ([good["ms"]], [None], None))
        change, = shown["changes"]
        self.assertEqual(change, told)
        self.assertEqual((change["state"], change["name"], change["text"]),
                         ("down", "bad", bad["last_answer"]))

    def test_interrupt(self):
        """Ctrl-C is shown to the shell; SIGTERM is a good end, but for a round that should have ended.
        Some send it twice."""
        settings = self.settings({"silent": self.web.url("silent")})
        for arguments, sent, status in (([], signal.SIGTERM, 0), (["--once"], signal.SIGTERM, -signal.SIGTERM),
                                        (["--json"], signal.SIGINT, -signal.SIGINT)):
            self.web.asked.clear()
            process = self.start(settings, *arguments)
            self.assertTrue(self.web.asked.wait(LIMIT))
            process.send_signal(sent)
            process.send_signal(sent)
            output, errors = process.communicate(timeout=LIMIT)
            self.assertEqual((process.returncode, errors), (status, ""))
        self.assertTrue(json.loads(output)["interrupted"])

    def test_reader_that_goes_away(self):
        self.check_lost_reader(self.settings({"bad": self.web.url(500)}))

    def test_down_and_up(self):
        """Lines, log and page tell of a host that comes up again."""
        process = self.start(self.settings({"changing": self.web.url("changing")}), "--html",
                             self.path("hosts.html"))
        self.assertIn(" down   changing (http", process.stdout.readline())
        self.web.changing = 200
        self.assertIn(" up     changing (http", process.stdout.readline())
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.communicate(timeout=LIMIT), ("", ""))
        self.assertEqual(process.returncode, -signal.SIGINT)
        self.assertEqual([line["state"] for line in self.log()], ["down", "up"])
        text, page = self.page()
        self.assertEqual([cell.text for cell in page.iter("td") if "state" in cell.get("class", "")],
                         ["▲ up", "▲ up", "▼ down"])  # the host, and the alerts, newest first
        self.assertIn("1 outage<", text)
        self.assertIn("last 2: 1 failed", text)

    def test_restart_and_reload(self):
        """What is known outlives the program, and bad settings change nothing."""
        hosts = {"bad": self.web.url(500)}
        settings = self.settings(hosts, "StateFile=state")
        self.text(settings, "--once", status=1)
        self.web.asked.clear()
        process = self.start(settings, "--json")
        self.assertTrue(self.web.asked.wait(LIMIT))
        self.settings(hosts, "StateFile=state\nQuietHours=never")
        process.send_signal(signal.SIGHUP)
        self.assertIn("stay as they were: Can not read settings. Line 7: 'never'",
                      process.error_line())
        self.settings({**hosts, "good": self.web.url(200)}, "StateFile=state")
        process.send_signal(signal.SIGHUP)
        self.assertIn("settings read again: 2 hosts: 1 down, 1 unseen", process.error_line())
        process.send_signal(signal.SIGTERM)
        shown = json.loads(process.communicate(timeout=LIMIT)[0])  # and so no second report
        self.assertEqual(process.returncode, 0)
        bad, _ = shown["hosts"]
        self.assertEqual((bad["state"], len(bad["outages"])), ("down", 1))
        self.assertTrue(bad["times"])
        self.assertEqual([line["state"] for line in self.log()], ["down"])

    # --- mail

    def mail_settings(self, server):
        self.serve(server)
        return self.settings(
            {"bad": self.web.url(500)}, "Sender=watch@example.com\nRecipients=admin@example.com\n"
            f"MailServer={server.address}", "[DownActions]\n1=mail\n")

    def test_once_waits_for_mails(self):
        server = SmtpServer()
        settings = self.mail_settings(server)
        shown = json.loads(self.text(settings, "--once", "--json", status=1).splitlines()[-1])
        self.assertEqual(shown["error"], {"number": 0, "text": ""})
        (_, mail), = server.messages
        self.assertIn(b"HostDown Info for bad", mail)

    def test_second_interrupt_gives_mails_up(self):
        settings = self.mail_settings(DumbServer())
        process = self.start(settings)
        self.assertIn(" down ", process.stdout.readline())
        process.send_signal(signal.SIGINT)
        self.assertIn("waiting for reports to go out: 1", process.error_line())
        time.sleep(0.6)  # else it counts as sent twice
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(LIMIT), -signal.SIGINT)

    # --- the page

    def test_page(self):
        """It is well-formed, whatever hosts are called and answer, and needs nothing else."""
        settings = self.settings({HOSTILE: self.web.url(500), "good": self.web.url(200, "u:secret@"),
                                  "odd \udcff\x01": self.web.url(200)})
        self.text(settings, "--once", "--html", self.path("hosts.html"), status=1)
        text, page = self.page()
        self.assertEqual([element.tag for element in page.iter() if element.tag == "script"], [])
        self.assertEqual(list(page.iter("bdi"))[1].text, HOSTILE)
        self.assertNotIn("secret", text)
        self.assertIn(r"odd \xFF\x01", text)
        for element in page.iter():
            for name in "src", "href", "style":
                self.assertTrue(element.get(name, "data:").startswith("data:"), element.attrib)
        self.assertNotRegex(page.find("head/style").text, r"url|@import")
        self.assertNotIn("http-equiv=\"refresh\"", text)  # all has ended
        self.assertEqual(sorted(os.listdir(self.folder)), ["hosts.csv", "hosts.html", "hosts.ini"])

    def test_page_is_replaced_as_a_whole(self):
        page = self.path("hosts.html")
        settings = self.settings({"silent": self.web.url("silent")})
        before = os.umask(0o027)
        self.addCleanup(os.umask, before)
        process = self.start(settings, "--html", page)
        self.assertTrue(self.web.asked.wait(LIMIT))
        with open(page) as first:
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(LIMIT), -signal.SIGINT)
            text = first.read()
        self.assertIn("http-equiv=\"refresh\"", text)
        self.assertIn("None of 1 host is down", text)
        self.assertTrue(text.endswith("</html>\n"))
        self.assertNotEqual(text, self.page()[0])
        self.assertEqual(os.stat(page).st_mode & 0o777, 0o640)

    def test_files_that_cannot_be_written(self):
        settings = self.settings({"good": self.web.url(200)})
        for name in self.folder, "/dev/null", self.path("none/hosts.html"):
            shown = json.loads(self.text(settings, "--json", "--html", name, status=1,
                                          stderr=b"cannot write " + name.encode()))
            self.assertEqual((shown["ok"], shown["error"]["number"]), (False, -1))
        os.remove(self.path("hosts.csv"))
        os.mkdir(self.path("hosts.csv"))
        shown = json.loads(self.text(settings, "--json", status=1, stderr=b"start logging"))
        self.assertEqual((shown["ok"], shown["error"]["number"], shown["hosts"]), (False, 5, []))

    # --- a terminal

    def table(self, count, **options):
        hosts = {f"host{i}": self.web.url(200) for i in range(count)}
        return Terminal("watch", self.settings({**hosts, "bad": self.web.url(500)}), **options)

    def end(self, terminal):
        os.kill(terminal.pid, signal.SIGINT)
        status, text = terminal.finish()
        self.assertEqual(status, -signal.SIGINT)
        return text.decode()

    def last_table(self, text):
        return re.sub(r"\x1b\[[\d?]*[A-Za-z]", "", text.split("\x1b[?7l")[-1]).splitlines()

    def test_table(self):
        terminal = self.table(2)
        terminal.read_until(b"2 up, 1 down")
        text = self.end(terminal)
        self.assertRegex(text, r"Z \x1b\[31mdown  \x1b\[0m bad \(http")  # the report
        last = self.last_table(text)
        self.assertRegex(last[0], r"\Anetro watch  3 hosts: 2 up, 1 down  /")
        self.assertEqual(last[1].split(), ["STATE", "NAME", "OK", "FAILED", "NEXT", "TIMES", "LAST",
                                           "ANSWER"])
        self.assertRegex(last[2], r"\Aup     host0 +1 +0 +[▁▂▃▄▅▆▇█]  Success: \d+ ms\Z")
        self.assertRegex(last[4], r"\Adown   bad +0 +1 +·  HTTP answer: .*…\Z")
        self.assertEqual(max(map(len, last)), 80)

    def test_table_fits_the_window(self):
        """Hosts that are down come first, and the rest is counted."""
        terminal = self.table(30, columns=40, rows=10)
        terminal.read_until(b"25 more hosts: 25 up")
        last = self.last_table(self.end(terminal))
        self.assertEqual(len(last), 9)
        self.assertTrue(last[2].startswith("down   bad"), last)
        self.assertLessEqual(max(map(len, last)), 40)

    def test_terminal_without_table(self):
        for setting in {"NO_COLOR": "1"}, {"TERM": "dumb"}:
            terminal = self.table(0, environment=setting)
            terminal.read_until(b" down   bad ")
            self.assertNotIn("\x1b[", self.end(terminal))


if __name__ == "__main__":
    unittest.main()

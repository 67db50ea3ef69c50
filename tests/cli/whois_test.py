#!/usr/bin/env python3
"""Runs "netro whois" against servers of its own: questions, answers, referrals, exit statuses.

Usage: whois_test.py PATH_OF_NETRO [unittest arguments]
"""

import base64
import json
import os
import re
import tempfile
import unittest

from dns_server import A, DnsServer, Reply, record
from netro_command import CommandTestCase, Terminal, nobody, run
from whois_server import WhoisServer

CONTROLS = b"red: \x1b[31m, beep: \x07, C1: \xc2\x9b and \x9b, broken: \xff, NUL: \0"
CONTROLS += ", turned: \u202egpj.exe, line:\u2028new\r\n".encode()


class WhoisTest(CommandTestCase):
    def setUp(self):
        os.environ.pop("NETRO_WHOIS_SERVER", None)
        self.server = self.start(b"nobody\r\n")
        self.command = "whois", "--server", self.server.address

    def start(self, answer=None):
        return self.serve(WhoisServer(answer))

    def netro(self, *arguments, **expected):
        private = ["--follow-private"] if "--follow" in arguments else []
        return super().netro(*arguments, *private, **expected)

    def test_question(self):
        for asked in "example.test", "192.0.2.1", "n + NAME-1", "Ä.test", "x" * 5000:
            self.server.questions.clear()
            self.assertEqual(self.netro(asked), b"nobody\r\n")
            self.assertEqual(self.server.questions, [asked.encode() + b"\r\n"])
        self.netro("--", "-T dn,ace a.test")
        self.assertEqual(self.server.questions.pop(), b"-T dn,ace a.test\r\n")

    def test_answers_come_as_they_are(self):
        for answer in (b"a\nb\r\nc\rd", CONTROLS, bytes(range(256)) * 40000):
            self.server.answer = answer
            self.assertEqual(self.netro("x"), answer)
        self.server.answer = b""
        self.assertEqual(self.netro("x", stderr=b"without an answer"), b"")

    def test_terminal_is_safe_from_the_network(self):
        self.server.answer = CONTROLS
        wanted = rb"red: \x1B[31m, beep: \x07, C1: \xC2\x9B and \x9B, broken: \xFF, NUL: \x00"
        wanted += rb", turned: \u202Egpj.exe, line:\u2028new"
        for option in [], ["--follow"]:
            status, text = Terminal("whois", "x", "-s", self.server.address, *option,
                                    environment={"NO_COLOR": "1"}).finish()
            self.assertEqual(status, 0)
            self.assertIn(wanted + b"\r\n", text)
            self.assertIsNotNone(re.fullmatch(rb"[\r\n -~]*", text), text)
        self.server.answer = b"\xc2\x9b31m\r\n"
        text = Terminal("whois", "x", "-s", self.server.address, "--json").finish()[1]
        self.assertEqual(json.loads(text)["answers"][0]["answer"], "\x9b31m\r\n")
        self.assertTrue(text.isascii(), text)

    def test_json(self):
        for answer in b"Ger\xc3\xa4t\r\n\x1b[31m\0", CONTROLS, b"\xe4", b"":
            self.server.answer = answer
            shown = self.json("x", stderr=b"" if answer else b"without")
            self.assertEqual((shown["query"], shown["ok"]), ("x", True))
            entry, = shown["answers"]
            self.assertEqual((entry["server"], entry["ok"], entry["received_bytes"]),
                             (self.server.address, True, len(answer)))
            self.assertEqual((entry["error"], entry["refers_to"], entry["notes"]),
                             ({"number": 0, "text": ""}, None, []))
            got = (entry["answer"].encode() if "answer" in entry
                   else base64.b64decode(entry["answer_base64"]))
            self.assertEqual(got, answer)
        self.assertEqual(json.loads(run("whois", "-s", self.server.address, "--json",
                                        b"\xff\x1b").stdout)["query"], "\ufffd\x1b")

    def test_server_from_the_environment(self):
        environment = {**os.environ, "NETRO_WHOIS_SERVER": self.server.address}
        other = self.start(b"other\n")
        for option, answer in ([], b"nobody\r\n"), (["--server", other.address], b"other\n"):
            done = run("whois", "x", *option, env=environment)
            self.assertEqual((done.returncode, done.stdout, done.stderr), (0, answer, b""))

    # --- referrals

    def chain(self, *lines):
        """Servers each of which refers to the next one by such a line; the last one to none."""
        servers = [self.server] + [self.start() for _ in lines]
        for server, following, line in zip(servers, servers[1:], lines):
            server.answer = line % following.address.encode()
        servers[-1].answer = b"the end\n"
        return servers

    def test_referrals(self):
        first, second = self.chain(b"%% comment: x\nwhois:        %s  \r\n")
        shown = self.netro("a.test", "--follow")
        self.assertEqual(second.questions, [b"a.test\r\n"])
        self.assertEqual(shown, f"% {first.address}\n".encode() + first.answer +
                         f"\n% {second.address}\nthe end\n".encode())

    def test_nothing_is_followed_without_being_told(self):
        first, second = self.chain(b"refer: %s\n")
        self.assertEqual(self.netro("x"), first.answer)
        self.assertEqual(self.json("x")["answers"][0]["refers_to"], None)
        self.assertEqual(second.questions, [])

    def test_at_most_five_referrals(self):
        servers = self.chain(*[b"refer: %s\n"] * 6)
        shown = self.netro("x", "--follow", stderr=f"not gone on to {servers[6].address}".encode())
        self.assertEqual(shown.count(b"% 127.0.0.1:"), 6)
        self.assertEqual([len(server.questions) for server in servers], [1] * 6 + [0])
        answers = self.json("x", "--follow", stderr=b"five referrals")["answers"]
        self.assertEqual([answer["refers_to"] for answer in answers],
                         [server.address for server in servers[1:6]] + [None])
        self.assertEqual(len(answers[5]["notes"]), 1)

    def test_referrals_that_lead_nowhere(self):
        """Which these are is in WhoIsFollowTest; the answer is there all the same."""
        for itself in self.server.address, f"127.0.0.1.:{self.server.port}":
            self.server.answer = f"refer: {itself}\nwhois: {itself}\n".encode()
            self.netro("x", "--follow")
        servers = self.chain(b"refer: %s\n", b"refer: %s\n")
        servers[2].answer = b"refer: %s\n" % servers[0].address.encode()
        for server in servers:
            server.questions.clear()
        self.netro("x", "--follow", stderr=b"refers back to")
        self.assertEqual([len(server.questions) for server in servers], [1, 1, 1])
        self.server.answer = b"refer: \x1b[31ma.test\n"
        shown = self.netro("x", "--follow", stderr=b"ignored the referral")
        self.assertEqual(shown, f"% {self.server.address}\n".encode() + self.server.answer)
        answer, = self.json("x", "--follow", stderr=b"ignored the referral")["answers"]
        self.assertEqual(len(answer["notes"]), 1)

    def test_names_of_referrals_are_asked_for(self):
        names = self.serve(DnsServer())
        names.udp["whois.test"] = Reply([record("whois.test", A, bytes([127, 0, 0, 1]))])
        other = self.start(b"other\n")
        self.server.answer = f"refer: WHOIS.test.:{other.port}\n".encode()
        shown = self.netro("x", "--follow", "--dns", names.address)
        self.assertIn(f"\n% whois.test:{other.port}\nother\n".encode(), shown)
        self.server.answer = b"refer: none.test\n"
        shown = self.netro("x", "--follow", "--dns", names.address, status=1,
                           stderr=b"none.test:43")
        self.assertIn(self.server.answer, shown)

    def test_table_of_servers(self):
        first, second = self.chain(b"refer: %s\n")
        table = (f"* 127.0.0.1:1\n.test {first.address} domain NAME\n"
                 f"- {second.address} n + NAME\n")
        with tempfile.NamedTemporaryFile("w+") as file:

            def ask(table, *arguments, environment=None):
                file.seek(0)
                file.truncate()
                file.write(table)
                file.flush()
                way = [] if environment else ["--servers", file.name]
                return run("whois", *arguments, *way, env={**os.environ, **(environment or {})})

            for environment in None, {"NETRO_WHOIS_SERVERS": file.name}:
                done = ask(table, "a.test", "--follow-private", environment=environment)
                self.assertEqual((done.returncode, done.stderr), (0, b""))
                self.assertTrue(done.stdout.endswith(b"the end\n"), done.stdout)
                self.assertEqual(first.questions.pop(), b"domain a.test\r\n")
                self.assertEqual(second.questions.pop(), b"n + a.test\r\n")
            self.assertEqual(ask(table, "a.test", "--no-follow").stdout, first.answer)
            for lines, arguments, status, text in (
                (".test x y", ["a.test"], 2, b"line 1"), (table, ["a", "--total", "-1"], 2, b"--total"),
                (".example 127.0.0.1", ["a.test"], 1, b"error 10022"),
            ):
                done = ask(lines, *arguments)
                self.assertEqual((done.returncode, text in done.stderr), (status, True), done)
        self.assertEqual(run("whois", "a", "--servers", file.name).returncode, 2)

    # --- failures

    def test_nobody_there(self):
        with nobody() as dead:
            done = run("whois", "x", "--server", dead)
            self.assertEqual((done.returncode, done.stdout), (1, b""))
            self.assertIn(b"error 10061", done.stderr)
            self.assertEqual(self.netro("x", "-x", dead, status=1, stderr=b"error 10061"), b"")
            self.server.answer = f"refer: {dead}".encode()
            self.assertEqual(self.netro("x", "--follow", status=1, stderr=b"error 10061"),
                             f"% {self.server.address}\nrefer: {dead}\n\n% {dead}\n".encode())
            shown = self.json("x", "--follow", status=1, stderr=b"error 10061")
            self.assertEqual((shown["ok"], [answer["ok"] for answer in shown["answers"]]),
                             (False, [True, False]))

    def test_timeout_keeps_what_came(self):
        self.server.answer = None
        self.assertEqual(self.netro("x", "-t1", status=1, stderr=b"cannot ask"), b"")
        self.server.answer, self.server.stay = b"refer: 127.0.0.1\n", True
        for option in [], ["--json"], ["--follow", "--json"]:
            shown = self.netro("x", "-t1", *option, status=1, stderr=b"--timeout")
            self.netro("x", "-t1", *option, status=1, stderr=b"not complete")
            self.assertIn(b"refer: 127.0.0.1", shown)
            if option:
                answer, = json.loads(shown)["answers"]
                self.assertEqual((answer["error"]["number"], answer["refers_to"]), (10002, None))

    def test_interrupt_cancels(self):
        self.command = "whois",
        self.server.answer = None
        first = self.start(f"refer: {self.server.address}\n".encode())
        for server in self.server, first:
            self.check_interrupt(self.server, "x", "--follow", "--follow-private", "--server",
                                 server.address)

    def test_proxies(self):
        self.command = "whois",
        self.check_proxies(["--server"], 43, "x")

    def test_colours(self):
        self.check_colours("x", "--follow", wanted=b"nobody\r\n")

    def test_wrong_usage(self):
        self.command = "whois",
        self.check_usage(
            ([], b"NAME"),
            (["", "-s", "a"], b"NAME"),
            (["x"], b"NETRO_WHOIS_SERVER"),
            (["x", "y", "-s", "a"], b"y"),
            (["x\r\ny", "-s", "a"], b"line"),
            (["x", "-s", "a:0"], b"port"),
            (["x", "-s", "a/b"], b"host"),
            (["x", "-s", "a\x1b[31m"], rb"a\x1B[31m"),
            (["x", "-s", "a", "--timeout", "1000001"], b"timeout"),
            (["x", "-s", "a", "--proxy", "http://a:1"], b"SOCKS"))


if __name__ == "__main__":
    unittest.main()

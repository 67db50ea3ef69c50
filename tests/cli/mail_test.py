#!/usr/bin/env python3
"""Runs "netro mail" and "netro check-address" against servers of its own: what arrives is read with
Python's email package.

Usage: mail_test.py PATH_OF_NETRO [unittest arguments]
"""

import email
import email.policy
import json
import os
import re
import signal
import struct
import tempfile
import threading
import unittest

from dns_server import A, MX, DnsServer, Reply, name, record
from netro_command import CommandTestCase, Terminal, interrupt, nobody, run
from smtp_server import SmtpServer

HTML = '<p>Größe: <img src="cid:dot.png"></p>\n'
PNG = b"\x89PNG\r\n\x1a\n\0\1\2\xff\r\n.\r\n"
HOSTILE = b"550 red \x1b[31m beep \x07 C1 \xc2\x9b broken \xff"


def parse(message):
    return email.message_from_bytes(message.replace(b"\r\n", b"\n"), policy=email.policy.default)


def mail_domain(domain):
    """DNS replies: two exchangers, and the address of the better one, which is this computer."""
    exchangers = [(20, "other.test"), (5, f"mx.{domain}")]
    return {domain: Reply([record(domain, MX, struct.pack(">H", number) + name(host))
                           for number, host in exchangers]),
            f"mx.{domain}": Reply([record(f"mx.{domain}", A, bytes([127, 0, 0, 1]))])}


class MailTestCase(CommandTestCase):
    def setUp(self):
        self.server, self.names = self.serve(SmtpServer()), self.serve(DnsServer())
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def file(self, file, content):
        path = os.path.join(self.folder, file)
        with open(path, "wb") as stream:
            stream.write(content)
        return path

    def to_exchangers(self):
        return ["--dns", self.names.address, "--port", str(self.server.port)]


class MailTest(MailTestCase):
    def mail(self, *arguments, to="a@xy.test", server=True, **expected):
        way = ["--server", self.server.address] if server else self.to_exchangers()
        return self.netro("mail", "-f", "Jane <jane@xy.test>", "--to", to, "--helo", "me.test", *way,
                          *arguments, **expected).decode()

    def json(self, *arguments, **expected):
        return json.loads(self.mail("--json", *arguments, **expected))

    def test_everything_arrives(self):
        shown = self.mail(
            "--to", "Ä <b@xy.test>", "--cc", "a@xy.test, c@zz.test", "--bcc", "d@zz.test",
            "--subject", "Grüße", "--text", "Größe:\n.\n", "--html", self.file("page", HTML.encode()),
            "--inline", self.file("dot.png", PNG), "-a", self.file("data=1", bytes(range(256))),
            "-a", self.file("x", b"") + "=empty.txt", "-H", "Reply-To: Ö <e@xy.test>",
            "-H", "X-Note:über", "--charset", "iso-8859-1")
        self.assertEqual(shown, "a@xy.test: accepted\nb@xy.test: accepted\n"
                                "c@zz.test (cc): accepted\nd@zz.test (bcc): accepted\n")
        recipients, messages = zip(*self.server.messages)
        self.assertEqual(recipients, ("a@xy.test", "b@xy.test", "c@zz.test", "d@zz.test"))
        self.assertEqual(len(set(messages)), 1)
        self.assertIn(b"MAIL FROM:<jane@xy.test>", self.server.commands)
        self.assertNotIn(b"d@zz.test", messages[0])
        message = parse(messages[0])
        for field, value in (("From", "Jane <jane@xy.test>"), ("Subject", "Grüße"),
                             ("To", "a@xy.test, Ä <b@xy.test>"), ("CC", "a@xy.test, c@zz.test"),
                             ("Reply-To", "Ö <e@xy.test>"), ("X-Note", "über")):
            self.assertEqual(message[field], value)
        texts, picture, *files = message.iter_parts()
        plain, html = texts.iter_parts()
        self.assertEqual(plain.get_content(), "Größe:\n.\n")
        self.assertEqual(html.get_content(), HTML)
        self.assertEqual(html.get_content_charset(), "iso-8859-1")
        self.assertEqual((picture["Content-ID"], picture.get_content()), ("<dot.png>", PNG))
        self.assertEqual([file.get_filename() for file in files], ["data1", "empty.txt"])
        self.assertEqual([file.get_payload(decode=True) for file in files],
                         [bytes(range(256)), b""])

    def test_texts(self):
        path = self.file("text", "Ä\n".encode())
        for options, text in (
            (["--text", "a"], "a\n"), (["--text", ""], ""), (["--text-file", path], "Ä\n"),
            (["--text-file", "-"], "von stdin ü\n"), (["-a", path], None),
        ):
            self.mail(*options, input="von stdin ü\n".encode())
            message = parse(self.server.messages.pop()[1])
            if text is not None:
                self.assertEqual(message.get_content().strip("\n"), text.strip("\n"))
        self.mail("--html", "-", input="<p>ü</p>".encode())
        plain, html = parse(self.server.messages.pop()[1]).iter_parts()
        self.assertEqual((plain.get_content().strip(), html.get_content().strip()), ("ü", "<p>ü</p>"))

    def test_inline_file_that_is_not_shown_is_told(self):
        self.mail("--html", self.file("page", HTML.encode()), "--inline", self.file("a-b", b""),
                  stderr=b"cid:ab")

    def test_print(self):
        printed = self.mail("--print", "--text", "ü", "--bcc", "b@xy.test").encode()
        self.assertEqual(parse(printed).get_content(), "ü\n")
        self.assertEqual(printed.count(b"\n"), printed.count(b"\r\n"))
        self.assertNotIn(b"b@xy.test", printed)
        self.assertEqual(self.server.commands, [])
        self.assertRegex(parse(printed)["Message-ID"], r"<\w{26}\.\d{17}@xy\.test>")
        for given in ("1.a@x.test", "<1.a@x.test>"):
            printed = self.mail("--print", "--text", "x", "--message-id", given).encode()
            self.assertEqual(parse(printed)["Message-ID"], "<1.a@x.test>")
        text = Terminal("mail", "--print", "-f", "a@xy.test", "--to", "a@xy.test",
                        "--text", "x").finish()[1]
        self.assertIn(b"To: a@xy.test\r\nMIME", text)

    def test_outcomes_with_and_without_delivery(self):
        self.server.replies = {b"RCPT TO:<none@xy.test>": b"550-no\r\n550 user",
                               b"RCPT TO:<busy@xy.test>": b"451 later", b"QUIT": b"421 \x07"}
        to = "a@xy.test, none@xy.test, busy@xy.test"
        tail = (", but then Quit: 421 \\x07\n"
                "none@xy.test: failed at RCPTTo: 550-no 550 user; Fatal SMTP Error (3011)\n"
                "busy@xy.test: failed at RCPTTo: 451 later; Temporary SMTP problem (3015)\n")
        for options, verdict in ([], "accepted"), (["--simulate"], "would be accepted"):
            shown = self.mail("--text", "x", *options, to=to, status=1)
            self.assertEqual(shown, f"a@xy.test: {verdict}{tail}")
            shown = self.json("--text", "x", *options, to=to, status=1)
            self.assertEqual((shown["ok"], shown["simulated"], shown["error"]["number"]),
                             (False, bool(options), 550))
            first, second, third = shown["recipients"]
            self.assertEqual((first["accepted"], first["class"]), (True, {"number": 0, "text": ""}))
            step = {"step": {"number": 40, "name": "RCPTTo"}, "result": 550,
                    "message": "550-no\r\n550 user\r\n"}
            self.assertEqual(second, {
                "address": "none@xy.test", "list": "to", "accepted": False, **step,
                "class": {"number": 3011, "text": "Fatal SMTP Error"}, "enhanced_status": "",
                "tries": [{"host": "127.0.0.1", "address": "127.0.0.1", "protected": False, **step}]})
            self.assertEqual(third["class"]["number"], 3015)
            self.assertEqual(len(self.server.messages), 2)  # of the first turn

    def test_transcript(self):
        lines = (b"[127.0.0.1] 220 mx.test ready\n[me.test] EHLO me.test\n", b"] 221 bye\n")
        for line in lines:
            self.mail("--transcript", "--text", "x", stderr=line)
        shown = self.json("--transcript", "--text", "x")["recipients"][0]["transcript"]
        self.assertIn("[me.test] RCPT TO:<a@xy.test>\r\n", shown)

    def test_straight_to_the_exchanger(self):
        self.names.udp = mail_domain("xy.test") | mail_domain("zz.test")
        self.mail("--text", "x", "--transcript", to="a@xy.test, b@zz.test", server=False,
                  stderr=f"[DNS {self.names.address}] mx.zz.test => 127.0.0.1\n".encode())
        self.assertEqual(len(self.server.messages), 2)
        shown = self.mail("--text", "x", to="c@no.test, a@xy.test", server=False, status=1)
        self.assertRegex(shown, r"c@no.test: failed at Auto DNS: .*; Fatal DNS Error \(3010\)\n"
                                "a@xy.test: accepted\n")

    def test_wrong_usage_sends_nothing(self):
        for arguments, text in (
            (["--html", "/nonexistent"], b"--html: cannot read /nonexistent"),
            (["--text-file", self.folder], b"--text-file"),
            (["--text-file", "-", "--html", "-"], b"standard input"), ([], b"no message"),
            (["--deliver", self.folder], b"without a message"),
            (["--list", self.folder], b"without a message"),
            (["--eml", self.file("none.eml", b"Hello\n\n")], b"--eml"),
            *((["--text", "x", *arguments], text) for arguments, text in (
                (["--to", "a@xy.test, bob@"], b'--to: "bob@"'), (["--cc", "c"], b'--cc: "c"'),
                (["--bcc", "a@xy.test\r\nDATA"], b"--bcc"),
                (["--attach", "/nonexistent"], b"/nonexistent: No such file"),
                (["--attach", "/"], b"cannot read /"), (["--inline", self.folder], b"--html"),
                (["--text-file", "-"], b"--text"), (["-H", "no colon"], b"no colon"),
                (["-H", "a b: c"], b'"a b"'), (["-H", "Content-Type: c"], b"Content-Type"),
                (["-H", "to: b@xy.test"], b'"to"'), (["[x]"], b"not expected: [x]\n"),
                (["--charset", "klingon"], b"klingon"), (["--message-id", "none"], b"--message-id"),
                (["-H", "Reply-To: a@xy.test", "-H", "reply-to: b@xy.test"], b"reply-to"),
                (["--port", "1"], b"--port"), (["--timeout", "0"], b"--timeout"),
                (["--proxy", "http://x"], b"SOCKS"), (["--print", "--json"], b"--print"),
                (["--spool", self.folder, "--print"], b"--spool"), (["--all"], b"--deliver"),
                (["--tls", "maybe"], b'not "maybe"'), (["--quit-after", "data"], b'not "data"'),
                (["--password-file", "-"], b"--user"),
                (["--user", "jane", "--password-file", "/nonexistent"], b"/nonexistent"),
                (["--eml", "-"], b"--eml"), (["--trace", "--simulate"], b"--trace"))),
        ):
            with self.subTest(arguments):
                printed = self.mail(*arguments, status=2, stderr=text)
                self.assertEqual(printed.startswith("{"), "--json" in arguments)
        for arguments, text in (
            (["--to", "a@xy.test"], b"--from"),
            (["--from", "a@xy.test"], b"no recipient"),
            (["--from", "a@xy.test, b@xy.test", "--to", "a@xy.test"], b"--from"),
            (["--from", "a@xy.test", "--to", "a@xy.test", "--helo", "a b"], b"--helo"),
            (["--from", "a@xy.test", "--to", "a@xy.test", "--server", "x/y"], b"--server"),
            (["--from", "a@xy.test", "--to", "a@xy.test", "--port", "65536"], b"--port"),
        ):
            self.text("mail", "--text", "x", *arguments, status=2, stderr=text)
        self.assertEqual(self.server.connections, [])

    def test_logins(self):
        """The password comes from a file, standard input or a program, and is shown nowhere."""
        self.server.replies = {b"EHLO": b"250-hi\r\n250 AUTH PLAIN", b"AUTH": b"235 in"}
        told = b"AUTH PLAIN AGphbmUAczNjcmV0"
        asker = self.file("asker", b"#!/bin/sh\ntest \"$1\" = 'Password of jane: ' && echo s3cret\n")
        os.chmod(asker, 0o700)
        nobody = {k: v for k, v in os.environ.items() if not k.endswith("_ASKPASS")}
        login = ["--text", "x", "--user", "jane", "--tls", "off", "--password-in-clear", "-v"]
        for extra, options in (
                (["--password-file", self.file("word", b"s3cret\nother\n")], {}),
                (["--password-file", "-"], {"input": b"s3cret\n"}),
                ([], {"env": {**nobody, "NETRO_ASKPASS": asker}, "input": b""}),
                ([], {"env": {**nobody, "SSH_ASKPASS": asker}, "input": b""})):
            done = run("mail", "-f", "jane@xy.test", "--to", "a@xy.test", "--server",
                       self.server.address, *login, *extra, **options)
            self.assertEqual(done.returncode, 0, done)
            self.assertEqual(self.server.commands.count(told), 1, self.server.commands)
            self.assertNotIn(b"s3cret", done.stdout + done.stderr)
            self.assertNotIn(b"AGphbmU", done.stdout + done.stderr)
            self.server.commands.clear()
        # In clear it does not go without being told to, and TLS is the usual.
        word = ["--text", "x", "--user", "jane", "--password-file", self.file("word", b"s3cret")]
        for options in ["--tls", "off"], []:
            shown = self.mail(*word, *options, status=1)
            self.assertIn("failed at", shown)
        self.assertFalse([c for c in self.server.commands if c.startswith(b"AUTH")])

    def test_finished_message_empty_sender_and_last_step(self):
        text = b"From: x@xy.test\nBcc: secret@xy.test\nSubject: done\n\n.Hello\n"
        sent = b"From: x@xy.test\r\nSubject: done\r\n\r\n.Hello\r\n"
        for eml, options in (self.file("m.eml", text), {}), ("-", {"input": text}):
            self.mail("--eml", eml, to="root@localhost, b@xy.test", **options)
            self.assertEqual(self.server.messages,
                             [("root@localhost", sent), ("b@xy.test", sent)])
            self.server.messages.clear()
        self.text("mail", "-f", "", "--to", "a@xy.test", "--text", "x", "--server",
                   self.server.address)
        self.assertIn(b"MAIL FROM:<>", self.server.commands)
        self.assertIn("MAILER-DAEMON@", parse(self.server.messages.pop()[1])["From"])
        self.server.commands.clear()
        shown = self.mail("--quit-after", "from")
        self.assertEqual(shown, 'a@xy.test: as far as "from" all is well\n')
        self.assertEqual(self.server.commands[1:], [b"MAIL FROM:<jane@xy.test>", b"QUIT"])
        self.assertEqual(self.server.messages, [])

    def test_trace(self):
        self.names.udp = mail_domain("xy.test") | mail_domain("zz.test")
        self.server.replies = {b"EHLO": b"250-hi\r\n250 SIZE 1000",
                               b"RCPT TO:<b@zz.test>": b"550 5.1.1 no"}
        shown = self.mail("--trace", to="a@xy.test, b@zz.test, c@no.test", server=False, status=1)
        self.assertRegex(shown, r"\Aa@xy\.test\n"
                         r"  mx\.xy\.test \(127\.0\.0\.1\): takes it\n"
                         r"    greeting    220 mx\.test ready\n    extensions  SIZE 1000\n"
                         r"    TLS         none\n  other\.test: fails at .*\n"
                         r"b@zz\.test\n  mx\.zz\.test \(127\.0\.0\.1\): fails at RCPTTo: 550 5\.1\.1 no\n"
                         r"(    .*\n)+  other\.test: .*\nc@no\.test: nobody to ask, .*Fatal DNS Error\n\Z")
        server = self.json("--trace", to="a@xy.test", server=False)["recipients"][0]["servers"][0]
        self.assertEqual((server["extensions"], server["recipient_accepted"]), (["SIZE 1000"], True))
        self.assertEqual(self.server.messages, [])

    def test_failures(self):
        with nobody() as dead:
            message = ["mail", "-f", "a@xy.test", "--to", "a@xy.test", "--text", "x", "--server"]
            shown = self.text(*message, dead, status=1)
            self.assertRegex(shown, r"failed at SocketError: .*; Other SMTP problem \(3017\)")
            self.text(*message, self.server.address, "-x", dead, status=1)
        self.server.replies = {b"EHLO": None}
        self.assertIn("failed at Helo", self.mail("-t1", "--text", "x", status=1, stderr=b"--timeout"))
        self.text(*message, "no.such.name.test", "--dns", self.names.address, status=1,
                   stderr=b"no address")

    def test_interrupt_tells_who_has_the_message(self):
        self.server.replies = {b"RCPT TO:<b@xy.test>": None}
        terminal = Terminal("mail", "-f", "a@xy.test", "--to", "a@xy.test,b@xy.test,c@xy.test",
                            "-s", self.server.address, "--text", "x", environment={"NO_COLOR": "1"})
        self.assertTrue(self.server.asked.wait(30))
        os.write(terminal.descriptor, b"\x03")
        status, text = terminal.finish()
        self.assertEqual(status, -signal.SIGINT)
        for name in b"abc":
            self.assertIn(b"%c@xy.test: cancelled at RCPTTo\r\n" % name, text)

    def test_progress_bar(self):
        self.server.hold_at, self.server.go_on = 1_000_000, threading.Event()
        data = self.file("data", bytes(20_000_000))
        terminal = Terminal("mail", "-f", "a@xy.test", "--to", "b@xy.test", "--attach", data,
                            "-s", self.server.address)
        terminal.read_until(b"% [")
        self.server.go_on.set()
        status, text = terminal.finish()
        self.assertEqual(status, 0)
        self.assertIn(b"\r\x1b[Kb@xy.test: \x1b[32maccepted", text[-60:])
        files = [part for part in parse(self.server.messages[0][1]).walk() if part.get_filename()]
        self.assertEqual(files[0].get_payload(decode=True), bytes(20_000_000))

    def test_terminal_is_safe_from_the_network(self):
        self.server.replies = {b"RCPT": HOSTILE}
        for option in [], ["--transcript"], ["--json"]:
            status, text = Terminal("mail", "-f", "a@xy.test", "--to", "b@xy.test", "--text", "x",
                                    "-s", self.server.address, *option,
                                    environment={"NO_COLOR": "1"}).finish()
            self.assertEqual(status, 1)
            self.assertIn(b"550 red ", text)
            self.assertIsNotNone(re.fullmatch(rb"[\r\n -~]*", text), text)

    def test_proxies(self):
        self.check_proxies(["--server"], 25, "mail", "-f", "a@xy.test", "--to", "b@xy.test",
                           "--text", "x")


class CheckAddressTest(MailTestCase):
    def check(self, *arguments, **expected):
        return self.text("check-address", *arguments, **expected)

    def test_syntax(self):
        good = ["a@xy.test", "Jane Doe <jane@xy.test>", '"a b"@xy.test', "a@[192.0.2.1]"]
        self.assertEqual(self.check(*good),
                         "".join(f"{address}: well written\n" for address in good))
        for address, rule in ("", 1), ("jane", 4), ("a@b", 2), ("a@xy.test, b@xy.test", 2), ("a@[1.2.3]", 7):
            shown = self.check(*good, address, status=1)
            self.assertRegex(shown, rf"well written\n.*: wrong, .* \(rule {rule}\)\n\Z")
        for text in "[1.2.3]", "[]", "[a@xy.test,b@xy.test]":  # no list of option values
            self.assertIn(f"{text}: wrong", self.check("a@xy.test", text, status=1))
        self.check("--tlds", "com,test", "a@xy.test")
        self.assertIn("(rule 5)", self.check("--tlds", "com,net", "a@xy.test", status=1))
        self.check(status=2, stderr=b"ADDRESS")
        self.check("--transcript", "a@xy.test", status=2, stderr=b"--smtp")
        self.check("--smtp", "--from", "x", "a@xy.test", status=2, stderr=b"--from")

    def test_lookup(self):
        self.names.udp = mail_domain("xy.test")
        lookup = ["--lookup", "--dns", self.names.address]
        self.assertEqual(self.check(*lookup, "J <j@xy.test>", "a@[127.0.0.2]"),
                         "J <j@xy.test>: well written; exchanger mx.xy.test, 127.0.0.1\n"
                         "a@[127.0.0.2]: well written; exchanger 127.0.0.2, 127.0.0.2\n")
        self.names.udp["sick.test"] = Reply(code=2)
        for domain, words in ("no.test", "no exchanger"), ("sick.test", "try again"):
            self.assertIn(words, self.check(*lookup, f"a@{domain}", status=1))
        self.assertEqual(self.server.connections, [])

    def test_server_is_asked(self):
        self.names.udp = mail_domain("xy.test")
        self.server.replies = {b"RCPT TO:<none@xy.test>": b"550 no user"}
        ask = ["--smtp", *self.to_exchangers(), "--from", "Jane <me@zz.test>", "--helo", "me.test"]
        self.assertEqual(self.check(*ask, "a@xy.test", "none@xy.test", "bad", status=1),
                         "a@xy.test: well written; the server takes it\n"
                         "none@xy.test: well written; not accepted, 550 no user\n"
                         "bad: wrong, eMail Address must contain a Host after @ (rule 4)\n")
        self.assertEqual(self.server.commands[:4], [b"EHLO me.test", b"MAIL FROM:<me@zz.test>",
                                                    b"RCPT TO:<a@xy.test>", b"QUIT"])
        self.check("--transcript", *ask, "a@xy.test", stderr=b"[me.test] RCPT TO:<a@xy.test>\n")
        shown = json.loads(self.check("--json", "--lookup", *ask, "a@xy.test", "none@xy.test", "bad",
                                      status=1))
        first, second, third = shown["addresses"]
        self.assertEqual((shown["ok"], first["ok"], second["ok"]), (False, True, False))
        self.assertEqual(first["exchanger"], {"ok": True, "name": "mx.xy.test",
                                              "address": "127.0.0.1", "try_again": False,
                                              "error": {"number": 0, "text": ""}})
        self.assertEqual(second["server"], {"ok": False, "result": 550, "message": "550 no user\r\n"})
        self.assertEqual((third["syntax"]["rule"], third["exchanger"], third["server"]),
                         (4, None, None))

    def test_hints(self):
        self.names.udp = {"xy.test": None}
        for options, hint in ((["--smtp", "-s", "no.such.name.test"], b"no address"),
                              (["--lookup", "-t1"], b"--timeout")):
            self.check(*options, "--dns", self.names.address, "a@xy.test", status=1, stderr=hint)
        self.check("--smtp", "-s", self.server.address, '"a<b"@xy.test', status=1)

    def test_interrupt_ends_all(self):
        self.server.replies = {b"RCPT": None}
        status, _ = interrupt(self.server.asked, "check-address", "--smtp", "-s",
                              self.server.address, "a@xy.test", "b@xy.test")
        self.assertEqual(status, -signal.SIGINT)
        self.assertEqual(sum(b"RCPT" in command for command in self.server.commands), 1)


if __name__ == "__main__":
    unittest.main()

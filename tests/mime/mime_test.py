#!/usr/bin/env python3
"""Composes messages and reads them with Python's email package: nothing may be wrong with them by
its judgement, and every text and every file must come out as it went in. With a mail server, given
by its port on this computer and the folder that it puts mail into, what has arrived there is read.

Usage: mime_test.py PATH_OF_NETRO_COMPOSE [--server PORT FOLDER] [unittest arguments]
"""

import argparse
import email
import email.policy
import email.utils
import hashlib
import json
import os
import random
import re
import subprocess
import sys
import tempfile
import time
import unittest
from email.header import decode_header, make_header

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "cli"))
from smtp_server import SmtpServer

parser = argparse.ArgumentParser()
parser.add_argument("compose")
parser.add_argument("--server", nargs=2)
OPTIONS, UNITTEST_ARGUMENTS = parser.parse_known_args()

DELIVERY_SECONDS = 30

PLAIN = "Hello\r\n\r\nworld\r\n"
HTML = ("<html><head><title>T</title></head>\r\n<body>Größe &auml;<br>"
        "<img src=\"cid:logo.png\"></body></html>\r\n")
ALL_BYTES = bytes(range(256))
CHANCE = random.Random(2047)

# Each of them a text that some step on the way could damage.
TEXTS = {
    "plain": PLAIN,
    "empty": "",
    "one line end": "\r\n",
    "no line end": "Hello",
    "umlauts": "Grüße aus Köln, 世界 \U0001f600\r\n",
    "dots": ".\r\n..\r\n.a\r\n \r\n.\r\n.\r\n",
    "from": "From me\r\n>From you\r\n",
    "long line": "x" * 5000 + "\r\n" + ". " * 2500 + "\r\n" + "ü" * 5000 + "\r\n",
    "dots where lines are broken": "." * 5000,
    "blanks at ends": "a \r\nb\t\r\n \t \r\n" + " " * 200 + "\r\nend ",
    "empty lines": "\r\n\r\n\r\na\r\n\r\n\r\n",
    "equal signs": "=\r\n=20=\r\na=3D=\r\n",
    "boundary": "------=_NextPart_\r\n--\r\n----=_NextPart_0--\r\n",
    "other line ends": "a\nb\rc\r\rd\n\ne",
    "controls": "a\0b\x07c\x0bd\x0ce\x1ff\x7fg\x85\u2028h",
    "headers": "Subject: no\r\nBcc: no\r\n\r\nTo: no\r\n",
    "large": "0123456789 äöü\r\n" * 20000,
    **{f"by chance from {letters!r}": "".join(CHANCE.choices(letters, k=20000))
       for letters in ("ab.=F \t\r\nü", "From .\n", "x ", "abc \n")},
}

SUBJECTS = [
    "a", "Grüße", "ü" * 400, "word " * 99 + "end", "wörd " * 99 + "end", "x" * 300, "x" * 3000,
    "a" + " " * 500 + "b", "a" + " " * 1500 + "b",
    "世界" * 100, "\U0001f600" * 50, "=?utf-8?Q?=41?= ü", "a=b_c?d ü", "ü" + "x" * 1200,
    " ".join("x" * n for n in range(1, 120)),
    *("".join(CHANCE.choices(letters, k=CHANCE.randrange(1, 1000))).strip() or "a"
      for letters in ("ab ", "a ä", "€", "\U0001f600a=_", "a", "   a") for _ in range(8)),
]

# What is set, and the pairs of name and address that a reader finds.
ADDRESSES = [
    ("a@xy.test", [("", "a@xy.test")]),
    ("A <a@xy.test>", [("A", "a@xy.test")]),
    ('"Doe, Jane" <a@xy.test>', [("Doe, Jane", "a@xy.test")]),
    ("Jörg Müller <a@xy.test>", [("Jörg Müller", "a@xy.test")]),
    ('"Müller, Jörg" <a@xy.test>, b@xy.test', [("Müller, Jörg", "a@xy.test"), ("", "b@xy.test")]),
    ("世界 <a@xy.test>; Ω <b@xy.test>", [("世界", "a@xy.test"), ("Ω", "b@xy.test")]),
    ('"a\\"ü(b)<c>" <a@xy.test>', [('a"ü(b)<c>', "a@xy.test")]),
    (", ".join(f"Nämé {n} <n{n}@xy.test>" for n in range(100)),
     [(f"Nämé {n}", f"n{n}@xy.test") for n in range(100)]),
    (",".join(f"n{n}@xy.test" for n in range(300)), [("", f"n{n}@xy.test") for n in range(300)]),
    (" ".join(["ü" * 30] * 20) + " <a@xy.test>", [(" ".join(["ü" * 30] * 20), "a@xy.test")]),
]


def as_lines(text):
    """With CR LF at the end of every line, also of the last one."""
    text = re.sub("\r\n|\r|\n", "\r\n", text)
    return text if text == "" or text.endswith("\r\n") else text + "\r\n"


def arrived(folder):
    """The one mail that comes into the folder, its lines ended by CR LF."""
    deadline = time.monotonic() + DELIVERY_SECONDS
    while not os.listdir(folder):
        if time.monotonic() > deadline:
            raise TimeoutError("no mail")
        time.sleep(0.002)
    name, = os.listdir(folder)
    with open(os.path.join(folder, name), "rb") as file:
        mail = file.read()
    os.remove(file.name)
    return mail.replace(b"\n", b"\r\n")


class Sink(SmtpServer):
    """A mail server that keeps no more of its messages than their sums."""

    def message(self, stream):
        total = hashlib.sha256()
        while (line := stream.readline()) not in (b".\r\n", b""):
            total.update(line)
        return total.hexdigest()


def addresses_of(field):
    """Pairs of name and address; newer parts of the package put blanks between encoded words."""
    return [(str(make_header(decode_header(name))), address)
            for name, address in email.utils.getaddresses([field])]


class MimeTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def file(self, name, content, related=False):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(content)
        return {"path": path, "name": name, "related": related}

    def compose(self, **changes):
        """The message as a reader has it, having found nothing wrong with it."""
        order = {"html": False, "subject": "S", "from": "a@xy.test", "to": "b@xy.test", "cc": "",
                 "text": PLAIN, "alternative": "", "headers": {}, "files": [], "finished": False,
                 **changes}
        if OPTIONS.server:
            order["port"] = int(OPTIONS.server[0])
        done = subprocess.run([OPTIONS.compose], input=json.dumps(order).encode(),
                              capture_output=True)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.composed = done.stdout
        self.check_lines(self.composed)
        message = email.message_from_bytes(self.received(), policy=email.policy.default)
        for part in message.walk():
            self.assertEqual(part.defects, [], self.composed[:2000])
            for name, value in part.items():
                if name != "Message-ID":  # is without "@"
                    self.assertEqual(value.defects, (), (name, value))
        return message

    def received(self):
        """The composed message, or the mail that arrived: the same behind the server's fields."""
        if not OPTIONS.server:
            return self.composed
        mail = arrived(OPTIONS.server[1])
        trace = mail[:len(mail) - len(self.composed)]
        self.assertEqual(mail, trace + self.composed)
        self.assertRegex(trace, rb"\nReceived: [^\n]*\n([ \t][^\n]*\n)*$")
        return mail

    def check_lines(self, text):
        self.assertTrue(text.isascii())
        self.assertTrue(text.endswith(b"\r\n"))
        lines = text.split(b"\r\n")
        head = lines[:lines.index(b"")]
        for line in lines:
            self.assertNotRegex(line, b"[\r\n\0]")
            self.assertLessEqual(len(line), 998)
        for line in head:
            self.assertNotEqual(line.strip(), b"", "a header line of blanks only")
            if b"=?utf-8?" in line:
                self.assertLessEqual(len(line), 76)
        for line in lines[len(head):]:
            if not re.match(rb"\t|Content-", line):  # what holds the names of files may be longer
                self.assertLessEqual(len(line), 76)
            self.assertFalse(line.startswith(b"."), line)

    def text_of(self, part):
        return part.get_payload(decode=True).decode(part.get_content_charset())

    def test_texts(self):
        for name, text in TEXTS.items():
            for html in False, True:
                for files in [], [self.file("a.bin", ALL_BYTES)]:
                    with self.subTest(name, html=html, files=len(files)):
                        message = self.compose(text=text, html=html, alternative=text, files=files)
                        texts = [self.text_of(part) for part in message.walk()
                                 if part.get_content_maintype() == "text"]
                        self.assertEqual(texts, [as_lines(text)] * (2 if html else 1))

    def test_structure(self):
        attachment, picture = self.file("a.bin", ALL_BYTES), self.file("logo.png", b"\x89PNG", True)
        text, html = "text/plain", ["multipart/alternative", "text/plain", "text/html"]
        for is_html, files, types in (
            (False, [], [text]),
            (True, [], html),
            (False, [attachment], ["multipart/mixed", text, "application/octet-stream"]),
            (True, [attachment], ["multipart/mixed", *html, "application/octet-stream"]),
            (True, [picture], ["multipart/related", *html, "image/png"]),
            (True, [picture, attachment],
             ["multipart/related", *html, "image/png", "application/octet-stream"]),
        ):
            with self.subTest(types=types):
                message = self.compose(html=is_html, text=HTML, files=files)
                self.assertEqual([part.get_content_type() for part in message.walk()], types)
                body = message.get_body(("html", "plain"))
                self.assertEqual(self.text_of(body), HTML)
                if is_html:
                    plain = self.text_of(message.get_body(("plain",)))
                    self.assertIn("Größe ä", plain)
                    self.assertNotIn("<", plain)
                if picture in files:
                    self.assertEqual(message.get_param("type"), "multipart/alternative")

    def test_files(self):
        contents = {"empty.bin": b"", "all.bin": ALL_BYTES, "lines.txt": b"a\n.\r\nb",
                    "a.html": b"<b>", "message.eml": b"Subject: s\r\n\r\nbody\r\n",
                    "zip.tar.gz": os.urandom(100000), "no_extension": b"x" * 57,
                    "." + "x" * 200 + ".PNG": b"x" * 58}
        for related in False, True:
            files = [self.file(name, content, related) for name, content in contents.items()]
            message = self.compose(html=True, text=HTML, files=files)
            parts = list(message.iter_parts())[1:]
            self.assertEqual(len(parts), len(files))
            for part, (name, content) in zip(parts, contents.items()):
                with self.subTest(name):
                    self.assertEqual(part.get_payload(decode=True), content)
                    self.assertEqual(part.get_filename(), name)
                    self.assertEqual(part.get_param("name"), name)
                    self.assertEqual(part.get_content_disposition(),
                                     "inline" if related else "attachment")
                    self.assertEqual(part["Content-ID"], f"<{name}>" if related else None)

    def test_large_files_take_little_memory(self):
        file = self.file("large.bin", os.urandom(10_000_000))
        saved = os.path.join(self.folder, "saved")
        sink = Sink()
        self.addCleanup(sink.close)
        order = {"html": False, "subject": "S", "from": "a@xy.test", "to": "b@xy.test", "cc": "",
                 "text": PLAIN, "headers": {}, "files": [file] * 10, "saved": saved,
                 "port": sink.port}
        done = subprocess.run([OPTIONS.compose], input=json.dumps(order).encode(),
                              capture_output=True)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertLess(int(done.stdout), 16 * 1024)
        with open(saved, "rb") as message:
            total = hashlib.sha256(message.read()).hexdigest()
        self.assertEqual([message for _, message in sink.messages], [total] * 2)

    def test_long_names_are_continued(self):
        file = {**self.file("a", b"x"), "name": "n" * 3000 + ".png"}
        part = list(self.compose(files=[file]).iter_parts())[1]
        self.assertEqual((part.get_filename(), part.get_content_type()), (file["name"], "image/png"))

    def test_subjects(self):
        for subject in SUBJECTS:
            with self.subTest(subject):
                message = self.compose(subject=subject, headers={"X-Note": subject})
                self.assertEqual(message["Subject"], subject)
                self.assertEqual(message["X-Note"], subject)

    def test_addresses(self):
        for written, found in ADDRESSES:
            with self.subTest(written):
                message = self.compose(**{"from": written, "to": written, "cc": written},
                                       headers={"Reply-To": written}, finished=True)
                raw = email.message_from_bytes(self.composed)
                if written.isascii():
                    head = self.composed.partition(b"\r\n\r\n")[0]
                    self.assertLessEqual(max(map(len, head.split(b"\r\n"))), 78)
                for name in "From", "To", "CC", "Reply-To":
                    self.assertEqual(addresses_of(raw[name]), found)

    def test_character_sets(self):
        for charset, text, written in (
            ("iso-8859-1", "Grüße", "iso-8859-1"), ("ISO-8859-15", "10 €", "iso-8859-15"),
            ("iso-8859-1", "10 €", "utf-8"), ("us-ascii", "a", "us-ascii"),
            ("us-ascii", "ü", "utf-8"), ("windows-1252", "„a“", "windows-1252"),
            ("iso-2022-jp", "世界 a\n世界", "iso-2022-jp"), ("gb18030", "世界", "gb18030"),
            ("utf-16", "ü", "utf-8"), ("utf-7", "ü+", "utf-8"), ("nothing-like-that", "ü", "utf-8"),
            ("", "ü", "utf-8"), ("\"\r\nX: y", "", "utf-8"),
            ("iso-8859-1", "ü\n" * 100000 + "ÿ", "iso-8859-1"),
            ("iso-8859-1", "ü\n" * 100000 + "€", "utf-8"),
        ):
            with self.subTest(charset, text=text[:10]):
                message = self.compose(charset=charset, text=text)
                self.assertEqual(message.get_content_charset(), written)
                self.assertEqual(self.text_of(message), as_lines(text))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *UNITTEST_ARGUMENTS])

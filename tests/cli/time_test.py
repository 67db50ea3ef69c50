#!/usr/bin/env python3
"""Runs "netro time" against a server of its own: what is sent, what is printed, exit statuses.

Usage: time_test.py PATH_OF_NETRO [unittest arguments]
"""

import datetime
import re
import time
import unittest

import echo_network

echo_network.enter()  # port 123 is not everybody's elsewhere

from dns_server import A, PTR, DnsServer, Reply, name, record
from netro_command import CommandTestCase, nobody
from time_server import TimeServer, sntp_reply, sntp_server, stamp, time_reply


def seconds_of(text):
    return datetime.datetime(*map(int, re.split("[- :]", text)),
                             tzinfo=datetime.timezone.utc).timestamp()


class TimeTestCase(CommandTestCase):
    command = "time",

    def lines(self, *arguments, **expected):
        """The printed lines by their label."""
        lines = self.text(*arguments, **expected).splitlines()
        return {line[:17].rstrip(): line[17:] for line in lines}


class TimeProtocolTest(TimeTestCase):
    """On a port of its own, where the question is that of the time protocol."""

    def setUp(self):
        self.server = self.serve(TimeServer())
        self.address = self.server.address

    def test_times(self):
        """Whole seconds since 1900."""
        moment = "2028-02-29 00:00:00"
        self.server.answer = time_reply(seconds_of(moment))
        for transport, name in ([], "UDP"), (["--tcp"], "TCP"):
            before = time.time()
            shown = self.lines(self.address, *transport)
            self.assertEqual(list(shown), ["server", "time", "difference", "round trip"])
            self.assertEqual(shown["server"], f"{self.address} over {name}, time protocol")
            self.assertEqual(shown["time"], moment + ".000 UTC")
            difference = float(shown["difference"].split(" ")[0])
            self.assertTrue(before - 1 <= difference + seconds_of(moment) <= time.time(), shown)
            self.assertRegex(shown["round trip"], r"\A\d\.\d{6} s ")
        self.assertEqual(set(self.server.questions), {b""})
        shown = self.json(self.address)
        self.assertEqual(
            [shown[key] for key in ("server", "transport", "protocol", "version", "ok", "refusal",
                                    "reply", "time", "error")],
            [self.address, "UDP", "time protocol", None, True, None, "time protocol",
             "2028-02-29T00:00:00.000Z", {"number": 0, "text": ""}])
        self.assertGreater(shown["round_trip"], 0)
        self.assertGreaterEqual(shown["seconds"], shown["round_trip"])
        for key in "offset", "stratum", "leap", "reference", "precision", "root_delay_seconds":
            self.assertIsNone(shown[key], key)

    def test_sntp_reply_from_another_port(self):
        self.server.answer = sntp_reply
        shown = self.lines(self.address)
        self.assertEqual(shown["server"],
                         f"{self.address} over UDP, time protocol, answered by SNTP")
        self.assertEqual((shown["stratum"], shown["reference"]), ("primary reference", "GPS"))
        shown = self.json(self.address)
        self.assertEqual((shown["protocol"], shown["reply"]), ("time protocol", "SNTP"))

    def test_replies_that_are_none(self):
        self.server.answer = sntp_reply(transmit=bytes(8))
        shown = self.json(self.address, status=1, stderr=b"(error 100000)")
        self.assertEqual((shown["ok"], shown["error"]["number"], shown["time"]), (False, 100000, None))
        self.assertIsNotNone(shown["stratum"])
        with nobody() as dead:
            for arguments in [dead, "--tcp"], [self.address, "-x", dead]:
                self.assertEqual(self.text(*arguments, status=1, stderr=b"error 10061"), "")

    def test_timeout_names_the_option(self):
        for transport in [], ["--tcp"]:
            shown = self.json(self.address, "-t1", *transport, status=1, stderr=b"--timeout")
            self.assertEqual((shown["error"]["number"], shown["round_trip"], shown["reply"]),
                             (10002, None, None))

    def test_interrupt_cancels(self):
        for transport in [], ["--tcp"]:
            self.check_interrupt(self.server, self.address, *transport)

    def test_name_of_the_server_is_asked_for_where_the_option_says(self):
        self.server.answer = time_reply(1e9)
        names = self.serve(DnsServer())
        names.udp["time.test"] = Reply([record("time.test", A, bytes([127, 0, 0, 1]))])
        self.text("time.test", "--port", str(self.server.port), "--dns", names.address)
        self.text("none.test:37", "--dns", names.address, status=1, stderr=b"error 11001")
        self.text("time.test:37", "--dns", "127.0.0.1:x", status=1, stderr=b"error 10022")

    def test_proxies(self):
        self.check_proxies([], 37, "--time-protocol")

    def test_colours(self):
        self.server.answer = time_reply(1e9)
        self.check_colours(self.address, wanted=b"2001-09-09 01:46:40.000 UTC")

    def test_wrong_usage(self):
        self.check_usage(
            ([], b"SERVER"),
            ([""], b"host"),
            (["a:65536"], b"65536"),
            (["a:b"], b"port"),
            (["[::1:123"], b"IPv6"),
            (["a:123", "--time-protocol"], b"123"),
            (["a", "--port", "123", "--time-protocol"], b"123"),
            (["a", "--timeout", "32768"], b"timeout"),
            (["a", "--proxy", "http://a:1"], b"SOCKS"),
            (["a", "--proxy-type", "socks4"], b"--proxy"))
        self.check_options("a --port 0", "a:37 --port 37", "a --version 2",
                           "a --version 4 --time-protocol")


class SntpTest(TimeTestCase):
    """On port 123, where the question is that of SNTP."""

    def setUp(self):
        self.server = sntp_server()
        if self.server is None:
            self.skipTest("port 123 may not be used here")
        self.addCleanup(self.server.close)
        self.host = self.server.host

    def test_question(self):
        self.server.answer = sntp_reply
        for options, first in ([], 27), (["--version", "4"], 35), (["--tcp"], 27):
            self.server.questions.clear()
            self.text(self.host, *options)
            question, = self.server.questions
            self.assertEqual((len(question), question[0]), (48, first))

    def test_whole_reply(self):
        self.server.answer = lambda question: sntp_reply(
            question, leap=1, poll=10, precision=-6, root_delay=0x18000, root_dispersion=0x400,
            ahead=-100)
        for transport, name in ([], "UDP"), (["--tcp"], "TCP"):
            shown = self.lines(self.host, *transport)
            self.assertEqual(list(shown), [
                "server", "time", "difference", "offset", "delay", "round trip", "stratum", "leap",
                "mode", "reference", "precision", "poll interval", "root delay",
                "root dispersion"])
            self.assertEqual(shown["server"], f"{self.host}:123 over {name}, SNTP version 3")
            self.assertRegex(shown["time"], r"\A\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} UTC\Z")
            offset, _, words = shown["offset"].partition(" s ")
            self.assertAlmostEqual(float(offset), -100, delta=30)
            self.assertEqual(words, "(the server's clock is behind this one)")
            self.assertEqual(list(shown.values())[6:], [
                "primary reference", "last minute of the day has 61 seconds", "server", "GPS",
                "2^-6 s = 0.0156 s", "2^10 s = 1.02e+03 s", "1.500000 s", "0.015625 s"])

    def test_json(self):
        self.server.answer = lambda question: sntp_reply(
            question, precision=-6, root_delay=0x18000, root_dispersion=0x400, ahead=3600)
        shown = self.json(self.host, "--version", "4")
        self.assertEqual(
            {key: shown[key] for key in list(shown)[:7] + list(shown)[14:] if key != "error"},
            {"server": self.host + ":123", "transport": "UDP", "protocol": "SNTP", "version": 4,
             "ok": True, "refusal": None, "stratum": "primary reference", "leap": "no warning",
             "mode": "server", "reference": "GPS", "kiss_code": None, "precision": 2.0**250,
             "precision_exponent": -6, "precision_seconds": 2**-6, "poll_interval": 64,
             "root_delay": 1.5 * 4096, "root_delay_seconds": 1.5, "root_dispersion": 64,
             "root_dispersion_seconds": 2**-6})
        self.assertAlmostEqual(shown["offset"], 3600, delta=60)
        self.assertAlmostEqual(shown["delay"], shown["round_trip"], delta=1)

    def test_fields(self):
        for fields, key, value in (
            ({"leap": 0}, "leap", "no warning"),
            ({"leap": 2}, "leap", "last minute of the day has 59 seconds"),
            ({"mode": 1}, "mode", "symmetric active"),
            ({"mode": 2}, "mode", "symmetric passive"),
            ({"mode": 3}, "mode", "client"),
            ({"mode": 5}, "mode", "broadcast"),
            ({"mode": 6}, "mode", "unknown"),
            ({"stratum": 15}, "stratum", "reserved"),
            ({"precision": 128}, "precision_exponent", -128),
            ({"root_delay": 0xFFFF0000}, "root_delay_seconds", -1),
            ({"root_dispersion": 0xFFFF0000}, "root_dispersion_seconds", 65535),
            ({"receive": bytes(8)}, "offset", None),
            ({"reference": b"\x1b[3m"}, "reference", "[3m"),
            ({"reference": b"\0\n\x9b\xff"}, "reference", None),
        ):
            self.server.answer = lambda question: sntp_reply(question, **fields)
            with self.subTest(fields):
                self.assertEqual(self.json(self.host)[key], value)
                self.text(self.host)

    def test_reference_of_a_secondary_server(self):
        names = self.serve(DnsServer())
        names.udp["1.2.0.192.in-addr.arpa"] = Reply(
            [record("1.2.0.192.in-addr.arpa", PTR, name("ntp.test"))])
        self.server.answer = lambda question: sntp_reply(question, stratum=2,
                                                         reference=bytes([192, 0, 2, 1]))
        shown = self.lines(self.host, "--dns", names.address)
        self.assertEqual((shown["stratum"], shown["reference"]),
                         ("secondary reference", "192.0.2.1"))
        shown = self.lines(self.host, "--dns", names.address, "--reference-name")
        self.assertEqual(shown["reference"], "192.0.2.1 (ntp.test)")
        self.server.answer = lambda question: sntp_reply(
            question, stratum=2, reference=stamp(seconds_of("2026-11-21 10:45:00"))[:4])
        self.assertRegex(self.json(self.host, "--version", "4")["reference"],
                         r"\A2026-11-21.10:45:00")

    def test_server_that_refuses(self):
        for fields, text in (
            ({"stratum": 0, "reference": b"RATE"}, b'"RATE": it is asked too often'),
            ({"stratum": 0, "reference": b"DENY", "transmit": bytes(8)}, b"error 100000"),
            ({"stratum": 0, "reference": b"XFOO", "leap": 3}, b'"XFOO"\n'),
            ({"stratum": 0, "reference": bytes(4), "leap": 3}, b"clock is not set"),
            ({"leap": 3}, b"clock is not set"),
        ):
            self.server.answer = lambda question: sntp_reply(question, **fields)
            with self.subTest(fields):
                kiss = fields.get("reference", b"").strip(b"\0").decode()
                shown = self.lines(self.host, status=1, stderr=text)
                self.assertEqual(shown.get("kiss code", ""), kiss)
                shown = self.json(self.host, status=1, stderr=text)
                self.assertEqual((shown["ok"], shown["kiss_code"] or ""), (False, kiss))
                self.assertIsNotNone(shown["refusal"])
                self.assertEqual(shown["error"]["number"], 100000 if "transmit" in fields else 0)

    def test_survey(self):
        servers = [self.server, sntp_server(), sntp_server(), sntp_server()]
        for server in servers[1:]:
            self.addCleanup(server.close)
        for server, fields in zip(servers, ({}, {"ahead": 3600}, {"leap": 3}, {})):
            server.answer = lambda question, fields=fields: sntp_reply(
                question, root_dispersion=0x8000, **fields)
        hosts = [server.host for server in servers]
        shown = self.json(*hosts, "--samples", "2")
        self.assertEqual([server["state"] for server in shown["servers"]],
                         ["agrees", "false ticker", "left out", "agrees"])
        self.assertEqual([server["samples"] for server in shown["servers"]], [2, 2, 0, 2])
        self.assertEqual(shown["ok"], True)
        self.assertLessEqual(abs(shown["offset"]), shown["bound"])
        printed = self.text(*hosts, "--samples", "1")
        self.assertRegex(printed, r"(?m)^offset [+-]0\.\d{6} s \+/- 0\.\d{6} s ")
        self.assertIn("its clock is not set", printed)
        self.text(*hosts[:2], status=1, stderr=b"error 100005")
        for wrong in ["--tcp"], ["--samples", "0"], ["--total", "0"], [hosts[0] + ":37"]:
            self.text(*hosts, *wrong, status=2, stderr=wrong[0].encode())


if __name__ == "__main__":
    unittest.main()

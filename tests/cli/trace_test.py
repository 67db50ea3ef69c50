#!/usr/bin/env python3
"""Runs "netro trace" in a network namespace of its own, with routers that exist in words only.

Usage: trace_test.py PATH_OF_NETRO [unittest arguments]
"""

import json
import os
import re
import signal
import socket
import subprocess
import time
import unittest

import echo_network

HAS_NETWORK = echo_network.enter()

from dns_server import A, PTR, DnsServer, Reply, name, record
from echo_hops import ECHO_REPLY, UNREACHABLE, Answer, EchoHops
from echo_network import without_permission
from netro_command import LIMIT, NETRO, Terminal, interrupt, run

HOST = "127.0.0.9"
REACHED = Answer(HOST, ECHO_REPLY)


def straight(hops, delay=0.0):
    """A way with so many routers and the destination behind them."""
    return lambda ttl, _: Answer(f"127.0.{ttl}.1", delay=delay) if ttl <= hops else REACHED


class TraceTestCase(unittest.TestCase):
    def trace(self, *arguments, status=0, stderr=b"", **options):
        done = run("trace", *arguments, **options)
        self.assertEqual(done.returncode, status, (arguments, done))
        if stderr:
            self.assertIn(stderr, done.stderr, arguments)
        else:
            self.assertEqual(done.stderr, b"", arguments)
        self.assertNotIn(b"\x1b", done.stdout + done.stderr)
        return done.stdout.decode()


class UsageTest(TraceTestCase):
    def test_wrong_usage(self):
        for arguments, text in (
            ([], b"HOST"),
            ([""], b"no host name"),
            (["a\x1b[31m"], rb"a\x1B[31m"),
            (["-6", "127.0.0.1"], b"IPv4"),
            (["-4", "::1"], b"IPv6"),
            (["-4", "-6", "a"], b"--ipv4"),
            (["ff02::1"], b"single host"),
            (["fe80::1%nowhere"], b"no IPv6 address"),
            (["fe80::1"], b"fe80::1%eth0"),
            (["a", "b"], b"b"),
            (["224.0.0.1"], b"single host"),
            (["a", "--probes", "0"], b"--probes"),
            (["a", "--probes", "11"], b"--probes"),
            (["a", "--max-hops", "256"], b"--max-hops"),
            (["a", "--size", "65508"], b"--size"),
            (["a", "--timeout", "0"], b"--timeout"),
            (["a", "--timeout", "nan"], b"--timeout"),
        ):
            with self.subTest(arguments):
                self.assertEqual(self.trace(*arguments, status=2, stderr=text), "")


@unittest.skipUnless(HAS_NETWORK, "no network namespace can be made here")
class TraceTest(TraceTestCase):
    def setUp(self):
        self.addCleanup(echo_network.setting, "icmp_echo_ignore_all",
                        echo_network.setting("icmp_echo_ignore_all", "1"))
        self.hops = EchoHops(straight(3))
        self.addCleanup(self.hops.close)

    def trace(self, *arguments, **expected):
        self.hops.times_to_live.clear()
        return super().trace(*arguments, **expected)

    def rows(self, *arguments, **expected):
        """The words of each row; times are "ms"."""
        head, columns, *rows = self.trace(HOST, *arguments, **expected).splitlines()
        self.assertRegex(head, rf"\ATRACE {HOST}: \d+ hops at most, \d+ bytes of data\Z")
        self.assertRegex(columns, r"\Ahop  address +loss +ms( +name)?\Z")
        return [re.sub(r"\b\d+\.\d{3}\b(?!\.)", "ms", row).split() for row in rows]

    def test_rows(self):
        """Two ways, silence, loss, and names where there are some."""
        self.hops.answers = lambda ttl, count: {
            1: Answer("127.0.1.1"), 2: Answer(f"127.0.2.{1 + count % 2}"),
            4: Answer("127.0.4.1", delay=0.2) if count != 1 else None, 5: REACHED}.get(ttl)
        names = DnsServer()
        self.addCleanup(names.close)
        for number in 1, 4:
            query = f"1.{number}.0.127.in-addr.arpa"
            names.udp[query] = Reply([record(query, PTR, name(f"r{number}.test"))])
        wanted = [["1", "127.0.1.1", "0%", "ms", "ms", "ms", "r1.test"],
                  ["2", "127.0.2.1", "0%", "ms", "ms"],
                  ["127.0.2.2", "ms"],
                  ["3", "*", "100%", "*", "*", "*"],
                  ["4", "127.0.4.1", "33%", "ms", "*", "ms", "r4.test"],
                  ["5", HOST, "0%", "ms", "ms", "ms"]]
        begin = time.monotonic()
        self.assertEqual(self.rows("--dns", names.address, "-t20"), wanted)
        self.assertLess(time.monotonic() - begin, 10, "silent hops are not waited for to the end")
        names.asked.clear()
        for row in wanted:
            row[:] = [word for word in row if not word.endswith(".test")]
        self.assertEqual(self.rows("--numeric", "--dns", names.address, "-t1"), wanted)
        self.assertFalse(names.asked.is_set())

    def test_all_hops_at_once(self):
        self.hops.answers = straight(20, delay=0.3)
        begin = time.monotonic()
        self.assertEqual(len(self.rows("-n")), 21)
        self.assertLess(time.monotonic() - begin, 3, "the sum would be 6 s and more")

    def test_near_destination_is_not_flooded(self):
        self.rows("-n", "-s", "1000")
        self.assertLess(max(self.hops.times_to_live), 15)
        self.assertLess(len(self.hops.times_to_live), 25)

    def test_names_do_not_hold_up_the_trace(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
            silent.bind(("127.0.0.1", 0))
            begin = time.monotonic()
            rows = self.rows("--dns", f"127.0.0.1:{silent.getsockname()[1]}")
        self.assertLess(time.monotonic() - begin, 3)
        self.assertEqual([len(row) for row in rows], [6] * 4)

    def test_refusals_end_the_way(self):
        for answer, text, status in (
            (Answer("127.0.2.1", UNREACHABLE, 0), "Destination Network Not Reachable", 1),
            (Answer("127.0.2.1", UNREACHABLE, 13), "Destination Host Not Reachable", 1),
            (Answer(HOST, UNREACHABLE, 3), "Destination Port Not Reachable", 0),
        ):
            self.hops.answers = lambda ttl, _: answer if ttl > 1 else Answer("127.0.1.1")
            stderr = f"{HOST} was not reached: {text} (error 1100".encode() if status else b""
            rows = self.rows("-n", status=status, stderr=stderr)
            self.assertEqual(rows[1:], [["2", answer.source, "0%", "ms", "ms", "ms", *text.split()]])

    def test_ipv6(self):
        for host, label in ("0:0::1", "0:0::1 (::1)"), ("localhost", "localhost (::1)"):
            head, columns, row = self.trace(host, "-6", "-n").splitlines()
            self.assertTrue(head.startswith(f"TRACE {label}: "), head)
            self.assertEqual(columns.index("loss"), row.index("0%") - 2, "the columns fit")
            self.assertRegex(row, r"\A  1  ::1 +0%( +\d+\.\d{3}){3}\Z")

    def test_limits(self):
        self.assertEqual(len(self.rows("-n", "-m2", status=1, stderr=b"--max-hops")), 2)
        self.hops.answers = lambda *_: None
        rows = self.rows("-n", "-m3", "-q2", "-t0.1", status=1, stderr=b"error 11010")
        self.assertEqual(rows, [[str(i), "*", "100%", "*", "*"] for i in range(1, 4)])

    def test_json(self):
        self.hops.answers = lambda ttl, count: (
            REACHED if ttl > 1 else Answer("127.0.1.1") if count == 0 else None)
        shown = json.loads(self.trace("localhost", "--json", "-n", "-q2", "-t0.2", status=1,
                                      stderr=b"localhost was not reached within 30 hops"))
        self.assertEqual((shown["host"], shown["address"]), ("localhost", "127.0.0.1"))
        shown = json.loads(self.trace(HOST, "--json", "-n", "-q2", "-s40"))
        self.assertEqual([shown[key] for key in ("ok", "socket", "interrupted", "error", "size")],
                         [True, "datagram", False, {"number": 0, "text": ""}, 40])
        first, last = shown["hops"]
        self.assertEqual((first["hop"], first["loss_percent"], first["hosts"]),
                         (1, 50, [{"address": "127.0.1.1", "name": None}]))
        self.assertEqual([(probe["status"], probe["from"]) for probe in first["probes"]],
                         [(11013, "127.0.1.1"), (11010, None)])
        self.assertEqual((last["probes"][1]["from"], last["probes"][1]["text"]), (HOST, ""))
        self.assertGreater(last["probes"][1]["ms"], 0)

    def test_unknown_name(self):
        names = DnsServer()
        self.addCleanup(names.close)
        names.udp["all.test"] = Reply([record("all.test", A, bytes([224, 0, 0, 1]))])
        for host in "none.test", "all.test":
            self.assertEqual(self.trace(host, "--dns", names.address, status=1,
                                        stderr=f"cannot look up {host}: ".encode()), "")

    def test_no_permission(self):
        for text in b"net.ipv4.ping_group_range", b"cap_net_raw+ep " + NETRO.encode():
            self.assertEqual(self.trace(HOST, status=1, stderr=text,
                                        preexec_fn=without_permission), "")
        shown = json.loads(self.trace(HOST, "--json", status=1, stderr=b"-10001",
                                      preexec_fn=without_permission))
        self.assertEqual((shown["ok"], shown["socket"], shown["error"]["number"], shown["hops"]),
                         (False, None, -10001, []))

    def test_rows_come_one_by_one_until_the_interrupt(self):
        self.hops.answers = lambda ttl, _: Answer("127.0.1.1") if ttl == 1 else None
        with subprocess.Popen([NETRO, "trace", HOST, "-n", "-t60"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            while b"127.0.1.1" not in process.stdout.readline():
                self.assertIsNone(process.poll())
            process.send_signal(signal.SIGINT)
            output, errors = process.communicate(timeout=LIMIT)
        self.assertEqual((process.returncode, output), (1, b""))
        self.assertIn(b"error 9999", errors)

    def test_interrupt_ends_a_lookup(self):
        names = DnsServer()
        self.addCleanup(names.close)
        names.udp["one.test"] = None
        status, text = interrupt(names.asked, "trace", "one.test", "--dns", names.address)
        self.assertEqual((status, text.count(b"9999")), (1, 1))

    def test_reader_that_goes_away(self):
        with subprocess.Popen([NETRO, "trace", HOST], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            process.stdout.close()
            self.assertEqual(process.stderr.read(), b"")
        self.assertEqual(process.returncode, 1)

    def test_terminal(self):
        for setting, colour in ({}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "dumb"}, False):
            status, text = Terminal("trace", HOST, "-n", environment=setting).finish()
            self.assertEqual((status, b"\x1b[" in text), (0, colour))
            self.assertIn(b"\r\n  4  127.0.0.9 ", text)


if __name__ == "__main__":
    unittest.main()

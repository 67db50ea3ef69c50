#!/usr/bin/env python3
"""Runs "netro trace" in a network namespace of its own, with routers that exist in words only.

Usage: trace_test.py PATH_OF_NETRO [unittest arguments]
"""

import os
import re
import signal
import socket
import subprocess
import unittest

import echo_network

HAS_NETWORK = echo_network.enter()

from dns_server import PTR, DnsServer, Reply, name, record
from echo_hops import ECHO_REPLY, UNREACHABLE, Answer, EchoHops
from echo_network import EchoTestCase
from netro_command import LIMIT, NETRO, CommandTestCase, Terminal

HOST = "127.0.0.9"
REACHED = Answer(HOST, ECHO_REPLY)


def straight(hops, after=0):
    """A way with so many routers and the destination behind them."""
    return lambda ttl, _: Answer(f"127.0.{ttl}.1", after=after) if ttl <= hops else REACHED


class UsageTest(CommandTestCase):
    command = "trace",

    def test_wrong_usage(self):
        self.check_usage(
            ([], b"HOST"),
            (["a\x1b[31m"], rb"a\x1B[31m"),
            (["ff02::1"], b"single host"),
            (["a", "b"], b"b"),
            (["a", "--cycles", "3"], b"--live"))
        self.check_options("a --probes 11", "a --max-hops 256", "a --size 65508", "a --timeout nan",
                           "a --report --live", "a --tcp --udp", "a --port 80",
                           "a --port 65536 --udp")


@unittest.skipUnless(HAS_NETWORK, "no network namespace can be made here")
class TraceTest(EchoTestCase):
    command = "trace",

    def setUp(self):
        self.set("icmp_echo_ignore_all", "1")
        self.hops = self.serve(EchoHops(straight(3)))

    def netro(self, *arguments, **expected):
        self.hops.times_to_live.clear()
        return super().netro(*arguments, **expected)

    def rows(self, *arguments, **expected):
        """The words of each row; times are "ms"."""
        head, columns, *rows = self.text(HOST, *arguments, **expected).splitlines()
        self.assertRegex(head, rf"\ATRACE {HOST}: \d+ hops at most, \d+ bytes of data\Z")
        self.assertRegex(columns, r"\Ahop  address +loss +ms( +name)?\Z")
        return [re.sub(r"\b\d+\.\d{3}\b(?!\.)", "ms", row).split() for row in rows]

    def test_rows(self):
        """Two ways, silence, which is not waited for to the end, loss, and names if there are some."""
        self.hops.answers = lambda ttl, count: {
            1: Answer("127.0.1.1"), 2: Answer(f"127.0.2.{1 + count % 2}"),
            4: Answer("127.0.4.1", after=5) if count != 1 else None, 5: REACHED}.get(ttl)
        names = self.serve(DnsServer())
        for number in 1, 4:
            query = f"1.{number}.0.127.in-addr.arpa"
            names.udp[query] = Reply([record(query, PTR, name(f"r{number}.test"))])
        wanted = [["1", "127.0.1.1", "0%", "ms", "ms", "ms", "r1.test"],
                  ["2", "127.0.2.1", "0%", "ms", "ms"],
                  ["127.0.2.2", "ms"],
                  ["3", "*", "100%", "*", "*", "*"],
                  ["4", "127.0.4.1", "33%", "ms", "*", "ms", "r4.test"],
                  ["5", HOST, "0%", "ms", "ms", "ms"]]
        self.assertEqual(self.rows("--dns", names.address, "-t99"), wanted)
        names.asked.clear()
        for row in wanted:
            row[:] = [word for word in row if not word.endswith(".test")]
        self.assertEqual(self.rows("--numeric", "--dns", names.address, "-t99"), wanted)
        self.assertFalse(names.asked.is_set())

    def two_routers(self):
        """A hop with two routers, and one that is silent every third time."""
        self.hops.answers = lambda ttl, count: {
            1: Answer(f"127.0.1.{1 + count % 2}"),
            2: Answer("127.0.2.1") if count % 3 else None, 3: REACHED}.get(ttl)

    def test_report(self):
        self.two_routers()
        arguments = (HOST, "--report", "-c3", "-i0.05", "-n", "-t2")
        head, columns, *rows = self.text(*arguments).splitlines()
        self.assertEqual(head, f"TRACE {HOST}: 3 cycles, times in ms")
        self.assertEqual(columns.split(), ["hop", "address", "loss", "sent", "last", "avg", "best",
                                           "worst", "dev"])
        self.assertEqual([row.split()[:4] for row in rows],
                         [["1", "127.0.1.1", "0.0%", "3"], ["127.0.1.2"],
                          ["2", "127.0.2.1", "33.3%", "3"], ["3", HOST, "0.0%", "3"]])
        shown = self.json(*arguments)
        self.assertEqual([shown["ok"], shown["cycles"], shown["probe"]], [True, 3, "icmp"])
        self.assertEqual([sorted(probe["status"] for probe in hop["probes"])
                          for hop in shown["hops"]], [[11013] * 3, [11010, 11013, 11013], [0] * 3])

    def test_a_way_that_becomes_longer(self):
        """Where the destination was a router answers, or nobody."""
        for longer in (Answer("127.0.1.9"), None):
            self.hops.answers = lambda ttl, count, longer=longer: (
                REACHED if ttl == 3 or self.hops.times_to_live.count(1) < 4
                else longer if ttl == 1 else Answer("127.0.2.9"))
            text = self.text(HOST, "--report", "-c12", "-i0.2", "-n", "-t0.4")
            rows = [row.split()[:2] for row in text.splitlines()[2:] if row.split()[0].isdigit()]
            self.assertEqual(rows, [["1", HOST], ["2", "127.0.2.9"], ["3", HOST]], text)

    def test_live_table(self):
        """Redrawn in place; Ctrl-C leaves the whole table and a terminal as it was."""
        self.two_routers()
        terminal = Terminal("trace", "--live", "-n", "-i0.1", HOST)
        for wanted in b"A\x1b[1mTRACE ", b"127.0.1.2":  # drawn over the first, with both routers
            terminal.read_until(wanted)
        os.kill(terminal.pid, signal.SIGINT)
        status, text = terminal.finish()
        self.assertEqual(status, -signal.SIGINT)
        self.assertNotIn(b"\x1b[?", text)
        last = text[text.rindex(b"TRACE "):]
        self.assertEqual(last.count(b"127.0.1."), 2)
        self.assertTrue(last.endswith(b"\r\n\x1b[J"), last)
        shown = self.text("--live", "--cycles", "2", "-n", "-i0.05", HOST)
        self.assertEqual(shown.count("TRACE"), 1, "no terminal: once, at the end")

    def test_all_hops_at_once(self):
        """No router answers before the last of them has been asked."""
        self.hops.answers = straight(20, after=20)
        self.assertEqual([row.count("ms") for row in self.rows("-n", "-t99")], [3] * 21)

    def test_near_destination_is_not_flooded(self):
        """The system answers faster than the next request goes out."""
        self.set("icmp_echo_ignore_all", "0")
        self.hops.answers = lambda *_: None
        self.rows("-n", "-s", "1000")
        self.assertLess(max(self.hops.times_to_live), 15)
        self.assertLess(len(self.hops.times_to_live), 25)

    def test_names_do_not_hold_up_the_trace(self):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
            silent.bind(("127.0.0.1", 0))
            rows = self.rows("--dns", f"127.0.0.1:{silent.getsockname()[1]}")
        self.assertEqual([len(row) for row in rows], [6] * 4)

    def test_refusals_end_the_way(self):
        for answer, text, status in (
            (Answer("127.0.2.1", UNREACHABLE, 0), "Destination Network Not Reachable", 1),
            (Answer("127.0.2.1", UNREACHABLE, 13), "Packet Filtered", 1),
            (Answer(HOST, UNREACHABLE, 3), "Destination Port Not Reachable", 0),
        ):
            self.hops.answers = lambda ttl, _: answer if ttl > 1 else Answer("127.0.1.1")
            stderr = f"{HOST} was not reached: Destination ".encode() if status else b""
            rows = self.rows("-n", status=status, stderr=stderr)
            self.assertEqual(rows[1:], [["2", answer.source, "0%", "ms", "ms", "ms", *text.split()]])

    def test_ipv6(self):
        for host, label in ("0:0::1", "0:0::1 (::1)"), ("localhost", "localhost (::1)"):
            head, columns, row = self.text(host, "-6", "-n").splitlines()
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
        shown = self.json("localhost", "-n", "-q2", "-t0.2", status=1,
                          stderr=b"localhost was not reached within 30 hops")
        self.assertEqual((shown["host"], shown["address"]), ("localhost", "127.0.0.1"))
        shown = self.json(HOST, "-n", "-q2", "-s40")
        self.assertEqual([shown[key] for key in ("ok", "socket", "interrupted", "error", "size")],
                         [True, "datagram", False, {"number": 0, "text": ""}, 40])
        first, last = shown["hops"]
        self.assertEqual((first["hop"], first["loss_percent"], first["hosts"]),
                         (1, 50, [{"address": "127.0.1.1", "name": None}]))
        self.assertEqual([(probe["status"], probe["from"]) for probe in first["probes"]],
                         [(11013, "127.0.1.1"), (11010, None)])
        self.assertEqual((last["probes"][1]["from"], last["probes"][1]["text"]), (HOST, ""))
        self.assertGreater(last["probes"][1]["ms"], 0)

    def test_unknown_names(self):
        self.check_unknown_names()

    def test_no_permission(self):
        self.assertEqual(self.check_no_permission(HOST)["hops"], [])

    def test_rows_come_one_by_one_until_the_interrupt(self):
        self.hops.answers = lambda ttl, _: Answer("127.0.1.1") if ttl == 1 else None
        with subprocess.Popen([NETRO, "trace", HOST, "-n", "-t60"], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            while b"127.0.1.1" not in process.stdout.readline():
                self.assertIsNone(process.poll())
            process.send_signal(signal.SIGINT)
            output, errors = process.communicate(timeout=LIMIT)
        self.assertEqual((process.returncode, output), (-signal.SIGINT, b""))
        self.assertIn(b"error 9999", errors)

    def test_interrupt_ends_a_lookup(self):
        self.check_interrupted_lookup("one")

    def test_reader_that_goes_away(self):
        self.check_lost_reader(HOST)

    def test_terminal(self):
        self.check_colours(HOST, "-n", wanted=b"\r\n  4  127.0.0.9 ")


if __name__ == "__main__":
    unittest.main()

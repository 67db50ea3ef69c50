#!/usr/bin/env python3
"""Runs "netro ping" in a network namespace of its own: lines, tables, statistics, exit statuses.

Usage: ping_test.py PATH_OF_NETRO [unittest arguments]
"""

import json
import os
import re
import resource
import signal
import statistics
import subprocess
import unittest

import echo_network

HAS_NETWORK = echo_network.enter()

from dns_server import A, AAAA, Reply, record
from echo_network import EchoTestCase, without_group
from netro_command import LIMIT, NETRO, SWITCH_OF_STACKS, Started, Terminal, run

LOOPBACK = "127.0.0.1"
NO_ROUTE = "10.9.9.9"


class UsageTest(EchoTestCase):
    command = "ping",

    def test_wrong_usage(self):
        self.check_usage(
            ([], b"HOST"),
            (["a b"], b"no host name"),
            (["a\x1b[31m"], rb"a\x1B[31m"),
            (["-6", "127.0.0.1"], b"IPv4"),
            (["-4", "::1"], b"IPv6"),
            (["fe80::1%nowhere"], b"no IPv6 address"),
            (["fe80::1"], b"fe80::1%eth0"),
            (["a:80"], b"port"),
            (["127.0.0.1", "224.0.0.1"], b"single host"),
            (["a", "--file", "/no/file"], b"cannot read /no/file"),
            (["--file", "/dev/null"], b"names no host"),
            (["10.0.0.0/15"], b"/16 is the largest"),
            (["fd00::/111"], b"/112 is the largest"),
            (["10.0.0/24"], b"is no network"),
            (["fd00::/129"], b"is no network"))
        self.check_options("--ipv4 --ipv6 a", "a --count -1", "a --interval 0", "a --interval nan",
                           "a --timeout 3601", "a --size 65508", "a --ttl 256", "a --ttl 0",
                           "a --count 0x10", "a --alive --json", "a --json --json-lines")


@unittest.skipUnless(HAS_NETWORK, "no network namespace can be made here")
class PingTest(EchoTestCase):
    command = "ping",

    # --- what is shown

    def test_lines(self):
        shown = self.text(LOOPBACK, "-c", "3", "-i", "0.01", "-s", "100")
        self.assertRegex(shown, r"\APING 127\.0\.0\.1: 100 bytes of data\n"
                         r"(100 bytes from 127\.0\.0\.1: seq=\d ttl=64 time=\d+\.\d{3} ms\n){3}"
                         r"\n--- 127\.0\.0\.1 ---\n3 sent, 3 received, 0% loss\n"
                         r"min/avg/max/deviation (\d+\.\d{3}/){3}\d+\.\d{3} ms\n\Z")
        self.assertEqual(re.findall(r"seq=(\d)", shown), ["1", "2", "3"])
        self.assertRegex(self.text(LOOPBACK, "-q", "-c1"), r"\A--- .* ---\n1 sent.*\nmin/.*\n\Z")
        self.assertIn("0% loss", self.text("-c0", "-i0.01", "--deadline", "0.3", LOOPBACK))

    def test_networks_and_files(self):
        """Both stand for hosts; only those that answer are printed."""
        hosts = b"127.0.1.1 # the first\n\n127.0.1.8/30 127.0.2.4/31\n"
        expected = ["127.0.1.1", "127.0.1.9", "127.0.1.10", "127.0.2.4", "127.0.2.5"]
        shown = self.text("-c1", "--alive", "-f", "-", NO_ROUTE, input=hosts, status=1)
        self.assertEqual(shown.splitlines(), expected)
        self.assertEqual(self.text("-c1", "-a", "::1/128"), "::1\n")
        shown = self.text("-c1", "127.0.0.0/20")
        self.assertIn("4094 of 4094 hosts have answered", shown)

    def test_failures(self):
        """The host is named, and so is what the network said; the others are asked all the same."""
        shown = self.text(NO_ROUTE, LOOPBACK, "-c", "2", "-i", "0.01", status=1)
        self.assertIn("no reply from 10.9.9.9: seq=2 Destination Network Not Reachable\n", shown)
        self.assertIn("--- 10.9.9.9 ---\n2 sent, 0 received, 100% loss\n\n", shown)
        self.assertIn("2 sent, 2 received, 0% loss", shown)
        self.set("icmp_echo_ignore_all", "1")
        shown = self.text(LOOPBACK, "-c", "1", "-t", "0.02", status=1)
        self.assertIn("seq=1 Request Timed Out\n", shown)

    def test_up_to_five_hosts_have_lines(self):
        hosts = [f"127.0.0.{i}" for i in range(1, 7)]
        self.assertEqual(self.text("-c1", *hosts[:5]).count("bytes from"), 5)
        shown = self.text("-c1", *hosts)
        self.assertNotIn("bytes from", shown)
        self.assertEqual(len(shown.splitlines()), 8)

    def test_table_of_many_hosts(self):
        hosts = [f"127.0.{i // 100}.{i % 100 + 1}" for i in range(300)] + [NO_ROUTE]
        head, *rows, last = self.text("-c", "2", "-i", "0.01", *hosts, status=1).splitlines()
        self.assertEqual(head.split()[:8], ["host", "sent", "received", "loss", "min", "avg",
                                            "max", "deviation"])
        self.assertEqual([row.split()[0] for row in rows], hosts)
        for row in rows[:-1]:
            self.assertRegex(row, r"\A\S+ +2 +2 +0%( +\d+\.\d{3}){4}\Z")
        self.assertRegex(rows[-1], r"\A\S+ +2 +0 +100%( +-){4}  Destination Network Not Reach")
        self.assertEqual(last, "300 of 301 hosts have answered")

    def test_terminal(self):
        self.check_colours("-c1", LOOPBACK)
        hosts = [f"127.0.0.{i}" for i in range(1, 7)]
        terminal = Terminal("ping", "-c0", *hosts)
        terminal.read_until(b"6 of 6 hosts have answered")
        os.kill(terminal.pid, signal.SIGINT)
        status, text = terminal.finish()
        self.assertEqual(status, -signal.SIGINT)
        self.assertIn(b"\r\x1b[K\x1b[2mhost ", text)

    # --- figures

    def test_json(self):
        shown = self.json("-c", "20", "-i", "0.002", "-t", "0.5", LOOPBACK)
        self.assertEqual(
            [shown[key] for key in ("ok", "socket", "interrupted", "error", "count", "interval",
                                    "timeout", "size")],
            [True, "datagram", False, {"number": 0, "text": ""}, 20, 0.002, 0.5, 32])
        host, = shown["hosts"]
        self.assertEqual(
            [host[key] for key in ("host", "address", "ok", "error", "sent", "received",
                                   "not_awaited", "loss_percent")],
            [LOOPBACK, LOOPBACK, True, {"number": 0, "text": ""}, 20, 20, 0, 0])
        replies = host["replies"]
        self.assertEqual([reply["seq"] for reply in replies], list(range(1, 21)))
        for reply in replies:
            self.assertEqual((reply["status"], reply["text"], reply["from"], reply["ttl"]),
                             (0, "", LOOPBACK, 64))
        times = [reply["ms"] for reply in replies]
        for key, figure in (("min_ms", min), ("avg_ms", statistics.mean), ("max_ms", max),
                            ("deviation_ms", statistics.pstdev)):
            self.assertAlmostEqual(host[key], figure(times), places=6, msg=key)
        self.assertGreaterEqual(shown["seconds"], 19 * 0.002)

    def test_json_lines(self):
        """Each reply is there when it comes, and the same is said as in the object."""
        with Started(*self.command, "-c2", "-i0.5", LOOPBACK, NO_ROUTE, "--json-lines") as process:
            first = json.loads(process.stdout.readline())
            self.assertIsNone(process.poll())
            lines = [first, *map(json.loads, process.communicate(timeout=LIMIT)[0].splitlines())]
        self.assertEqual([line["event"] for line in lines], ["reply"] * 4 + ["host"] * 2 + ["end"])
        self.assertEqual({line["host"] for line in lines[:4]}, {LOOPBACK, NO_ROUTE})
        whole = self.json("-c1", LOOPBACK)
        host, = whole.pop("hosts")
        reply, = host.pop("replies")
        names = ["event", "host", "address"]
        for line, wanted in (lines[0], names + [*reply]), (lines[4], ["event", *host]), (
                lines[6], ["event", *whole]):
            self.assertEqual([*line], wanted)

    def test_json_of_failures(self):
        shown = self.json("-q", "-c2", "-i0.01", NO_ROUTE, LOOPBACK, status=1)
        lost, good = shown["hosts"]
        self.assertFalse(shown["ok"] or lost["ok"] or "replies" in lost)
        self.assertEqual([lost[key] for key in ("sent", "received", "loss_percent", "min_ms")],
                         [2, 0, 100, None])
        self.assertEqual((lost["error"]["number"], good["received"]), (11002, 2))

    def test_loss(self):
        """The system stops answering in between."""
        with subprocess.Popen([NETRO, "ping", "-c0", "-i0.1", "-t0.1", LOOPBACK],
                              stdout=subprocess.PIPE, text=True) as process:
            lines = [process.stdout.readline() for _ in range(3)]  # heading and two replies
            self.set("icmp_echo_ignore_all", "1")
            while "Timed Out" not in lines[-1]:
                lines.append(process.stdout.readline())
            process.send_signal(signal.SIGINT)
            shown = "".join(lines) + process.communicate(timeout=LIMIT)[0]
        figures = re.search(r"\n(\d+) sent, (\d+) received,( (\d+) not awaited,)? ([\d.]+)% loss\n", shown)
        sent, received, _, not_awaited, loss = figures.groups()
        self.assertEqual(int(received), shown.count("bytes from"))
        ended = int(sent) - int(not_awaited or 0)
        self.assertAlmostEqual(float(loss), 100 * (1 - int(received) / ended), places=2)

    # --- names

    def test_names(self):
        names = self.name_server(one=Reply([record("one.test", A, bytes([127, 0, 0, 7]))]))
        options = ["--dns", names.address, "-c1"]
        shown = self.text("one.test", *options)
        self.assertIn("32 bytes from one.test (127.0.0.7): seq=1 ", shown)
        self.check_unknown_names("localhost", "-c1", shown="\n1 sent, 1 received, 0% loss\n")
        self.assertEqual(self.text("none.test", *options, status=1, stderr=b"none.test"), "")
        none, one = self.json("none.test", "one.test", *options, status=1, stderr=b"none")["hosts"]
        self.assertEqual((none["address"], none["error"]["number"], none["sent"]), (None, 59, 0))
        self.assertEqual((one["address"], one["ok"]), ("127.0.0.7", True))

    def test_families(self):
        """A name stands for its IPv4 address, unless another is asked for."""
        names = self.name_server(six=Reply([record("six.test", AAAA, bytes(15) + b"\1")]))
        options = ["--dns", names.address, "-c1"]
        shown = self.text("0:0::1", "six.test", "localhost", *options)
        for label in "0:0::1 (::1)", "six.test (::1)", "localhost (127.0.0.1)":
            self.assertIn(f"32 bytes from {label}: seq=1 ttl=64 ", shown)
        self.assertIn("localhost (::1): ", self.text("localhost", "-6", *options))
        self.assertEqual(self.text("six.test", "-4", *options, status=1, stderr=b"six.test"), "")
        host, = self.json("::1", "-c1")["hosts"]
        self.assertEqual((host["address"], host["replies"][0]["from"]), ("::1", "::1"))

    # --- permission

    def test_raw_socket(self):
        for host in LOOPBACK, "::1":
            shown = self.json("-c1", host, status=1, preexec_fn=without_group)  # which is not up
            self.assertEqual((shown["socket"], shown["error"]["number"]), ("raw", 0))

    def test_no_permission(self):
        self.assertEqual(self.check_no_permission(LOOPBACK)["hosts"][0]["sent"], 0)

    def test_no_descriptor(self):
        """Which is another matter, and no permission helps."""
        def limit(most):
            return lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
        told = [run("ping", "-c1", LOOPBACK, preexec_fn=limit(most)).stderr for most in range(4, 10)]
        if any(b"invalid vptr" in text for text in told):
            self.skipTest("the sanitizer wants descriptors of its own")
        self.assertTrue(any(b"(ulimit -n)" in text for text in told), told)
        self.assertFalse(any(b"cap_net_raw" in text for text in told), told)

    # --- the end

    def interrupt_after(self, line, *arguments):
        """Sends Ctrl-C once such a line is there; returns status and what came after it."""
        with subprocess.Popen([NETRO, "ping", *arguments], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True) as process:
            while line not in process.stdout.readline():
                self.assertIsNone(process.poll())
            process.send_signal(signal.SIGINT)
            output, errors = process.communicate(timeout=LIMIT)
        self.assertEqual(SWITCH_OF_STACKS.sub(b"", errors.encode()), b"")
        return process.returncode, output

    def test_interrupt_shows_the_statistics(self):
        for host in LOOPBACK, "localhost":
            status, shown = self.interrupt_after("seq=2", "-c0", "-i0.05", host)
            self.assertEqual(status, -signal.SIGINT)
            self.assertRegex(shown, r"\n\d+ sent, \d+ received(, 1 not awaited)?, 0% loss\nmin/")

    def test_requests_on_their_way_are_not_lost(self):
        self.set("icmp_echo_ignore_all", "1")
        status, shown = self.interrupt_after("PING", LOOPBACK)
        self.assertEqual(status, -signal.SIGINT)
        self.assertRegex(shown, r"\A\n--- .* ---\n(\d) sent, 0 received, \1 not awaited\n\Z")

    def test_interrupt_ends_a_lookup(self):
        self.check_interrupted_lookup("one", "two")

    def test_reader_that_goes_away(self):
        self.check_lost_reader("-c0", "-i0.01", LOOPBACK)


if __name__ == "__main__":
    unittest.main()

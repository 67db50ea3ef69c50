#!/usr/bin/env python3
"""Runs "netro mac" in a network namespace of its own, with two adapters and a neighbour.

Usage: mac_test.py PATH_OF_NETRO [unittest arguments]
"""

import struct
import subprocess
import unittest
from unittest import mock

import echo_network

HAS_NETWORK = echo_network.enter()

from loopback_server import LoopbackServer
from netro_command import CommandTestCase

OWN, NEIGHBOUR = "02:00:5E:00:00:0A", "02:00:5E:00:00:0B"
NETWORK = f"""link add left type veth peer name right
link set left address {OWN} up
link set right up
address add 10.77.0.1/24 dev left
neighbour add 10.77.0.2 lladdr {NEIGHBOUR} dev left nud permanent
address add fd77::1/64 dev left nodad
neighbour add fd77::2 lladdr {NEIGHBOUR} dev left nud permanent
neighbour add fe80::2 lladdr {NEIGHBOUR} dev left nud permanent
"""


class NodeStatusServer(LoopbackServer):
    """NetBIOS on loopback (RFC 1002, section 4.2.18); reply is what it says behind the header, and
    None is silence."""

    def __init__(self, names, statistics):
        data = bytes([names]) + bytes(18 * names) + statistics
        self.reply = (b"\x20CK" + b"A" * 30 + b"\0" + struct.pack("!HHIH", 33, 1, 0, len(data)) +
                      data)
        super().__init__(port=137)

    def serve_datagram(self, question, client):
        self.asked.set()
        if self.reply is not None:
            header = struct.pack("!2sHHHHH", question[:2], 0x8400, 0, 1, 0, 0)
            self.datagrams.sendto(header + self.reply, client)


class UsageTest(CommandTestCase):
    command = "mac",

    def test_wrong_usage(self):
        self.check_usage(
            ([""], b"HOST"),
            (["::1:"], b"IPv6"),
            (["a", "b"], b"b"),
            (["224.0.0.1"], b"single host"),
            (["--netbios"], b"HOST"),
            (["a", "--timeout", "nan"], b"--timeout"))


@unittest.skipUnless(HAS_NETWORK, "no network namespace can be made here")
class MacTest(CommandTestCase):
    command = "mac",

    def setUp(self):
        subprocess.run(["ip", "-batch", "-"], input=NETWORK.encode(), check=True)
        self.addCleanup(subprocess.run, ["ip", "link", "delete", "left"], check=True)

    def test_own_adapters(self):
        lines = [line.split() for line in self.text().splitlines()]
        self.assertEqual(lines[0][:4], ["adapter", "name", "MAC", "address"])
        rows = [line for line in lines if len(line) > 1][1:]
        self.assertEqual([row[:2] for row in sorted(rows, key=lambda row: row[1])],
                         [[mock.ANY, "left"], [mock.ANY, "right"]])
        left = next(line for line in lines if OWN in line)
        self.assertEqual(left[1], "left")
        self.assertEqual([["10.77.0.1"], ["fd77::1"]], lines[lines.index(left) + 1:][:2])
        shown = self.json()
        self.assertEqual((shown["host"], shown["method"], shown["ok"]), (None, "adapters", True))
        self.assertEqual([adapter["number"] for adapter in shown["adapters"]], [0, 1])
        for adapter in shown["adapters"]:
            self.assertEqual((len(adapter["status"]), adapter["status"]["AdapterType"]), (24, 254))
            self.assertEqual(adapter["mac"] == OWN, adapter["name"] == "left")
            self.assertEqual(adapter["mac"] == OWN, "10.77.0.1" in adapter["addresses"])

    def test_no_adapter(self):
        subprocess.run(["ip", "link", "delete", "left"], check=True)
        self.assertEqual(self.text(status=1, stderr=b"none but loopback (error 35)"), "")
        self.assertFalse(self.json(status=1, stderr=b"35")["ok"])
        subprocess.run(["ip", "-batch", "-"], input=NETWORK.encode(), check=True)

    def test_by_arp_and_neighbour_discovery(self):
        for host, label, address in (
            ("10.77.0.1", "10.77.0.1", OWN), ("10.77.0.2", "10.77.0.2", NEIGHBOUR),
            ("10.77.2", "10.77.2 (10.77.0.2)", NEIGHBOUR), ("fd77::1", "fd77::1", OWN),
            ("FD77:0::2", "FD77:0::2 (fd77::2)", NEIGHBOUR),
            ("fe80::2%left", "fe80::2%left", NEIGHBOUR),
        ):
            self.assertEqual(self.text(host), f"{label}  {address}\n")
        for host, method in ("10.77.0.2", "arp"), ("fd77::2", "ndp"):
            shown = self.json(host)
            self.assertEqual((shown["address"], shown["method"], shown["ok"], shown["adapters"]),
                             (host, method, True, [{"number": None, "mac": NEIGHBOUR}]))

    def test_nobody_there(self):
        for host, text in (("127.0.0.1", b"loopback"), ("localhost", b"localhost (127.0.0.1)"),
                           ("10.78.0.1", b"not on a network of this computer"),
                           ("::1", b"loopback"), ("fd78::1", b"no answer by neighbour disc"),
                           ("none.test", b"(error 11002)")):
            self.assertEqual(self.text(host, status=1, stderr=text), "")
        shown = self.json("10.77.0.99", "--timeout", "0.1", status=1, stderr=b"(error 5)")
        self.assertEqual((shown["ok"], shown["error"]["number"], shown["adapters"]), (False, 5, []))
        self.assertLess(shown["seconds"], 2.5)

    def test_node_status(self):
        server = self.serve(
            NodeStatusServer(3, bytes.fromhex("02005e0000ff 0000 0407 0005") + bytes(34)))
        lines = dict((line[:19].rstrip(), line[19:])
                     for line in self.text("127.0.0.1", "--netbios").splitlines())
        self.assertEqual(lines, {"host": "127.0.0.1", "MAC address": "02:00:5E:00:00:FF",
                                 "major version": "4", "minor version": "7", "names": "3",
                                 "minutes counted": "5"})
        shown = self.json("127.0.0.1", "--netbios")
        self.assertEqual((shown["method"], shown["ok"]), ("netbios", True))
        adapter, = shown["adapters"]
        self.assertEqual((adapter["number"], adapter["mac"], adapter["status"]["NameCount"]),
                         (None, "02:00:5E:00:00:FF", 3))
        server.reply = server.reply.replace(bytes.fromhex("02005e0000ff"), bytes(6))
        self.assertIn("not told\n", self.text("127.0.0.1", "--netbios"))

    def test_node_status_fails(self):
        server = self.serve(NodeStatusServer(200, b""))
        server.reply = None
        self.text("127.0.0.1", "--netbios", "-t0.1", status=1, stderr=b"(error 5); it has no NetB")
        self.check_interrupt(server, "127.0.0.1", "--netbios", text=b"(error 11)")

    def test_terminal(self):
        self.check_colours()


if __name__ == "__main__":
    unittest.main()

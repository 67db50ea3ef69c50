#!/usr/bin/env python3
"""Runs "netro dns --trace" down from a root server of its own, in a network namespace of its own.

Usage: dns_trace_test.py PATH_OF_NETRO [unittest arguments]
"""

import ipaddress
import re
import struct
import subprocess
import unittest

import echo_network

HAS_NETWORK = echo_network.enter()

from dns_server import A, AAAA, NS, PTR
from dns_server import DnsServer, Reply, name, record, soa
from netro_command import CommandTestCase

CNAME = 5
ANSWER = record("www.a.test", A, bytes([192, 0, 2, 1]))
OPT = b"\0" + struct.pack(">HHIH", 41, 1232, 0, 0)


def refer(zone, **servers):
    """To servers by name, with an underscore for a dot, and address; None is left out."""
    names = {server.replace("_", "."): address for server, address in servers.items()}
    return refer_to(zone, names)


def refer_to(zone, names):
    glue = [record(server, A if ipaddress.ip_address(address).version == 4 else AAAA,
                   ipaddress.ip_address(address).packed)
            for server, address in names.items() if address]
    return Reply(authority=[record(zone, NS, name(server)) for server in names], additional=glue, flags=0)


class TraceTestCase(CommandTestCase):
    def setUp(self):
        self.root = self.serve(DnsServer())
        self.command = "dns", "@" + self.root.address, "--trace"

    def server(self, last, **replies):
        """At 127.0.0.LAST and the root's port."""
        server = self.serve(DnsServer(f"127.0.0.{last}", self.root.port))
        server.udp.update({asked.replace("_", "."): reply for asked, reply in replies.items()})
        return server

    def family(self, referral=None, answer=None):
        """The root, test. and a.test., of which the second refers so, and the third answers so."""
        self.root.udp["www.a.test"] = refer("test", ns_test="127.0.0.2")
        return (self.server(2, www_a_test=referral or refer("a.test", ns_a_test="127.0.0.3")),
                self.server(3, www_a_test=answer or Reply([ANSWER])))

    def traced(self, outcome, *arguments, asked="www.a.test", status=None, stderr=b""):
        """The JSON object, and its steps in short."""
        good = outcome in ("answer", "no_such_record")
        shown = self.json(asked, *arguments, status=0 if good else 1,
                          stderr=stderr if good else stderr or b"cannot trace")
        self.assertEqual((shown["outcome"], shown["ok"]), (outcome, good), shown)
        return shown, [(step["zone"], step["server"].split(":")[0][8:], step["result"])
                       for step in shown["steps"] if step["depth"] == 0]


class TraceTest(TraceTestCase):
    def test_way_down(self):
        self.family()
        shown = self.netro("www.a.test").decode()
        self.assertEqual(re.sub(r"\d+\.\d ms", "0 ms", shown).replace(f":{self.root.port}", ""), """\
;www.a.test.  IN  A

;; .: 127.0.0.1 over UDP, 0 ms: refers to test.
test. 300 IN NS ns.test.

;; test.: 127.0.0.2 (ns.test.) over UDP, 0 ms: refers to a.test.
a.test. 300 IN NS ns.a.test.

;; a.test.: 127.0.0.3 (ns.a.test.) over UDP, 0 ms: the answer
www.a.test. 300 IN A 192.0.2.1
""")
        for query in self.root.queries:
            self.assertEqual((query[2] & 1, query[-11:]), (0, OPT))
        self.assertEqual(self.netro("WWW.A.test.", "--short"), b"192.0.2.1\n")
        self.check_colours("www.a.test", wanted=b"192.0.2.1")

    def test_json(self):
        self.family()
        shown, way = self.traced("answer")
        self.assertEqual(way, [(".", "1", "referral"), ("test.", "2", "referral"), ("a.test.", "3", "answer")])
        step = shown["steps"][1]
        self.assertEqual((step["question"], step["server_name"], step["status"], step["refers_to"]),
                         ({"name": "www.a.test.", "class": "IN", "type": "A"}, "ns.test.", "NOERROR",
                          "a.test."))
        self.assertEqual([one["data"] for one in step["records"]], ["ns.a.test."])
        self.assertEqual([one["data"] for one in shown["answer"]], ["192.0.2.1"])
        several = self.json("www.a.test", "A", "x.test", status=1, stderr=b"no such name")
        self.assertEqual([one["outcome"] for one in several], ["answer", "no_such_name"])

    def test_other_ends(self):
        alias = Reply([record("www.a.test", CNAME, name("other.test"))])
        last = self.family()[1]
        for outcome, reply in (("no_such_name", Reply(authority=[soa("a.test")], code=3)),
                               ("no_such_record", Reply(authority=[soa("a.test")])), ("answer", alias)):
            with self.subTest(outcome):
                last.udp["www.a.test"] = reply
                self.assertEqual(self.traced(outcome)[1][-1], ("a.test.", "3", outcome))

    def test_reverse_and_strange_names(self):
        owner = "1.2.0.192.in-addr.arpa"
        self.root.udp[owner] = Reply([record(owner, PTR, name("host.test"))])
        for arguments in ["-x", "192.0.2.1"], ["192.0.2.1", "PTR"]:
            self.assertEqual(self.netro("--short", *arguments), b"host.test.\n")
        wire = b"\3a.b\4test\0"  # which is not below b.test
        self.root.udp["a.b.test"] = Reply(authority=[record("b.test", NS, name("ns.b.test"))], flags=0)
        self.traced("dead_end", asked=r"a\.b.test")
        self.root.udp["a.b.test"] = Reply([wire + record("", A, bytes(4))[1:]])
        self.traced("answer", asked=r"a\.b.test")
        self.assertEqual(len(self.traced("dead_end", asked="a..test", stderr=b"no name (error 59)")[1]), 1)

    def test_servers_that_are_of_no_use(self):
        """The second one is asked then."""
        two = refer("a.test", ns1_a_test="127.0.0.4", ns2_a_test="127.0.0.3")
        self.family(two)
        lame = self.server(4)
        for reply, why in (
            (Reply(code=5), "answered REFUSED"), (Reply(code=2), "answered SERVFAIL"),
            (Reply(code=3, flags=0), "answered NXDOMAIN"), (Reply(flags=0), "gave neither"),
            (refer(".", ns="127.0.0.1"), "refers to ., which leads nowhere"),
            (refer("test", ns_test="127.0.0.2"), "refers to test., which"),
            (refer("a.test", ns_a_test="127.0.0.4"), "refers to a.test., which"),
            (refer("b.a.test", ns_a_test="127.0.0.4"), "refers to b.a.test., which"),
            (refer("xa.test", ns_a_test="127.0.0.4"), "refers to xa.test., which"),
            (refer("test.other", ns_other="127.0.0.4"), "refers to test.other., which"),
            (None, "Timed Out"),
        ):
            with self.subTest(why):
                lame.udp["www.a.test"] = reply
                shown, way = self.traced("answer")
                self.assertEqual(way[2:], [("a.test.", "4", "useless"), ("a.test.", "3", "answer")])
                self.assertIn(why.lower(), shown["steps"][2]["reason"].lower())

    def test_dead_ends(self):
        _, last = self.family(refer("a.test", ns_a_test="127.0.0.3", ns2_a_test="127.0.0.99"))
        last.udp["www.a.test"] = refer(".", ns="127.0.0.1")
        shown, way = self.traced("dead_end", stderr=b"A: no server of a.test. knows on (error 11002)")
        self.assertEqual(way[2:], [("a.test.", "3", "useless"), ("a.test.", "99", "useless")])
        self.assertEqual(len(self.root.queries), 1, "an upward referral is not followed")

    def test_timeout_and_interrupt(self):
        self.root.udp["www.a.test"] = None
        shown, way = self.traced("stopped", "-t0.3", stderr=b"0.3 s, --timeout")
        self.assertEqual((shown["error"]["number"], way), (10002, [(".", "1", "useless")]))
        self.check_interrupt(self.root, "www.a.test")

    def test_servers_without_an_address_are_looked_up(self):
        test, _ = self.family(refer("a.test", ns_b_test=None))
        self.root.udp["ns.b.test"] = self.root.udp["www.a.test"]
        test.udp["ns.b.test"] = refer("b.test", ns2_b_test="127.0.0.4")
        self.server(4, ns_b_test=Reply([record("ns.b.test", A, bytes([127, 0, 0, 3]))]))
        shown, way = self.traced("answer")
        self.assertEqual(way[-1], ("a.test.", "3", "answer"))
        self.assertEqual([step["zone"] for step in shown["steps"] if step["depth"] == 1],
                         [".", "test.", "b.test."])
        self.assertIn(b"\n;; for the address of ns.b.test., b.test.: 127.0.0.4:", self.netro("www.a.test"))

    def test_servers_whose_addresses_need_each_other(self):
        test, last = self.family(refer("a.test", ns_b_test=None, ns_a_test=None))
        self.root.udp["ns.b.test"] = self.root.udp["ns.c.test"] = self.root.udp["www.a.test"]
        test.udp["ns.b.test"] = refer("b.test", ns_c_test=None)
        test.udp["ns.c.test"] = refer("c.test", ns_b_test=None)
        shown, _ = self.traced("dead_end", stderr=b"ns.b.test. has no address that could be found")
        self.assertIn("ns.a.test. is named without an address", shown["notes"])
        self.assertLess(len(shown["steps"]), 12)
        self.assertEqual(last.queries, [])

    def test_addresses_count_only_from_who_has_a_say(self):
        _, last = self.family(refer("a.test", ns_a_other="127.0.0.3"))
        self.traced("dead_end", stderr=b"ns.a.other. has no address")
        self.assertEqual((last.queries, len(self.root.queries)), ([], 3))

    def test_many_servers(self):
        self.family(refer_to("a.test", {f"n{i}.a.test": f"127.0.0.{i}" for i in range(20, 50)}))
        shown, way = self.traced("dead_end")
        self.assertEqual((len(way), len(shown["steps"][1]["records"])), (12, 20))
        self.assertIn(b";; and 10 more, which are not used\n",
                      self.netro("www.a.test", status=1, stderr=b"11002"))

    def test_many_zones(self):
        labels = ["x"] * 120
        asked = ".".join(labels)

        class Deeper(DnsServer):
            def replies(self, replies, query):
                self.queries.append(query)
                zone = ".".join(labels[:len(self.queries)])
                return [refer_to(zone, {"ns." + zone: "127.0.0.1"}).message(query)]

        endless = self.serve(Deeper())
        self.command = "dns", "@" + endless.address, "--trace"
        self.traced("dead_end", asked=asked, stderr=b"no more than 100 queries")
        self.assertEqual(len(endless.queries), 100)

    def test_servers_without_edns(self):
        class Old(DnsServer):
            def replies(self, replies, query):
                self.queries.append(query)
                reply = Reply(code=1) if query.endswith(OPT) else Reply([ANSWER])
                return [reply.message(query)]

        old = self.serve(Old())
        self.command = "dns", "@" + old.address, "--trace"
        self.assertEqual(self.netro("www.a.test", "--short"), b"192.0.2.1\n")

    def test_hostile_texts(self):
        bad = b"\x1b[31m\n\xff.a.test"
        self.family(Reply(authority=[record("a.test", NS, name(bad)), record("a.test", NS, name("ok.a.test"))],
                          additional=[record("ok.a.test", A, bytes([127, 0, 0, 3]))], flags=0))
        shown = self.netro("www.a.test")
        self.assertIsNotNone(re.fullmatch(rb"[\n -~]*", shown), shown)
        self.assertIn(rb"a.test. 300 IN NS \027[31m\010\255.a.test.", shown)

    def test_wrong_usage(self):
        for way in ["--zone", "a.test"], ["a.test", "AXFR"]:
            self.check_usage((way, b"--trace"))


@unittest.skipUnless(HAS_NETWORK, "no network namespace can be made here")
class PublicAddressTest(TraceTestCase):
    """The root and test. are at public addresses, and at the usual port."""

    def setUp(self):
        for address in "198.41.0.4", "192.0.2.53":
            subprocess.run(["ip", "address", "add", address + "/32", "dev", "lo"], check=True)
            self.addCleanup(subprocess.run, ["ip", "address", "del", address + "/32", "dev", "lo"])
        self.root = self.serve(DnsServer("198.41.0.4", 53))
        self.test = self.serve(DnsServer("192.0.2.53", 53))
        self.command = "dns", "--trace"

    def test_begins_with_the_root_servers(self):
        self.root.udp["www.a.test"] = refer("test", ns_test="192.0.2.53")
        self.test.udp["www.a.test"] = Reply([ANSWER])
        shown = self.netro("www.a.test")
        self.assertIn(b";; .: 198.41.0.4:53 (a.root-servers.net.) over UDP", shown)
        self.assertIn(b"\nwww.a.test. 300 IN A 192.0.2.1\n", shown)

    def test_public_servers_do_not_lead_to_private_addresses(self):
        inside = self.serve(DnsServer("127.0.0.3", 53))
        self.root.udp["www.a.test"] = self.root.udp["ns.b.test"] = refer("test", ns_test="192.0.2.53")
        self.test.udp["ns.b.test"] = Reply([record("ns.b.test", A, bytes([127, 0, 0, 3]))])
        for servers in {"ns.a.test": "127.0.0.3"}, {"ns.a.test": "::1"}, {"ns.b.test": None}:
            self.test.udp["www.a.test"] = refer_to("a.test", servers)
            self.traced("dead_end", stderr=b"which is not public: not asked")
        self.assertEqual(inside.queries, [])


if __name__ == "__main__":
    unittest.main()

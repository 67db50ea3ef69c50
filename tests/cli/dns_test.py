#!/usr/bin/env python3
"""Runs "netro dns" against a server of its own: what is sent, what is printed, exit statuses.

Usage: dns_test.py PATH_OF_NETRO [unittest arguments]
"""

import ipaddress
import itertools
import os
import re
import signal
import struct
import unittest

from dns_server import AA, AXFR, ANY, A, MX, NS, PTR, RA, SOA, SRV, TC, TXT
from dns_server import DnsServer, Reply, name, record, soa
from netro_command import CommandTestCase, Terminal, interrupt, nobody, run

ADDRESS = bytes([192, 0, 2, 1])
PRINTABLE = re.compile(rb"[\n -~]*")


def known_records():
    """Number, type, bytes and text of one record or more of each type."""
    with open(os.path.join(os.path.dirname(__file__), "dns_records.txt")) as table:
        for line in table:
            if not line.startswith("#"):
                number, kind, data, text = line.rstrip("\n").split(" ", 3)
                yield int(number), kind, bytes.fromhex(data.strip("-")), text


def in_any_form(data):
    """As RFC 3597 writes data of a type that one does not know."""
    return f"\\# {len(data)} {data.hex().upper()}".rstrip()


def records_of(output):
    """The lines that are no comments, split: name, TTL, class, type, data."""
    lines = output.decode("ascii").splitlines()
    return [(line.split(None, 4) + [""])[:5] for line in lines if line and not line.startswith(";")]


def section_of(output, heading):
    part = output.decode("ascii").split(f";; {heading} (")[1].split("\n", 1)
    return int(part[0].rstrip(")")), list(itertools.takewhile(bool, part[1].splitlines()))


class DnsTest(CommandTestCase):
    def setUp(self):
        self.server = self.serve(DnsServer())
        self.command = "dns", "--server", self.server.address

    def netro(self, *arguments, **expected):
        printed = super().netro(*arguments, **expected)
        self.assertIsNotNone(PRINTABLE.fullmatch(printed), printed)
        return printed

    def answers_over_tcp(self, records):
        """What is printed for records of (number, data)."""
        answer = [record("r.test", kind, data) for kind, data in records]
        self.server.tcp["many.test"] = Reply(answer)
        return records_of(self.netro("--tcp", "many.test", "ANY"))

    def test_every_type(self):
        known = list(known_records())
        self.assertGreater(len(known), 100)
        shown = self.answers_over_tcp([(number, data) for number, _, data, _ in known])
        self.assertEqual(len(shown), len(known))
        for (_, kind, _, text), line in zip(known, shown):
            with self.subTest(text):
                self.assertEqual(line, ["r.test.", "300", "IN", kind, text])

    def test_malformed_data_is_shown_as_bytes(self):
        cases = [(number, bytes.fromhex(data)) for number, *several in (
            # A pointer, a label of 64, no end, bytes behind it; a digest of no bytes.
            (39, "C00C", "40" + "41" * 64 + "00", "0161", "016100FF"), (43, "00010502"),
            # Windows out of order, empty and too long; a hash of no bytes.
            (47, "00010140000140", "000000", "000021" + "40" * 33), (30, "00" + "40" * 17),
            (50, "0101000C00000140"), (108, "0123456789ABCD"), (38, "81"), (55, "00020003030001"),
            # A tag that is too long, that has a blank, that is empty; gateways of no type.
            (257, "0005697373", "0003692073 61", "000061"), (45, "0A04020102", "0A010201"),
            # Prefixes that are too long; keys out of order, doubled, cut short or malformed.
            (260, "0A84"), (42, "000121010A", "000308010A", "000108050A00000000"),
            (64, *("000100" + rest for rest in (
                "0003000250FB00010003026832", "0003000250FB0003000250FB", "0003000350FB01",
                "00000003000300", "00000000", "00010003036832", "0002000100", "000400050102030405",
                "0006000401020304", "FF00000901"))),
        ) for data in several]
        for (_, data), line in zip(cases, self.answers_over_tcp(cases)):
            self.assertEqual(line[4], in_any_form(data))

    def test_output(self):
        self.server.udp["mail.test"] = Reply(
            [record("mail.test", MX, struct.pack(">H", 10) + name("a.test"), ttl=4294967295),
             record("Mail.test", MX, struct.pack(">H", 65535) + name(""), ttl=0)],
            [record("test", NS, name("ns.test"))], [record("a.test", A, ADDRESS)], flags=AA | RA)
        shown = self.netro("mail.test", "mx")
        text, _, end = shown.decode().rpartition(";; 127.0.0.1:")
        self.assertEqual(text, """\
;; QUESTION
;mail.test.  IN  MX

;; ANSWER (2)
mail.test.  4294967295  IN  MX  10 a.test.
Mail.test.  0           IN  MX  65535 .

;; AUTHORITY (1)
test.       300         IN  NS  ns.test.

;; ADDITIONAL (1)
a.test.     300         IN  A   192.0.2.1

;; NOERROR, flags aa rd ra
""")
        size = len(self.server.udp["mail.test"].message(self.server.queries[0]))
        self.assertRegex(end, rf"\A{self.server.port} over UDP, \d+\.\d ms, {size} bytes\n\Z")

    def test_what_is_asked(self):
        self.server.both("x.test", Reply([record("x.test", A, ADDRESS)]))
        for options, kind, flags in (
            *[([], A, b"\1\0")] * 9,
            (["mx"], MX, b"\1\0"),
            (["AAAA"], 28, b"\1\0"),
            (["TYPE64"], 64, b"\1\0"),
            (["65"], 65, b"\1\0"),
            (["NSAP-PTR"], 23, b"\1\0"),
            (["65535"], 65535, b"\1\0"),
            (["ALL"], ANY, b"\1\0"),
            (["any"], ANY, b"\1\0"),
            (["--all"], ANY, b"\1\0"),
            (["--no-recursion"], A, b"\0\0"),
            (["--tcp", "SRV"], SRV, b"\1\0"),
        ):
            with self.subTest(options):
                self.netro("x.test", *options)
                query = self.server.queries[-1]
                self.assertEqual(query[2:4], flags)
                self.assertEqual(query[12:], name("x.test") + struct.pack(">HH", kind, 1))
        self.assertEqual(len(self.server.queries), 20)
        self.assertGreater(len({query[:2] for query in self.server.queries}), 15, "random numbers")

    def test_names(self):
        for asked in ".", "x.test.", "X.TEST":
            self.server.udp[asked.strip(".")] = Reply([record(asked, A, ADDRESS)])
            self.assertIn(f";{asked.strip('.')}.  IN  A\n", self.netro(asked).decode())
        self.netro("a..test", status=1, stderr=b"(error 59)")

    def test_escaped_names(self):
        for asked, wire, shown in (
            (r"a\.b.test", b"\3a.b\4test\0", r"a\.b.test."),
            (r"\065\200.test.", b"\2A\xc8\4test\0", r"A\200.test."),
            (r"a\b.test", b"\2ab\4test\0", "ab.test."),
        ):
            self.server.queries.clear()
            owner = wire[:-1].replace(b"\4test", b".test")[1:].decode("latin-1")
            self.server.udp[owner] = Reply([wire + record("", MX, b"\0\1" + wire)[1:]])
            lines = records_of(self.netro(asked, "MX"))
            self.assertEqual(self.server.queries[0][12:], wire + struct.pack(">HH", MX, 1))
            self.assertEqual(lines, [[shown, "300", "IN", "MX", "1 " + shown]])
        self.netro(r"a\256.test", status=1, stderr=b"error 59")
        mailbox = b"\x08john.doe\4test\0"
        self.server.udp["test"] = Reply([record("test", SOA, name("ns.test") + mailbox + bytes(20))])
        self.assertIn(rb" ns.test. john\.doe.test. 0 ", self.netro("test", "SOA"))
        fields = self.json("test", "SOA")["answer"][0]["fields"]
        self.assertEqual((fields["mailbox"], fields["mail_address"]),
                         (r"john\.doe.test.", "john.doe@test"))

    def test_edns(self):
        opt = b"\0" + struct.pack(">HHIH", 41, 4096, 0x01008001, 6) + b"\0\x0f\0\2\0\x12"
        self.server.both("x.test", Reply([record("x.test", A, ADDRESS)], additional=[opt]))
        for options, size, flags in (["--edns", "512"], 512, 0), (["--dnssec"], 1232, 0x8000), \
                                    (["--edns", "65535", "--dnssec", "--tcp"], 65535, 0x8000):
            self.server.queries.clear()
            shown = self.netro("x.test", *options, status=1, stderr=b"BADVERS")
            self.assertEqual(self.server.queries[0][-11:],
                             b"\0" + struct.pack(">HHIH", 41, size, flags, 0))
            self.assertIn(b"\n;; ADDITIONAL (0)\n", shown)
            self.assertIn(b"\n;; BADVERS, flags aa rd\n"
                          b";; EDNS: version: 0, flags: do; MBZ: 0x0001; udp: 4096\n"
                          b";; OPT=15: 00 12\n", shown)
        shown = self.json("x.test", "--dnssec", status=1, stderr=b"BADVERS")
        self.assertEqual(shown["edns"], {"version": 0, "flags": 0x8001, "udp_size": 4096,
                                         "options": [{"code": 15, "data": "0012"}]})
        self.assertIsNone(self.json("x.test")["edns"])

    def test_reverse(self):
        for address, *kind in ["192.0.2.1", "PTR"], ["2001:db8::f1"]:
            owner = ipaddress.ip_address(address).reverse_pointer
            self.server.udp[owner] = Reply([record(owner, PTR, name("host.test"))])
            self.assertEqual(records_of(self.netro(address, "--reverse", *kind)),
                             [[owner + ".", "300", "IN", "PTR", "host.test."]])
        self.assertIn(b";1.2.0.192.in-addr.arpa.  IN  PTR\n", self.netro("192.0.2.1", "PTR"))
        self.netro("192.0.2.1", status=1, stderr=b"--reverse")

    def test_truncated_reply_is_asked_for_over_tcp(self):
        whole = Reply([record("big.test", TXT, b"\1x" * 100)] * 5)
        self.server.tcp["big.test"] = whole
        self.server.udp["big.test"] = Reply(whole.sections[0][:1], flags=TC | AA)
        shown = self.netro("big.test", "TXT")
        self.assertEqual((len(self.server.queries), len(records_of(shown))), (2, 5))
        self.assertIn(b"truncated", shown)
        self.assertIn(b" over TCP, ", shown)

    def test_failures(self):
        self.server.both("refused.test", Reply(code=5))
        self.server.both("empty.test", Reply())
        self.server.both("garbled.test", Reply([b"\xc0"]))
        for arguments, text in (
            (["none.test"], b"error 59, the server answered NXDOMAIN"),
            (["none.test", "--tcp"], b"error 3, the server answered NXDOMAIN"),
            (["refused.test", "--tcp"], b"error 5, the server answered REFUSED"),
            (["empty.test"], b"error 59, the server answered NOERROR"),
            (["garbled.test", "--tcp"], b"error 56"),
        ):
            with self.subTest(arguments):
                shown = self.netro(*arguments, status=1, stderr=text)
                found = section_of(shown, "AUTHORITY") if shown else None
                self.assertEqual(found is not None, "none.test" in arguments)

    def test_no_record_of_this_type_is_no_failure(self):
        self.server.both("none.test", Reply(authority=[soa("test")]))
        for transport in [], ["--tcp"]:
            shown = self.netro("none.test", "MX", *transport)
            self.assertEqual(section_of(shown, "ANSWER"), (0, []))
            self.assertEqual(section_of(shown, "AUTHORITY"),
                             (1, ["test.  300  IN  SOA  ns.test. mail.test. 1 2 3 4 5"]))

    def test_nobody_there(self):
        with nobody() as dead:
            for arguments in ["--server", dead, "--tcp"], ["--server", "127.0.0.1", "--proxy", dead]:
                done = run("dns", *arguments, "x.test")
                self.assertEqual((done.returncode, done.stdout), (1, b""))
                self.assertIn(b"error 10061", done.stderr)

    def test_timeout_names_the_option(self):
        self.server.both("silent.test", None)
        for transport in [], ["--tcp"], ["--zone"]:
            self.netro("--timeout", "0.3", "silent.test", *transport, status=1, stderr=b"0.3 s, --timeout")

    def test_interrupt_cancels(self):
        self.server.both("silent.test", None)
        for transport in [], ["--tcp"]:
            self.server.asked.clear()
            status, text = interrupt(self.server.asked, *self.command, "silent.test", *transport)
            self.assertEqual((status, b"9999" in text), (-signal.SIGINT, True))

    def test_zone(self):
        hosts = [record(f"h{i}.test", A, ADDRESS) for i in range(1000)]
        self.server.tcp["test"] = [Reply([soa("test"), *hosts[:400]]), Reply(hosts[400:999]),
                                   Reply([hosts[999], soa("test")])]
        for arguments in ["--zone", "test"], ["test", "AXFR"], ["test", "axfr", "--zone"]:
            self.server.queries.clear()
            shown = self.netro(*arguments)
            query, = self.server.queries
            self.assertEqual(query[12:], name("test") + struct.pack(">HH", AXFR, 1))
            lines = records_of(shown)
            self.assertEqual([line[3] for line in lines], ["SOA"] + ["A"] * 1000 + ["SOA"])
            self.assertEqual(lines[1000][0], "h999.test.")
            self.assertIn(b" over TCP, ", shown)
            self.assertIn(b", 1002 records\n", shown)

    def test_zone_that_ends_early(self):
        self.server.tcp["test"] = [Reply([soa("test"), record("h.test", A, ADDRESS)])]
        shown = self.netro("--zone", "test", status=1, stderr=b"error 56")
        self.assertEqual(len(records_of(shown)), 2)
        self.server.tcp["test"] = Reply(code=5)
        self.assertEqual(self.netro("--zone", "test", status=1, stderr=b"REFUSED"), b"")

    def test_json(self):
        self.server.both("x.test", Reply(
            [record("x.test", SRV, struct.pack(">HHH", 65535, 0, 443) + name("a.test")),
             record("x.test", 65280, b"\1\2")],
            [soa("test", serial=4294967295)], flags=AA | RA))
        for transport, arguments in ("UDP", []), ("TCP", ["--tcp"]):
            shown = self.json("x.test", "srv", *arguments)
            self.assertEqual(shown["question"], {"name": "x.test.", "class": "IN", "type": "SRV"})
            self.assertEqual([shown["server"], shown["transport"], shown["ok"], shown["status"],
                              shown["error"]["number"], shown["flags"], shown["additional"]],
                             [self.server.address, transport, True, "NOERROR", 0, ["aa", "rd", "ra"], []])
            self.assertEqual(shown["answer"], [
                {"name": "x.test.", "ttl": 300, "class": "IN", "type": "SRV", "type_number": 33,
                 "data": "65535 0 443 a.test.",
                 "fields": {"priority": 65535, "weight": 0, "port": 443, "target": "a.test."}},
                {"name": "x.test.", "ttl": 300, "class": "IN", "type": "TYPE65280",
                 "type_number": 65280, "data": "\\# 2 0102"}])
            self.assertEqual(shown["authority"][0]["fields"]["serial"], 4294967295)
        failed = self.json("none.test", status=1, stderr=b"error 59")
        self.assertEqual((failed["ok"], failed["status"], failed["error"]["number"]),
                         (False, "NXDOMAIN", 59))
        self.assertEqual(failed["authority"][0]["type"], "SOA")
        self.server.both("silent.test", None)
        late = self.json("-t1", "silent.test", status=1, stderr=b"10002")
        self.assertEqual((late["ok"], late["status"], late["answer"]), (False, None, []))

    def test_hostile_text(self):
        """Nothing that a server sends reaches a terminal raw: see dns()."""
        bad = b"\x1b[31m\x07\x9b\xff\"\\;@$()\n "
        label = r"\027[31m\007\155\255\"\\\;\@\$\(\)\010\032"
        text = r'"\027[31m\007\155\255\"\\;@$()\010 "'
        strings = bytes([len(bad)]) + bad
        self.server.udp["x.test"] = Reply([
            record(bad, TXT, strings), record("x.test", TXT, strings * 2),
            record("x.test", MX, b"\0\1" + name(bad)), record("x.test", 39, name(bad)),
            record("x.test", 256, b"\0\1\0\2" + bad), record("x.test", 13, strings * 2)])
        self.assertEqual(records_of(self.netro("x.test", "ANY")), [
            [label + ".", "300", "IN", "TXT", text],
            ["x.test.", "300", "IN", "TXT", f"{text} {text}"],
            ["x.test.", "300", "IN", "MX", f"1 {label}."],
            ["x.test.", "300", "IN", "DNAME", f"{label}."],
            ["x.test.", "300", "IN", "URI", f"1 2 {text}"],
            ["x.test.", "300", "IN", "HINFO", f"{text} {text}"]])
        self.json("x.test", "ANY")
        self.netro(bad, status=1, stderr=b"NXDOMAIN")
        status, shown = Terminal("dns", "-s", self.server.address, "x.test", "ANY",
                                 environment={"NO_COLOR": "1"}).finish()
        self.assertEqual(status, 0)
        self.assertIsNotNone(re.fullmatch(rb"[\r\n -~]*", shown), shown)

    def test_colours(self):
        self.server.udp["x.test"] = Reply([record("x.test", A, ADDRESS)])
        self.check_colours("x.test", wanted=b"192.0.2.1")

    def test_proxies(self):
        self.command = "dns",
        self.check_proxies(["--server"], 53, "x.test")

    def test_wrong_usage(self):
        self.command = "dns",
        self.check_usage(
            ([], b"NAME"), ([""], b"NAME is empty"), (["x.test", "FOO"], b"FOO"),
            (["x.test", "0"], b"no record type"), (["x.test", "65536"], b"65536"),
            (["x.test", "TYPE"], b"TYPE"), (["x.test", "TYPE1x"], b"TYPE1x"),
            (["x.test", "A\x1b[31m"], rb"A\x1B[31m"), (["x.test", "A", "more"], b"more"),
            (["@::1"], b"NAME is required"), (["x.test", "@"], b"no server"),
            (["x.test", "@a", "@b"], b"server already"), (["@a:0", "x.test"], b"@SERVER"),
            (["x.test", "@a", "--server", "b"], b"--server and @a exclude"),
            (["x.test", "--short", "--json"], b"--short"),
            (["x.test", "A", "AXFR", "--zone"], b"exclude"),
            (["x.test", ""], b"NAME is empty"), (["x.test", "y.test", "--reverse"], b"no address"),
            (["x.test", "--parallel", "1001"], b"--parallel"),
            (["x.test", "--all", "A"], b"exclude"), (["x.test", "--zone", "MX"], b"exclude"),
            (["x.test", "--zone", "--all"], b"exclude"),
            (["192.0.2.1", "--reverse", "A"], b"exclude"),
            (["192.0.2.256", "--reverse"], b"no address"), (["x.test", "--server", "a:0"], b"port"),
            (["x.test", "--edns", "511"], b"--edns"), (["x.test", "--edns", "65536"], b"--edns"),
            (["x.test", "--edns", "large"], b"--edns"), (["x.test", "--timeout", "0"], b"timeout"),
            (["x.test", "--proxy", "http://a:1"], b"SOCKS"))

    def test_several_names(self):
        names = ["x.test", "none.test", "y.test", "z."]
        for asked in "x.test", "y.test", "z":
            self.server.udp[asked] = Reply([record(asked, MX, b"\0\1" + name("m." + asked))])
        for words in ["MX", *names[1:]], [*names[1:3], "mx", names[3]], [*names[1:], "TYPE15"]:
            shown = self.netro(names[0], *words, status=1, stderr=b"cannot look up none.test. MX")
            self.assertEqual([line[4] for line in records_of(shown) if line[3] == "MX"],
                             ["1 m.x.test.", "1 m.y.test.", "1 m.z."])
            self.assertEqual(shown.count(b"\n\n;; QUESTION\n"), 3)
        shown = self.json(*names, "MX", status=1, stderr=b"error 59")
        self.assertEqual([(one["question"]["name"], one["ok"]) for one in shown],
                         [("x.test.", True), ("none.test.", False), ("y.test.", True), ("z.", True)])

    def test_several_types_at_a_server_in_short(self):
        self.server.udp["x.test"] = Reply([record("x.test", A, ADDRESS)])
        self.server.udp["y.test"] = Reply([record("y.test", TXT, b"\3a\x1bb")])
        self.command = "dns", "@" + self.server.address
        shown = self.json("x.test", "A", "txt", "y.test")
        self.assertEqual([(one["question"]["name"], one["question"]["type"]) for one in shown],
                         list(itertools.product(["x.test.", "y.test."], ["A", "TXT"])))
        self.assertEqual(self.netro("x.test", "y.test", "--short"), b'192.0.2.1\n"a\\027b"\n')
        self.assertEqual(self.netro("none.test", "--short", status=1, stderr=b"error 59"), b"")
        for address in "192.0.2.1", "2001:db8::f1":
            owner = ipaddress.ip_address(address).reverse_pointer
            self.server.udp[owner] = Reply([record(owner, PTR, name("host.test"))])
        self.assertEqual(self.netro("--short", "-x", "192.0.2.1", "2001:db8::f1"),
                         b"host.test.\n" * 2)

    def test_several_zones_and_addresses(self):
        for zone in "a.test", "b.test":
            self.server.tcp[zone] = Reply([soa(zone), record("h." + zone, A, ADDRESS), soa(zone)])
        shown = records_of(self.netro("--zone", "a.test", "b.test"))
        self.assertEqual([line[0] for line in shown if line[3] == "A"], ["h.a.test.", "h.b.test."])
        owner = "1.2.0.192.in-addr.arpa"
        self.server.udp[owner] = Reply([record(owner, PTR, name("host.test"))])
        self.assertEqual(len(records_of(self.netro("--reverse", "192.0.2.1", "192.0.2.1"))), 2)

    def test_interrupt_cancels_all(self):
        self.server.both("silent.test", None)
        status, text = interrupt(self.server.asked, *self.command, "--parallel", "2",
                                 *["silent.test"] * 10)
        self.assertEqual(status, -signal.SIGINT)
        self.assertRegex(text, rb"9999(.|\n)*interrupted; [89] of 10 questions were not asked for")

    def test_names_of_other_commands_are_names(self):
        self.server.udp["get"] = Reply([record("get", A, ADDRESS)])
        self.assertEqual(records_of(self.netro("get")), [["get.", "300", "IN", "A", "192.0.2.1"]])


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
"""Breaks each layer that "netro doctor" knows, in a network namespace of its own.

Usage: doctor_test.py PATH_OF_NETRO [unittest arguments]
"""

import contextlib
import email.utils
import os
import socket
import ssl
import subprocess
import tempfile
import time
import unittest

import echo_network

HAS_NETWORK = echo_network.enter()

from dns_server import A, AAAA, DnsServer, Reply, record
from loopback_server import LoopbackServer
from netro_command import LIMIT, CommandTestCase, Terminal, nobody
from time_server import TimeServer, sntp_reply

# A way to everywhere by a router that lets nothing come back from what lies behind it.
FAR = "198.51.100.7"
GATEWAY = "10.77.0.2"
LINKED = ["link add left type veth peer name right", "link set left up", "link set right up"]
WITH_ADDRESS = [*LINKED, "address add 10.77.0.1/24 dev left", "address add fd77::1/64 dev left nodad"]
WITH_ROUTE = [*LINKED[:2], WITH_ADDRESS[3], f"route add default via {GATEWAY}"]
ROUTER = f"""link set lo up
link set right up
address add {GATEWAY}/24 dev right
link add behind type veth peer name end
link set behind up
link set end up
route add default dev behind
neighbour add {FAR} lladdr 02:00:5E:00:00:0B dev behind nud permanent
route add unreachable 203.0.113.0/24
"""


class HttpServer(LoopbackServer):
    """Answers each request, or what a proxy's client says first, with these bytes; with context in
    TLS. None is silence, and b"" hangs up."""

    def __init__(self, reply=None, context=None, size=None):
        self.reply, self.context, self.size = reply, context, size
        super().__init__()

    def serve_connection(self, connection, stream):
        if self.context:
            with self.context.wrap_socket(connection, server_side=True) as wrapped:
                return self.talk(wrapped, wrapped.makefile("rb"))
        self.talk(connection, stream)

    def talk(self, connection, stream):
        if self.size:
            stream.read(self.size)
        elif self.reply is None or self.reply.startswith(b"HTTP"):
            while stream.readline().strip():
                pass
        self.asked.set()
        if self.reply is not None:
            connection.sendall(self.reply)
            connection.shutdown(socket.SHUT_RDWR)


def http_reply(status="200 OK", ahead=0, more=""):
    date = email.utils.formatdate(time.time() + ahead, usegmt=True)
    return f"HTTP/1.1 {status}\r\nDate: {date}\r\n{more}Content-Length: 0\r\n\r\n".encode()


@contextlib.contextmanager
def full():
    """The address of a server that no longer takes connections: what is sent there gets lost."""
    with contextlib.ExitStack() as stack:
        listener = stack.enter_context(socket.create_server(("127.0.0.1", 0), backlog=0))
        for _ in range(2):
            client = stack.enter_context(socket.socket())
            client.setblocking(False)
            client.connect_ex(listener.getsockname())
        yield f"127.0.0.1:{listener.getsockname()[1]}"


def ip(lines, *within):
    subprocess.run([*within, "ip", "-batch", "-"], input="\n".join(lines).encode(), check=True)


class DoctorTestCase(CommandTestCase):
    command = "doctor",

    def check_verdict(self, layer, text, *arguments):
        """The layer that is named, and a text that its line or its advice holds; the layers above it
        are not tried."""
        with self.subTest((layer, text, arguments)):
            shown = self.json("-t0.5", *arguments, status=1)
            verdict, layers = shown["verdict"], shown["layers"]
            named = [each for each in layers if each["tried"] + ": " + each["seen"] in verdict["text"]]
            self.assertEqual((verdict["layer"], shown["ok"]), (layer, False), shown)
            self.assertIn(text, named[0]["seen"] + "; " + named[0]["next"])
            broken = [i for i, each in enumerate(layers) if each["state"] == "broken"]
            if layer != "clock" and broken:
                behind = layers[broken[-1] + 1:-1]
                self.assertEqual({each["state"] for each in behind} - {"skipped"}, set(), shown)
            return shown

    def check_fine(self, *arguments):
        shown = self.json(*arguments)
        self.assertEqual((shown["ok"], shown["verdict"]["layer"]), (True, None), shown)
        return {each["layer"]: each for each in shown["layers"]}


class UsageTest(DoctorTestCase):
    def test_wrong_usage(self):
        self.check_usage(
            ([], b"HOST"), (["a", "b"], b"b"), (["a b"], b"a b"), (["a\x1b[31m"], rb"a\x1B[31m"),
            (["ftp://a"], b"ftp"), (["http://a:x/"], b"HOST"), (["a:70000"], b"HOST"),
            (["a:25", "--proxy", "b"], b"--proxy"), (["--json", "a:1", "-p1"], b"--port"),
            (["a", "--cacert", "/nowhere"], b"/nowhere"))
        self.check_options("a --timeout nan", "a --total 0", "a --port 65536", "a --time x:y",
                           "a --dns x:y", "a --proxy-type socks5")


@unittest.skipUnless(HAS_NETWORK, "no network namespace can be made here")
class NetworkTest(DoctorTestCase):
    def network(self, lines):
        ip(lines)
        if any("left" in line for line in lines):
            self.addCleanup(subprocess.run, ["ip", "link", "delete", "left"])

    def router(self):
        """At the other end of the link, in a namespace of its own."""
        away = subprocess.Popen(["unshare", "--net", "sh", "-c", "echo; exec sleep 1000"],
                                stdout=subprocess.PIPE)
        self.addCleanup(away.stdout.close)
        self.addCleanup(away.wait)
        self.addCleanup(away.kill)
        away.stdout.readline()
        within = ["nsenter", "--net", f"--target={away.pid}"]
        ip([LINKED[0], f"link set right netns {away.pid}"])
        self.addCleanup(subprocess.run, ["ip", "link", "delete", "left"])
        subprocess.run([*within, "sysctl", "-qw", "net.ipv4.ip_forward=1"], check=True)
        ip(ROUTER.splitlines(), *within)
        ip([line for line in WITH_ROUTE if line != LINKED[0]])

    def names(self, **replies):
        server = self.serve(DnsServer())
        for name, reply in replies.items():
            server.udp[name + ".test"] = reply
        return server.address

    def test_adapter_and_route(self):
        for lines, layer, text, host in (
            ([], "adapter", "none but loopback", FAR),
            (LINKED[:1], "adapter", "left is switched off", FAR),
            (LINKED[:2], "adapter", "left has no link", FAR),
            (LINKED, "adapter", "left has no address", FAR),
            (WITH_ADDRESS, "route", "unreachable", FAR),
            (WITH_ADDRESS, "route", "unreachable", "2001:db8::7"),
            (WITH_ADDRESS, "neighbour", "no answer by ARP", "10.77.0.9"),
            (WITH_ADDRESS, "neighbour", "no answer by neighbour discovery", "fd77::9"),
            ([*WITH_ADDRESS, "route add default via 10.77.0.9"], "neighbour", "gateway", FAR),
        ):
            self.network(lines)
            self.check_verdict(layer, text, host)
            self.doCleanups()
        ip(["link set lo down"])
        self.addCleanup(ip, ["link set lo up"])
        self.check_verdict("adapter", "lo is switched off", "localhost:1")

    def test_resolver_and_name(self):
        reply = Reply([record("a.test", A, bytes([127, 0, 0, 1]))])
        dead, well = self.names(a=None), self.names(a=reply, six=Reply([record("six.test", AAAA, bytes(16))]))
        failing, refusing = self.names(a=Reply(code=2)), self.names(a=Reply(code=5))
        self.check_verdict("adapter", "none but loopback", "a.test", "--dns", dead)
        self.router()
        self.check_verdict("resolver", "no reply", "a.test", "--dns", dead)
        self.check_verdict("resolver", "SERVFAIL", "a.test", "--dns", failing)
        self.check_verdict("resolver", "REFUSED", "a.test", "--dns", refusing)
        self.check_verdict("resolver", "take it out", "a.test:1", "--dns", f"{dead},{well}")
        self.check_verdict("name", "spelling", "none.test", "--dns", well)
        self.check_verdict("name", "-4 or -6", "-4", "six.test", "--dns", well)

    def test_addresses(self):
        server = self.serve(HttpServer(b"220 hello\r\n"))
        both = Reply([record("a.test", A, bytes([127, 0, 0, n])) for n in (1, 2)])
        away = Reply([record("b.test", A, bytes(n)) for n in ([127, 0, 0, 1], [203, 0, 113, 1])])
        names = self.names(a=both, b=away, none=Reply([record("none.test", A, bytes([224, 0, 0, 1]))]))
        self.router()
        ip(["route add unreachable 203.0.113.0/24"])
        self.addCleanup(ip, ["route delete unreachable 203.0.113.0/24"])
        for name, layer, text in (
            ("a.test", "address", "10061"), ("b.test", "address", "No route to host"),
            ("none.test", "name", "which no host has"),
        ):
            self.check_verdict(layer, text, f"{name}:{server.port}", "--dns", names)

    def test_path(self):
        """Nothing comes back from behind the router, which has answered last; or it refuses."""
        self.router()
        self.check_verdict("path", GATEWAY + " at hop 1", FAR)
        self.check_verdict("path", "says " + GATEWAY, "203.0.113.1")

    def test_port(self):
        with nobody() as dead, full() as busy:
            self.check_verdict("port", "nothing listens", dead)
            self.check_verdict("port", "firewall", busy)

    def test_proxy(self):
        wanted = http_reply("407 Proxy Authentication Required", more="Proxy-Authenticate: Basic\r\n")
        target = "http://192.0.2.1/"
        with nobody() as dead, full() as busy:
            self.check_verdict("proxy", "start the proxy", target, "--proxy", dead)
            self.check_verdict("proxy", "no answer", target, "--proxy", busy)
        for scheme, reply, size, text, url in (
            ("http://", wanted, None, "login", target),
            ("http://", wanted, None, "login", "https://192.0.2.1/"),
            ("http://", http_reply("403 No"), None, "403", "https://192.0.2.1/"),
            ("socks5://", b"\5\xff", 3, "login", target),
            ("socks5://", b"\5\0" + b"\5\2\0\1" + bytes(6), 3, "ask who runs it", target),
            ("socks5://", None, 3, "is it a proxy of this kind", target),
            ("socks4://", b"\0\x5b" + bytes(6), 9, "ask who runs it", target),
        ):
            proxy = self.serve(HttpServer(reply, size=size))
            self.check_verdict("proxy", text, url, "--proxy", scheme + "u:s3cret@" + proxy.address)
        os.environ["http_proxy"] = f"http://u:s3cret@{proxy.address}"
        self.addCleanup(os.environ.pop, "http_proxy")
        shown = self.json("-t0.5", target, status=1)
        self.assertEqual(shown["proxy"], {"host": "127.0.0.1", "port": proxy.port})
        self.assertNotIn("s3cret", str(shown))

    def test_answer_and_clock(self):
        for reply, layer, text in (
            (None, "answer", "overloaded"), (b"", "answer", "hangs up"),
            (b"HTTP/1.1\0 what\r\n\r\n", "answer", "no success"),
            (http_reply("503 Later\x1b[31m"), "answer", "look at its log"),
            (http_reply(ahead=7300), "clock", "2 hours behind"),
            (http_reply("404 Nowhere", ahead=-300), "clock", "5 minutes ahead"),
        ):
            server = self.serve(HttpServer(reply))
            shown = self.check_verdict(layer, text, f"http://{server.address}/")
            self.assertNotIn("\x1b", str(shown))
        old = self.serve(HttpServer(http_reply(ahead=-3600, more="Age: 3600\r\n")))
        self.assertEqual(self.check_fine(f"http://{old.address}/")["clock"]["state"], "ok")
        clock = self.serve(TimeServer())
        clock.answer = lambda question: sntp_reply(question, ahead=86400 * 3.1)
        mute = self.serve(HttpServer(http_reply()))
        self.check_verdict("clock", "3 days behind", mute.address, "--time", clock.address)

    def test_tls(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        made = {}
        for name, days in ("good", "2"), ("expired", "-1"):
            key, request, made[name] = (f"{folder.name}/{name}.{kind}" for kind in ("key", "csr", "pem"))
            subprocess.run(["openssl", "req", "-new", "-newkey", "rsa:2048", "-nodes", "-subj",
                            "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", key,
                            "-out", request], check=True, capture_output=True)
            subprocess.run(["openssl", "x509", "-req", "-in", request, "-signkey", key, "-days", days,
                            "-copy_extensions", "copy", "-out", made[name]], check=True,
                           capture_output=True)
        context = {}
        for name, file in made.items():
            context[name] = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context[name].load_cert_chain(file, file.replace(".pem", ".key"))
        good = self.serve(HttpServer(http_reply(), context["good"]))
        expired = self.serve(HttpServer(http_reply(), context["expired"]))
        plain, mute = self.serve(HttpServer(b"220 hello\r\n", size=1)), self.serve(HttpServer())
        clock = self.serve(TimeServer())
        clock.answer = lambda question: sntp_reply(question, ahead=-86400 * 3.1)
        for layer, text, port, *arguments in (
            ("tls", "--cacert", good.port), ("tls", "TLS", plain.port), ("tls", "silent", mute.port),
            ("tls", "renew", expired.port, "--cacert", made["expired"]),
            ("clock", "3 days ahead", expired.port, "--cacert", made["expired"], "--time",
             clock.address),
        ):
            self.check_verdict(layer, text, f"https://localhost:{port}/", "-4", *arguments)
        trusted = "--cacert", made["good"]
        self.check_verdict("tls", "a name that the certificate has", f"https://{good.address}", *trusted)
        layers = self.check_fine(f"https://localhost:{good.port}", "-4", *trusted)
        self.assertIn("CN=localhost", layers["tls"]["seen"])

    def test_a_server_that_speaks_first_and_one_that_waits(self):
        for reply, size, state, text in ((b"220 hello\r\nmore", None, "ok", "220 hello"),
                                         (None, 1, "skipped", "waits to be asked")):
            server = self.serve(HttpServer(reply, size=size))
            answer = self.check_fine(server.address)["answer"]
            self.assertEqual(answer["state"], state)
            self.assertIn(text, answer["seen"])

    def test_limits_and_interrupt(self):
        mute = self.serve(HttpServer())
        begun = time.monotonic()
        shown = self.json(f"http://{mute.address}/", "--total", "0.3", status=1)
        self.assertLess(time.monotonic() - begun, 5)
        self.assertEqual(shown["verdict"]["layer"], "answer")
        self.check_interrupt(mute, f"http://{mute.address}/", text=b"")
        self.check_lost_reader(mute.address)

    def test_terminal(self):
        server = self.serve(HttpServer(http_reply()))
        self.check_colours(f"http://{server.address}/", wanted=b"verdict")
        text = self.text(f"http://{server.address}/")
        self.assertEqual(text.splitlines()[-1], "verdict: every layer that was tried is fine")
        shown = Terminal(*self.command, f"http://{server.address}/", columns=40,
                         environment={"NO_COLOR": "1"}).finish()[1]
        self.assertLessEqual(max(len(line) for line in shown.decode().splitlines()), 40, shown)


if __name__ == "__main__":
    unittest.main()

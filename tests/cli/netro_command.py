"""The command netro in a pipe and on a terminal, for the tests of this folder.

Its path is the first argument of the test program. NETRO_LAUNCHER names a program that runs it, where
the system of the tests is not its own."""

import contextlib
import fcntl
import json
import os
import pty
import re
import select
import signal
import socket
import struct
import subprocess
import sys
import termios
import unittest

LAUNCHER = os.environ.get("NETRO_LAUNCHER")
NETRO = sys.argv.pop(1)
COMMAND = [LAUNCHER, NETRO] if LAUNCHER else [NETRO]
for name in list(os.environ):  # the environment's proxies are none of the tests'
    if name.lower().endswith("_proxy"):
        del os.environ[name]
LIMIT = 30  # seconds; only a run that hangs reaches it

# AddressSanitizer prints this at the first switch of stacks, even though it is told of each.
SWITCH_OF_STACKS = re.compile(rb"==\d+==WARNING: ASan doesn't fully support makecontext.*\n")


def skip_where_launched(reason):
    """Skips the test, or what is left of it, where the command is one of another system."""
    if LAUNCHER:
        raise unittest.SkipTest(reason)


def read_skipped():
    """What a file says that such a command cannot do: lines of TEST: REASON."""
    file = os.environ.get("NETRO_SKIPPED")
    lines = open(file, encoding="utf-8").read().splitlines() if file else []
    return dict(line.split(": ", 1) for line in lines)


SKIPPED = read_skipped()


class Terminal:
    """The command, or another program, on a terminal of its own."""

    def __init__(self, *arguments, environment=None, program=NETRO, columns=80, rows=24):
        skip_where_launched("terminals are not those of this system")
        self.text = b""
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
            os.environ.pop("NO_COLOR", None)
            os.environ.update({"TERM": "xterm", **(environment or {})})
            os.execv(program, [program, *arguments])

    def read_until(self, wanted):
        while wanted is None or wanted not in self.text:
            ready, _, _ = select.select([self.descriptor], [], [], LIMIT)
            if not ready:
                os.kill(self.pid, signal.SIGKILL)
                raise TimeoutError(f"{wanted!r} did not come in {self.text!r}")
            try:
                block = os.read(self.descriptor, 65536)
            except OSError:  # the command has gone
                block = b""
            if not block:
                break
            self.text += block

    def finish(self):
        """Returns exit status and everything that was shown."""
        self.read_until(None)
        os.close(self.descriptor)
        text = SWITCH_OF_STACKS.sub(b"", self.text)
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1]), text


def run(*arguments, **options):
    done = subprocess.run([*COMMAND, *arguments], capture_output=True, timeout=LIMIT, **options)
    done.stderr = SWITCH_OF_STACKS.sub(b"", done.stderr)
    return done


class Started(subprocess.Popen):
    """A command that runs, its output as text."""

    def __init__(self, *arguments):
        super().__init__([*COMMAND, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                         text=True)

    def error_line(self):
        line = self.stderr.readline()
        return self.stderr.readline() if SWITCH_OF_STACKS.match(line.encode()) else line

    def communicate(self, *arguments, **options):
        output, errors = super().communicate(*arguments, **options)
        return output, SWITCH_OF_STACKS.sub(b"", errors.encode()).decode()


@contextlib.contextmanager
def nobody():
    """An address at which nobody listens."""
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        yield f"127.0.0.1:{taken.getsockname()[1]}"


def interrupt(asked, *arguments):
    """Sends Ctrl-C once the event asked is set; returns status and standard error."""
    skip_where_launched("Ctrl-C is no signal there")
    with subprocess.Popen([*COMMAND, *arguments], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE) as process:
        if not asked.wait(LIMIT):
            process.kill()
        process.send_signal(signal.SIGINT)
        text = process.communicate(timeout=LIMIT)[1]
    return process.returncode, text


class CommandTestCase(unittest.TestCase):
    """command is what all calls of the tests begin with."""

    command = ()

    def run(self, result=None):
        name = self.id().removeprefix("__main__.")
        if name not in SKIPPED:
            return super().run(result)
        result.startTest(self)
        result.addSkip(self, SKIPPED[name])
        result.stopTest(self)
        return result

    def netro(self, *arguments, status=0, stderr=b"", **options):
        """What was printed; stderr must be in the messages, which are empty without it."""
        done = run(*self.command, *arguments, **options)
        self.assertEqual(done.returncode, status, (arguments, done))
        self.assertIn(stderr, done.stderr, arguments)
        self.assertEqual(stderr == b"", done.stderr == b"", done.stderr)
        self.assertRegex(done.stderr.decode(), "\\A[\n -~\xA0-\uFFFF]*\\Z")
        return done.stdout

    def text(self, *arguments, **expected):
        """The same of a command that prints nothing but text."""
        printed = self.netro(*arguments, **expected).decode()
        self.assertRegex(printed, "\\A[\n -~\xA0-\uFFFF]*\\Z")
        return printed

    def json(self, *arguments, **expected):
        return json.loads(self.netro("--json", *arguments, **expected))

    def serve(self, server):
        """The server, which is closed at the end of the test."""
        self.addCleanup(server.close)
        return server

    def check_usage(self, *cases):
        """Each has arguments that cannot be and what must stand in the message."""
        for arguments, text in cases:
            with self.subTest(arguments):
                printed = self.netro(*arguments, status=2, stderr=text)
                if "--json" in arguments:
                    self.assertIn(text, json.loads(printed)["error"]["text"].encode())
                else:
                    self.assertEqual(printed, b"")

    def check_options(self, *lines):
        """Each has an option that cannot be so and must stand in the message, its first one."""
        self.check_usage(*[(line.split(), re.search("--[a-z-]+", line)[0].encode())
                           for line in lines])

    def check_colours(self, *arguments, wanted=b""):
        """Only on a terminal that wants them."""
        for setting, colour in ({}, True), ({"NO_COLOR": "1"}, False), ({"TERM": "dumb"}, False):
            status, text = Terminal(*self.command, *arguments, environment=setting).finish()
            self.assertEqual((status, b"\x1b[" in text), (0, colour))
            self.assertIn(wanted, text)

    def check_proxies(self, server_option, port, *arguments, name="x.test"):
        """The first bytes that a proxy gets; a server's name may be left to it. How each kind is
        named is in command_test.py."""
        port = port.to_bytes(2, "big")
        for scheme, server, begin in (
            ("", "127.0.0.1", b"\5\1\0"),
            ("socks4a://u@", name, b"\4\1" + port + b"\0\0\0\1u\0" + name.encode() + b"\0"),
        ):
            received = self.bytes_for_proxy(scheme, *arguments, *server_option, server)
            self.assertTrue(received.startswith(begin), received)

    def bytes_for_proxy(self, begin, *arguments, stdin=None):
        """What a command sends first to the proxy, whose address this begins."""
        with self.subTest(begin), socket.create_server(("127.0.0.1", 0)) as proxy:
            way = ["--proxy", f"{begin}127.0.0.1:{proxy.getsockname()[1]}"]
            with subprocess.Popen([*COMMAND, *self.command, *arguments, *way],
                                  stdin=subprocess.PIPE if stdin else None, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.PIPE) as process:
                if stdin:
                    process.stdin.write(stdin)
                    process.stdin.flush()
                with proxy.accept()[0] as connection:
                    received = connection.recv(65536)
                process.communicate(timeout=LIMIT)
            self.assertEqual(process.returncode, 1)
            return received

    def check_interrupt(self, server, *arguments, times=None, text=b"9999"):
        """Ctrl-C once the server has been asked; the message has the text, so many times."""
        server.asked.clear()
        status, messages = interrupt(server.asked, *self.command, *arguments)
        self.assertEqual(status, -signal.SIGINT)
        self.assertIn(text, messages)
        self.assertIn(times, (None, messages.count(text)))

    def check_lost_reader(self, *arguments):
        """Nobody reads what is printed: that ends the command, without a word."""
        with subprocess.Popen([*COMMAND, *self.command, *arguments], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as process:
            process.stdout.close()
            self.assertEqual(SWITCH_OF_STACKS.sub(b"", process.stderr.read()), b"")
        self.assertEqual(process.returncode, 1)

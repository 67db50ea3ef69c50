"""The command netro in a pipe and on a terminal, for the tests of this folder.

Its path is the first argument of the test program."""

import os
import pty
import re
import select
import signal
import socket
import subprocess
import sys

NETRO = sys.argv.pop(1)
for name in list(os.environ):  # the environment's proxies are none of the tests'
    if name.lower().endswith("_proxy"):
        del os.environ[name]
LIMIT = 30  # seconds; only a run that hangs reaches it


class Terminal:
    """The command on a terminal of its own."""

    def __init__(self, *arguments, environment=None):
        self.text = b""
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            os.environ.pop("NO_COLOR", None)
            os.environ.update({"TERM": "xterm", **(environment or {})})
            os.execv(NETRO, [NETRO, *arguments])

    def read_until(self, wanted):
        while wanted is None or wanted not in self.text:
            ready, _, _ = select.select([self.descriptor], [], [], LIMIT)
            if not ready:
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
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1]), self.text


# AddressSanitizer prints this at the first switch of stacks, even though it is told of each.
SWITCH_OF_STACKS = re.compile(rb"==\d+==WARNING: ASan doesn't fully support makecontext.*\n")


def run(*arguments, **options):
    done = subprocess.run([NETRO, *arguments], capture_output=True, timeout=LIMIT, **options)
    done.stderr = SWITCH_OF_STACKS.sub(b"", done.stderr)
    return done


def bytes_for_proxy(proxy, kind, *arguments):
    """Runs the command through a proxy at which nobody answers; returns status and what it got.

    proxy is what stands before the address, as "socks5://user@", kind a value of --proxy-type."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        scheme, _, user = proxy.rpartition("://")
        address = f"{user}127.0.0.1:{listener.getsockname()[1]}"
        options = ["--proxy", f"{scheme}://{address}" if scheme else address]
        options += ["--proxy-type", kind] if kind else []
        with subprocess.Popen([NETRO, *arguments, *options], stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE) as process:
            with listener.accept()[0] as connection:
                received = connection.recv(65536)
            process.communicate(timeout=LIMIT)
    return process.returncode, received


def interrupt(asked, *arguments):
    """Sends Ctrl-C once the event asked is set; returns status and standard error."""
    with subprocess.Popen([NETRO, *arguments], stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE) as process:
        if not asked.wait(LIMIT):
            process.kill()
        process.send_signal(signal.SIGINT)
        text = process.communicate(timeout=LIMIT)[1]
    return process.returncode, text

"""The command netro in a pipe and on a terminal, for the tests of this folder.

Its path is the first argument of the test program."""

import os
import pty
import select
import subprocess
import sys

NETRO = sys.argv.pop(1)
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


def run(*arguments, **options):
    return subprocess.run([NETRO, *arguments], capture_output=True, timeout=LIMIT, **options)

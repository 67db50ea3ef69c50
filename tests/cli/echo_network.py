"""A network namespace of its own for a test program, in which every user may send echoes."""

import ctypes
import os
import subprocess
import sys

from dns_server import A, DnsServer, Reply, record
from netro_command import LAUNCHER, NETRO, CommandTestCase

INSIDE = "NETRO_TEST_INSIDE"
PREPARE = "ip link set lo up && echo 0 0 >/proc/sys/net/ipv4/ping_group_range"
UNSHARE = ["unshare", "--user", "--map-root-user", "--net", "sh", "-c", PREPARE + ' && "$@"', "sh"]


def enter():
    """Starts this program anew in a namespace; False where the system has none for us."""
    if LAUNCHER:  # whose programs are all in the network that the first of them was started in
        return False
    if INSIDE in os.environ:
        return True
    try:
        if subprocess.run([*UNSHARE, "true"], capture_output=True).returncode != 0:
            return False
    except FileNotFoundError:
        return False
    os.environ[INSIDE] = "1"
    os.execvp(UNSHARE[0], [*UNSHARE, *sys.orig_argv])


def setting(name, value):
    """Sets a value below net.ipv4; returns what it was."""
    path = "/proc/sys/net/ipv4/" + name
    with open(path) as file:
        before = file.read()
    with open(path, "w") as file:
        file.write(value)
    return before


LIBC = ctypes.CDLL(None)


def without_group():
    """For a child process: a namespace in which nobody is inside ping_group_range."""
    CLONE_NEWNET = 0x40000000
    assert LIBC.unshare(CLONE_NEWNET) == 0


def without_permission():
    """For a child process: neither is there a capability for the program that it becomes."""
    PR_CAPBSET_DROP, CAP_NET_RAW = 24, 13
    without_group()
    assert LIBC.prctl(PR_CAPBSET_DROP, CAP_NET_RAW, 0, 0, 0) == 0


class EchoTestCase(CommandTestCase):
    """What "netro ping" and "netro trace" have in common: test_...() of either call these."""

    def set(self, name, value):
        self.addCleanup(setting, name, setting(name, value))

    def name_server(self, **replies):
        server = self.serve(DnsServer())
        server.udp = {name + ".test": reply for name, reply in replies.items()}
        return server

    def check_unknown_names(self, *more, shown=""):
        """Those that do not exist or stand for no single host."""
        names = self.name_server(all=Reply([record("all.test", A, bytes([224, 0, 0, 1]))]))
        for host in "none.test", "all.test":
            printed = self.text(host, *more, "--dns", names.address, status=1,
                                stderr=f"cannot look up {host}: ".encode())
            self.assertTrue(shown in printed if shown else not printed, printed)

    def check_no_permission(self, host):
        for text in b"net.ipv4.ping_group_range", b"cap_net_raw+ep " + NETRO.encode():
            for each in host, "::1":
                self.assertEqual(self.text(each, status=1, stderr=text,
                                           preexec_fn=without_permission), "")
        shown = self.json(host, status=1, stderr=b"-10001", preexec_fn=without_permission)
        self.assertEqual((shown["ok"], shown["socket"], shown["error"]["number"]),
                         (False, None, -10001))
        return shown

    def check_interrupted_lookup(self, *hosts):
        names = self.name_server(**{host: None for host in hosts})
        names.awaited = 2 * len(hosts)  # of both families each
        self.check_interrupt(names, *[host + ".test" for host in hosts], "--dns", names.address,
                             times=len(hosts))

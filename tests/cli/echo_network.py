"""A network namespace of its own for a test program, in which every user may send echoes."""

import ctypes
import os
import subprocess
import sys

INSIDE = "NETRO_TEST_INSIDE"
PREPARE = "ip link set lo up && echo 0 0 >/proc/sys/net/ipv4/ping_group_range"
UNSHARE = ["unshare", "--user", "--map-root-user", "--net", "sh", "-c", PREPARE + ' && "$@"', "sh"]


def enter():
    """Starts this program anew in a namespace; False where the system has none for us."""
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

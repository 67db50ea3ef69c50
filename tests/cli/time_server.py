"""A time server for tests: the time protocol and SNTP, over UDP and TCP, right or wrong."""

import errno
import random
import socket
import struct
import time

from loopback_server import LoopbackServer

TO_1970 = 2208988800


def stamp(seconds):
    """Seconds since 1970 as a timestamp of SNTP: whole seconds since 1900, and their fraction."""
    whole = int(seconds // 1)
    return struct.pack(">II", (whole + TO_1970) % 2**32, int(seconds % 1 * 2**32))


def time_reply(seconds):
    """A reply of the time protocol."""
    return stamp(seconds)[:4]


def sntp_reply(question=b"", leap=0, mode=4, stratum=1, poll=6, precision=-20, root_delay=0,
               root_dispersion=0, reference=b"GPS\0", originate=None, receive=None, transmit=None,
               ahead=0):
    """A reply of SNTP; receive and transmit are the present moment unless they are given."""
    now = stamp(time.time() + ahead)
    if originate is None:
        originate = question[40:48] if len(question) == 48 else bytes(8)
    return (bytes([leap << 6 | 3 << 3 | mode, stratum, poll, precision & 255]) +
            struct.pack(">II", root_delay, root_dispersion) + reference + now + originate +
            (now if receive is None else receive) + (now if transmit is None else transmit))


class TimeServer(LoopbackServer):
    """answer is what the server sends, or a function that makes it of the question, or a list of
    such; None is silence. Over TCP the question has question_size bytes. questions holds all that
    came, asked is set by each."""

    def __init__(self, address="127.0.0.1", port=0, question_size=0):
        self.answer = None
        self.questions = []
        self.question_size = question_size
        super().__init__(address, port)

    def answers(self, question):
        self.questions.append(question)
        answers = self.answer if isinstance(self.answer, list) else [self.answer]
        answers = [answer(question) if callable(answer) else answer for answer in answers]
        return [answer for answer in answers if answer is not None]

    def serve_datagram(self, question, client):
        for answer in self.answers(question):
            self.datagrams.sendto(answer, client)
        self.asked.set()

    def serve_connection(self, connection, stream):
        answers = self.answers(stream.read(self.question_size))
        connection.sendall(b"".join(answers))
        if answers:
            connection.shutdown(socket.SHUT_WR)
        self.asked.set()


def sntp_server():
    """A server on port 123 of a loopback address that nobody uses; None where that is forbidden."""
    while True:
        address = f"127.{random.randrange(1, 255)}.{random.randrange(255)}.1"
        try:
            return TimeServer(address, 123, question_size=48)
        except PermissionError:
            return None
        except OSError as error:
            if error.errno != errno.EADDRINUSE:
                raise

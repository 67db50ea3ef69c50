"""Answers echo requests on loopback as routers on a way would, by their time to live.

Works in a namespace in which the system itself answers none (echo_network.py)."""

import select
import socket
import struct
import threading

ECHO_REPLY, UNREACHABLE, ECHO_REQUEST, TIME_EXCEEDED = 0, 3, 8, 11


def checksum(data):
    data += bytes(len(data) % 2)
    total = sum(struct.unpack(f"!{len(data) // 2}H", data))
    total = (total >> 16) + (total & 0xFFFF)
    return ~(total + (total >> 16)) & 0xFFFF


def icmp(kind, code, rest):
    return struct.pack("!BBH", kind, code, checksum(struct.pack("!BBH", kind, code, 0) + rest)) + rest


class Answer:
    """What comes back: a kind of message from an address, once a request with the time to live
    "after" has been answered as well."""

    def __init__(self, source, kind=TIME_EXCEEDED, code=0, after=0):
        self.source, self.kind, self.code, self.after = source, kind, code, after


class EchoHops:
    """answers(ttl, count) says what a request gets, the count-th of its time to live (from 0 on)."""

    def __init__(self, answers):
        self.answers = answers
        self.asked = threading.Event()
        self.times_to_live = []
        self.held = []
        self.receiver = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP)
        self.sender = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_RAW)
        self.stop, self.stopped = socket.socketpair()
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def close(self):
        self.stop.close()
        self.thread.join()
        for each in self.receiver, self.sender, self.stopped:
            each.close()

    def serve(self):
        while self.stopped not in select.select([self.receiver, self.stopped], [], [])[0]:
            packet = self.receiver.recv(65536)
            if packet[20] == ECHO_REQUEST:
                self.take(packet)

    def take(self, packet):
        ttl = packet[8]
        answer = self.answers(ttl, self.times_to_live.count(ttl))
        self.times_to_live.append(ttl)
        self.asked.set()
        if answer is not None:
            self.held.insert(0, (answer, packet))
        for each in list(self.held):
            if each[0].after in (0, *self.times_to_live):
                self.held.remove(each)
                self.send(*each)

    def send(self, answer, packet):
        if answer.kind == ECHO_REPLY:
            message = icmp(ECHO_REPLY, 0, packet[24:])
        else:
            message = icmp(answer.kind, answer.code, bytes(4) + packet[:28])
        header = struct.pack("!BBHHHBBH4s4s", 0x45, 0, 20 + len(message), 0, 0, 64, 1, 0,
                             socket.inet_aton(answer.source), packet[12:16])
        try:
            self.sender.sendto(header + message, (socket.inet_ntoa(packet[12:16]), 0))
        except OSError:  # closed meanwhile
            pass

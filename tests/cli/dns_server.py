"""A DNS server for tests, which answers each name with what the test has prepared."""

import socket
import struct

from loopback_server import LoopbackServer

QR, AA, TC, RD, RA = 0x8000, 0x0400, 0x0200, 0x0100, 0x0080
A, NS, SOA, PTR, MX, TXT, AAAA, SRV = 1, 2, 6, 12, 15, 16, 28, 33
AXFR, ANY = 252, 255


def name(text):
    """The wire form of a dotted name; text may be bytes."""
    data = text if isinstance(text, bytes) else text.encode()
    labels = [label for label in data.split(b".") if label]
    return b"".join(bytes([len(label)]) + label for label in labels) + b"\0"


def record(owner, kind, data, ttl=300):
    return name(owner) + struct.pack(">HHIH", kind, 1, ttl, len(data)) + data


def soa(owner, serial=1):
    return record(owner, SOA, name("ns." + owner) + name("mail." + owner) +
                  struct.pack(">5I", serial, 2, 3, 4, 5))


class Reply:
    """Sections of records; a list of several replies is a stream of messages over TCP."""

    def __init__(self, answer=(), authority=(), additional=(), flags=AA, code=0):
        self.sections = [list(answer), list(authority), list(additional)]
        self.flags = flags
        self.code = code

    def message(self, query):
        """Header, the question as it came, and the records."""
        question = query[12:query.index(b"\0", 12) + 5]
        flags = QR | self.flags | self.code | (query[2] & 1) << 8
        header = query[:2] + struct.pack(">HHHHH", flags, 1, *map(len, self.sections))
        return header + question + b"".join(b"".join(part) for part in self.sections)


class DnsServer(LoopbackServer):
    """udp and tcp map names to a Reply, a list of them, or None, which is silence; other names do
    not exist. queries holds every message that came, asked is set once there are so many."""

    def __init__(self, address="127.0.0.1", port=0):
        self.awaited = 1
        self.udp, self.tcp = {}, {}
        self.queries = []
        super().__init__(address, port)

    def both(self, owner, reply):
        self.udp[owner] = self.tcp[owner] = reply

    def replies(self, replies, query):
        self.queries.append(query)
        if len(self.queries) >= self.awaited:
            self.asked.set()
        labels, at = [], 12
        while query[at]:
            labels.append(query[at + 1:at + 1 + query[at]])
            at += 1 + query[at]
        owner = b".".join(labels).decode("latin-1")
        unknown = Reply(authority=[soa("test")], code=3)
        reply = replies.get(owner, replies.get(owner.lower(), unknown))  # lookups mix the case
        several = reply if isinstance(reply, list) else [reply] if reply else []
        return [one.message(query) for one in several]

    def serve_datagram(self, query, client):
        for message in self.replies(self.udp, query):
            self.datagrams.sendto(message, client)

    def serve_connection(self, connection, stream):
        query = stream.read(int.from_bytes(stream.read(2), "big"))
        messages = self.replies(self.tcp, query)
        for message in messages:
            connection.sendall(struct.pack(">H", len(message)) + message)
        if messages:
            connection.shutdown(socket.SHUT_WR)

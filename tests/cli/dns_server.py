"""A DNS server for tests, which answers each name with what the test has prepared."""

import socket
import struct
import threading

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


class DnsServer:
    """Listens on one port of the loopback interface over UDP and TCP.

    udp and tcp map names to a Reply, a list of them, or None, which is silence; other names do not
    exist. queries holds every message that came, asked is set by each."""

    def __init__(self):
        self.udp, self.tcp = {}, {}
        self.queries = []
        self.asked = threading.Event()
        self.bind()
        self.connections = []
        for work in self.serve_udp, self.serve_tcp:
            threading.Thread(target=work, daemon=True).start()

    def bind(self):
        while True:
            self.listener = socket.create_server(("127.0.0.1", 0))
            self.port = self.listener.getsockname()[1]
            self.datagrams = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            try:
                return self.datagrams.bind(("127.0.0.1", self.port))
            except OSError:  # taken over UDP
                self.listener.close()
                self.datagrams.close()

    @property
    def address(self):
        return f"127.0.0.1:{self.port}"

    def both(self, owner, reply):
        self.udp[owner] = self.tcp[owner] = reply

    def close(self):
        """Shutting down wakes the threads."""
        for end in self.listener, self.datagrams, *self.connections:
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            end.close()

    def replies(self, replies, query):
        self.queries.append(query)
        self.asked.set()
        labels, at = [], 12
        while query[at]:
            labels.append(query[at + 1:at + 1 + query[at]])
            at += 1 + query[at]
        owner = b".".join(labels).decode("latin-1")
        reply = replies.get(owner, Reply(authority=[soa("test")], code=3))
        several = reply if isinstance(reply, list) else [reply] if reply else []
        return [one.message(query) for one in several]

    def serve_udp(self):
        while True:
            try:
                query, client = self.datagrams.recvfrom(65536)
            except OSError:
                return
            if not query:  # shut down
                return
            for message in self.replies(self.udp, query):
                self.datagrams.sendto(message, client)

    def serve_tcp(self):
        while True:
            try:
                connection = self.listener.accept()[0]
            except OSError:
                return
            self.connections.append(connection)
            threading.Thread(target=self.serve_connection, args=(connection,), daemon=True).start()

    def serve_connection(self, connection):
        try:
            stream = connection.makefile("rb")
            size = stream.read(2)
            query = stream.read(int.from_bytes(size, "big"))
            messages = self.replies(self.tcp, query)
            for message in messages:
                connection.sendall(struct.pack(">H", len(message)) + message)
            if messages:
                connection.shutdown(socket.SHUT_WR)
            stream.read()  # until the client has gone
        except OSError:
            pass
        finally:
            connection.close()

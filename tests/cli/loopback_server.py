"""What the servers for tests in this folder have in common."""

import socket
import threading


class LoopbackServer:
    """Listens on one port, over TCP and, if it has a serve_datagram(), over UDP as well.

    Each connection is served by serve_connection(connection, stream) on a thread of its own; what
    goes wrong with it ends it. asked is an event for the test."""

    def __init__(self, address="127.0.0.1", port=0):
        self.asked = threading.Event()
        self.connections = []
        self.bind(address, port)
        self.start(self.accept)
        if self.datagrams:
            self.start(self.receive)

    def start(self, work, *arguments):
        threading.Thread(target=work, args=arguments, daemon=True).start()

    def bind(self, address, port):
        self.datagrams = None
        while True:
            self.listener = socket.create_server((address, port))
            self.host, self.port = self.listener.getsockname()
            if not hasattr(self, "serve_datagram"):
                return
            self.datagrams = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            try:
                return self.datagrams.bind((self.host, self.port))
            except OSError:  # taken over UDP
                self.listener.close()
                self.datagrams.close()
                if port != 0:
                    raise

    @property
    def address(self):
        return f"{self.host}:{self.port}"

    def close(self):
        """Shutting down wakes the threads."""
        for end in filter(None, [self.listener, self.datagrams, *self.connections]):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            end.close()

    def receive(self):
        while True:
            try:
                question, client = self.datagrams.recvfrom(65536)
                if client is None:  # shut down
                    return
                self.serve_datagram(question, client)
            except OSError:
                return

    def accept(self):
        while True:
            try:
                connection = self.listener.accept()[0]
            except OSError:
                return
            self.connections.append(connection)
            self.start(self.serve, connection)

    def serve(self, connection):
        try:
            stream = connection.makefile("rb")
            self.serve_connection(connection, stream)
            stream.read()  # until the client has gone
        except OSError:
            pass
        finally:
            connection.close()

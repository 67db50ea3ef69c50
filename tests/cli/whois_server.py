"""A WHOIS server for tests, which answers every question with what the test has prepared."""

import socket
import threading


class WhoisServer:
    """Listens on a port of the loopback interface.

    answer is sent, and then the connection closed unless stay is set; None is silence. questions
    holds every line that came, asked is set by each."""

    def __init__(self, answer=None):
        self.answer = answer
        self.stay = False
        self.questions = []
        self.asked = threading.Event()
        self.connections = []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.address = f"127.0.0.1:{self.port}"
        threading.Thread(target=self.serve, daemon=True).start()

    def close(self):
        """Shutting down wakes the threads."""
        for end in self.listener, *self.connections:
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            end.close()

    def serve(self):
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
            self.questions.append(stream.readline())
            self.asked.set()
            if self.answer is not None:
                connection.sendall(self.answer)
                if not self.stay:
                    connection.shutdown(socket.SHUT_WR)
            stream.read()  # until the client has gone
        except OSError:
            pass
        finally:
            connection.close()

"""A WHOIS server for tests, which answers every question with what the test has prepared."""

import socket

from loopback_server import LoopbackServer


class WhoisServer(LoopbackServer):
    """answer is sent, and then the connection closed unless stay is set; None is silence. questions
    holds every line that came, asked is set by each."""

    def __init__(self, answer=None):
        self.answer = answer
        self.stay = False
        self.questions = []
        super().__init__()

    def serve_connection(self, connection, stream):
        self.questions.append(stream.readline())
        self.asked.set()
        if self.answer is not None:
            connection.sendall(self.answer)
            if not self.stay:
                connection.shutdown(socket.SHUT_WR)

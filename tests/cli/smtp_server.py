"""An SMTP server for tests, which keeps what it is given and refuses what the test wants."""

from loopback_server import LoopbackServer

REPLIES = {b"HELO": b"250 hello", b"EHLO": b"250 hello", b"MAIL": b"250 ok", b"RCPT": b"250 ok", b"DATA": b"354 go on",
           b".": b"250 kept", b"QUIT": b"221 bye"}


class SmtpServer(LoopbackServer):
    """commands holds every line that came, messages a pair of recipient and message for each
    recipient that was taken. replies maps
    lines, or their first words, to other replies than usual; None is silence, and sets asked. A
    message is read only up to hold_at bytes until go_on is set."""

    def __init__(self):
        self.commands, self.messages = [], []
        self.replies = {}
        self.hold_at, self.go_on = None, None
        super().__init__()

    def reply(self, connection, line, word):
        usual = REPLIES.get(word, b"220 mx.test ready")
        text = self.replies.get(line, self.replies.get(word, usual))
        if text is None:
            self.asked.set()
        else:
            connection.sendall(text + b"\r\n")
        return text is not None and text[:1] in b"23"

    def serve_connection(self, connection, stream):
        self.reply(connection, b"", b"")
        recipients = []
        while line := stream.readline().rstrip(b"\r\n"):
            self.commands.append(line)
            word = line[:4]
            good = self.reply(connection, line, word)
            if good and word == b"MAIL":
                recipients = []
            if good and word == b"RCPT":
                recipients.append(line[len(b"RCPT TO:<"):-1].decode())
            if good and word == b"DATA":
                message = self.message(stream)
                if self.reply(connection, b".", b"."):
                    self.messages += [(recipient, message) for recipient in recipients]

    def message(self, stream):
        """Without the dots that guard lines (RFC 5321, section 4.5.2)."""
        message = stream.read(self.hold_at) if self.hold_at else b""
        if self.go_on:
            self.go_on.wait()
        lines = [message]
        while (line := stream.readline()) not in (b".\r\n", b""):
            lines.append(line[1:] if line.startswith(b".") else line)
        return b"".join(lines)

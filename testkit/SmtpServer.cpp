#include <netro/testkit/SmtpServer.h>

#include <algorithm>
#include <utility>

namespace netro::testkit {

SmtpServer::Answer SmtpServer::Politely(const std::string& command) {
  if (command.empty()) return "220 mx.test ready\r\n";
  if (command == "DATA") return "354 go ahead\r\n";
  if (command == "QUIT") return {"221 bye\r\n", After::Close};
  return "250 ok\r\n";
}

SmtpServer::SmtpServer(Reply reply, int port, const std::string& address)
    : reply_(std::move(reply)),
      server_([this](Connection& connection, std::size_t) { Serve(connection); }, port, address) {}

std::vector<std::string> SmtpServer::Commands() {
  const std::lock_guard lock(mutex_);
  return commands_;
}

std::vector<std::string> SmtpServer::Messages() {
  const std::lock_guard lock(mutex_);
  return messages_;
}

void SmtpServer::Keep(std::vector<std::string>& list, const std::string& text) {
  const std::lock_guard lock(mutex_);
  list.push_back(text);
}

void SmtpServer::Serve(Connection& connection) {
  std::string bytes;  // read ahead
  std::string command;
  if (!connection.Give(reply_(""))) return;
  while (ReadUntil(connection, bytes, "\r\n", command)) {
    command.resize(command.size() - 2);
    Keep(commands_, command);
    if (command.starts_with("BDAT ")) {
      std::string chunk;
      if (!Take(connection, bytes, std::stoul(command.substr(5)), chunk)) return;
      Keep(messages_, chunk);
    }
    const Answer answer = reply_(command);
    if (!connection.Give(answer)) return;
    if (command != "DATA" || (!answer.bytes.starts_with("354") && !answer.bytes.starts_with("250")))
      continue;
    std::string message;
    // A message that begins with its end has no line end in front of it.
    bytes.insert(0, "\r\n");
    if (!ReadUntil(connection, bytes, "\r\n.\r\n", message)) return;
    Keep(messages_, message.substr(2));
    Keep(commands_, ".");
    if (!connection.Give(reply_("."))) return;
  }
}

bool SmtpServer::Take(Connection& connection, std::string& bytes, std::size_t size,
                      std::string& into) {
  while (bytes.size() < size) {
    if (!connection.Read(bytes)) return false;
  }
  into = bytes.substr(0, size);
  bytes.erase(0, size);
  return true;
}

bool SmtpServer::ReadUntil(Connection& connection, std::string& bytes, const std::string& end,
                           std::string& into) {
  for (std::size_t from = 0;;) {
    const std::size_t at = bytes.find(end, from);
    if (at != std::string::npos) {
      into = bytes.substr(0, at + end.size());
      bytes.erase(0, at + end.size());
      return true;
    }
    from = bytes.size() - std::min(bytes.size(), end.size() - 1);
    if (!connection.Read(bytes)) return false;
  }
}

}  // namespace netro::testkit

// An SMTP server (RFC 5321) that answers as the test says: a function gets each command and returns
// the bytes of the reply, where to cut them and how to go on. It records commands and messages byte
// for byte.
//
// Thread: the test's; the function runs on the server's threads, one for each connection. Example:
//
//   SmtpServer server([](const std::string& command) -> SmtpServer::Answer {
//     if (command.starts_with("RCPT")) return "550 no such user\r\n";
//     return SmtpServer::Politely(command);
//   });
#pragma once

#include <netro/Export.h>
#include <netro/testkit/LoopbackServer.h>
#include <netro/testkit/Response.h>

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace netro::testkit {

/// An SMTP server (RFC 5321).
class NETRO_EXPORT SmtpServer {
 public:
  /// See Response.h.
  using After = testkit::After;
  using Answer = Response;
  /// Called with "" for the greeting, with each command without its line end, and with "." for the
  /// end of a message, which follows a reply that begins with "354" or "250" to DATA.
  using Reply = std::function<Answer(const std::string& command)>;

  /// The replies of a server that accepts everything.
  static Answer Politely(const std::string& command);

  /// See LoopbackServer.
  explicit SmtpServer(Reply reply = Politely, int port = 0,
                      const std::string& address = "127.0.0.1");

  /// Where it listens on 127.0.0.1.
  int Port() const { return server_.Port(); }
  /// Accepted so far.
  std::size_t Connections() const { return server_.Connections(); }
  /// All commands and the "." of messages so far, over all connections.
  std::vector<std::string> Commands();
  /// The messages so far as they came: with all dots, up to and with the line that ends them, or
  /// the chunk of a BDAT, which is taken before its reply.
  std::vector<std::string> Messages();

 private:
  void Serve(Connection& connection);
  bool ReadUntil(Connection& connection, std::string& bytes, const std::string& end,
                 std::string& into);
  bool Take(Connection& connection, std::string& bytes, std::size_t size, std::string& into);
  void Keep(std::vector<std::string>& list, const std::string& text);

  const Reply reply_;
  std::mutex mutex_;
  std::vector<std::string> commands_;  // guarded by mutex_
  std::vector<std::string> messages_;  // guarded by mutex_
  LoopbackServer server_;              // last: its threads use the others
};

}  // namespace netro::testkit

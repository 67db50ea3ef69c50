// A WHOIS server (RFC 3912): each connection sends a line, gets the answer and its end. It serves
// for other protocols of that form too, such as finger (RFC 1288). It records the lines.
//
// Thread: the test's; the function runs on the server's threads, one for each connection. Example:
//
//   WhoIsServer server([](const std::string& query) { return "no match for " + query + "\r\n"; });
#pragma once

#include <netro/Export.h>
#include <netro/testkit/LoopbackServer.h>
#include <netro/testkit/Response.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace netro::testkit {

/// A WHOIS server (RFC 3912), which closes behind each answer.
class NETRO_EXPORT WhoIsServer {
 public:
  /// Called with the query without its line end.
  using Answer = std::function<Response(const std::string& query)>;

  /// See LoopbackServer.
  explicit WhoIsServer(Answer answer, int port = 0, const std::string& address = "127.0.0.1");

  /// Where it listens on 127.0.0.1.
  int Port() const { return server_.Port(); }
  /// Accepted so far.
  std::size_t Connections() const { return server_.Connections(); }
  /// All queries so far, over all connections.
  std::vector<std::string> Queries();

 private:
  void Serve(Connection& connection);

  const Answer answer_;
  std::mutex mutex_;
  std::vector<std::string> queries_;  // guarded by mutex_
  LoopbackServer server_;             // last: its threads use the others
};

}  // namespace netro::testkit

// A small HTTP server with one handler for each path, which returns the raw bytes of the answer.
// One request per connection, and the stream ends after the answer; or, when it is told to keep its
// connections, any number, until an answer says "Connection: close" or is empty.
//
// Thread: the test's; handlers run on the server's threads, several at once.
#pragma once

#include <netro/Export.h>
#include <netro/testkit/LoopbackServer.h>
#include <netro/testkit/Response.h>

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace netro::testkit {

/// A request as it came.
struct NETRO_EXPORT HttpRequest {
  std::string method;          // "GET"
  std::string target;          // as in the request line
  std::string head;            // request line and header lines
  std::string body;            // without chunk framing
  std::size_t connection = 0;  // counted from 0

  /// The value of a header field, found without regard to case; empty when there is none.
  std::string Field(const std::string& name) const;
};

/// An HTTP server (RFC 9112) with an answer for each path; for others it has 404.
class NETRO_EXPORT HttpServer {
 public:
  /// What is answered to a request. Called on the connection's thread.
  using Handler = std::function<Response(const HttpRequest&)>;

  /// `keeps`: a connection stays open for further requests.
  explicit HttpServer(bool keeps = false);

  /// `path` is compared with the target up to its "?"; of a target in absolute form the path
  /// counts.
  void On(const std::string& path, Handler handler);
  /// Answers with 200 and this text as text/plain.
  void OnText(const std::string& path, const std::string& text);

  /// Where it listens on 127.0.0.1.
  int Port() const { return server_.Port(); }
  /// "http://127.0.0.1:PORT" and the path.
  std::string Url(const std::string& path) const;
  /// Accepted so far.
  std::size_t Connections() const { return server_.Connections(); }

  /// A connection of another kind, whose requests are answered too.
  struct Stream {
    std::function<bool(std::string&)> read;     // appends; false at the end
    std::function<bool(const Response&)> send;  // false when nothing can follow
  };
  /// Answers its requests until it ends; `number` is their HttpRequest::connection.
  void ServeOn(const Stream& stream, std::size_t number);
  /// All requests so far.
  std::vector<HttpRequest> Requests();

  /// The bytes of an answer: "200 OK\r\nContent-Length: 2", "ok".
  static std::string Answer(const std::string& statusAndHeader, const std::string& body);

 private:
  void Serve(Connection& connection, std::size_t number);
  Handler Record(const HttpRequest& request);

  const bool keeps_;
  std::mutex mutex_;
  std::map<std::string, Handler> handlers_;  // guarded by mutex_
  std::vector<HttpRequest> requests_;        // guarded by mutex_
  LoopbackServer server_;                    // last: its threads use the others
};

}  // namespace netro::testkit

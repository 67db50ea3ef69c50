// A DNS server that does what the test says: on UDP and TCP of one free port of 127.0.0.1, each
// query gets the replies that a function returns, and a second function may take a TCP connection
// over. It records every query.
//
// Thread: the test's; the functions run on the server's threads. Example:
//
//   DnsServer server([](const std::string& query) -> DnsServer::Replies {
//     return {DnsReply(query).Code(3).Bytes()};
//   });
#pragma once

#include <netro/Export.h>
#include <netro/testkit/DatagramServer.h>
#include <netro/testkit/DnsReply.h>
#include <netro/testkit/LoopbackServer.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace netro::testkit {

/// A DNS server (RFC 1035) over UDP and TCP of one port.
class NETRO_EXPORT DnsServer {
 public:
  /// As in DatagramServer.
  using From = DatagramServer::From;
  using Reply = DatagramServer::Reply;
  using Replies = DatagramServer::Replies;

  /// The replies to a query, in order; none is silence.
  using Answer = std::function<Replies(const std::string& query)>;
  /// Talks on a TCP connection whose first query has been read; it is closed after.
  using Talk = std::function<void(Connection& connection, const std::string& query)>;

  /// Without `talk`, TCP answers like UDP, query after query, until the client closes.
  explicit DnsServer(Answer answer, Talk talk = nullptr);

  /// Of TCP and UDP on 127.0.0.1.
  int Port() const { return tcp_->Port(); }
  /// Of TCP, accepted so far.
  std::size_t Connections() const { return tcp_->Connections(); }
  /// Everything asked so far, over TCP without the length. All datagrams sent to the server before
  /// are in it, and their replies are sent.
  std::vector<std::string> Queries();
  /// How many there are now; does not wait for what is on its way.
  std::size_t QueryCount() const { return count_; }

 private:
  void Keep(const std::string& query);
  void ServeConnection(Connection& connection);

  const Answer answer_;
  const Talk talk_;
  std::mutex mutex_;
  std::vector<std::string> queries_;  // guarded by mutex_
  std::atomic<std::size_t> count_{0};
  // Last: their threads use the others.
  std::unique_ptr<DatagramServer> udp_;
  std::unique_ptr<LoopbackServer> tcp_;
};

/// The answers of a server that knows these names and their IPv4 addresses in dotted form, no data
/// of another type, and no other name (NXDOMAIN).
NETRO_EXPORT DnsServer::Answer AnswersOf(std::map<std::string, std::string> hosts);

}  // namespace netro::testkit

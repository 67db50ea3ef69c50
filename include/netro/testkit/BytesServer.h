// A server that plays a script of exact bytes: what to wait for, what to send, where to cut it and
// how to end. It records every byte it receives.
//
// Thread: the test's; the scripts run on the server's threads. Example:
//
//   BytesServer server({{AwaitText("\r\n\r\n"), Send("HTTP/1.1 204 No Content\r\n\r\n", {9})}});
//   ... let the client talk to server.Port() ...
//   EXPECT_EQ(server.Received(0), "GET / ...");
#pragma once

#include <netro/Export.h>
#include <netro/testkit/LoopbackServer.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace netro::testkit {

/// A step of a script, made by the functions below.
struct Step {
  /// What is done.
  enum Kind { kAwaitText, kAwaitBytes, kSend, kPause, kHalfClose, kClose, kReset, kStay };
  Kind kind;                          // which of the functions has made it
  std::string bytes;                  // of AwaitText and Send
  std::size_t count = 0;              // of AwaitBytes
  std::vector<std::size_t> cuts;      // of Send
  std::chrono::milliseconds time{0};  // of Pause
};
/// What happens on a connection, one step after the other.
using Script = std::vector<Step>;

/// Waits for the text behind what earlier waits have matched.
NETRO_EXPORT Step AwaitText(std::string text);
/// Waits for so many bytes behind what earlier waits have matched.
NETRO_EXPORT Step AwaitBytes(std::size_t count);
/// Sends; each piece that begins at a position of `cuts` goes out once the client has read the one
/// before.
NETRO_EXPORT Step Send(std::string bytes, std::vector<std::size_t> cuts = {});
/// Waits so long.
NETRO_EXPORT Step Pause(std::chrono::milliseconds time);
/// Ends the stream to the client and goes on with the script.
NETRO_EXPORT Step HalfClose();
/// Closes at once.
NETRO_EXPORT Step Close();
/// Closes so that the client sees a reset.
NETRO_EXPORT Step Reset();
/// Keeps the connection open and silent until the client closes it.
NETRO_EXPORT Step Stay();

/// A server that plays exact bytes.
class NETRO_EXPORT BytesServer {
 public:
  /// The n-th connection plays the n-th script, further ones the last. After its last step a
  /// connection is half-closed and read until the client closes.
  explicit BytesServer(std::vector<Script> scripts);

  /// Where it listens on 127.0.0.1.
  int Port() const { return server_.Port(); }
  /// Accepted so far.
  std::size_t Connections() const { return server_.Connections(); }
  /// What the n-th connection has sent, once it has ended (or after five seconds).
  std::string Received(std::size_t connection);
  /// What the n-th connection has sent so far.
  std::string ReceivedSoFar(std::size_t connection);
  /// Waits (five seconds at most) until the n-th connection has sent `text`.
  bool AwaitReceived(std::size_t connection, const std::string& text);

 private:
  struct Record {
    std::string received;
    bool ended = false;
  };

  void Play(Connection& connection, std::size_t number);
  bool PlayStep(Connection& connection, const Step& step, std::size_t number, std::size_t& mark);
  bool Await(Connection& connection, const Step& step, std::size_t number, std::size_t& mark);
  void Keep(std::size_t number, std::string& block, bool ended);
  Record& RecordOf(std::size_t number);

  const std::vector<Script> scripts_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Record> records_;  // guarded by mutex_
  LoopbackServer server_;        // last: its threads use the others
};

}  // namespace netro::testkit

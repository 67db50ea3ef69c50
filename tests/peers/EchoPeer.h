// Answers ICMP echo requests of one family with whatever packets the test says, from raw sockets.
// For a network namespace of the test's own in which the system leaves the answering to others.
// Records every request and shares nothing with the library.
//
// Thread: the test's; the function runs on the peer's thread.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace netro::testkit {

class EchoPeer {
 public:
  struct Request {
    std::string packet;  // with its IP header
    std::string source;
    std::string destination;
    int ttl = 0;
    int identifier = 0;
    int sequence = 0;
    std::string data;

    bool IsIPv6() const { return source.find(':') != source.npos; }
    std::size_t HeaderSize() const { return IsIPv6() ? 40 : 20; }
  };
  /// The packets to send, with their IP headers; none is silence.
  using Answer = std::function<std::vector<std::string>(const Request& request)>;

  /// Where raw sockets are not allowed, IsUp is false.
  explicit EchoPeer(Answer answer, bool v6 = false);
  ~EchoPeer();
  EchoPeer(const EchoPeer&) = delete;
  EchoPeer& operator=(const EchoPeer&) = delete;

  bool IsUp() const { return receive_ >= 0 && send_ >= 0; }
  /// Requests that have arrived so far.
  std::vector<Request> Received();

  /// The right reply to this request, from its destination.
  static std::string Reply(const Request& request);
  /// An error message about the request, from the host `from`.
  static std::string Error(int type, int code, const std::string& from, const Request& request,
                           const std::string& extensions = {});

 private:
  void Loop();
  std::string Receive(std::string& room);
  void Take(const std::string& packet);

  const Answer answer_;
  const bool v6_;
  int receive_ = -1;
  int send_ = -1;
  int stop_ = -1;
  std::mutex mutex_;
  std::vector<Request> received_;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace netro::testkit

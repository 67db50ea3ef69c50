// The time server of the tour.

#include "tour/TourTimeServer.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>

#include "terminal/System.h"

namespace netro::tool {
namespace {

using namespace std::string_literals;

std::string Number32(std::uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 255);
  return bytes;
}

/// The time by the server's clock, since 1900: seconds, and their fraction in 2^-32.
struct Stamp {
  Stamp() {
    using std::chrono::nanoseconds;
    constexpr std::int64_t kSecondsTo1970 = 2'208'988'800;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto whole = std::chrono::floor<std::chrono::seconds>(now);
    const auto rest = static_cast<std::uint64_t>(nanoseconds(now - whole).count());
    seconds = static_cast<std::uint32_t>(whole.count() + kSecondsTo1970 + kTourClockIsFast);
    fraction = static_cast<std::uint32_t>((rest << 32) / 1'000'000'000);
  }

  std::string Bytes() const { return Number32(seconds) + Number32(fraction); }

  std::uint32_t seconds = 0;
  std::uint32_t fraction = 0;
};

/// Sends the time as soon as it is connected to; the client has nothing to say.
class TimePeer : public TourPeer {
 public:
  explicit TimePeer(TourJournal& journal) : TourPeer("Time server", journal) {}

  void Accept(std::int32_t requestId) override {
    TourPeer::Accept(requestId);
    const TourTimeReply reply = TimeProtocolReply();
    Send(reply.bytes, reply.meaning);
    Close();
  }

 private:
  void Receive() override {}
};

}  // namespace

TourTimeReply TimeProtocolReply() {
  return {Number32(Stamp().seconds), "seconds since 1900, by a clock that is an hour fast"};
}

/// Leap 0, version 3, mode 4 (server); stratum, poll and precision; root delay and dispersion; the
/// reference; and the times of reference, originate (the question has none), receive and transmit.
TourTimeReply SntpReply() {
  const std::string received = Stamp().Bytes();
  return {"\x1C\1\6\xEC"s + Number32(0) + Number32(1 << 12) + "GPS\0"s + received +
              std::string(8, '\0') + received + Stamp().Bytes(),
          "primary server, set by GPS, times of receiving and sending"};
}

TourTimeReply KissOfDeathReply() {
  return {"\xDC\0\6\xEC"s + std::string(8, '\0') + "RATE" + std::string(32, '\0'),
          "no time, but the kiss code RATE: you ask too often"};
}

TourTimeServer::TourTimeServer(TourJournal& journal)
    : journal_(journal),
      tcp_([&journal] { return std::make_unique<TimePeer>(journal); }),
      descriptor_(OpenDatagramSocket()),
      // SocketCls does not tell of the empty datagram that asks for the time.
      poll_(1, [this] { ReceiveDatagrams(); }) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  (void)::bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), size);
  if (::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
    udpPort_ = ntohs(address.sin_port);
  }
}

TourTimeServer::~TourTimeServer() { CloseSocket(descriptor_); }

void TourTimeServer::ReceiveDatagrams() {
  char question[64];
  sockaddr_in client{};
  socklen_t size = sizeof client;
  const auto got = ::recvfrom(descriptor_, question, sizeof question, 0,
                              reinterpret_cast<sockaddr*>(&client), &size);
  if (got < 0) return;
  journal_.Add({"Time server", true, std::string(question, static_cast<std::size_t>(got)),
                got == 0 ? "an empty datagram: what time is it?" : "a question"});
  const TourTimeReply reply = reply_();
  journal_.Add({"Time server", false, reply.bytes, reply.meaning});
  (void)::sendto(descriptor_, reply.bytes.data(), static_cast<int>(reply.bytes.size()), 0,
                 reinterpret_cast<const sockaddr*>(&client), size);
}

}  // namespace netro::tool

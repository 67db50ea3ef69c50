// The HTTP proxy and the SOCKS proxy of the tour. Both end as a tunnel: bytes pass in both
// directions and are not looked at any more.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tour/TourHttpMessage.h"
#include "tour/TourServers.h"

namespace netro::tool {
namespace {

using namespace std::string_literals;

/// A connection that opens a second one and joins the two.
class TunnelPeer : public TourPeer {
 protected:
  TunnelPeer(std::string server, TourJournal& journal) : TourPeer(std::move(server), journal) {
    target_.Events(&events_);
  }

  void Open(const std::string& host, std::int32_t port) {
    if (!target_.Connect(host == kTourHost ? "127.0.0.1" : host, port)) Opened(false);
  }

  virtual void Opened(bool success) = 0;

  void ForwardToTarget(const std::string& bytes) { target_.SendData(bytes); }

 private:
  struct TargetEvents : SocketClsEvents {
    explicit TargetEvents(TunnelPeer& peer) : peer_(peer) {}
    void Connect() override { peer_.Opened(true); }
    void Error(std::int32_t, const std::string&) override { peer_.Opened(false); }
    void DataArrival(const Bytes& BinData, const std::string&) override {
      peer_.Forward(std::string(BinData.begin(), BinData.end()));
    }
    void Closed() override { peer_.Close(); }
    TunnelPeer& peer_;
  };

  TargetEvents events_{*this};
  SocketCls target_;
};

// --- the HTTP proxy (RFC 9112, section 3.2.2) ----------------------------------------------------

class HttpProxyPeer : public TunnelPeer {
 public:
  explicit HttpProxyPeer(TourJournal& journal) : TunnelPeer("HTTP proxy", journal) {}

 private:
  void Receive() override {
    const auto request = TakeRequest(input_);
    if (!request) return;
    Record(request->bytes);
    Handle(*request);
  }

  void Handle(const TourRequest& request) {
    if (!IsTourUser(FieldOf(request, "Proxy-Authorization"))) {
      Send(MakeAnswer("407 Proxy Authentication Required",
                      "Proxy-Authenticate: Basic realm=\"tour proxy\"\r\n", ""));
      return;
    }
    constexpr std::string_view kScheme = "http://";
    const std::string rest = request.target.substr(std::min(kScheme.size(), request.target.size()));
    const std::size_t slash = std::min(rest.find('/'), rest.size());
    const std::size_t colon = std::min(rest.find(':'), slash);
    std::int32_t port = 80;
    std::from_chars(rest.data() + std::min(colon + 1, slash), rest.data() + slash, port);
    request_ = request.method + " " + rest.substr(slash) + " HTTP/1.1\r\n" +
               WithoutCredentials(request.header) + "\r\n" + request.body;
    Open(rest.substr(0, colon), port);
  }

  /// What is meant for the proxy goes no further.
  static std::string WithoutCredentials(std::string header) {
    const std::size_t at = header.find("Proxy-Authorization: ");
    if (at != header.npos) header.erase(at, header.find("\r\n", at) + 2 - at);
    return header;
  }

  void Opened(bool success) override {
    if (success) {
      ForwardToTarget(request_);
    } else {
      Send(MakeAnswer("502 Bad Gateway", "", ""));
    }
  }

  std::string request_;
};

// --- the SOCKS proxy (version 4, 4a; RFC 1928, RFC 1929) -----------------------------------------

class SocksPeer : public TunnelPeer {
 public:
  explicit SocksPeer(TourJournal& journal) : TunnelPeer("SOCKS proxy", journal) {}

 private:
  enum class State { Begin, Password, Request, Connecting, Tunnel };

  /// The tour's client waits for each reply, so a message always comes alone.
  void Receive() override {
    switch (state_) {
      case State::Begin:
        input_[0] == 4 ? ReadSocks4() : ReadGreeting();
        break;
      case State::Password:
        ReadPassword();
        break;
      case State::Request:
        ReadRequest();
        break;
      case State::Connecting:
        break;
      case State::Tunnel:
        ForwardToTarget(TakeInput());
        break;
    }
  }

  std::string TakeInput() { return std::exchange(input_, {}); }

  int ByteAt(std::size_t at) const {
    return at < input_.size() ? static_cast<std::uint8_t>(input_[at]) : 0;
  }

  std::int32_t PortAt(std::size_t at) const { return ByteAt(at) * 256 + ByteAt(at + 1); }

  std::string AddressAt(std::size_t at) const {
    std::string address;
    for (std::size_t i = 0; i < 4; ++i) {
      address += (i == 0 ? "" : ".") + std::to_string(ByteAt(at + i));
    }
    return address;
  }

  /// Version, command, port, address, user and, in 4a, host; both end with a NUL.
  void ReadSocks4() {
    if (input_.size() < 9 || !input_.ends_with('\0')) return;
    version_ = 4;
    const std::int32_t port = PortAt(2);
    std::string host = AddressAt(4);
    const bool named = host == "0.0.0.1";
    if (named) {
      host = input_.substr(input_.find('\0', 8) + 1);
      host.pop_back();
    }
    OpenTarget((named ? "SOCKS 4a: connect to " : "SOCKS 4: connect to "), host, port);
  }

  void ReadGreeting() {
    version_ = 5;
    const bool mayAuthenticate = input_.find('\2', 2) != input_.npos;
    Record(TakeInput(),
           mayAuthenticate ? "SOCKS 5: with or without a password" : "SOCKS 5: without a password");
    state_ = mayAuthenticate ? State::Password : State::Request;
    mayAuthenticate ? Send("\5\2"s, "with a password, please") : Send("\5\0"s, "agreed");
  }

  void ReadPassword() {
    const auto userSize = static_cast<std::size_t>(ByteAt(1));
    const std::string user = input_.substr(std::min<std::size_t>(2, input_.size()), userSize);
    const std::string password = input_.substr(std::min(3 + userSize, input_.size()));
    const bool good = user == kTourUser && password == kTourPassword;
    Record(TakeInput(), "user \"" + user + "\", password \"" + password + "\"");
    state_ = State::Request;
    good ? Send("\1\0"s, "accepted") : Send("\1\1"s, "refused");
  }

  /// Version, command, reserved, address type 1 (IPv4) or 3 (name), address, port.
  void ReadRequest() {
    const bool named = ByteAt(3) == 3;
    const std::size_t begin = named ? 5 : 4;
    const std::size_t size = named ? static_cast<std::size_t>(ByteAt(4)) : 4;
    if (input_.size() < begin + size + 2) return;
    const std::string host = named ? input_.substr(begin, size) : AddressAt(begin);
    const std::int32_t port = PortAt(begin + size);
    OpenTarget("connect to ", host, port);
  }

  void OpenTarget(const std::string& what, const std::string& host, std::int32_t port) {
    Record(TakeInput(), what + host + " port " + std::to_string(port));
    state_ = State::Connecting;
    Open(host, port);
  }

  void Opened(bool success) override {
    state_ = success ? State::Tunnel : State::Connecting;
    const std::string reply = version_ == 4
                                  ? "\0"s + (success ? "\x5A" : "\x5B") + "\0\0\0\0\0\0"s
                                  : "\5"s + (success ? "\0"s : "\5"s) + "\0\1\0\0\0\0\0\0"s;
    Send(reply, success ? "the tunnel is open" : "refused");
  }

  State state_ = State::Begin;
  int version_ = 0;
};

}  // namespace

TourServer::PeerMaker HttpProxy(TourJournal& journal) {
  return [&journal] { return std::make_unique<HttpProxyPeer>(journal); };
}

TourServer::PeerMaker SocksProxy(TourJournal& journal) {
  return [&journal] { return std::make_unique<SocksPeer>(journal); };
}

}  // namespace netro::tool

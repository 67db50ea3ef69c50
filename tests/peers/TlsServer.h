// A TLS server on OpenSSL that does what a test tells it, also what no decent server would: stop in
// the middle of the handshake, end without a closing alert, send what is not TLS. It shares nothing
// with the library.
//
// Thread: the test's; `serve` runs on the connection's thread.
#pragma once

#include <netro/testkit/LoopbackServer.h>

#include <openssl/ssl.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "TlsAuthority.h"

namespace netro::testkit {

/// The server's end of one connection. The methods end early when the server stops.
class TlsPeer {
 public:
  static constexpr std::size_t kNever = static_cast<std::size_t>(-1);

  /// `cutAfter`: so many raw bytes are sent, then the connection is closed.
  TlsPeer(SSL_CTX* context, Connection& raw, std::size_t cutAfter, bool byBytes);
  ~TlsPeer();
  TlsPeer(const TlsPeer&) = delete;
  TlsPeer& operator=(const TlsPeer&) = delete;

  bool Accept();
  /// Waits for plaintext and appends it; false at the end, orderly or not.
  bool Read(std::string& into);
  bool Send(std::string_view plaintext);
  /// Sends the closing alert.
  void CloseNotify();
  /// Changes its own key and asks for a new one of the client's.
  bool UpdateKeys();
  /// Sends what the calls of OpenSSL itself have left.
  bool Flush();
  /// True once the client has sent its closing alert.
  bool ClientSaidGoodbye() const;
  Connection& Raw() { return raw_; }
  SSL* Handle() { return ssl_; }
  std::size_t BytesSent() const { return sent_; }

 private:
  bool Feed();

  Connection& raw_;
  SSL* ssl_;
  BIO* in_;
  BIO* out_;
  const std::size_t cutAfter_;
  const bool byBytes_;
  std::size_t sent_ = 0;
};

struct TlsRules {
  Identity identity;
  int lowest = 0;  // TLS1_2_VERSION ...
  int highest = 0;
  std::string clientAuthority;  // PEM: clients must have a certificate of this one's
  std::string alpn;             // chosen when offered
  bool tickets = true;
  std::size_t cutAfter = TlsPeer::kNever;
  bool byBytes = false;     // each byte apart
  std::string unprotected;  // sent before the handshake, or instead of it with `noHandshake`
  bool noHandshake = false;
  /// Talks before the handshake; false: there is none.
  std::function<bool(Connection&)> before;
  /// After the handshake. Without it: what is read is sent back, until the client's end.
  std::function<void(TlsPeer&)> serve;
};

class TlsServer {
 public:
  explicit TlsServer(TlsRules rules);

  int Port() const { return server_.Port(); }
  std::size_t Connections() const { return server_.Connections(); }
  std::size_t Handshakes() const { return handshakes_; }
  std::size_t Goodbyes() const { return goodbyes_; }
  /// Raw bytes that the last handshake took.
  std::size_t HandshakeBytes() const { return handshakeBytes_; }

 private:
  void Serve(Connection& connection);

  TlsRules rules_;
  std::shared_ptr<SSL_CTX> context_;
  std::atomic<std::size_t> handshakes_{0};
  std::atomic<std::size_t> goodbyes_{0};
  std::atomic<std::size_t> handshakeBytes_{0};
  LoopbackServer server_;
};

}  // namespace netro::testkit

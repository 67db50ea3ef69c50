// What the TLS tests share: an authority, providers that trust it, and protecting a connection.
#pragma once

#include <netro/SocketCls.h>
#include <netro/tls/OpenSslTls.h>


#include "SocketTestKit.h"
#include "peers/TlsServer.h"

namespace netro {

inline const testkit::TlsAuthority& Authority() {
  static const testkit::TlsAuthority authority;
  return authority;
}

inline std::shared_ptr<TlsProvider> MustProvide(const TlsSettings& settings) {
  std::string error;
  auto provider = MakeOpenSslProvider(settings, error);
  EXPECT_NE(provider, nullptr) << error;
  return provider;
}

/// One that trusts the authority of the tests.
inline std::shared_ptr<TlsProvider> Trusting(TlsSettings settings = {}) {
  const TemporaryFolder folder;
  settings.trustFile = folder / "trust.pem";
  WriteFile(settings.trustFile, Authority().Certificate());
  return MustProvide(settings);
}

inline testkit::TlsRules GoodRules(int highest = 0) {
  testkit::TlsRules rules;
  rules.highest = highest;
  rules.identity = Authority().Issue();
  return rules;
}

/// Connects and protects; the number of what failed, 0 for nothing.
inline std::int32_t Protect(SocketCls& socket, int port,
                            const std::shared_ptr<TlsProvider>& provider,
                            const std::string& host = "localhost") {
  if (!ConnectAndWait(socket, port)) return -1;
  return socket.StartTls(host, provider) ? 0 : socket.LastSocketErr();
}

/// A round trip over the protected connection.
inline bool Echoes(SocketCls& socket, Recorder& recorder, const std::string& text = "ping") {
  const std::string wanted = recorder.received + text;
  return socket.SendData(text) == 0 && PumpUntil([&] { return recorder.received == wanted; });
}

}  // namespace netro

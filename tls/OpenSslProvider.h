// The provider on OpenSSL: one context that holds the settings, and the memory of sessions. Any
// thread.
#pragma once

#include <netro/Tls.h>

#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tls/Certificates.h"
#include "tls/OpenSslHandles.h"
#include "tls/SessionMemory.h"

namespace netro {

class OpenSslProvider final : public TlsProvider,
                              public std::enable_shared_from_this<OpenSslProvider> {
 public:
  /// Reads what the settings name. Empty, or what is wrong with them.
  std::string Prepare(const TlsSettings& settings);

  std::unique_ptr<TlsSession> NewSession(const std::string& host, std::int32_t port) override;

  SSL_CTX* Context() const { return context_.get(); }
  SessionMemory& Sessions() { return sessions_; }
  bool TrustsAnyone() const { return trustsAnyone_; }
  bool HasOwnTrust() const { return hasOwnTrust_; }
  bool HasCertificate() const { return hasCertificate_; }
  bool AcceptsKeyOf(const X509& certificate) const;
  /// False when the system has no trusted certificates to read.
  static bool SystemTrustIsThere();

 private:
  std::string ReadTrust(const TlsSettings& settings);
  std::string ReadCertificate(const TlsSettings& settings);
  std::string ReadPins(const TlsSettings& settings);
  std::string SetAlpn(const TlsSettings& settings);
  std::string OpenKeyLog(const TlsSettings& settings);
  void WriteKeyLog(const char* line);

  SslContext context_;
  SessionMemory sessions_;
  std::vector<Sha256> pins_;
  bool trustsAnyone_ = false;
  bool hasOwnTrust_ = false;
  bool hasCertificate_ = false;
  std::mutex keyLogMutex_;
  std::ofstream keyLog_;
};

}  // namespace netro

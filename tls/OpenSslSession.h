// One session on OpenSSL. It reads ciphertext from where its caller has it and writes to a buffer
// of its own, through a BIO that is nothing but these two. Belongs to one thread at a time; keeps
// its provider alive.
#pragma once

#include <netro/Tls.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tls/OpenSslHandles.h"

namespace netro {

class OpenSslProvider;

class OpenSslSession final : public TlsSession {
 public:
  explicit OpenSslSession(std::shared_ptr<OpenSslProvider> provider);
  ~OpenSslSession() override;

  /// Has a context check certificates and hand over new sessions as this class wants it.
  static void Install(SSL_CTX& context);

  /// Prepares the handshake. A host that cannot be checked is the state Failed.
  void Begin(const std::string& host, std::int32_t port);

  TlsState State() const override { return state_; }
  std::size_t Handshake(std::span<const std::uint8_t> ciphertext) override;
  Decrypted Decrypt(std::span<const std::uint8_t> ciphertext,
                    std::span<std::uint8_t> room) override;
  bool HasPlaintext() const override;
  std::size_t Encrypt(std::span<const std::uint8_t> plaintext) override;
  void CloseNotify() override;
  std::span<const std::uint8_t> Outgoing() const override;
  void Sent(std::size_t count) override;
  std::int32_t Error() const override { return error_; }
  std::string ErrorText() const override { return errorText_; }
  TlsInfo Info() const override;

 private:
  static const BIO_METHOD* BioMethod();
  static int ReadBio(BIO* bio, char* room, int size);
  static int WriteBio(BIO* bio, const char* data, int size);
  static int Verify(X509_STORE_CTX* chain, void*);
  static int KeepSession(SSL* ssl, SSL_SESSION* session);
  static int NoteCertificateWish(SSL* ssl, X509**, EVP_PKEY**);

  bool SetHost(const std::string& host);
  int VerifyChain(X509_STORE_CTX& chain);
  void Fail(std::int32_t error, std::string text) noexcept;
  void FailBy(int result) noexcept;
  void ExplainCertificate();
  void ExplainAlert(int alert);
  void ExplainReason(unsigned long code);

  const std::shared_ptr<OpenSslProvider> provider_;
  Ssl ssl_;
  std::string host_;  // as the certificate is to have it
  std::string key_;   // of the provider's memory
  TlsState state_ = TlsState::Handshake;
  std::int32_t error_ = 0;
  std::string errorText_;
  Certificate leaf_;  // that the peer has shown
  bool badPin_ = false;
  bool certificateWanted_ = false;
  std::span<const std::uint8_t> incoming_;  // only while a call runs
  std::vector<std::uint8_t> outgoing_;
  std::size_t sent_ = 0;  // of outgoing_
};

}  // namespace netro

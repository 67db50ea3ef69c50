// A certificate authority of the tests': makes certificates of every kind, good and bad, with
// OpenSSL. Any thread.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace netro::testkit {

struct Identity {
  std::string certificate;  // PEM
  std::string key;          // PEM
  std::string pin;          // Base64 of the SHA-256 of the public key
};

struct CertificateWish {
  std::string names = "DNS:localhost,IP:127.0.0.1";
  int firstDay = -1;  // counted from today
  int lastDay = 30;
  int rsaBits = 0;  // 0: P-256
  bool selfSigned = false;
  std::string commonName = "localhost";
};

class TlsAuthority {
 public:
  explicit TlsAuthority(const std::string& name = "Test Authority");

  /// Its own certificate, for those who are to trust it.
  const std::string& Certificate() const { return identity_.certificate; }
  Identity Issue(const CertificateWish& wish = {}) const;

 private:
  std::shared_ptr<EVP_PKEY> key_;
  std::shared_ptr<X509> certificate_;
  Identity identity_;
};

}  // namespace netro::testkit

#include "TlsAuthority.h"

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <cstdlib>

namespace netro::testkit {
namespace {

using Key = std::shared_ptr<EVP_PKEY>;
using Cert = std::shared_ptr<X509>;

Key NewKey(int rsaBits) {
  EVP_PKEY* made = rsaBits > 0 ? EVP_RSA_gen(static_cast<unsigned>(rsaBits)) : EVP_EC_gen("P-256");
  if (made == nullptr) std::abort();
  return {made, EVP_PKEY_free};
}

std::string Take(BIO* bio) {
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio, &text);
  std::string pem(text, static_cast<std::size_t>(size));
  BIO_free(bio);
  return pem;
}

std::string Pin(X509* certificate) {
  unsigned char* bytes = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &bytes);
  unsigned char hash[32], text[48];
  EVP_Digest(bytes, static_cast<std::size_t>(size), hash, nullptr, EVP_sha256(), nullptr);
  OPENSSL_free(bytes);
  EVP_EncodeBlock(text, hash, sizeof hash);
  return reinterpret_cast<const char*>(text);
}

Identity Texts(X509* certificate, EVP_PKEY* key) {
  BIO* forCertificate = BIO_new(BIO_s_mem());
  PEM_write_bio_X509(forCertificate, certificate);
  BIO* forKey = BIO_new(BIO_s_mem());
  PEM_write_bio_PrivateKey(forKey, key, nullptr, nullptr, 0, nullptr, nullptr);
  return {Take(forCertificate), Take(forKey), Pin(certificate)};
}

void Extend(X509* certificate, X509* issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
  if (extension == nullptr) std::abort();
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

// With no issuer it is its own.
Cert NewCertificate(const CertificateWish& wish, const Key& key, bool authority, X509* issuer,
                    EVP_PKEY* issuerKey) {
  static std::atomic<long> serial{1};
  const Cert made(X509_new(), X509_free);
  X509_set_version(made.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(made.get()), serial++);
  X509_gmtime_adj(X509_getm_notBefore(made.get()), wish.firstDay * 86400L);
  X509_gmtime_adj(X509_getm_notAfter(made.get()), wish.lastDay * 86400L);
  X509_set_pubkey(made.get(), key.get());
  X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(wish.commonName.c_str()), -1,
                             -1, 0);
  X509* by = issuer != nullptr ? issuer : made.get();
  X509_set_issuer_name(made.get(), X509_get_subject_name(by));
  Extend(made.get(), by, NID_basic_constraints, authority ? "critical,CA:TRUE" : "CA:FALSE");
  if (!wish.names.empty()) Extend(made.get(), by, NID_subject_alt_name, wish.names);
  X509_sign(made.get(), issuerKey != nullptr ? issuerKey : key.get(), EVP_sha256());
  return made;
}

}  // namespace

TlsAuthority::TlsAuthority(const std::string& name) : key_(NewKey(0)) {
  CertificateWish wish;
  wish.commonName = name;
  wish.names.clear();
  certificate_ = NewCertificate(wish, key_, true, nullptr, nullptr);
  identity_ = Texts(certificate_.get(), key_.get());
}

Identity TlsAuthority::Issue(const CertificateWish& wish) const {
  const Key key = NewKey(wish.rsaBits);
  const Cert made = wish.selfSigned
                        ? NewCertificate(wish, key, false, nullptr, nullptr)
                        : NewCertificate(wish, key, false, certificate_.get(), key_.get());
  return Texts(made.get(), key.get());
}

}  // namespace netro::testkit

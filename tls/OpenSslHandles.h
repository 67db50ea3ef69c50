// Owners for what OpenSSL gives out. Any thread.
#pragma once

#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

namespace netro {

template <auto Free>
struct FreeBy {
  template <class T>
  void operator()(T* object) const {
    Free(object);
  }
};

using SslContext = std::unique_ptr<SSL_CTX, FreeBy<SSL_CTX_free>>;
using Ssl = std::unique_ptr<SSL, FreeBy<SSL_free>>;
using SslSession = std::unique_ptr<SSL_SESSION, FreeBy<SSL_SESSION_free>>;
using Certificate = std::unique_ptr<X509, FreeBy<X509_free>>;
using GeneralNames = std::unique_ptr<GENERAL_NAMES, FreeBy<GENERAL_NAMES_free>>;
using Bio = std::unique_ptr<BIO, FreeBy<BIO_free_all>>;

}  // namespace netro

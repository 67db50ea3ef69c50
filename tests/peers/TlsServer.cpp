#include "TlsServer.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace netro::testkit {
namespace {

BIO* Memory(const std::string& text) {
  return BIO_new_mem_buf(text.data(), static_cast<int>(text.size()));
}

void UseIdentity(SSL_CTX* context, const Identity& identity) {
  BIO* certificates = Memory(identity.certificate);
  X509* certificate = PEM_read_bio_X509(certificates, nullptr, nullptr, nullptr);
  BIO* keys = Memory(identity.key);
  EVP_PKEY* key = PEM_read_bio_PrivateKey(keys, nullptr, nullptr, nullptr);
  if (SSL_CTX_use_certificate(context, certificate) != 1 ||
      SSL_CTX_use_PrivateKey(context, key) != 1)
    std::abort();
  X509_free(certificate);
  EVP_PKEY_free(key);
  BIO_free(certificates);
  BIO_free(keys);
}

void DemandCertificate(SSL_CTX* context, const std::string& authority) {
  BIO* bio = Memory(authority);
  X509* certificate = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
  X509_STORE_add_cert(SSL_CTX_get_cert_store(context), certificate);
  X509_free(certificate);
  BIO_free(bio);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
}

int ChooseAlpn(SSL*, const unsigned char** out, unsigned char* size, const unsigned char* offered,
               unsigned length, void* wanted) {
  const auto& name = *static_cast<const std::string*>(wanted);
  for (unsigned i = 0; i < length; i += offered[i] + 1u) {
    if (name.size() != offered[i] ||
        name.compare(0, name.size(), reinterpret_cast<const char*>(offered + i + 1), offered[i]) !=
            0)
      continue;
    *out = offered + i + 1;
    *size = offered[i];
    return SSL_TLSEXT_ERR_OK;
  }
  return SSL_TLSEXT_ERR_ALERT_FATAL;
}

std::shared_ptr<SSL_CTX> MakeContext(TlsRules& rules) {
  const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
  SSL_CTX_set_security_level(context.get(), 0);
  SSL_CTX_set_cipher_list(context.get(), "ALL:@SECLEVEL=0");
  SSL_CTX_set_min_proto_version(context.get(), rules.lowest);
  SSL_CTX_set_max_proto_version(context.get(), rules.highest);
  const unsigned char id[] = "netro";
  SSL_CTX_set_session_id_context(context.get(), id, sizeof id);
  if (!rules.tickets) SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET);
  if (!rules.identity.key.empty()) UseIdentity(context.get(), rules.identity);
  if (!rules.clientAuthority.empty()) DemandCertificate(context.get(), rules.clientAuthority);
  if (!rules.alpn.empty()) SSL_CTX_set_alpn_select_cb(context.get(), ChooseAlpn, &rules.alpn);
  return context;
}

}  // namespace

TlsPeer::TlsPeer(SSL_CTX* context, Connection& raw, std::size_t cutAfter, bool byBytes)
    : raw_(raw),
      ssl_(SSL_new(context)),
      in_(BIO_new(BIO_s_mem())),
      out_(BIO_new(BIO_s_mem())),
      cutAfter_(cutAfter),
      byBytes_(byBytes) {
  BIO_set_mem_eof_return(in_, -1);
  SSL_set_bio(ssl_, in_, out_);
  SSL_set_accept_state(ssl_);
}

TlsPeer::~TlsPeer() {
  SSL_set_shutdown(ssl_, SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
  SSL_free(ssl_);
  ERR_clear_error();
}

bool TlsPeer::Flush() {
  char* data = nullptr;
  const long size = BIO_get_mem_data(out_, &data);
  const std::string bytes(data, static_cast<std::size_t>(size));
  (void)BIO_reset(out_);
  const std::size_t count = std::min(bytes.size(), cutAfter_ - std::min(cutAfter_, sent_));
  std::vector<std::size_t> cuts;
  for (std::size_t i = 1; byBytes_ && i < count; ++i) cuts.push_back(i);
  sent_ += count;
  const bool whole = count == bytes.size();
  const bool sent = raw_.SendCut(std::string_view(bytes).substr(0, count), cuts);
  if (!whole) raw_.HalfClose();
  return sent && whole;
}

bool TlsPeer::Feed() {
  std::string bytes;
  if (!Flush() || !raw_.Read(bytes)) return false;
  BIO_write(in_, bytes.data(), static_cast<int>(bytes.size()));
  return true;
}

bool TlsPeer::Accept() {
  for (;;) {
    ERR_clear_error();
    const int result = SSL_do_handshake(ssl_);
    if (result == 1) return Flush();
    if (SSL_get_error(ssl_, result) != SSL_ERROR_WANT_READ) {
      Flush();
      return false;
    }
    if (!Feed()) return false;
  }
}

bool TlsPeer::Read(std::string& into) {
  for (;;) {
    char block[16384];
    ERR_clear_error();
    const int got = SSL_read(ssl_, block, sizeof block);
    if (got > 0) {
      into.append(block, static_cast<std::size_t>(got));
      return Flush();
    }
    if (SSL_get_error(ssl_, got) != SSL_ERROR_WANT_READ || !Feed()) return false;
  }
}

bool TlsPeer::Send(std::string_view plaintext) {
  ERR_clear_error();
  return plaintext.empty() ||
         (SSL_write(ssl_, plaintext.data(), static_cast<int>(plaintext.size())) > 0 && Flush());
}

void TlsPeer::CloseNotify() {
  SSL_shutdown(ssl_);
  Flush();
}

bool TlsPeer::UpdateKeys() {
  return SSL_key_update(ssl_, SSL_KEY_UPDATE_REQUESTED) == 1 && SSL_do_handshake(ssl_) == 1 &&
         Flush();
}

bool TlsPeer::ClientSaidGoodbye() const {
  return (SSL_get_shutdown(ssl_) & SSL_RECEIVED_SHUTDOWN) != 0;
}

TlsServer::TlsServer(TlsRules rules)
    : rules_(std::move(rules)),
      context_(MakeContext(rules_)),
      server_([this](Connection& connection, std::size_t) { Serve(connection); }) {}

void TlsServer::Serve(Connection& connection) {
  std::string rest;
  if (!rules_.unprotected.empty() && !connection.Send(rules_.unprotected)) return;
  if (rules_.before && !rules_.before(connection)) return connection.ReadToEnd(rest);
  if (rules_.noHandshake) return connection.ReadToEnd(rest);
  TlsPeer peer(context_.get(), connection, rules_.cutAfter, rules_.byBytes);
  if (!peer.Accept()) return connection.ReadToEnd(rest);
  handshakeBytes_ = peer.BytesSent();
  ++handshakes_;
  if (rules_.serve) {
    rules_.serve(peer);
  } else {
    for (std::string text; peer.Read(text) && peer.Send(text);) text.clear();
  }
  if (peer.ClientSaidGoodbye()) ++goodbyes_;
}

}  // namespace netro::testkit

#include "tls/OpenSslSession.h"

#include <openssl/err.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "tls/OpenSslProvider.h"

namespace netro {
namespace {

constexpr std::int32_t kInvalidArgument = 10022;
constexpr std::int32_t kNoBuffers = 10055;

OpenSslSession& SessionOf(const SSL* ssl) {
  return *static_cast<OpenSslSession*>(SSL_get_app_data(ssl));
}

// Clearing an empty queue costs as much as the rest of a short call.
void ForgetErrors() {
  if (ERR_peek_error() != 0) ERR_clear_error();
}

}  // namespace

// --- the BIO ------------------------------------------------------------------------------------

const BIO_METHOD* OpenSslSession::BioMethod() {
  static BIO_METHOD* const method = [] {
    BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "netro");
    if (made == nullptr) return made;
    BIO_meth_set_read(made, &ReadBio);
    BIO_meth_set_write(made, &WriteBio);
    BIO_meth_set_ctrl(made, [](BIO*, int command, long, void*) -> long {
      return command == BIO_CTRL_FLUSH ? 1 : 0;
    });
    return made;
  }();
  return method;
}

int OpenSslSession::ReadBio(BIO* bio, char* room, int size) {
  auto& incoming = static_cast<OpenSslSession*>(BIO_get_data(bio))->incoming_;
  BIO_clear_retry_flags(bio);
  const std::size_t taken = std::min(incoming.size(), static_cast<std::size_t>(size));
  if (taken == 0) {
    BIO_set_retry_read(bio);
    return -1;
  }
  std::memcpy(room, incoming.data(), taken);
  incoming = incoming.subspan(taken);
  return static_cast<int>(taken);
}

int OpenSslSession::WriteBio(BIO* bio, const char* data, int size) {
  auto& outgoing = static_cast<OpenSslSession*>(BIO_get_data(bio))->outgoing_;
  BIO_clear_retry_flags(bio);
  try {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
    outgoing.insert(outgoing.end(), bytes, bytes + size);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return size;
}

// --- life ---------------------------------------------------------------------------------------

OpenSslSession::OpenSslSession(std::shared_ptr<OpenSslProvider> provider)
    : provider_(std::move(provider)) {}

// OpenSSL would take a connection that ended without our closing alert for a reason not to resume
// its session; that rule is gone since RFC 5246.
OpenSslSession::~OpenSslSession() {
  if (ssl_ != nullptr) SSL_set_shutdown(ssl_.get(), SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
}

void OpenSslSession::Install(SSL_CTX& context) {
  SSL_CTX_set_verify(&context, SSL_VERIFY_PEER, nullptr);
  SSL_CTX_set_cert_verify_callback(&context, &Verify, nullptr);
  SSL_CTX_sess_set_new_cb(&context, &KeepSession);
  SSL_CTX_set_client_cert_cb(&context, &NoteCertificateWish);
}

void OpenSslSession::Begin(const std::string& host, std::int32_t port) {
  ForgetErrors();
  ssl_.reset(SSL_new(provider_->Context()));
  const BIO_METHOD* method = BioMethod();
  BIO* bio = ssl_ != nullptr && method != nullptr ? BIO_new(method) : nullptr;
  if (bio == nullptr) throw std::bad_alloc();
  BIO_set_data(bio, this);
  BIO_set_init(bio, 1);
  SSL_set_bio(ssl_.get(), bio, bio);
  SSL_set_app_data(ssl_.get(), this);
  SSL_set_connect_state(ssl_.get());
  if (!SetHost(host)) {
    return Fail(kInvalidArgument,
                "TLS: \"" + host + "\" is no host that a certificate can be for.");
  }
  key_ = host_ + ' ' + std::to_string(port);
  if (const SslSession earlier = provider_->Sessions().Take(key_)) {
    SSL_set_session(ssl_.get(), earlier.get());
  }
}

bool OpenSslSession::SetHost(const std::string& host) {
  host_ = host.substr(0, host.find('%'));  // an address's zone is a matter of this computer
  X509_VERIFY_PARAM* check = SSL_get0_param(ssl_.get());
  if (host.find('\0') != std::string::npos) return false;
  if (X509_VERIFY_PARAM_set1_ip_asc(check, host_.c_str()) == 1) return true;
  host_ = host;
  if (host_.ends_with('.')) host_.pop_back();
  for (char& c : host_) {
    if (static_cast<unsigned char>(c) <= 32 || static_cast<unsigned char>(c) >= 127) return false;
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  X509_VERIFY_PARAM_set_hostflags(
      check, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
  return !host_.empty() && host_.size() <= 253 && host_.front() != '.' &&
         X509_VERIFY_PARAM_set1_host(check, host_.c_str(), host_.size()) == 1 &&
         SSL_set_tlsext_host_name(ssl_.get(), host_.c_str()) == 1;
}

// --- what OpenSSL asks --------------------------------------------------------------------------

int OpenSslSession::Verify(X509_STORE_CTX* chain, void*) {
  const void* ssl = X509_STORE_CTX_get_ex_data(chain, SSL_get_ex_data_X509_STORE_CTX_idx());
  return SessionOf(static_cast<const SSL*>(ssl)).VerifyChain(*chain);
}

int OpenSslSession::VerifyChain(X509_STORE_CTX& chain) {
  X509* leaf = X509_STORE_CTX_get0_cert(&chain);
  if (leaf != nullptr && X509_up_ref(leaf) == 1) leaf_.reset(leaf);
  if (!provider_->TrustsAnyone() && X509_verify_cert(&chain) != 1) return 0;
  badPin_ = leaf == nullptr || !provider_->AcceptsKeyOf(*leaf);
  X509_STORE_CTX_set_error(&chain, badPin_ ? X509_V_ERR_APPLICATION_VERIFICATION : X509_V_OK);
  return badPin_ ? 0 : 1;
}

int OpenSslSession::KeepSession(SSL* ssl, SSL_SESSION* session) {
  OpenSslSession& self = SessionOf(ssl);
  SslSession kept(session);
  try {
    self.provider_->Sessions().Keep(self.key_, std::move(kept));
  } catch (const std::bad_alloc&) {  // then it will not be resumed
  }
  return 1;
}

// Only asked when there is no certificate to give.
int OpenSslSession::NoteCertificateWish(SSL* ssl, X509**, EVP_PKEY**) {
  SessionOf(ssl).certificateWanted_ = true;
  return 0;
}

// --- the session --------------------------------------------------------------------------------

std::size_t OpenSslSession::Handshake(std::span<const std::uint8_t> ciphertext) {
  if (state_ != TlsState::Handshake) return 0;
  incoming_ = ciphertext;
  ForgetErrors();
  const int result = SSL_do_handshake(ssl_.get());
  if (result == 1) {
    state_ = TlsState::Open;
  } else {
    FailBy(result);
  }
  return ciphertext.size() - std::exchange(incoming_, {}).size();
}

TlsSession::Decrypted OpenSslSession::Decrypt(std::span<const std::uint8_t> ciphertext,
                                              std::span<std::uint8_t> room) {
  std::size_t made = 0;
  incoming_ = ciphertext;
  ForgetErrors();
  while (state_ == TlsState::Open && made < room.size()) {
    std::size_t got = 0;
    const int result = SSL_read_ex(ssl_.get(), room.data() + made, room.size() - made, &got);
    made += got;
    if (result != 1) FailBy(result);
    if (result != 1 || (incoming_.empty() && SSL_has_pending(ssl_.get()) == 0)) break;
  }
  return {ciphertext.size() - std::exchange(incoming_, {}).size(), made};
}

bool OpenSslSession::HasPlaintext() const {
  return state_ == TlsState::Open && SSL_pending(ssl_.get()) > 0;
}

std::size_t OpenSslSession::Encrypt(std::span<const std::uint8_t> plaintext) {
  if (state_ != TlsState::Open && state_ != TlsState::PeerClosed) return 0;
  if (plaintext.empty()) return 0;
  ForgetErrors();
  std::size_t taken = 0;
  const int result = SSL_write_ex(ssl_.get(), plaintext.data(), plaintext.size(), &taken);
  if (result == 1) return taken;
  Fail(kNoBuffers, std::string());
  return 0;
}

void OpenSslSession::CloseNotify() {
  if (state_ != TlsState::Open && state_ != TlsState::PeerClosed) return;
  ForgetErrors();
  SSL_shutdown(ssl_.get());
}

std::span<const std::uint8_t> OpenSslSession::Outgoing() const {
  return std::span(outgoing_).subspan(sent_);
}

void OpenSslSession::Sent(std::size_t count) {
  sent_ += count;
  if (sent_ < outgoing_.size()) return;
  outgoing_.clear();
  sent_ = 0;
}

TlsInfo OpenSslSession::Info() const {
  TlsInfo info;
  if (ssl_ == nullptr) return info;
  const X509* peer = leaf_ != nullptr ? leaf_.get() : SSL_get0_peer_certificate(ssl_.get());
  if (peer != nullptr) {
    info.subject = NameText(X509_get_subject_name(peer));
    info.issuer = NameText(X509_get_issuer_name(peer));
    info.names = NamesOf(*peer);
    info.daysLeft = DaysLeft(*peer);
  }
  if (SSL_is_init_finished(ssl_.get()) != 1) return info;
  info.protocol = SSL_get_version(ssl_.get());
  info.cipher = SSL_get_cipher_name(ssl_.get());
  info.resumed = SSL_session_reused(ssl_.get()) == 1;
  const unsigned char* chosen = nullptr;
  unsigned size = 0;
  SSL_get0_alpn_selected(ssl_.get(), &chosen, &size);
  if (size > 0) info.alpn.assign(chosen, chosen + size);
  return info;
}

}  // namespace netro

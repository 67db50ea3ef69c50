#include "tls/OpenSslProvider.h"

#include <netro/tls/OpenSslTls.h>
#include <openssl/err.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <system_error>

#include "tls/OpenSslSession.h"

namespace netro {
namespace {

// Forward secrecy always; authenticated ciphers first.
constexpr const char* kCiphers =
    "ECDHE+AESGCM:ECDHE+CHACHA20:DHE+AESGCM:DHE+CHACHA20:ECDHE+AES:DHE+AES:!aNULL:!aDSS:!PSK:!SRP";
constexpr int kSecurityLevel = 2;  // 112 bits

// What OpenSSL has noted last, for people.
std::string LastReason() {
  const unsigned long code = ERR_peek_last_error();
  const char* reason = code != 0 ? ERR_reason_error_string(code) : nullptr;
  ERR_clear_error();
  return reason != nullptr ? reason : "unknown reason";
}

std::string Unusable(const char* setting, const std::string& value, const std::string& why) {
  return std::string(setting) + " \"" + value + "\" cannot be used: " + why;
}

// Never asks at a terminal, as OpenSSL would by itself.
int GivePassword(char* room, int size, int /*writing*/, void* password) {
  const auto& text = *static_cast<const std::string*>(password);
  if (text.size() > static_cast<std::size_t>(size)) return -1;
  std::memcpy(room, text.data(), text.size());
  return static_cast<int>(text.size());
}

// A variable of the environment may stand for the place that the system has chosen.
std::filesystem::path Place(const char* variable, const char* usual) {
  const char* value = std::getenv(variable);
  return value != nullptr ? value : usual;
}

}  // namespace

std::string OpenSslProvider::Prepare(const TlsSettings& settings) {
  context_.reset(SSL_CTX_new(TLS_client_method()));
  SSL_CTX* context = context_.get();
  if (context == nullptr) return "OpenSSL cannot be used: " + LastReason();
  const bool only13 = settings.minimumVersion == TlsVersion::Tls13;
  SSL_CTX_set_min_proto_version(context, only13 ? TLS1_3_VERSION : TLS1_2_VERSION);
  SSL_CTX_set_security_level(context, kSecurityLevel);
  SSL_CTX_set_cipher_list(context, kCiphers);
  SSL_CTX_set_options(context, SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION);
  SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_AUTO_RETRY);
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL_STORE);
  OpenSslSession::Install(*context);
  SSL_CTX_set_app_data(context, this);
  trustsAnyone_ = settings.trustAnyoneForTestsOnly;
  if (!settings.resumeSessions) {
    SSL_CTX_set_session_cache_mode(context_.get(), SSL_SESS_CACHE_OFF);
  }

  std::string error = ReadTrust(settings);
  if (error.empty()) error = ReadCertificate(settings);
  if (error.empty()) error = ReadPins(settings);
  if (error.empty()) error = SetAlpn(settings);
  if (error.empty()) error = OpenKeyLog(settings);
  ERR_clear_error();
  return error;
}

std::string OpenSslProvider::ReadTrust(const TlsSettings& settings) {
  SSL_CTX* context = context_.get();
  const std::string& file = settings.trustFile;
  const std::string& folder = settings.trustFolder;
  hasOwnTrust_ = !file.empty() || !folder.empty();
  if (!hasOwnTrust_) {
    SSL_CTX_set_default_verify_paths(context);
    return {};
  }
  if (!file.empty() && SSL_CTX_load_verify_file(context, file.c_str()) != 1) {
    return Unusable("trustFile", file, LastReason());
  }
  std::error_code failed;
  if (!folder.empty() && (!std::filesystem::is_directory(folder, failed) ||
                          SSL_CTX_load_verify_dir(context, folder.c_str()) != 1)) {
    return Unusable("trustFolder", folder, "it is no folder that can be read");
  }
  // One who is trusted explicitly needs nobody to vouch for him.
  X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(context), X509_V_FLAG_PARTIAL_CHAIN);
  return {};
}

std::string OpenSslProvider::ReadCertificate(const TlsSettings& settings) {
  const std::string& file = settings.clientCertificateFile;
  const std::string& key = settings.clientKeyFile.empty() ? file : settings.clientKeyFile;
  if (file.empty()) {
    return key.empty() ? std::string() : "clientKeyFile needs a clientCertificateFile";
  }
  SSL_CTX* context = context_.get();
  std::string password = settings.clientKeyPassword;
  SSL_CTX_set_default_passwd_cb(context, GivePassword);
  SSL_CTX_set_default_passwd_cb_userdata(context, &password);
  std::string error;
  if (SSL_CTX_use_certificate_chain_file(context, file.c_str()) != 1) {
    error = Unusable("clientCertificateFile", file, LastReason());
  } else if (SSL_CTX_use_PrivateKey_file(context, key.c_str(), SSL_FILETYPE_PEM) != 1) {
    error = Unusable("clientKeyFile", key, LastReason());
  }
  SSL_CTX_set_default_passwd_cb_userdata(context, nullptr);
  SSL_CTX_set_default_passwd_cb(context, nullptr);
  OPENSSL_cleanse(password.data(), password.size());
  hasCertificate_ = error.empty();
  return error;
}

std::string OpenSslProvider::ReadPins(const TlsSettings& settings) {
  for (const std::string& text : settings.pins) {
    Sha256 pin;
    if (!ReadPin(text, pin)) {
      return Unusable("pin", text, "it is not the Base64 of a SHA-256");
    }
    pins_.push_back(pin);
  }
  return {};
}

std::string OpenSslProvider::SetAlpn(const TlsSettings& settings) {
  std::string wire;
  for (const std::string& protocol : settings.alpn) {
    if (protocol.empty() || protocol.size() > 255) {
      return Unusable("alpn", protocol, "it must have 1 to 255 bytes");
    }
    wire += static_cast<char>(protocol.size());
    wire += protocol;
  }
  if (wire.empty()) return {};
  const auto* bytes = reinterpret_cast<const unsigned char*>(wire.data());
  const bool set =
      wire.size() <= 65535 &&
      SSL_CTX_set_alpn_protos(context_.get(), bytes, static_cast<unsigned>(wire.size())) == 0;
  return set ? std::string() : "alpn cannot be used: the list is too long";
}

std::string OpenSslProvider::OpenKeyLog(const TlsSettings& settings) {
  const std::string& file = settings.keyLogFile;
  if (file.empty()) return {};
  std::error_code failed;
  // Who may write to the folder could have the secrets written where he reads them.
  if (std::filesystem::is_symlink(file, failed)) {
    return Unusable("keyLogFile", file, "it is a link");
  }
  const bool existed = std::filesystem::exists(file, failed);
  keyLog_.open(file, std::ios::app | std::ios::binary);
  if (!keyLog_) return Unusable("keyLogFile", file, "it cannot be written");
  if (!existed) {
    using std::filesystem::perms;
    std::filesystem::permissions(file, perms::owner_read | perms::owner_write, failed);
    if (failed) return Unusable("keyLogFile", file, failed.message());
  }
  SSL_CTX_set_keylog_callback(context_.get(), [](const SSL* ssl, const char* line) {
    static_cast<OpenSslProvider*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)))->WriteKeyLog(line);
  });
  return {};
}

void OpenSslProvider::WriteKeyLog(const char* line) {
  const std::lock_guard lock(keyLogMutex_);
  keyLog_ << line << std::endl;  // whoever reads along wants it now
}

bool OpenSslProvider::AcceptsKeyOf(const X509& certificate) const {
  if (pins_.empty()) return true;
  const Sha256 hash = PublicKeyHash(certificate);
  for (const Sha256& pin : pins_) {
    if (pin == hash) return true;
  }
  return false;
}

bool OpenSslProvider::SystemTrustIsThere() {
  std::error_code failed;
  const auto file = Place(X509_get_default_cert_file_env(), X509_get_default_cert_file());
  const auto folder = Place(X509_get_default_cert_dir_env(), X509_get_default_cert_dir());
  if (std::filesystem::exists(file, failed)) return true;
  const std::filesystem::directory_iterator first(folder, failed);
  return !failed && first != std::filesystem::directory_iterator();
}

std::unique_ptr<TlsSession> OpenSslProvider::NewSession(const std::string& host,
                                                        std::int32_t port) {
  try {
    auto session = std::make_unique<OpenSslSession>(shared_from_this());
    session->Begin(host, port);
    return session;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::shared_ptr<TlsProvider> MakeOpenSslProvider(const TlsSettings& settings, std::string& error) {
  auto provider = std::make_shared<OpenSslProvider>();
  error = provider->Prepare(settings);
  return error.empty() ? provider : nullptr;
}

}  // namespace netro

// How connections are protected by TLS.

#include "terminal/TlsOptions.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <mutex>
#include <utility>
#ifdef NETRO_HAS_TLS
#include <netro/tls/OpenSslTls.h>
#endif

#include "terminal/Command.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

#ifdef NETRO_HAS_TLS
TlsSettings SettingsOf(const TlsOptions& options, const std::vector<std::string>& alpn) {
  TlsSettings settings;
  std::error_code error;
  const bool isFolder = std::filesystem::is_directory(options.authority, error);
  (isFolder ? settings.trustFolder : settings.trustFile) = options.authority;
  settings.clientCertificateFile = options.certificate;
  settings.clientKeyFile = options.key;
  settings.pins = options.pins;
  if (options.leastVersion == "1.3") settings.minimumVersion = TlsVersion::Tls13;
  settings.alpn = alpn;
  settings.trustAnyoneForTestsOnly = options.insecure;
  return settings;
}
#endif

void Check(const TlsOptions& options) {
  const std::string& least = options.leastVersion;
  if (!least.empty() && least != "1.2" && least != "1.3") {
    throw UsageError("--tls-min: 1.2 and 1.3 are possible, not \"" + least + "\"");
  }
  if (!options.key.empty() && options.certificate.empty()) throw UsageError("--key needs --cert");
  if (options.insecure && !options.authority.empty()) {
    throw UsageError("--insecure trusts everybody; leave out --cacert");
  }
}

#ifdef NETRO_HAS_TLS
/// Reads the system's trusted certificates, which takes longer than most fetches, only when one is
/// of https.
class UsualTls final : public TlsProvider {
 public:
  explicit UsualTls(TlsSettings settings) : settings_(std::move(settings)) {}

  std::unique_ptr<TlsSession> NewSession(const std::string& host, std::int32_t port) override {
    std::call_once(made_, [this] {
      std::string error;
      provider_ = MakeOpenSslProvider(settings_, error);
      if (provider_ == nullptr) ShowMessage(error);
    });
    return provider_ == nullptr ? nullptr : provider_->NewSession(host, port);
  }

 private:
  const TlsSettings settings_;
  std::once_flag made_;
  std::shared_ptr<TlsProvider> provider_;
};
#endif

}  // namespace

void DeclareTls(CLI::App& options, TlsOptions& values, const char* group) {
  const auto text = [&options, group](const char* name, auto& value, const char* type, const char* help) {
    return options.add_option(name, value, help)->type_name(type)->group(group);
  };
  text("--cacert", values.authority, "FILE",
       "Trust these certificates (PEM) instead of the system's; a folder\n"
       "of them is prepared with \"openssl rehash\"");
  text("--cert", values.certificate, "FILE", "The own certificate with its chain (PEM)");
  text("--key", values.key, "FILE", "Its key, unless it is in the same file");
  text("--pin", values.pins, "PIN",
       "The server's public key must be this one: the SHA-256 of it, in\n"
       "Base64, as sha256//...; may be repeated for any of several")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  text("--tls-min", values.leastVersion, "VERSION", "The oldest TLS to use: 1.2 (usual) or 1.3");
  options
      .add_flag("--insecure", values.insecure,
                "Do not check who the server is: anybody on the way can read and\n"
                "change everything, passwords too. For tests only; --cacert is\n"
                "for servers of your own")
      ->group(group);
}

std::shared_ptr<TlsProvider> ReadTls(const TlsOptions& options,
                                     [[maybe_unused]] const std::vector<std::string>& alpn) {
  Check(options);
  const bool isUsual = options.authority.empty() && options.certificate.empty() &&
                       options.pins.empty() && !options.insecure;
#ifdef NETRO_HAS_TLS
  if (isUsual) return std::make_shared<UsualTls>(SettingsOf(options, alpn));
  std::string error;
  auto provider = MakeOpenSslProvider(SettingsOf(options, alpn), error);
  if (provider == nullptr) throw UsageError(error);
  return provider;
#else
  if (!isUsual) throw UsageError("--cacert, --cert, --pin: this netro was built without TLS");
  return nullptr;
#endif
}

std::string TlsAdvice(std::int32_t error, bool wanted) {
  constexpr std::int32_t kNotSupported = 10043;
#ifdef NETRO_HAS_TLS
  constexpr bool kHasTls = true;
#else
  constexpr bool kHasTls = false;
#endif
  switch (error) {
    case tlsUnknownIssuer:
    case tlsSelfSigned:
      return "; the option is --cacert FILE";
    case tlsCertificateWanted:
      return "; the option is --cert FILE";
    case kNotSupported:
      return kHasTls || !wanted ? "" : "; this netro was built without TLS";
    default:
      return {};
  }
}

}  // namespace netro::tool

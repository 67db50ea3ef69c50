// One HTTP query: what the settings say, checked and put into the form that the steps need.
#include <algorithm>
#include <utility>

#include "platform/Address.h"
#include "platform/ErrorNumbers.h"
#include "support/Text.h"
#include "support/UrlReference.h"
#include "web/HttpFraming.h"
#include "web/HttpPart.h"
#include "web/HttpQuery.h"
#include "web/MultipartBody.h"

namespace netro {
namespace {

constexpr std::int32_t kErrBodyGivenUp = 20125;  // as the system says "cancelled"

// RFC 9110, section 5.6.2.
bool IsTokenCharacter(char c) {
  return IsAlphanumeric(c) || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

}  // namespace

bool HttpQuery::CheckText(const std::string& value, const char* name) {
  if (!HasControl(value)) return true;
  return Fail(kErrInvalidArgument, std::string(name) + " must not hold CR, LF or NUL.");
}

bool HttpQuery::CheckSettings() {
  if (settings_.queryType < QueryGet || settings_.queryType > QueryHeader) {
    return Fail(kErrInvalidArgument, "QueryType is none of the request methods.");
  }
  for (const auto& [name, value] : settings_.headers) {
    if (name.empty() || name.find_first_of(": \t") != std::string::npos) {
      return Fail(kErrInvalidArgument, "HeaderName must be one word without a colon.");
    }
    if (!CheckText(name, "HeaderName") || !CheckText(value, "HeaderValue")) return false;
  }
  return CheckText(settings_.httpToken, "HTTPToken") && CheckText(settings_.user, "User") &&
         CheckText(settings_.filename, "Filename") && CheckProxy() && CheckOptions();
}

bool HttpQuery::CheckOptions() {
  if (!std::ranges::all_of(options_.method, IsTokenCharacter)) {
    return Fail(kErrInvalidArgument, "Method \"" + Shown(options_.method) + "\" is no token.");
  }
  if (options_.method == "CONNECT") {
    return Fail(kErrInvalidArgument, "Method CONNECT is for the proxy only.");
  }
  const bool toFile = settings_.saveAsFile && !settings_.filename.empty();
  if (options_.resume && !toFile) {
    return Fail(kErrInvalidArgument, "Resume needs SaveAsFile and a Filename.");
  }
  for (const auto& [host, port, address] : options_.hostAddresses) {
    if (!ParseAddress(address)) {
      return Fail(kErrInvalidArgument, "AddHostAddress: \"" + Shown(address) + "\" is no address.");
    }
  }
  return true;
}

bool HttpQuery::CheckProxy() {
  if (settings_.proxyType < NoProxy || settings_.proxyType > ProxyPipe) {
    return Fail(kErrInvalidArgument, "ProxyType is none of the proxy kinds.");
  }
  if (!CheckText(settings_.proxyUser, "ProxyUser")) return false;
  if (settings_.proxyType == NoProxy) return true;
  if (settings_.proxyURL.empty()) return Fail(kErrInvalidArgument, "ProxyURL is empty.");
  if (settings_.proxyPort < 1 || settings_.proxyPort > 65535) {
    return Fail(kErrInvalidArgument,
                "ProxyPort " + std::to_string(settings_.proxyPort) + " is no port.");
  }
  return true;
}

bool HttpQuery::Prepare() {
  UrlResult split = SplitUrl(settings_.url);
  if (!split.error.empty()) return Fail(kErrInvalidArgument, "URL: " + split.error);
  SetUrl(std::move(split.url));
  if (!CheckProtocol()) return Fail(kErrProtocolNotSupported, std::move(errorText_));
  proxyLogin_.send =
      settings_.proxyType == ProxyBasicAuthorization || settings_.proxyType == ProxyMSISAServer;
  serverLogin_.send = settings_.sendAuthAfterChallenge;
  if (!PrepareBody()) return false;
  if (options_.resume && method_ == "GET") {
    partUrl_ = urlText_;
    part_ = HttpPart::Find(settings_.filename, partUrl_);
  }
  return true;
}

// As it is asked for: anything may have been in it.
void HttpQuery::SetUrl(Url url) {
  url_ = std::move(url);
  url_.port = EffectivePort(url_);
  url_.path = UrlEncode(url_.path);
  url_.query = UrlEncode(url_.query);
  urlText_ = UrlText(url_);
}

bool HttpQuery::CheckProtocol() {
  if (url_.protocol == "https" && options_.tls == nullptr) {
    // An HTTP proxy would get it in clear, and so would everybody behind it.
    errorText_ = "URL: https needs TLS, and no provider is set.";
    return false;
  }
  if (url_.protocol == "https" || url_.protocol == "http" || UsesHttpProxy()) return true;
  errorText_ = "URL: the protocol \"" + url_.protocol +
               "\" is not supported; only an HTTP proxy can fetch it.";
  return false;
}

bool HttpQuery::PrepareBody() {
  static constexpr const char* kMethods[] = {"GET", "POST", "HEAD"};
  using Kind = HTTPCls::BodyKind;
  const bool ownBody = options_.bodyKind != Kind::PostData;
  method_ = options_.method;
  if (method_.empty()) method_ = ownBody ? "POST" : kMethods[settings_.queryType];
  hasBody_ = ownBody || method_ == "POST" || method_ == "PUT" || method_ == "PATCH" ||
             (!options_.method.empty() && !settings_.postData->empty());
  if (ownBody && !OpenBodySource()) return false;
  std::optional<std::uint64_t> size = 0;
  if (hasBody_) size = body_ != nullptr ? body_->Length() : settings_.postData->size();
  const std::string problem = FramingProblem(settings_.headers, size);
  return problem.empty() || Fail(kErrInvalidArgument, problem);
}

bool HttpQuery::OpenBodySource() {
  using Kind = HTTPCls::BodyKind;
  if (options_.bodyKind == Kind::Function) {
    body_ = std::make_unique<FunctionSource>(
        [read = options_.bodyFunction](std::span<std::uint8_t> room, std::size_t& got) {
          const std::ptrdiff_t count = read != nullptr ? read(room) : -1;
          got = count > 0 ? static_cast<std::size_t>(count) : 0;
          return count < 0 ? kErrBodyGivenUp : 0;
        },
        options_.bodyLength, options_.bodyRewind);
    return true;
  }
  if (options_.bodyKind == Kind::File) {
    auto file = std::make_unique<FileSource>();
    const std::int32_t error = file->Open(options_.bodyFile);
    if (error != 0) return Fail(error, file->ErrorText());
    body_ = std::move(file);
    return true;
  }
  auto form = std::make_unique<MultipartBody>();
  for (const auto& part : options_.form) {
    const MultipartBody::File file{part.path, part.fileName, part.contentType};
    if (!part.isFile) form->AddField(part.name, part.value);
    const std::int32_t error = part.isFile ? form->AddFile(part.name, file) : 0;
    if (error != 0) return Fail(error, form->ErrorText());
  }
  settings_.headers.emplace_back("Content-Type", form->ContentType());
  body_ = std::move(form);
  return true;
}

bool HttpQuery::UsesHttpProxy() const { return settings_.proxyType != NoProxy && !UsesSocks(); }

bool HttpQuery::UsesSocks() const {
  return settings_.proxyType >= ProxySocks4 && settings_.proxyType <= ProxySocks5Auth;
}

// What the caller has given in place of a lookup.
std::string HttpQuery::HostAddress() const {
  for (const auto& [host, port, address] : options_.hostAddresses) {
    if (EqualsIgnoreCase(host, url_.host) && port == url_.port) return address;
  }
  return url_.host;
}

ConnectionPlan HttpQuery::Plan() const {
  ConnectionPlan plan;
  plan.host = UsesHttpProxy() ? settings_.proxyURL : HostAddress();
  plan.port = UsesHttpProxy() ? settings_.proxyPort : url_.port;
  plan.proxyHost = settings_.proxyURL;
  plan.proxyPort = settings_.proxyPort;
  plan.proxyUser = settings_.proxyUser;
  plan.proxyPassword = settings_.proxyPassword;
  plan.remoteDNS = settings_.proxyUseRemoteDNS;
  plan.wait = std::chrono::seconds(settings_.timeOutSeconds);
  plan.lookup = {settings_.dnsURL, settings_.preference};
  switch (settings_.proxyType) {
    case ProxySocks4:
      plan.socks = SocksKind::Socks4;
      break;
    case ProxySocks5NoAuth:
      plan.socks = SocksKind::Socks5NoAuth;
      break;
    case ProxySocks5Auth:
      plan.socks = SocksKind::Socks5Auth;
      break;
    default:
      break;
  }
  return plan;
}

DigestForm HttpQuery::Form() const {
  return settings_.standardDigest ? DigestForm::Standard : DigestForm::Md5Only;
}

}  // namespace netro

// One HTTP query: what the settings say, checked and put into the form that the steps need.
#include "platform/ErrorNumbers.h"
#include "support/Text.h"
#include "web/HttpQuery.h"

namespace netro {

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
  const std::size_t bodySize = settings_.queryType == QueryPost ? settings_.postData->size() : 0;
  const std::string problem = FramingProblem(settings_.headers, bodySize);
  if (!problem.empty()) return Fail(kErrInvalidArgument, problem);
  return CheckText(settings_.httpToken, "HTTPToken") && CheckText(settings_.user, "User") &&
         CheckText(settings_.filename, "Filename") && CheckProxy();
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
  url_ = std::move(split.url);
  if (url_.protocol != "http" && !UsesHttpProxy()) {
    return Fail(kErrProtocolNotSupported,
                "URL: the protocol \"" + url_.protocol +
                    "\" is not supported; only an HTTP proxy can fetch it.");
  }
  // An HTTP proxy would get it in clear, and so would everybody behind it.
  if (url_.protocol == "https") {
    return Fail(kErrProtocolNotSupported,
                "URL: there is no TLS, and https does not go out in clear through an HTTP proxy.");
  }
  proxyLogin_.send =
      settings_.proxyType == ProxyBasicAuthorization || settings_.proxyType == ProxyMSISAServer;
  serverLogin_.send = settings_.sendAuthAfterChallenge;
  return true;
}

bool HttpQuery::UsesHttpProxy() const { return settings_.proxyType != NoProxy && !UsesSocks(); }

bool HttpQuery::UsesSocks() const {
  return settings_.proxyType >= ProxySocks4 && settings_.proxyType <= ProxySocks5Auth;
}

ConnectionPlan HttpQuery::Plan() const {
  ConnectionPlan plan;
  plan.host = UsesHttpProxy() ? settings_.proxyURL : url_.host;
  plan.port = UsesHttpProxy() ? settings_.proxyPort : url_.port;
  plan.proxyHost = settings_.proxyURL;
  plan.proxyPort = settings_.proxyPort;
  plan.proxyUser = settings_.proxyUser;
  plan.proxyPassword = settings_.proxyPassword;
  plan.remoteDNS = settings_.proxyUseRemoteDNS;
  plan.seconds = settings_.timeOutSeconds;
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

HttpRequest HttpQuery::Request() const {
  static constexpr const char* kMethods[] = {"GET", "POST", "HEAD"};
  HttpRequest request;
  request.method = kMethods[settings_.queryType];
  request.url = url_;
  request.absoluteForm = UsesHttpProxy();
  request.token = settings_.httpToken;
  request.headers = settings_.headers;
  // A SOCKS proxy's credentials are for the SOCKS proxy, and those of no proxy for nobody.
  if (proxyLogin_.send && !settings_.proxyUser.empty() && UsesHttpProxy()) {
    request.proxy = {settings_.proxyUser, settings_.proxyPassword, proxyLogin_.challenge, Form()};
  }
  if (url_.hasUserInfo) {
    request.server = {url_.user, url_.password, serverLogin_.challenge, Form()};
  } else if (serverLogin_.send) {
    request.server = {settings_.user, settings_.password, serverLogin_.challenge, Form()};
  }
  if (settings_.queryType == QueryPost) request.body = *settings_.postData;
  return request;
}

}  // namespace netro

#include "web/HttpRequest.h"

#include "platform/Random.h"
#include "support/Base64.h"
#include "support/DigestAuth.h"

namespace netro {
namespace {

constexpr std::int32_t kDefaultPort = 80;
constexpr const char* kLineEnd = "\r\n";
constexpr const char* kNonceCount = "00000001";

// 128 random bits as hexadecimal digits: the client's nonce must not be guessable.
std::string RandomNonce() {
  std::string nonce;
  for (int i = 0; i < 32; ++i) nonce += "0123456789abcdef"[RandomNumber() & 15];
  return nonce;
}

// RFC 2617: quoted-string.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

}  // namespace

// A zone is of this host only (RFC 6874, section 4).
std::string HttpRequest::HostAndPort() const {
  const bool v6 = url.host.find(':') != std::string::npos;
  const std::string host = v6 ? '[' + url.host.substr(0, url.host.find('%')) + ']' : url.host;
  return url.port == kDefaultPort ? host : host + ":" + std::to_string(url.port);
}

std::string HttpRequest::Target() const {
  const std::string query = url.query.empty() ? "" : "?" + UrlEncode(url.query);
  return "/" + UrlEncode(url.path) + query;
}

std::string HttpRequest::DigestParameters(const HttpCredentials& credentials) const {
  const HttpChallenge& challenge = credentials.challenge;
  DigestInput input;
  input.user = credentials.user;
  input.realm = challenge.realm;
  input.password = credentials.password;
  input.algorithm = "MD5";
  input.nonce = challenge.nonce;
  input.nonceCount = kNonceCount;
  input.clientNonce = RandomNonce();
  input.qop = "auth";
  input.method = method;
  input.uri = Target();
  // Names, order and quotes as servers have known them from this library.
  return "Username=" + Quoted(input.user) + ", realm=" + Quoted(input.realm) + ", qop=\"auth\"" +
         ", algorithm=\"MD5\", uri=" + Quoted(input.uri) + ", nonce=" + Quoted(input.nonce) +
         ", nc=" + Quoted(input.nonceCount) + ", cnonce=" + Quoted(input.clientNonce) +
         ", response=" + Quoted(DigestCalc(input));
}

std::string HttpRequest::Authorization(const HttpCredentials& credentials) const {
  if (credentials.challenge.digest) return "Digest " + DigestParameters(credentials);
  return "Basic " + Base64Encode(credentials.user + ":" + credentials.password);
}

std::string HttpRequest::Compose() const {
  std::string text = method + " ";
  if (absoluteForm) text += url.protocol + "://" + HostAndPort();
  text += Target() + " " + token + kLineEnd;
  text += "Host: " + HostAndPort() + kLineEnd;
  if (proxy) text += "Proxy-Authorization: " + Authorization(*proxy) + kLineEnd;
  if (server) text += "Authorization: " + Authorization(*server) + kLineEnd;
  for (const auto& [name, value] : headers) text += name + ": " + value + kLineEnd;
  if (!body) return text + kLineEnd + kLineEnd;
  return text + "Content-Length: " + std::to_string(body->size()) + kLineEnd + kLineEnd + *body;
}

}  // namespace netro

#include "web/HttpRequest.h"

#include <algorithm>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kDefaultPort = 80;
constexpr const char* kLineEnd = "\r\n";

// The lines of a request. Added ones of a name that the class sends too stand in its place, the
// last of them.
class Lines {
 public:
  explicit Lines(const HttpFields& added) : added_(added) {}

  void Add(std::string_view name, const std::string& value) {
    const auto same = std::find_if(added_.rbegin(), added_.rend(),
                                   [&](const auto& field) { return IsNamed(field, name); });
    own_.push_back(name);
    Append(name, same == added_.rend() ? value : same->second);
  }
  void AddTheOthers(std::string_view except) {
    for (const auto& field : added_) {
      const auto sent = [&](std::string_view name) { return IsNamed(field, name); };
      if (!sent(except) && std::ranges::none_of(own_, sent)) Append(field.first, field.second);
    }
  }
  const std::string& Text() const { return text_; }

 private:
  static bool IsNamed(const HttpFields::value_type& field, std::string_view name) {
    return EqualsIgnoreCase(field.first, name);
  }
  void Append(std::string_view name, const std::string& value) {
    text_ += name;
    text_ += ": " + value + kLineEnd;
  }

  const HttpFields& added_;
  std::vector<std::string_view> own_;
  std::string text_;
};

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

std::string HttpRequest::ComposeHead() const {
  std::string first = method + " ";
  if (absoluteForm) first += url.protocol + "://" + HostAndPort();
  const HttpTarget target{method, Target()};
  first += target.uri + " " + token + kLineEnd;
  Lines lines(headers);
  lines.Add("Host", HostAndPort());
  if (proxy) lines.Add("Proxy-Authorization", proxy->Authorization(target));
  if (server) lines.Add("Authorization", server->Authorization(target));
  lines.AddTheOthers(body ? "Content-Length" : "");
  if (!body) return first + lines.Text() + kLineEnd + kLineEnd;
  lines.Add("Content-Length", std::to_string(body->size()));
  return first + lines.Text() + kLineEnd;
}

std::string FramingProblem(const HttpFields& fields, std::size_t bodySize) {
  for (const auto& [name, value] : fields) {
    const bool framing =
        EqualsIgnoreCase(name, "Transfer-Encoding") || EqualsIgnoreCase(name, "Trailer");
    const bool otherLength =
        EqualsIgnoreCase(name, "Content-Length") && Trim(value) != std::to_string(bodySize);
    if (framing || otherLength) {
      return "HeaderName \"" + name +
             "\" can not be added: it would say otherwise than the class " +
             "where the request ends.";
    }
  }
  return {};
}

}  // namespace netro

#include "web/HttpRequest.h"

#include <algorithm>

#include "support/Text.h"
#include "support/UrlReference.h"

namespace netro {
namespace {

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

// A zone is of this host only (RFC 6874, section 4).
std::string HostOf(const Url& url) {
  const bool v6 = url.host.find(':') != std::string::npos;
  return v6 ? '[' + url.host.substr(0, url.host.find('%')) + ']' : url.host;
}

}  // namespace

std::string HostAndPort(const Url& url) {
  return HostOf(url) + ":" + std::to_string(EffectivePort(url));
}

std::string HostField(const Url& url) {
  return EffectivePort(url) == DefaultPort(url.protocol) ? HostOf(url) : HostAndPort(url);
}

std::string HttpRequest::Target() const {
  const std::string query = url.query.empty() ? "" : "?" + UrlEncode(url.query);
  return "/" + UrlEncode(url.path) + query;
}

std::string HttpRequest::ComposeHead() const {
  const bool connects = method == "CONNECT";
  std::string first = method + " ";
  if (absoluteForm) first += url.protocol + "://" + HostField(url);
  const HttpTarget target{method, connects ? HostAndPort(url) : Target()};
  first += target.uri + " " + token + kLineEnd;
  Lines lines(headers);
  lines.Add("Host", connects ? HostAndPort(url) : HostField(url));
  if (proxy) lines.Add("Proxy-Authorization", proxy->Authorization(target));
  if (server) lines.Add("Authorization", server->Authorization(target));
  lines.AddTheOthers(bodyLength ? "Content-Length" : "");
  if (chunked) lines.Add("Transfer-Encoding", "chunked");
  if (bodyLength) lines.Add("Content-Length", std::to_string(*bodyLength));
  const bool bare = bodyLength || chunked || bareEnd || connects;
  return first + lines.Text() + kLineEnd + (bare ? "" : kLineEnd);
}

bool IsForProxy(const HttpFields::value_type& field) {
  return EqualsIgnoreCase(field.first, "Proxy-Authorization");
}

std::string FramingProblem(const HttpFields& fields, std::optional<std::uint64_t> bodySize) {
  for (const auto& [name, value] : fields) {
    const bool framing =
        EqualsIgnoreCase(name, "Transfer-Encoding") || EqualsIgnoreCase(name, "Trailer");
    const bool otherLength =
        EqualsIgnoreCase(name, "Content-Length") &&
        (!bodySize || Trim(value) != std::to_string(*bodySize));
    if (framing || otherLength) {
      return "HeaderName \"" + name +
             "\" can not be added: it would say otherwise than the class " +
             "where the request ends.";
    }
  }
  return {};
}

}  // namespace netro

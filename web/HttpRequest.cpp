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
  Lines(const HttpFields& added, std::string& text) : added_(added), text_(text) {
    own_.reserve(5);
  }

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

 private:
  static bool IsNamed(const HttpFields::value_type& field, std::string_view name) {
    return EqualsIgnoreCase(field.first, name);
  }
  void Append(std::string_view name, std::string_view value) {
    text_.append(name).append(": ").append(value).append(kLineEnd);
  }

  const HttpFields& added_;
  std::vector<std::string_view> own_;
  std::string& text_;
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
  std::string target = "/" + UrlEncode(url.path);
  if (!url.query.empty()) target.append("?").append(UrlEncode(url.query));
  return target;
}

std::string HttpRequest::ComposeHead() const {
  const bool connects = method == "CONNECT";
  std::string text;
  text.reserve(512);
  text.append(method).append(" ");
  if (absoluteForm) text.append(url.protocol).append("://").append(HostField(url));
  const HttpTarget target{method, connects ? HostAndPort(url) : Target()};
  text.append(target.uri).append(" ").append(token).append(kLineEnd);
  Lines lines(headers, text);
  lines.Add("Host", connects ? HostAndPort(url) : HostField(url));
  if (proxy) lines.Add("Proxy-Authorization", proxy->Authorization(target));
  if (server) lines.Add("Authorization", server->Authorization(target));
  lines.AddTheOthers(bodyLength ? "Content-Length" : "");
  if (chunked) lines.Add("Transfer-Encoding", "chunked");
  if (bodyLength) lines.Add("Content-Length", std::to_string(*bodyLength));
  const bool bare = bodyLength || chunked || bareEnd || connects;
  return text.append(bare ? kLineEnd : "\r\n\r\n");
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

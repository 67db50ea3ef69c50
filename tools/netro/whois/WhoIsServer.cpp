// A WHOIS server, and the one that an answer refers to.

#include "whois/WhoIsServer.h"

#include <algorithm>

#include "terminal/Command.h"
#include "terminal/Encoding.h"
#include "terminal/HostAddress.h"
#include "terminal/HostAndPort.h"

namespace netro::tool {
namespace {

constexpr std::string_view kKeys[] = {
    "refer", "whois", "whois server", "registrar whois server", "referralserver",
};
constexpr std::size_t kLongestQuote = 80;
/// An answer that holds so many referrals to nowhere is not searched any further.
constexpr std::size_t kMostUnreadable = 100;

std::string ToLower(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  });
  return lower;
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t\r"), text.size());
  return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

std::string_view TakeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

/// The value of a line that names a server; empty for all other lines.
std::string_view NamedServer(std::string_view line) {
  constexpr std::size_t kLongestBegin = 64;
  const std::size_t colon = line.substr(0, kLongestBegin).find(':');
  if (colon == line.npos) return {};
  const std::string key = ToLower(Trimmed(line.substr(0, colon)));
  return std::ranges::find(kKeys, key) == std::end(kKeys) ? std::string_view()
                                                          : Trimmed(line.substr(colon + 1));
}

bool IsPlainNumber(std::string_view text) {
  return !text.empty() && text.size() <= 3 && (text.size() == 1 || text.front() != '0') &&
         text.find_first_not_of("0123456789") == text.npos;
}

/// True for what the system may read as an address without its being four plain numbers: such
/// spellings would let a server hide that it has been asked.
bool IsOddNumber(std::string_view host) {
  const std::string_view last = host.substr(host.rfind('.') + 1);
  if (last.empty() || last.front() < '0' || last.front() > '9') return false;
  int numbers = 0;
  for (std::size_t dot = 0; dot != host.npos; ++numbers) {
    dot = host.find('.');
    if (!IsPlainNumber(host.substr(0, dot))) return true;
    host.remove_prefix(dot == host.npos ? host.size() : dot + 1);
  }
  return numbers != 4;
}

/// "whois://host:port/" is taken as well; other protocols are not.
std::optional<WhoIsServer> ReadNamedServer(std::string_view text) {
  constexpr std::string_view kProtocol = "whois://";
  if (ToLower(text.substr(0, kProtocol.size())) == kProtocol) {
    text.remove_prefix(kProtocol.size());
    text.remove_suffix(text.ends_with('/') ? 1 : 0);
  }
  try {
    WhoIsServer server = ReadWhoIsServer("", text);
    // Referrals name hosts; an address of IPv6 has too many spellings to tell that it was asked.
    if (IsOddNumber(server.host) || server.host.find(':') != std::string::npos) return std::nullopt;
    return server;
  } catch (const UsageError&) {
    return std::nullopt;
  }
}

std::string Quoted(std::string_view text) {
  return "\"" + Printable(text.substr(0, kLongestQuote)) +
         (text.size() > kLongestQuote ? "..." : "") + "\"";
}

std::string NoteOnUnreadable(std::string_view first, std::size_t count) {
  return "ignored the referral to " + Quoted(first) + ", which is no host or host:port" +
         (count > 1 ? ", and " + std::to_string(count - 1) + " more like it" : "");
}

}  // namespace

WhoIsServer ReadWhoIsServer(const std::string& option, std::string_view text) {
  WhoIsServer server;
  ReadHostAndPort(option, text, server.host, server.port);
  if (const auto address = UsualIPv6(server.host)) {
    server.host = *address;
    return server;
  }
  if (!IsHostName(server.host)) {
    throw UsageError(option + ": \"" + server.host + "\" is no host name");
  }
  server.host = ToLower(server.host);
  if (server.host.ends_with('.')) server.host.pop_back();
  return server;
}

Referral FindReferral(std::string_view answer, const std::vector<WhoIsServer>& asked) {
  Referral referral;
  std::string_view firstUnreadable;
  std::size_t unreadable = 0;
  std::optional<WhoIsServer> back;
  while (!answer.empty() && !referral.next && unreadable < kMostUnreadable) {
    const std::string_view named = NamedServer(TakeLine(answer));
    if (named.empty()) continue;
    const auto server = ReadNamedServer(named);
    if (!server) {
      firstUnreadable = ++unreadable == 1 ? named : firstUnreadable;
    } else if (std::ranges::find(asked, *server) == asked.end()) {
      referral.next = server;
    } else if (*server != asked.back()) {  // naming itself is how the last server says so
      back = server;
    }
  }
  if (unreadable > 0) referral.notes.push_back(NoteOnUnreadable(firstUnreadable, unreadable));
  if (back && !referral.next) {
    referral.notes.push_back(asked.back().Text() + " refers back to " + back->Text() +
                             ", which has been asked");
  }
  return referral;
}

}  // namespace netro::tool

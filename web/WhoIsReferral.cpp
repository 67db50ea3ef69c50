#include "web/WhoIsReferral.h"

#include <algorithm>

#include "platform/Address.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kKeys[] = {
    "refer", "whois", "whois server", "registrar whois server", "referralserver",
};
constexpr std::size_t kLongestQuote = 80;
constexpr std::size_t kLongestServer = 300;
/// An answer that holds so many referrals to nowhere is not searched any further.
constexpr std::size_t kMostUnreadable = 100;

std::string_view TakeLine(std::string_view& text) {
  std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  line.remove_suffix(line.ends_with('\r') ? 1 : 0);
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
  if (StartsWithIgnoreCase(text, kProtocol)) {
    text.remove_prefix(kProtocol.size());
    text.remove_suffix(text.ends_with('/') ? 1 : 0);
  }
  const auto server = ReadWhoIsServer(text);
  // Referrals name hosts; an address of IPv6 has too many spellings to tell that it was asked.
  if (!server || IsOddNumber(server->host) || server->host.find(':') != std::string::npos) {
    return std::nullopt;
  }
  return server;
}

/// A piece of foreign text that may be shown.
std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text.substr(0, kLongestQuote)) {
    if (c >= ' ' && c <= '~') {
      quoted += c;
    } else {
      AppendHex(quoted += "\\x", c);
    }
  }
  return quoted + (text.size() > kLongestQuote ? "...\"" : "\"");
}

std::string NoteOnUnreadable(std::string_view first, std::size_t count) {
  return "ignored the referral to " + Quoted(first) + ", which is no host or host:port" +
         (count > 1 ? ", and " + std::to_string(count - 1) + " more like it" : "");
}

}  // namespace

std::string WhoIsServer::Text() const { return FormatEndpoint(host, port); }

std::optional<WhoIsServer> ReadWhoIsServer(std::string_view text) {
  WhoIsServer server;
  std::string host;
  if (text.size() > kLongestServer || !SplitEndpoint(std::string(text), host, server.port)) {
    return std::nullopt;
  }
  if (const auto address = ParseAddress(host); address && address->IsIPv6()) {
    server.host = FormatAddress(*address);
    return server;
  }
  if (!IsHostName(host) || host.front() == '-' || host.find(".-") != host.npos) return std::nullopt;
  server.host = ToLower(host);
  if (server.host.ends_with('.')) server.host.pop_back();
  return server;
}

WhoIsReferral FindWhoIsReferral(std::string_view answer, const std::vector<WhoIsServer>& asked) {
  WhoIsReferral referral;
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

}  // namespace netro

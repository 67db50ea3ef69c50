#include "web/WhoIsTable.h"

#include <algorithm>
#include <charconv>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kPlace = "NAME";

std::string_view TakeWord(std::string_view& line) {
  line = Trimmed(line);
  const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
  line.remove_prefix(word.size());
  return word;
}

template <class Number>
bool ReadNumber(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

bool ReadSystem(std::string_view text, std::uint32_t& number) {
  return StartsWithIgnoreCase(text, "AS") && ReadNumber(text.substr(2), number);
}

// An address in its usual form: a lone number is none.
std::optional<IpAddress> ReadAddress(std::string_view text) {
  constexpr std::size_t kLongest = 64;
  if (text.size() > kLongest) return std::nullopt;
  if (text.find(':') == text.npos && std::ranges::count(text, '.') != 3) return std::nullopt;
  return ParseAddress(std::string(text));
}

bool IsWithin(const IpAddress& address, const IpAddress& network, std::size_t bits) {
  if (address.Family() != network.Family()) return false;
  for (std::size_t bit = 0; bit < bits; ++bit) {
    const auto mask = static_cast<unsigned>(0x80u >> bit % 8);
    if (((address.Bytes()[bit / 8] ^ network.Bytes()[bit / 8]) & mask) != 0) return false;
  }
  return true;
}

// "\.example$", as other programs write what is ".example" here.
std::string PlainDomain(std::string_view pattern) {
  if (!pattern.starts_with("\\.") || !pattern.ends_with('$')) return std::string(pattern);
  std::string plain(pattern.substr(1, pattern.size() - 2));
  for (std::size_t at = plain.find("\\."); at != plain.npos; at = plain.find("\\.", at)) {
    plain.erase(at, 1);
  }
  return plain;
}

std::string Quoted(std::string_view word) {
  constexpr std::size_t kMost = 60;
  const bool isCut = word.size() > kMost;
  return "\"" + std::string(word.substr(0, kMost)) + (isCut ? "...\"" : "\"");
}

}  // namespace

bool WhoIsTable::ReadNetwork(std::string_view pattern, Entry& entry) {
  const std::size_t slash = pattern.find('/');
  const auto address = ReadAddress(pattern.substr(0, slash));
  if (!address) return false;
  entry.kind = Kind::Network;
  entry.network = *address;
  entry.bits = 8 * address->Bytes().size();
  const std::size_t most = entry.bits;
  return slash == pattern.npos ||
         (ReadNumber(pattern.substr(slash + 1), entry.bits) && entry.bits <= most);
}

bool WhoIsTable::ReadSystems(std::string_view pattern, Entry& entry) {
  const std::size_t dash = pattern.find('-');
  entry.kind = Kind::Systems;
  if (!ReadSystem(pattern.substr(0, dash), entry.firstSystem)) return false;
  entry.lastSystem = entry.firstSystem;
  if (dash == pattern.npos) return true;
  return ReadSystem(pattern.substr(dash + 1), entry.lastSystem) &&
         entry.firstSystem <= entry.lastSystem;
}

bool WhoIsTable::ReadPattern(std::string_view pattern, Entry& entry) {
  if (pattern == "-" || pattern == "*") {
    entry.kind = pattern == "*" ? Kind::All : Kind::Nothing;
    return true;
  }
  if (const std::string domain = PlainDomain(pattern); domain.starts_with('.')) {
    entry.kind = Kind::Domain;
    entry.domain = ToLower(domain);
    return IsHostName(std::string_view(domain).substr(1));
  }
  return ReadSystems(pattern, entry) || ReadNetwork(pattern, entry);
}

// Returns what is wrong, nothing for a good line.
std::string WhoIsTable::ReadLine(std::string_view line, Entry& entry) {
  const std::string pattern(TakeWord(line));
  const std::string server(TakeWord(line));
  if (!ReadPattern(pattern, entry)) {
    return Quoted(pattern) + " is no domain (.example), network, AS number, \"*\" or \"-\"";
  }
  const auto read = ReadWhoIsServer(server);
  if (!read) return Quoted(server) + " is no server";
  entry.server = *read;
  entry.form = Trimmed(line);
  if (!entry.form.empty() && entry.form.find(kPlace) == std::string::npos) {
    return Quoted(entry.form) + " does not say where NAME goes";
  }
  return {};
}

std::vector<std::string> WhoIsTable::Read(std::string_view text) {
  entries_.clear();
  std::vector<std::string> problems;
  std::size_t number = 0;
  for (std::string& whole : Split(text, '\n')) {
    ++number;
    std::string_view line = std::string_view(whole).substr(0, whole.find('#'));
    line.remove_suffix(line.ends_with('\r') ? 1 : 0);
    line = Trimmed(line);
    if (line.empty()) continue;
    Entry entry;
    const std::string problem = ReadLine(line, entry);
    if (problem.empty()) {
      entries_.push_back(std::move(entry));
    } else {
      problems.push_back("line " + std::to_string(number) + ": " + problem);
    }
  }
  return problems;
}

// 0: the entry does not fit.
std::uint64_t WhoIsTable::Narrowness(const Entry& entry, std::string_view query) {
  constexpr std::uint64_t kAll = 1;
  std::uint32_t system = 0;
  switch (entry.kind) {
    case Kind::Nothing:
      return 0;
    case Kind::All:
      return kAll;
    case Kind::Domain:
      return query.size() > entry.domain.size() && ToLower(query).ends_with(entry.domain)
                 ? kAll + entry.domain.size()
                 : 0;
    case Kind::Systems:
      return ReadSystem(query, system) && system >= entry.firstSystem && system <= entry.lastSystem
                 ? kAll + (std::uint64_t{1} << 32) - (entry.lastSystem - entry.firstSystem)
                 : 0;
    case Kind::Network:
      break;
  }
  const auto address = ReadAddress(query.substr(0, query.find('/')));
  return address && IsWithin(*address, entry.network, entry.bits) ? kAll + 1 + entry.bits : 0;
}

// The narrowest line that fits; where none does the first one of the kind `other`.
template <class Counts>
const WhoIsTable::Entry* WhoIsTable::Best(std::string_view query, Counts counts,
                                          std::optional<Kind> other) const {
  query = Trimmed(query);
  query.remove_suffix(query.ends_with('.') ? 1 : 0);
  std::uint64_t narrowest = 0;
  const Entry* best = nullptr;
  for (const Entry& entry : entries_) {
    if (!counts(entry)) continue;
    if (best == nullptr && entry.kind == other) best = &entry;
    const std::uint64_t narrowness = Narrowness(entry, query);
    if (narrowness > narrowest) {
      narrowest = narrowness;
      best = &entry;
    }
  }
  return best;
}

std::optional<WhoIsServer> WhoIsTable::ServerFor(std::string_view query) const {
  const Entry* const best = Best(query, [](const Entry&) { return true; }, std::nullopt);
  return best != nullptr ? std::optional(best->server) : std::nullopt;
}

std::string WhoIsTable::QueryFor(const WhoIsServer& server, const std::string& query) const {
  const auto counts = [&](const Entry& one) {
    return one.server == server && (one.kind != Kind::All || !one.form.empty());
  };
  const Entry* const entry = Best(query, counts, Kind::Nothing);
  if (entry == nullptr || entry->form.empty()) return query;
  std::string text = entry->form;
  return text.replace(text.find(kPlace), kPlace.size(), query);
}

}  // namespace netro

#include "platform/ResolverConfig.h"

#include <algorithm>
#include <charconv>

#include "platform/Address.h"
#include "platform/ConfigText.h"

namespace netro {
namespace {

void TakeSearch(std::string_view words, ResolverConfig& config) {
  config.search.clear();
  for (auto word = TakeWord(words); !word.empty(); word = TakeWord(words)) {
    if (word = WithoutLastDot(word); !word.empty()) config.search.emplace_back(word);
  }
  config.domain = config.search.empty() ? std::string() : config.search.front();
}

// "name:number", of which none is larger than the system takes.
bool TakeNumber(std::string_view option, std::string_view name, int most, int& number) {
  if (!option.starts_with(name)) return false;
  option.remove_prefix(name.size());
  int value = 0;
  const auto [end, error] = std::from_chars(option.data(), option.data() + option.size(), value);
  if (error == std::errc::result_out_of_range) value = most;
  if (end != option.data() && value >= 0) number = std::min(value, most);
  return true;
}

void TakeOptions(std::string_view words, ResolverConfig& config) {
  for (auto word = TakeWord(words); !word.empty(); word = TakeWord(words)) {
    if (word == "rotate") config.rotate = true;
    if (TakeNumber(word, "ndots:", 15, config.ndots)) continue;
    if (TakeNumber(word, "timeout:", 30, config.timeout)) continue;
    TakeNumber(word, "attempts:", 5, config.attempts);
  }
}

void TakeSetting(std::string_view line, ResolverConfig& config) {
  line = line.substr(0, line.find_first_of("#;"));
  if (line.empty() || IsConfigBlank(line.front())) return;
  const std::string_view keyword = TakeWord(line);
  const std::string_view rest = line;
  const std::string_view value = TakeWord(line);
  if (value.empty()) return;
  if (keyword == "domain" || keyword == "search") {
    TakeSearch(keyword == "domain" ? value : rest, config);
  } else if (keyword == "nameserver") {
    if (const auto ip = ParseAddress(std::string(value)))
      config.servers.push_back(FormatAddress(*ip));
  } else if (keyword == "options") {
    TakeOptions(rest, config);
  }
}

}  // namespace

ResolverConfig ParseResolverConfig(std::string_view text) {
  ResolverConfig config;
  config.readable = true;
  while (!text.empty()) TakeSetting(TakeLine(text), config);
  return config;
}

}  // namespace netro

// A field holds challenges, which are a scheme and its parameters, and both stand in one list with
// commas. What is followed by "=" is a parameter of the scheme before it; a word that is not begins
// the next scheme. Some schemes have one value of Base64 (token68) in place of parameters, which
// says nothing here and is skipped. Each step takes at least one byte, so the list is read once.
#include "web/HttpChallenge.h"

#include <algorithm>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kMostChallenges = 64;
constexpr std::string_view kBlanks = " \t";

bool IsTokenCharacter(char c) {
  return IsAlphanumeric(c) || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool IsToken68Character(char c) {
  return IsAlphanumeric(c) || std::string_view("-._~+/").find(c) != std::string_view::npos;
}

class ChallengeReader {
 public:
  ChallengeReader(std::string_view text, std::vector<HttpChallenge>& into)
      : rest_(text), into_(into) {}

  void Read() {
    while (SkipAny(" \t,"), !rest_.empty()) ReadItem();
  }

 private:
  void ReadItem() {
    const std::string_view word = TakeWhile(IsTokenCharacter);
    if (word.empty()) return SkipItem();
    const std::string_view behind = rest_;
    SkipAny(kBlanks);
    if (in_ && !rest_.empty() && rest_.front() == '=') {
      rest_.remove_prefix(1);
      SkipAny(kBlanks);
      return Keep(ToLower(word), TakeValue());
    }
    if (behind.empty() || behind.front() == ' ' || behind.front() == '\t' ||
        behind.front() == ',') {
      return BeginChallenge(word);
    }
    SkipItem();
  }

  void BeginChallenge(std::string_view scheme) {
    in_ = into_.size() < kMostChallenges;
    if (in_) into_.emplace_back().scheme = ToLower(scheme);
    const std::string_view before = rest_;
    TakeWhile(IsToken68Character);
    TakeWhile([](char c) { return c == '='; });
    SkipAny(kBlanks);
    const bool isToken68 = rest_.size() < before.size() && (rest_.empty() || rest_.front() == ',');
    if (!isToken68) rest_ = before;
  }

  std::string TakeValue() {
    if (!rest_.empty() && rest_.front() == '"') return TakeQuoted();
    return Clean(Trim(TakeWhile([](char c) { return c != ','; })));
  }

  // Up to the quote that ends it, with `\x` resolved to x.
  std::string TakeQuoted() {
    std::string value;
    std::size_t at = 1;
    for (; at < rest_.size() && rest_[at] != '"'; ++at) {
      if (rest_[at] == '\\' && at + 1 < rest_.size()) ++at;
      value += rest_[at];
    }
    rest_.remove_prefix(std::min(at + 1, rest_.size()));
    return Clean(value);
  }

  static std::string Clean(std::string_view text) {
    std::string clean;
    for (const char c : text) {
      if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F && c != '"') clean += c;
    }
    return clean;
  }

  void Keep(const std::string& name, std::string value) {
    HttpChallenge& challenge = into_.back();
    if (name == "stale") challenge.stale = EqualsIgnoreCase(value, "true");
    if (name == "userhash") challenge.userhash = EqualsIgnoreCase(value, "true");
    if (name == "opaque") challenge.hasOpaque = true;
    if (std::string* place = Place(challenge, name)) *place = std::move(value);
  }

  static std::string* Place(HttpChallenge& challenge, std::string_view name) {
    if (name == "realm") return &challenge.realm;
    if (name == "nonce") return &challenge.nonce;
    if (name == "opaque") return &challenge.opaque;
    if (name == "algorithm") return &challenge.algorithm;
    if (name == "qop") return &challenge.qop;
    return nullptr;
  }

  template <class Predicate>
  std::string_view TakeWhile(Predicate predicate) {
    const auto end = std::ranges::find_if_not(rest_, predicate);
    const std::string_view taken = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
    rest_.remove_prefix(taken.size());
    return taken;
  }

  void SkipAny(std::string_view characters) {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(characters), rest_.size()));
  }

  void SkipItem() { rest_.remove_prefix(std::min(rest_.find(','), rest_.size())); }

  std::string_view rest_;
  std::vector<HttpChallenge>& into_;
  bool in_ = false;  // parameters belong to the last challenge of `into_`
};

// The higher, the better; 0 when it cannot be answered.
int Rank(const HttpChallenge& challenge, DigestForm form) {
  constexpr std::string_view kAlgorithms[] = {"MD5-sess", "MD5", "SHA-256-sess", "SHA-256"};
  const std::string_view own = challenge.algorithm;
  const std::string_view name = own.empty() ? "MD5" : own;
  if (form == DigestForm::Md5Only) return EqualsIgnoreCase(name, "MD5") ? 1 : 0;
  const std::vector<std::string> qops = Split(challenge.qop, ',');
  const bool hasAuth = std::ranges::any_of(
      qops, [](const std::string& qop) { return EqualsIgnoreCase(Trim(qop), "auth"); });
  if (challenge.nonce.empty() || (!challenge.qop.empty() && !hasAuth)) return 0;
  int rank = 0;
  for (const std::string_view known : kAlgorithms) {
    ++rank;
    if (EqualsIgnoreCase(name, known)) return rank;
  }
  return 0;
}

}  // namespace

std::vector<HttpChallenge> ParseChallenges(const HttpHead& head, std::string_view lineName) {
  std::vector<HttpChallenge> challenges;
  for (const std::string& line : head.Lines(lineName)) ChallengeReader(line, challenges).Read();
  return challenges;
}

bool ChooseChallenge(std::span<const HttpChallenge> challenges, DigestForm form,
                     HttpChallenge& chosen) {
  const HttpChallenge* digest = nullptr;
  const HttpChallenge* basic = nullptr;
  int best = 0;
  for (const HttpChallenge& challenge : challenges) {
    if (challenge.scheme == "basic" && basic == nullptr) basic = &challenge;
    if (!challenge.IsDigest()) continue;
    const int rank = Rank(challenge, form);
    if (digest == nullptr || rank > best) digest = &challenge;
    best = std::max(best, rank);
  }
  if (digest != nullptr && best == 0) {
    if (basic == nullptr && form == DigestForm::Standard) return false;
    if (basic != nullptr) digest = nullptr;
  }
  chosen = digest != nullptr ? *digest : basic != nullptr ? *basic : HttpChallenge();
  return true;
}

}  // namespace netro

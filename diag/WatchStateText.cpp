#include "diag/WatchStateText.h"

#include <charconv>
#include <cstddef>
#include <optional>

#include "support/DateText.h"

namespace netro {
namespace {

constexpr std::string_view kFirstLine = "netro-watch 1";
constexpr std::int64_t kMost = 1'000'000'000;  // leaves room to grow

std::string Escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else {
      out += c;
    }
  }
  return out;
}

bool Unescape(std::string_view text, std::string& out) {
  out.clear();
  for (std::size_t at = 0; at < text.size(); ++at) {
    char c = text[at];
    if (c == '\\') {
      const char next = ++at < text.size() ? text[at] : '\0';
      if (next != '\\' && next != 'n' && next != 'r') return false;
      c = next == 'n' ? '\n' : next == 'r' ? '\r' : '\\';
    }
    out += c;
  }
  return true;
}

void AppendLine(std::string& text, std::string_view word, std::string_view value) {
  ((text += word) += ' ') += Escaped(value);
  text += '\n';
}

std::string DateOrNone(Date date) { return date == 0 ? "-" : DateToText(date); }

void AppendSums(std::string& text, const char* word, const WatchHistory::Sums& sums) {
  text += word;
  for (const std::int64_t number :
       {sums.number, std::int64_t{sums.upSeconds}, std::int64_t{sums.downSeconds},
        std::int64_t{sums.probes}, std::int64_t{sums.failed}, std::int64_t{sums.shortest},
        std::int64_t{sums.longest}, sums.total}) {
    (text += ' ') += std::to_string(number);
  }
  text += '\n';
}

/// The words of a line, one after the other.
class Words {
 public:
  explicit Words(std::string_view line) : left_(line) {}

  bool AtEnd() const { return left_.empty(); }
  std::string_view Rest() const { return left_; }
  std::string_view Next() {
    const std::size_t blank = left_.find(' ');
    const std::string_view word = left_.substr(0, blank);
    left_.remove_prefix(blank == left_.npos ? left_.size() : blank + 1);
    return word;
  }
  template <class Number>
  bool Next(Number& number, std::int64_t least, std::int64_t most) {
    const std::string_view word = Next();
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size()) return false;
    number = static_cast<Number>(value);
    return value >= least && value <= most;
  }
  bool Next(Date& date) {
    const std::string_view word = Next();
    const auto read = word == "-" ? std::optional<Date>(0) : TextToDate(word);
    date = read.value_or(0);
    return read.has_value();
  }

 private:
  std::string_view left_;
};

bool ReadSums(Words words, const std::deque<WatchHistory::Sums>& before, WatchHistory::Sums& sums) {
  constexpr std::int64_t kMostTotal = std::int64_t{1} << 53;
  return words.Next(sums.number, before.empty() ? -kMost : before.back().number + 1, kMost) &&
         words.Next(sums.upSeconds, 0, kMost) && words.Next(sums.downSeconds, 0, kMost) &&
         words.Next(sums.probes, 0, kMost) && words.Next(sums.failed, 0, sums.probes) &&
         words.Next(sums.shortest, -1, kMost) && words.Next(sums.longest, -1, kMost) &&
         words.Next(sums.total, 0, kMostTotal) && words.AtEnd();
}

class Parser {
 public:
  explicit Parser(WatchStateContent& content) : content_(content) {}

  bool Line(std::string_view line) {
    if (ended_) return false;
    Words words(line);
    const std::string_view word = words.Next();
    if (word == "host") return BeginHost(words.Rest());
    if (word == "other") return Other(words);
    if (word == "end") return End(words);
    return !content_.hosts.empty() && (Text(word, words.Rest()) || Numbers(word, words));
  }
  bool HasEnded() const { return ended_; }

 private:
  WatchMemory& Memory() { return content_.hosts.back().first; }
  WatchHistory& History() { return content_.hosts.back().second; }

  bool BeginHost(std::string_view name) {
    content_.hosts.emplace_back();
    return Unescape(name, Memory().name);
  }

  bool Other(Words words) {
    auto& [key, value] = content_.others.emplace_back();
    return Unescape(words.Next(), key) && !key.empty() && Unescape(words.Rest(), value);
  }

  bool End(Words words) {
    std::size_t hosts = 0;
    ended_ = words.Next(hosts, 0, kMost) && words.AtEnd() && hosts == content_.hosts.size();
    return ended_;
  }

  bool Text(std::string_view word, std::string_view text) {
    WatchMemory& memory = Memory();
    if (word == "at") return Unescape(text, memory.host);
    if (word == "kind") return Unescape(text, memory.kind);
    if (word == "answer") return Unescape(text, memory.lastText);
    if (word == "failure") return Unescape(text, memory.lastFailure);
    return word == "judgement" && Unescape(text, memory.judgement);
  }

  bool Numbers(std::string_view word, Words words) {
    if (word == "state") return State(words);
    if (word == "dates") {
      return words.Next(Memory().lastProbe) && words.Next(Memory().since) && words.AtEnd();
    }
    if (word == "past") return Past(words);
    if (word == "times") return Times(words);
    if (word == "outage") return Outage(words);
    WatchHistory::Sums sums;
    if (word == "hour" && ReadSums(words, History().Hours(), sums)) {
      History().AddHour(sums);
      return true;
    }
    if (word == "day" && ReadSums(words, History().Days(), sums)) {
      History().AddDay(sums);
      return true;
    }
    return false;
  }

  bool State(Words words) {
    WatchMemory& memory = Memory();
    return words.Next(memory.state, 0, WatchedUnreachable) &&
           words.Next(memory.successes, 0, kMost) && words.Next(memory.failures, 0, kMost) &&
           words.Next(memory.lastMilliSeconds, -1, kMost) && words.AtEnd();
  }

  bool Past(Words words) {
    WatchHistory::State state{};
    if (!words.Next(state, 0, static_cast<int>(WatchHistory::State::Down)) || !words.AtEnd()) {
      return false;
    }
    History().SetState(state);
    return true;
  }

  bool Times(Words words) {
    while (!words.AtEnd()) {
      std::int32_t time = 0;
      if (!words.Next(time, -1, kMost)) return false;
      History().AddTime(time);
    }
    return true;
  }

  bool Outage(Words words) {
    WatchedOutage outage;
    if (!words.Next(outage.Begin) || !words.Next(outage.End)) return false;
    if (!Unescape(words.Rest(), outage.Reason) ||
        outage.Reason.size() > WatchHistory::kLongestReason) {
      return false;
    }
    History().AddOutage(std::move(outage));
    return true;
  }

  WatchStateContent& content_;
  bool ended_ = false;
};

}  // namespace

std::string WatchStateBegin() { return std::string(kFirstLine) + "\n"; }

void AppendWatchHost(std::string& text, const WatchMemory& memory, const WatchHistory& history) {
  AppendLine(text, "host", memory.name);
  AppendLine(text, "at", memory.host);
  AppendLine(text, "kind", memory.kind);
  text += "state " + std::to_string(memory.state) + " " + std::to_string(memory.successes) + " " +
          std::to_string(memory.failures) + " " + std::to_string(memory.lastMilliSeconds) + "\n";
  text += "dates " + DateOrNone(memory.lastProbe) + " " + DateOrNone(memory.since) + "\n";
  AppendLine(text, "answer", memory.lastText);
  AppendLine(text, "failure", memory.lastFailure);
  AppendLine(text, "judgement", memory.judgement);
  text += "past " + std::to_string(static_cast<int>(history.Now())) + "\n";
  text += "times";
  for (const std::int32_t time : history.Times()) (text += ' ') += std::to_string(time);
  text += '\n';
  for (const WatchHistory::Sums& sums : history.Hours()) AppendSums(text, "hour", sums);
  for (const WatchHistory::Sums& sums : history.Days()) AppendSums(text, "day", sums);
  for (const WatchedOutage& outage : history.Outages()) {
    AppendLine(text, "outage",
               DateOrNone(outage.Begin) + " " + DateOrNone(outage.End) + " " + outage.Reason);
  }
}

void AppendWatchOther(std::string& text, const std::string& key, const std::string& value) {
  AppendLine(text, "other", key + " " + value);
}

std::string WatchStateEnd(std::size_t hosts) { return "end " + std::to_string(hosts) + "\n"; }

std::size_t ParseWatchState(std::string_view text, WatchStateContent& content) {
  content = WatchStateContent();
  Parser parser(content);
  std::size_t number = 0;
  while (!text.empty()) {
    ++number;
    const std::size_t end = text.find('\n');
    if (end == text.npos) return number;
    const std::string_view line = text.substr(0, end);
    if (number == 1 ? line != kFirstLine : !parser.Line(line)) return number;
    text.remove_prefix(end + 1);
  }
  return parser.HasEnded() ? 0 : number + 1;
}

}  // namespace netro

#include "web/RangeAnswer.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "support/HttpDate.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::uint64_t kMost = std::uint64_t{1} << 53;

/// Takes a number off the front; nothing when there is none.
std::optional<std::uint64_t> TakeNumber(std::string_view& text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || number > kMost) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

bool Take(std::string_view& text, char c) {
  if (!text.starts_with(c)) return false;
  text.remove_prefix(1);
  return true;
}

bool TakeFirstAndLast(std::string_view& text, ContentRange& range) {
  range.satisfied = true;
  const auto first = TakeNumber(text);
  if (!first || !Take(text, '-')) return false;
  const auto last = TakeNumber(text);
  range.first = *first;
  range.last = last.value_or(0);
  return last && range.first <= range.last;
}

/// A date is no validator when the body may have changed twice within its second (RFC 9110, section
/// 8.8.2.2). Nobody says that one clock made both dates, so they must be a minute apart.
bool IsStrongDate(const PartialBody& partial) {
  const auto modified = ReadHttpDate(partial.lastModified);
  const auto date = ReadHttpDate(partial.date);
  return modified && date && *date - *modified >= std::chrono::minutes(1);
}

/// The validator for If-Range; empty when there is none that may stand there.
std::string StrongValidator(const PartialBody& partial) {
  if (IsStrongTag(partial.entityTag)) return partial.entityTag;
  // Beside a weak tag the date counts no more than the tag.
  return partial.entityTag.empty() && IsStrongDate(partial) &&
                 !HasControlCharacter(partial.lastModified)
             ? partial.lastModified
             : std::string();
}

bool Asked(const PartialBody& partial) { return !ResumeFields(partial).empty(); }

ResumeDecision Refuse(std::string why) { return {ResumeStep::Refuse, {}, std::move(why)}; }

/// True when the answer names another state of the body than the one that was begun.
bool IsOther(const PartialBody& partial, const RangeAnswer& answer) {
  if (IsStrongTag(partial.entityTag) && !answer.entityTag.empty()) {
    return answer.entityTag != partial.entityTag;
  }
  const auto before = ReadHttpDate(partial.lastModified);
  const auto now = ReadHttpDate(answer.lastModified);
  return before && now && *before != *now;
}

ResumeDecision DecidePartial(const PartialBody& partial, const RangeAnswer& answer) {
  if (!Asked(partial)) return Refuse("The server sent a part although all was asked for.");
  if (StartsWithIgnoreCase(answer.contentType, "multipart/byteranges")) {
    return Refuse("The server sent several parts although one was asked for.");
  }
  const std::optional<ContentRange> range = ReadContentRange(answer.contentRange);
  if (!range || !range->satisfied) {
    return Refuse("The server sent a part without saying which (Content-Range).");
  }
  if (range->first != partial.have) {
    return Refuse("The server sent the bytes from " + std::to_string(range->first) +
                  " on, asked for were those from " + std::to_string(partial.have) + " on.");
  }
  const std::uint64_t length = range->last - range->first + 1;
  if (answer.contentLength && *answer.contentLength != length) {
    return Refuse("Content-Length and Content-Range of the answer contradict each other.");
  }
  if (IsOther(partial, answer)) {
    return Refuse("The server sent a part of another state of the body.");
  }
  // A packed rest continues nothing, and of a body without a length nobody knows whether the rest is
  // all of it.
  const bool packed =
      !answer.contentCoding.empty() && !EqualsIgnoreCase(answer.contentCoding, "identity");
  if (packed || !range->total) return {ResumeStep::AskAgain, {}, {}};
  return {ResumeStep::Continue, range->total, {}};
}

ResumeDecision DecideUnsatisfied(const PartialBody& partial, const RangeAnswer& answer) {
  if (!Asked(partial)) return {};
  const std::optional<ContentRange> range = ReadContentRange(answer.contentRange);
  const bool all = range && !range->satisfied && range->total == partial.have;
  if (!all || IsOther(partial, answer)) return {ResumeStep::AskAgain, {}, {}};
  return {ResumeStep::Complete, partial.have, {}};
}

}  // namespace

bool IsStrongTag(std::string_view tag) {
  if (tag.size() < 2 || !tag.starts_with('"') || !tag.ends_with('"')) return false;
  tag = tag.substr(1, tag.size() - 2);
  return std::ranges::all_of(tag, [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte != '"' && byte != 0x7F;
  });
}

std::optional<ContentRange> ReadContentRange(std::string_view value) {
  const std::string whole = Trim(value);
  const std::size_t blank = whole.find(' ');
  if (blank == std::string::npos || !EqualsIgnoreCase(whole.substr(0, blank), "bytes")) {
    return std::nullopt;
  }
  std::string_view text = std::string_view(whole).substr(blank + 1);
  ContentRange range;
  if (!Take(text, '*') && !TakeFirstAndLast(text, range)) return std::nullopt;
  if (!Take(text, '/')) return std::nullopt;
  if (!Take(text, '*')) {
    range.total = TakeNumber(text);
    if (!range.total || (range.satisfied && range.last >= *range.total)) return std::nullopt;
  }
  const bool tellsSomething = range.satisfied || range.total;
  return text.empty() && tellsSomething ? std::optional(range) : std::nullopt;
}

std::vector<std::pair<std::string, std::string>> ResumeFields(const PartialBody& partial) {
  const std::string validator = StrongValidator(partial);
  if (partial.have == 0 || (validator.empty() && !partial.insist)) return {};
  std::vector<std::pair<std::string, std::string>> fields = {
      {"Range", "bytes=" + std::to_string(partial.have) + "-"}};
  if (!validator.empty()) fields.emplace_back("If-Range", validator);
  return fields;
}

ResumeDecision DecideResume(const PartialBody& partial, const RangeAnswer& answer) {
  if (answer.status == 206) return DecidePartial(partial, answer);
  if (answer.status == 416) return DecideUnsatisfied(partial, answer);
  if (answer.status == 200 || answer.status == 203) {
    return {ResumeStep::StartAgain, answer.contentLength, {}};
  }
  return {};
}

}  // namespace netro

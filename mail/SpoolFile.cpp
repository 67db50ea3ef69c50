#include "mail/SpoolFile.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "support/DateText.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::string_view kFirstLine = "netro-spool 1";
constexpr std::size_t kLongestAnswer = 500;
constexpr const char* kStates[] = {"pending", "delivered", "failed", "unknown"};

/// Takes the next word, or line, off the front of a text.
std::string_view Take(std::string_view& text, char end) {
  const std::size_t at = std::min(text.find(end), text.size());
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return taken;
}

template <class Number>
bool ReadNumber(std::string_view text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return !text.empty() && error == std::errc() && stop == end && number >= 0;
}

bool ReadDate(std::string_view text, Date& date) {
  const std::optional<Date> read = TextToDate(text);
  date = read.value_or(0);
  return read.has_value();
}

bool ReadHeadLine(std::string_view line, SpooledMail& mail) {
  const std::string_view key = Take(line, ' ');
  if (key == "created") return ReadDate(line, mail.Created);
  if (key == "size") return ReadNumber(line, mail.Size);
  if (!line.empty() && !CanSpoolAddress(line)) return false;
  if (key == "from") mail.Sender = line;
  if (key == "to") mail.Recipients.emplace_back().Address = line;
  return key == "from" || (key == "to" && !line.empty());
}

void SetNextTry(SpooledMail& mail) {
  mail.NextTry = 0;
  for (const SpooledRecipient& recipient : mail.Recipients) {
    if (recipient.State != SpoolPending) continue;
    mail.NextTry =
        mail.NextTry == 0 ? recipient.NextTry : std::min(mail.NextTry, recipient.NextTry);
  }
}

bool ReadState(std::string_view word, SpoolStateEnum& state) {
  const auto* const found = std::ranges::find(kStates, word);
  if (found == std::end(kStates)) return false;
  state = static_cast<SpoolStateEnum>(found - kStates);
  return true;
}

bool ReadTry(SpoolStateEnum state, std::string_view line, SpooledRecipient& recipient) {
  if (recipient.State != SpoolPending) return false;
  recipient.State = state;
  recipient.NextTry = 0;
  ++recipient.Tries;
  if (!ReadDate(Take(line, ' '), recipient.LastTry)) return false;
  const std::string_view next = Take(line, ' ');
  if (state == SpoolPending ? !ReadDate(next, recipient.NextTry) : next != "-") return false;
  if (!ReadNumber(Take(line, ' '), recipient.ResultClass)) return false;
  if (!ReadNumber(Take(line, ' '), recipient.Result)) return false;
  recipient.Answer = CleanAnswer(line);
  return true;
}

bool ReadRecord(std::string_view line, SpooledMail& mail) {
  const std::string_view word = Take(line, ' ');
  std::size_t number = 0;
  if (!ReadNumber(Take(line, ' '), number) || number >= mail.Recipients.size()) return false;
  SpooledRecipient& recipient = mail.Recipients[number];
  if (word == "reported") {
    recipient.Reported = true;
    return recipient.State != SpoolPending && line.empty();
  }
  SpoolStateEnum state = SpoolPending;
  return ReadState(word, state) && ReadTry(state, line, recipient);
}

}  // namespace

bool IsSpoolId(std::string_view id) {
  constexpr std::size_t kLongest = 64;
  return !id.empty() && id.size() <= kLongest &&
         std::ranges::all_of(id, [](char c) { return IsAlphanumeric(c) || c == '-'; });
}

bool CanSpoolAddress(std::string_view address) {
  constexpr std::size_t kLongest = 900;  // leaves room in a line for a field's name
  return !address.empty() && address.size() <= kLongest && !HasControlCharacter(address) &&
         address.find_first_of("<>") == address.npos;
}

std::string CleanAnswer(std::string_view answer) {
  std::string clean;
  for (std::size_t at = 0; at < answer.size();) {
    const std::size_t length = Utf8Length(answer, at);
    const bool isControl = HasControlCharacter(answer.substr(at, 1));
    if (clean.size() + std::max<std::size_t>(length, 1) > kLongestAnswer) break;
    if (isControl) {
      if (!clean.ends_with(' ')) clean += ' ';
    } else if (length == 0) {
      clean += '?';
    } else {
      clean += answer.substr(at, length);
    }
    at += std::max<std::size_t>(length, 1);
  }
  return Trim(clean);
}

std::string SpoolHead(const SpooledMail& mail) {
  std::string head(kFirstLine);
  head += "\ncreated " + DateToText(mail.Created) + "\nfrom " + mail.Sender + "\n";
  for (const SpooledRecipient& recipient : mail.Recipients) {
    head += "to " + recipient.Address + "\n";
  }
  return head + "size " + std::to_string(mail.Size) + "\n\n";
}

SpoolHeadEnd ParseSpoolHead(std::string_view file, SpooledMail& mail, std::size_t& messageAt) {
  SpooledMail fresh;
  fresh.Id = std::move(mail.Id);
  mail = std::move(fresh);
  const std::size_t end = file.find("\n\n");
  if (end == file.npos) {
    const std::string_view front = file.substr(0, kFirstLine.size());
    return kFirstLine.starts_with(front) ? SpoolHeadEnd::Cut : SpoolHeadEnd::Bad;
  }
  messageAt = end + 2;
  std::string_view head = file.substr(0, end + 1);
  if (Take(head, '\n') != kFirstLine) return SpoolHeadEnd::Bad;
  while (!head.empty()) {
    if (!ReadHeadLine(Take(head, '\n'), mail)) return SpoolHeadEnd::Bad;
  }
  if (mail.Created == 0 || mail.Recipients.empty()) return SpoolHeadEnd::Bad;
  for (SpooledRecipient& recipient : mail.Recipients) recipient.NextTry = mail.Created;
  SetNextTry(mail);
  return SpoolHeadEnd::Good;
}

std::string SpoolRecord(const SpooledRecipient& recipient, std::size_t number) {
  const bool waits = recipient.State == SpoolPending;
  return std::string(kStates[recipient.State]) + ' ' + std::to_string(number) + ' ' +
         DateToText(recipient.LastTry) + ' ' + (waits ? DateToText(recipient.NextTry) : "-") + ' ' +
         std::to_string(recipient.ResultClass) + ' ' + std::to_string(recipient.Result) + ' ' +
         CleanAnswer(recipient.Answer) + '\n';
}

std::string ReportedRecord(std::size_t number) {
  return "reported " + std::to_string(number) + "\n";
}

bool ApplySpoolRecords(std::string_view records, SpooledMail& mail, std::size_t& whole) {
  whole = records.rfind('\n') + 1;  // of npos 0
  records = records.substr(0, whole);
  while (!records.empty()) {
    if (!ReadRecord(Take(records, '\n'), mail)) return false;
  }
  SetNextTry(mail);
  return true;
}

}  // namespace netro

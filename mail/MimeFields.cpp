#include "mail/MimeFields.h"

#include <algorithm>

#include "mail/HeaderBlock.h"
#include "mail/MailAddress.h"
#include "mail/RandomText.h"
#include "platform/Address.h"
#include "platform/CodePage.h"
#include "platform/HostInfo.h"
#include "support/DateText.h"
#include "support/MailHeader.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::size_t kLongestMessageID = 900;

bool IsAddressField(std::string_view name) {
  constexpr std::string_view kResent("Resent-");
  constexpr std::string_view kNames[] = {"From", "Sender", "To", "CC", "BCC", "Reply-To"};
  constexpr std::string_view kMoreNames[] = {"Disposition-Notification-To", "Return-Receipt-To",
                                             "Errors-To", "Mail-Followup-To"};
  const auto isIt = [&](std::string_view known) { return EqualsIgnoreCase(name, known); };
  if (std::ranges::any_of(kMoreNames, isIt)) return true;
  if (StartsWithIgnoreCase(name, kResent)) name.remove_prefix(kResent.size());
  return std::ranges::any_of(kNames, isIt);
}

/// Labels of letters, digits, "-" and "_", and a dot between each two.
bool IsDotAtom(std::string_view host) {
  const auto fits = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
           c == '_' || c == '.';
  };
  return !host.empty() && host.front() != '.' && host.back() != '.' &&
         host.find("..") == host.npos && std::ranges::all_of(host, fits);
}

/// The host that a new id names: the sender's, or this one where that is none.
std::string HostOfMessageID(const std::string& from) {
  constexpr std::size_t kLongestHost = 255;
  std::string host = ExtractAddress(from).host;
  std::string_view inside = host;
  if (inside.starts_with('[') && inside.ends_with(']')) {
    inside = inside.substr(1, inside.size() - 2);
    if (ParseAddress(std::string(inside))) return host;
  }
  if (host.size() <= kLongestHost && IsDotAtom(host)) return host;
  host = ReadHostName();
  return IsDotAtom(host) ? host : "localhost";
}

/// RFC 5322, section 3.6.4.
std::string NewMessageID(const std::string& from) {
  const LocalDate now = LocalClock();
  return RandomText(26) + "." + FormatDate(DateFormat::Internal, now.date, now.zone) + "@" +
         HostOfMessageID(from);
}

std::string DateLine(const LocalDate& date) {
  const std::string text = FormatDate(DateFormat::Rfc822, date.date, date.zone);
  if (!text.empty()) return text;
  const LocalDate now = LocalClock();
  return FormatDate(DateFormat::Rfc822, now.date, now.zone);
}

class Fields {
 public:
  Fields(std::string& out, const MimeContent& content) : out_(out), content_(content) {}

  void Append() {
    const auto& [subject, from, to, cc, bcc] = content_.envelope;
    Address("From", from);
    Line("Date: " + DateLine(content_.date));
    Address("To", to);
    if (!subject.empty()) Text("Subject", subject);
    Line("MIME-Version: 1.0");
    if (!cc.empty()) Address("CC", cc);
    if (content_.addBcc && !bcc.empty()) Address("BCC", bcc);
    const std::string id = CleanMessageID(content_.messageID);
    Line("Message-ID: <" + (id.empty() ? NewMessageID(from) : id) + ">");
    for (const auto& [title, value] : content_.headers) Added(title, value);
  }

 private:
  void Added(const std::string& title, const std::string& value) {
    if (IsBlindCopyName(title) && !content_.addBcc) return;
    if (HasFieldOfItsOwn(content_.envelope, title)) return;  // it was added before the rest
    IsAddressField(title) ? Address(title, value) : Text(title, value);
  }

  void Address(std::string_view name, const std::string& value) {
    AppendAddressField(out_, name, Utf8Text(value, content_.charSet).View());
  }

  void Text(std::string_view name, const std::string& value) {
    AppendTextField(out_, name, Utf8Text(value, content_.charSet).View());
  }

  void Line(std::string_view text) { out_.append(text).append("\r\n"); }

  std::string& out_;
  const MimeContent& content_;
};

}  // namespace

Utf8Text::Utf8Text(const std::string& text, const std::string& charSet) : text_(text) {
  if (IsUtf8(text)) return;
  copy_ = ToUtf8(text, charSet);
  text_ = copy_;
}

std::string CleanMessageID(std::string_view id) {
  std::string clean = CharFilter(id, ' ', '~');
  std::erase_if(clean, [](char c) { return c == '<' || c == '>'; });
  clean.resize(std::min(clean.size(), kLongestMessageID));
  return clean;
}

bool HasFieldOfItsOwn(const MimeEnvelope& envelope, std::string_view name) {
  constexpr std::string_view kAlways[] = {"From", "Date", "To", "Message-ID"};
  const auto isIt = [&](std::string_view known) { return EqualsIgnoreCase(name, known); };
  return std::ranges::any_of(kAlways, isIt) || (isIt("Subject") && !envelope.subject.empty()) ||
         (isIt("Cc") && !envelope.cc.empty()) || (isIt("Bcc") && !envelope.bcc.empty());
}

bool StandsOnce(std::string_view name) {
  constexpr std::string_view kNames[] = {"From",       "Sender",      "Reply-To",  "To",
                                         "Cc",         "Bcc",         "Date",      "Subject",
                                         "Message-ID", "In-Reply-To", "References"};
  return std::ranges::any_of(kNames,
                             [&](std::string_view known) { return EqualsIgnoreCase(name, known); });
}

std::size_t RoomForFields(const MimeContent& content) {
  const auto& [subject, from, to, cc, bcc] = content.envelope;
  std::size_t size =
      subject.size() + from.size() + to.size() + cc.size() + bcc.size() + content.messageID.size();
  for (const auto& [title, value] : content.headers) size += title.size() + value.size() + 80;
  return 4 * size;
}

void AppendFields(std::string& out, const MimeContent& content) { Fields(out, content).Append(); }

}  // namespace netro

#include "mail/MimeComposer.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "mail/HeaderBlock.h"
#include "mail/MailAddress.h"
#include "mail/RandomText.h"
#include "platform/Address.h"
#include "platform/CodePage.h"
#include "platform/FileTypes.h"
#include "platform/HostInfo.h"
#include "support/Base64.h"
#include "support/DateText.h"
#include "support/HtmlText.h"
#include "support/MailHeader.h"
#include "support/QuotedPrintable.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::string_view kLineEnd("\r\n");
constexpr std::string_view kUtf8("utf-8");
constexpr std::size_t kRandomLength = 26;
constexpr std::size_t kLongestMessageID = 900;  // so that its line, which cannot be folded, fits

/// A text as UTF-8, copied only when it is not that already.
class Utf8Text {
 public:
  Utf8Text(const std::string& text, const std::string& charSet) : text_(text) {
    if (IsUtf8(text)) return;
    copy_ = ToUtf8(text, charSet);
    text_ = copy_;
  }
  Utf8Text(const Utf8Text&) = delete;
  Utf8Text& operator=(const Utf8Text&) = delete;

  std::string_view View() const { return text_; }

 private:
  std::string copy_;
  std::string_view text_;
};

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

/// The id as it may stand between angle brackets.
std::string CleanMessageID(std::string_view id) {
  std::string clean = CharFilter(id, ' ', '~');
  std::erase_if(clean, [](char c) { return c == '<' || c == '>'; });
  clean.resize(std::min(clean.size(), kLongestMessageID));
  return clean;
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
  return RandomText(kRandomLength) + "." + FormatDate(DateFormat::Internal, now.date, now.zone) +
         "@" + HostOfMessageID(from);
}

std::string NewBoundary() { return "----=_NextPart_" + RandomText(kRandomLength); }

std::string DateLine(const LocalDate& date) {
  const std::string text = FormatDate(DateFormat::Rfc822, date.date, date.zone);
  if (!text.empty()) return text;
  const LocalDate now = LocalClock();
  return FormatDate(DateFormat::Rfc822, now.date, now.zone);
}

std::string ContentTypeOfFile(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  const std::string type =
      dot == name.npos ? std::string() : ContentTypeOf(ToLower(name.substr(dot + 1)));
  return type.empty() ? "application/octet-stream" : type;
}

/// How many bytes at the front, about 64 KiB, end with a line; all of a text in one line.
std::size_t PieceSize(std::string_view text) {
  constexpr std::size_t kPiece = 65536;
  const std::size_t end = text.find('\n', std::min(text.size(), kPiece));
  return end == text.npos ? text.size() : end + 1;
}

/// Encodes piece by piece, so that the text is never held a second time. False, having appended
/// some of it, when the character set cannot hold it.
bool AppendInCharSet(std::string& out, std::string_view utf8, const std::string& charSet) {
  if (EqualsIgnoreCase(charSet, kUtf8)) {
    AppendQuotedPrintable(out, utf8);
    return true;
  }
  do {
    const std::size_t size = PieceSize(utf8);
    const auto piece = ConvertFromUtf8(utf8.substr(0, size), charSet);
    if (!piece) return false;
    AppendQuotedPrintable(out, *piece);
    utf8.remove_prefix(size);
  } while (!utf8.empty());
  return true;
}

std::size_t RoomForFile(const MimeFile& file) {
  const std::size_t letters = (file.bytes.size() + 2) / 3 * 4;
  return letters + (letters / 76 + 1) * kLineEnd.size() + 3 * file.name.size() + 512;
}

class Composer {
 public:
  explicit Composer(const MimeContent& content) : content_(content) {}

  std::string Compose() {
    const Utf8Text text(content_.text, content_.charSet);
    const Utf8Text alternative(content_.alternative, content_.charSet);
    const bool wanting = content_.html && content_.alternative.empty();
    const std::string made = wanting ? HtmlToText(text.View()) : std::string();
    const std::string_view plain = wanting ? made : alternative.View();
    out_.reserve(Room(text.View(), plain));
    Fields();
    const std::string boundary = content_.files.empty() ? std::string() : NewBoundary();
    if (!boundary.empty()) Multipart(boundary);
    if (content_.html) {
      Alternatives(plain, text.View());
    } else {
      TextPart("text/plain", text.View());
      if (!boundary.empty()) out_ += kLineEnd;
    }
    for (const MimeFile& file : content_.files) {
      Delimiter(boundary);
      FilePart(file);
    }
    if (!boundary.empty()) CloseDelimiter(boundary);
    return std::move(out_);
  }

 private:
  std::size_t Room(std::string_view text, std::string_view plain) const {
    const auto& [subject, from, to, cc, bcc] = content_.envelope;
    std::size_t fields = subject.size() + from.size() + to.size() + cc.size() + bcc.size() +
                         content_.messageID.size();
    for (const auto& [title, value] : content_.headers) fields += title.size() + value.size() + 80;
    std::size_t room = 4096 + 4 * fields + QuotedPrintableRoom(text) + QuotedPrintableRoom(plain);
    for (const MimeFile& file : content_.files) room += RoomForFile(file);
    return room;
  }

  void Line(std::string_view text) { out_.append(text).append(kLineEnd); }
  void Delimiter(std::string_view boundary) { Line("--" + std::string(boundary)); }
  void CloseDelimiter(std::string_view boundary) { Line("--" + std::string(boundary) + "--"); }

  void AddressField(std::string_view name, const std::string& value) {
    AppendAddressField(out_, name, Utf8Text(value, content_.charSet).View());
  }

  void TextField(std::string_view name, const std::string& value) {
    AppendTextField(out_, name, Utf8Text(value, content_.charSet).View());
  }

  void Fields() {
    const auto& [subject, from, to, cc, bcc] = content_.envelope;
    AddressField("From", from);
    Line("Date: " + DateLine(content_.date));
    AddressField("To", to);
    if (!subject.empty()) TextField("Subject", subject);
    Line("MIME-Version: 1.0");
    if (!cc.empty()) AddressField("CC", cc);
    if (content_.addBcc && !bcc.empty()) AddressField("BCC", bcc);
    const std::string id = CleanMessageID(content_.messageID);
    Line("Message-ID: <" + (id.empty() ? NewMessageID(from) : id) + ">");
    for (const auto& [title, value] : content_.headers) {
      if (IsBlindCopyName(title) && !content_.addBcc) continue;
      if (HasFieldOfItsOwn(content_.envelope, title)) continue;  // it was added before the rest
      IsAddressField(title) ? AddressField(title, value) : TextField(title, value);
    }
  }

  /// Begins the lines about a part; parameters may follow.
  void ContentType(std::string_view type) { out_.append("Content-Type: ").append(type); }

  void Multipart(const std::string& boundary) {
    const bool related = std::ranges::any_of(content_.files, &MimeFile::related);
    ContentType(related ? "multipart/related" : "multipart/mixed");
    if (related) AppendParameter(out_, "type", "multipart/alternative");
    AppendParameter(out_, "boundary", boundary);
    out_ += "\r\n\r\nThis is a multi-part message in MIME format.\r\n\r\n";
    Delimiter(boundary);
  }

  void Alternatives(std::string_view plain, std::string_view html) {
    const std::string boundary = NewBoundary();
    ContentType("multipart/alternative");
    AppendParameter(out_, "boundary", boundary);
    out_ += "\r\n\r\n";
    Delimiter(boundary);
    TextPart("text/plain", plain);
    out_ += kLineEnd;
    Delimiter(boundary);
    TextPart("text/html", html);
    out_ += kLineEnd;
    CloseDelimiter(boundary);
  }

  void TextPart(std::string_view type, std::string_view utf8) {
    const std::size_t begin = out_.size();
    TextHead(type, content_.charSet);
    if (!AppendInCharSet(out_, utf8, content_.charSet)) {
      out_.resize(begin);
      TextHead(type, kUtf8);
      AppendQuotedPrintable(out_, utf8);
    }
    if (!out_.ends_with(kLineEnd)) out_ += kLineEnd;
  }

  void TextHead(std::string_view type, std::string_view charSet) {
    ContentType(type);
    AppendParameter(out_, "charset", charSet);
    out_ += "\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n";
  }

  void FilePart(const MimeFile& file) {
    ContentType(ContentTypeOfFile(file.name));
    AppendParameter(out_, "name", file.name);
    out_ += "\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: ";
    out_ += file.related ? "inline" : "attachment";
    AppendParameter(out_, "filename", file.name);
    out_ += kLineEnd;
    if (file.related && !file.name.empty()) {
      Line("Content-ID: <" + file.name.substr(0, kLongestMessageID) + ">");
    }
    out_ += kLineEnd;
    file.bytes.empty() ? Line("") : AppendBase64Lines(out_, file.bytes);
  }

  const MimeContent& content_;
  std::string out_;
};

}  // namespace

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

std::string ComposeMime(const MimeContent& content) { return Composer(content).Compose(); }

}  // namespace netro

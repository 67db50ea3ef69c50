#include "mail/MimeComposer.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "mail/MimeFields.h"
#include "mail/RandomText.h"
#include "platform/CodePage.h"
#include "platform/FileTypes.h"
#include "support/HtmlText.h"
#include "support/MailHeader.h"
#include "support/QuotedPrintable.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kLineEnd("\r\n");
constexpr std::string_view kUtf8("utf-8");
constexpr std::size_t kRandomLength = 26;

std::string NewBoundary() { return "----=_NextPart_" + RandomText(kRandomLength); }

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

class Composer {
 public:
  explicit Composer(const MimeContent& content) : content_(content) {}

  MimeText Compose() {
    const Utf8Text text(content_.text, content_.charSet);
    const Utf8Text alternative(content_.alternative, content_.charSet);
    const bool wanting = content_.html && content_.alternative.empty();
    const std::string made = wanting ? HtmlToText(text.View()) : std::string();
    const std::string_view plain = wanting ? made : alternative.View();
    out_.reserve(4096 + RoomForFields(content_) + QuotedPrintableRoom(text.View()) +
                 QuotedPrintableRoom(plain));
    AppendFields(out_, content_);
    content_.files.empty() ? Texts(plain, text.View()) : Parts(plain, text.View());
    Flush();
    return std::move(mime_);
  }

 private:
  void Texts(std::string_view plain, std::string_view text) {
    content_.html ? Alternatives(plain, text) : TextPart("text/plain", text);
  }

  void Parts(std::string_view plain, std::string_view text) {
    const std::string boundary = NewBoundary();
    Multipart(boundary);
    Texts(plain, text);
    if (!content_.html) out_ += kLineEnd;
    for (const MimeFile& file : content_.files) {
      Delimiter(boundary);
      FilePart(file);
    }
    CloseDelimiter(boundary);
  }

  void Line(std::string_view text) { out_.append(text).append(kLineEnd); }
  void Delimiter(std::string_view boundary) { Line("--" + std::string(boundary)); }
  void CloseDelimiter(std::string_view boundary) { Line("--" + std::string(boundary) + "--"); }

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
      Line("Content-ID: <" + CleanMessageID(file.name) + ">");
    }
    out_ += kLineEnd;
    Flush();
    mime_.AddFile(file.bytes);
    if (file.bytes.size == 0) Line("");
  }

  void Flush() { mime_.AddText(std::exchange(out_, {})); }

  const MimeContent& content_;
  MimeText mime_;
  std::string out_;  // text that is not in it yet
};

}  // namespace

MimeText ComposeMime(const MimeContent& content) { return Composer(content).Compose(); }

}  // namespace netro

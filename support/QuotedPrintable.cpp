// Quoted-printable for text (RFC 2045, section 6.7). Thread: any.

#include "support/QuotedPrintable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace netro {
namespace {

constexpr std::size_t kLongestLine = 76;
constexpr std::size_t kStep = 8;  // characters looked at together

constexpr bool IsPlain(std::uint8_t c) { return (c >= ' ' && c <= '~' && c != '=') || c == '\t'; }

enum class Kind : std::uint8_t { Encoded, Plain, LineEnd };

constexpr std::array<Kind, 256> kKinds = [] {
  std::array<Kind, 256> kinds{};
  for (std::size_t c = 0; c < kinds.size(); ++c) {
    if (IsPlain(static_cast<std::uint8_t>(c))) kinds[c] = Kind::Plain;
  }
  kinds['\r'] = kinds['\n'] = Kind::LineEnd;
  return kinds;
}();

Kind KindOf(char c) { return kKinds[static_cast<std::uint8_t>(c)]; }

using Triple = std::array<char, 3>;

constexpr std::array<Triple, 256> kTriples = [] {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::array<Triple, 256> triples{};
  for (std::size_t c = 0; c < triples.size(); ++c)
    triples[c] = {'=', kDigits[c >> 4], kDigits[c & 15]};
  return triples;
}();

/// True when all of eight characters are plain, tabs excepted: one test for each way not to be so,
/// which leaves a mark in the highest bit of a byte. A false alarm costs nothing but time.
bool AreEightPlain(const char* at) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  std::uint64_t eight = 0;
  std::memcpy(&eight, at, sizeof eight);
  const std::uint64_t equalSigns = eight ^ (kOnes * '=');
  const std::uint64_t marks =
      (eight - kOnes * ' ') | (eight + kOnes) | eight | (equalSigns - kOnes);
  return (marks & (kOnes * 0x80)) == 0;
}

/// The end of the run of characters that may stand for themselves.
std::size_t EndOfPlain(std::string_view text, std::size_t at) {
  while (true) {
    while (text.size() - at >= kStep && AreEightPlain(text.data() + at)) at += kStep;
    const std::size_t stop = std::min(at + kStep, text.size());
    while (at < stop && KindOf(text[at]) == Kind::Plain) ++at;
    if (at < stop || at == text.size()) return at;
  }
}

bool EndsLine(std::string_view text, std::size_t at) {
  return at == text.size() || KindOf(text[at]) == Kind::LineEnd;
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

/// Writes pieces of a line of the text and breaks it where it becomes too long. `endsLine` tells
/// that nothing of the line follows a piece, which then needs no place for "=" behind it.
class LineWriter {
 public:
  explicit LineWriter(std::string& out) : out_(out) {}

  void Plain(std::string_view piece, bool endsLine) {
    while (!piece.empty()) {
      if (used_ == 0 && (piece.front() == '.' || piece.starts_with("From "))) {
        Encoded(piece.front(), endsLine && piece.size() == 1);
        piece.remove_prefix(1);
        continue;
      }
      const std::size_t room = Room(endsLine && piece.size() <= Room(true));
      const std::string_view taken = piece.substr(0, room);
      Put(taken.data(), taken.size());
      piece.remove_prefix(taken.size());
      if (!piece.empty()) BreakLine();
    }
  }

  void Encoded(char c, bool endsLine) {
    const Triple& triple = kTriples[static_cast<std::uint8_t>(c)];
    if (Room(endsLine) < triple.size()) BreakLine();
    Put(triple.data(), triple.size());
  }

  void EndLine() {
    Put("\r\n", 2);
    Finish();
  }

  void Finish() {
    out_.append(line_.data(), used_);
    used_ = 0;
  }

 private:
  std::size_t Room(bool endsLine) const { return kLongestLine - used_ - (endsLine ? 0 : 1); }

  void BreakLine() {
    Put("=\r\n", 3);
    Finish();
  }

  void Put(const char* text, std::size_t size) {
    std::memcpy(line_.data() + used_, text, size);
    used_ += size;
  }

  std::string& out_;
  std::array<char, kLongestLine + 2> line_;
  std::size_t used_ = 0;  // at most 75 before a piece that must follow
};

}  // namespace

std::size_t QuotedPrintableRoom(std::string_view text) {
  std::size_t encoded = 0;  // line ends among them, which may need as much
  for (std::string_view left = text; !left.empty();
       left = left.substr(std::min(left.size(), kStep))) {
    if (left.size() >= kStep && AreEightPlain(left.data())) continue;
    for (const char c : left.substr(0, kStep)) encoded += KindOf(c) == Kind::Plain ? 0 : 1;
  }
  const std::size_t size = text.size() + 2 * encoded;
  return size + size / 24 + 16;  // 3 for every 73 at least
}

void AppendQuotedPrintable(std::string& out, std::string_view text) {
  LineWriter writer(out);
  for (std::size_t at = 0; at < text.size();) {
    switch (KindOf(text[at])) {
      case Kind::Encoded:
        writer.Encoded(text[at], EndsLine(text, at + 1));
        ++at;
        break;
      case Kind::LineEnd:
        writer.EndLine();
        at += text.substr(at).starts_with("\r\n") ? 2 : 1;
        break;
      case Kind::Plain:
        const std::size_t end = EndOfPlain(text, at + 1);
        const bool last = EndsLine(text, end);
        const std::size_t hidden = last && IsBlank(text[end - 1]) ? 1 : 0;
        writer.Plain(text.substr(at, end - at - hidden), last && hidden == 0);
        if (hidden > 0) writer.Encoded(text[end - 1], true);
        at = end;
        break;
    }
  }
  writer.Finish();
}

}  // namespace netro

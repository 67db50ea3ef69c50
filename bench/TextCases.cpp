// Encodings of mail, each run over the same 10 MB several times and into the same memory, so that
// neither the system's pages nor the allocator show. What is set against them does the least that
// there is to do: it copies.

#include "bench/TextCases.h"

#include <cstddef>
#include <string>
#include <string_view>

#include "bench/Cases.h"
#include "support/Base64.h"
#include "support/QuotedPrintable.h"

namespace netro::bench {
namespace {

constexpr std::size_t kSize = 10'000'000;
constexpr int kRounds = 20;

std::string Repeated(std::string_view line) {
  std::string text;
  while (text.size() < kSize) {
    text += line;
  }
  text.resize(kSize);
  return text;
}

void Copy(std::string& out, std::string_view bytes) { out += bytes; }

using Append = void (*)(std::string& out, std::string_view bytes);

std::string Run(Append append, std::string_view line, Stopwatch& watch) {
  const std::string bytes = Repeated(line);
  std::string out;
  append(out, bytes);
  watch.Start();
  for (int i = 0; i < kRounds; ++i) {
    out.clear();
    append(out, bytes);
  }
  watch.Stop();
  return out.size() < bytes.size() ? "less than what went in" : "";
}

void AppendLines(std::string& out, std::string_view bytes) {
  const std::size_t before = out.size();
  out.resize(before + Base64LinesSize(bytes.size()));
  EncodeBase64Lines(bytes, out.data() + before);
}

void Add(const std::string& name, Append append, std::string_view line,
         const std::string& against) {
  AddCase({name, append == Copy ? "memory" : "netro", "MB", kRounds * kSize / 1e6, against,
           [append, line](Stopwatch& watch) { return Run(append, line, watch); }});
}

}  // namespace

void AddTextCases() {
  constexpr std::string_view kEnglish =
      "Dear reader, this is a line of plain text as letters have them, 80 long or so = ok\r\n";
  constexpr std::string_view kGerman = "Grüße aus Köln: fünf Äpfel für die schöne Frau Müller.\r\n";
  constexpr std::string_view kBytes = "\x89PNG\r\n\x1A\n\0\0\0\rIHDR\xFF\xE8\x9C";
  Add("plain copy", Copy, kEnglish, "");
  Add("Base64 in lines", AppendLines, kBytes, "plain copy/memory");
  Add("quoted-printable, ASCII", AppendQuotedPrintable, kEnglish, "plain copy/memory");
  Add("quoted-printable, German", AppendQuotedPrintable, kGerman, "plain copy/memory");
}

}  // namespace netro::bench

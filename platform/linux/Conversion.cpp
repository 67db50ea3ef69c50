#include "platform/Conversion.h"

#include <iconv.h>
#include <langinfo.h>
#include <locale.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "support/Text.h"

namespace netro {
namespace {

/// One conversion of the system's, from its first to its last character.
class Converter {
 public:
  Converter(std::string_view to, std::string_view from)
      : handle_(iconv_open(std::string(to).c_str(), std::string(from).c_str())) {}
  ~Converter() {
    if (IsOpen()) iconv_close(handle_);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  std::optional<std::string> Convert(std::string_view text) {
    std::string out;
    if (!IsOpen()) return std::nullopt;
    out.reserve(text.size());
    auto* from = const_cast<char*>(text.data());  // iconv only reads it
    std::size_t left = text.size();
    // With no input at the end, sets with shift states go back to the first one.
    if (!Run(&from, &left, out) || !Run(nullptr, nullptr, out)) return std::nullopt;
    return out;
  }

 private:
  bool IsOpen() const { return reinterpret_cast<std::intptr_t>(handle_) != -1; }

  /// False for what has no place in the other set, or is replaced there by something like it.
  bool Run(char** from, std::size_t* left, std::string& out) {
    std::array<char, 4096> block;
    while (true) {
      char* to = block.data();
      std::size_t room = block.size();
      const std::size_t replaced = iconv(handle_, from, left, &to, &room);
      const bool full = replaced == static_cast<std::size_t>(-1) && errno == E2BIG;
      out.append(block.data(), to);
      if (!full) return replaced == 0;
    }
  }

  iconv_t handle_;
};

/// The locale's name after LC_ALL, LC_CTYPE and LANG, of which the first that is set counts.
std::string LocaleName() {
  for (const char* const variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return value;
  }
  return {};
}

/// What stands in "de_DE.iso88591@euro" for a locale that is not installed.
std::string CodeSetOfName(std::string_view locale) {
  const std::size_t dot = locale.find('.');
  if (dot == locale.npos) return {};
  return std::string(locale.substr(dot + 1, locale.find('@') - dot - 1));
}

std::string SystemCodeSet() {
  const locale_t locale = newlocale(LC_CTYPE_MASK, "", locale_t{});
  if (locale == locale_t{}) return CodeSetOfName(LocaleName());
  std::string name = nl_langinfo_l(CODESET, locale);
  freelocale(locale);
  return name;
}

/// The system's name for a set in the form of MIME, in lower case.
std::string MimeName(std::string_view systemName) {
  const std::string name = ToLower(systemName);
  if (name == "sjis") return "shift_jis";
  if (name.starts_with("ansi_x3.4") || name.empty() || IsUtf8Name(name)) return std::string(kUtf8);
  if (name.starts_with("cp125")) return "windows-" + name.substr(2);
  constexpr std::string_view kIso = "iso8859";
  if (!name.starts_with(kIso)) return name;
  const std::string part = name.substr(kIso.size());
  return "iso-8859-" + part.substr(part.starts_with('-') ? 1 : 0);
}

}  // namespace

std::optional<std::string> FromUtf8BySystem(std::string_view utf8, std::string_view charSet) {
  return Converter(charSet, kUtf8).Convert(utf8);
}

std::optional<std::string> ToUtf8BySystem(std::string_view text, std::string_view charSet) {
  return Converter(kUtf8, charSet).Convert(text);
}

std::string SystemCharSet() { return MimeName(SystemCodeSet()); }

}  // namespace netro

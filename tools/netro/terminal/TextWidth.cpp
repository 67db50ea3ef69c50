// Texts cut and filled to columns.

#include "terminal/TextWidth.h"

#include <algorithm>

namespace netro::tool {
namespace {

bool IsInsideCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

std::string_view FirstCharacters(std::string_view text, std::size_t characters) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!IsInsideCharacter(text[i]) && characters-- == 0) return text.substr(0, i);
  }
  return text;
}

std::string_view LastCharacters(std::string_view text, std::size_t characters) {
  const std::string_view before = FirstCharacters(text, CharacterCount(text) - characters);
  return text.substr(before.size());
}

}  // namespace

std::size_t CharacterCount(std::string_view text) {
  const auto inside = std::ranges::count_if(text, IsInsideCharacter);
  return text.size() - static_cast<std::size_t>(inside);
}

std::string Shortened(std::string_view text, std::size_t characters) {
  if (CharacterCount(text) <= characters) return std::string(text);
  return characters == 0 ? "" : std::string(FirstCharacters(text, characters - 1)) + "…";
}

std::string Fitted(std::string_view text, std::size_t characters) {
  std::string fitted = Shortened(text, characters);
  return fitted.append(characters - CharacterCount(fitted), ' ');
}

std::string ShortenedInside(std::string_view text, std::size_t characters) {
  if (characters == 0 || CharacterCount(text) <= characters) return Shortened(text, characters);
  const std::size_t last = characters / 2;
  return std::string(FirstCharacters(text, characters - 1 - last))
      .append("…")
      .append(LastCharacters(text, last));
}

}  // namespace netro::tool

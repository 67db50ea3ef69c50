#include "terminal/Nearest.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace netro::tool {
namespace {

constexpr std::size_t kLongest = 64;  // of a word that is worth a comparison

// Letters put in, left out, or taken for others (the distance of Levenshtein), a row at a time.
std::size_t Changes(std::string_view from, std::string_view to) {
  std::vector<std::size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < from.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, diagonal + 1, replaced});
    }
  }
  return row.back();
}

}  // namespace

std::string Nearest(std::string_view word, const std::vector<std::string>& known) {
  std::string nearest;
  if (word.size() > kLongest) return nearest;
  std::size_t fewest = (word.size() + 2) / 3 + 1;
  for (const std::string& other : known) {
    const std::size_t changes = Changes(word, other);
    if (changes < fewest) nearest = other;
    fewest = std::min(fewest, changes);
  }
  return nearest;
}

}  // namespace netro::tool

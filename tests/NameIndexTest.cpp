// The index of names against the standard map: added and removed in random order, so that searches
// run over gaps, moved items and the end of the array.
#include <cctype>
#include <random>

#include "TestKit.h"
#include "support/NameIndex.h"

namespace netro {
namespace {

struct NameOf {
  std::string_view operator()(const std::string* item) const { return *item; }
};
using Index = NameIndex<const std::string*, NameOf>;

std::string InCapitals(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  });
  return text;
}

TEST(NameIndex, FindsWithoutCase) {
  Index index;
  EXPECT_EQ(index.Find("a"), nullptr);
  const std::string first = "First", empty;
  index.Add(&first);
  index.Add(&empty);
  ASSERT_NE(index.Find("fIRST"), nullptr);
  EXPECT_EQ(*index.Find("fIRST"), &first);
  EXPECT_EQ(*index.Find(""), &empty);
  EXPECT_EQ(index.Find("Firs"), nullptr);
  index.Remove("FIRST");
  EXPECT_EQ(index.Find("First"), nullptr);
  EXPECT_EQ(*index.Find(""), &empty);
  index.Clear();
  EXPECT_EQ(index.Find(""), nullptr);
  index.Add(&first);
  EXPECT_EQ(*index.Find("first"), &first);
}

TEST(NameIndex, AgreesWithAMap) {
  std::mt19937 random(1);
  for (const unsigned names : {3u, 10u, 100u, 1000u}) {
    Index index;
    std::map<std::string, std::string> map;  // the items too: they stay where they are
    for (unsigned step = 0; step < 30 * names; ++step) {
      const std::string name = "n" + std::to_string(random() % names);
      if (const auto found = map.find(name); found != map.end()) {
        index.Remove(InCapitals(name));
        map.erase(found);
      } else {
        index.Add(&map.emplace(name, InCapitals(name)).first->second);
      }
      for (unsigned i = 0; step % (names / 3) == 0 && i < names; ++i) {
        const std::string other = "n" + std::to_string(i);
        const auto* const item = index.Find(other);
        ASSERT_EQ(item != nullptr, map.contains(other)) << other << " of " << names;
        if (item != nullptr) {
          ASSERT_EQ(*item, &map[other]);
        }
      }
    }
  }
}

}  // namespace
}  // namespace netro

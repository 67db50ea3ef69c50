// References against a base, origins, and URLs for showing.
#include "TestKit.h"
#include "support/UrlReference.h"

namespace netro {
namespace {

// RFC 3986, sections 5.4.1 and 5.4.2; then empty segments and components, and what only looks like
// a scheme.
TEST(UrlReference, ResolvesTheExamplesOfTheRfc) {
  const std::pair<const char*, const char*> kCases[] = {
      {"g:h", "g:h"},
      {"g", "http://a/b/c/g"},
      {"./g", "http://a/b/c/g"},
      {"g/", "http://a/b/c/g/"},
      {"/g", "http://a/g"},
      {"//g", "http://g"},
      {"?y", "http://a/b/c/d;p?y"},
      {"g?y", "http://a/b/c/g?y"},
      {"#s", "http://a/b/c/d;p?q#s"},
      {"g#s", "http://a/b/c/g#s"},
      {"g?y#s", "http://a/b/c/g?y#s"},
      {";x", "http://a/b/c/;x"},
      {"g;x", "http://a/b/c/g;x"},
      {"g;x?y#s", "http://a/b/c/g;x?y#s"},
      {"", "http://a/b/c/d;p?q"},
      {".", "http://a/b/c/"},
      {"./", "http://a/b/c/"},
      {"..", "http://a/b/"},
      {"../", "http://a/b/"},
      {"../g", "http://a/b/g"},
      {"../..", "http://a/"},
      {"../../", "http://a/"},
      {"../../g", "http://a/g"},
      {"../../../g", "http://a/g"},
      {"../../../../g", "http://a/g"},
      {"/./g", "http://a/g"},
      {"/../g", "http://a/g"},
      {"g.", "http://a/b/c/g."},
      {".g", "http://a/b/c/.g"},
      {"g..", "http://a/b/c/g.."},
      {"..g", "http://a/b/c/..g"},
      {"./../g", "http://a/b/g"},
      {"./g/.", "http://a/b/c/g/"},
      {"g/./h", "http://a/b/c/g/h"},
      {"g/../h", "http://a/b/c/h"},
      {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
      {"g;x=1/../y", "http://a/b/c/y"},
      {"g?y/./x", "http://a/b/c/g?y/./x"},
      {"g?y/../x", "http://a/b/c/g?y/../x"},
      {"g#s/./x", "http://a/b/c/g#s/./x"},
      {"g#s/../x", "http://a/b/c/g#s/../x"},
      {"http:g", "http:g"},
      {"g//../h", "http://a/b/c/g/h"},
      {"//g/..", "http://g/"},
      {"//g/../x", "http://g/x"},
      {"?", "http://a/b/c/d;p?"},
      {"1:2", "http://a/b/c/1:2"},
      {"./g:h", "http://a/b/c/g:h"},
      {"https://u:p@h:1/x/../y?q", "https://u:p@h:1/y?q"}};
  for (const auto& [reference, target] : kCases)
    EXPECT_EQ(ResolveReference("http://a/b/c/d;p?q", reference), target) << reference;
  EXPECT_EQ(ResolveReference("http://a", "g"), "http://a/g");
  EXPECT_EQ(ResolveReference("http://a?q", "?r"), "http://a?r");
  EXPECT_EQ(ResolveReference("http://a/b#f", ""), "http://a/b");
}

TEST(UrlReference, TheOriginIsProtocolHostAndPort) {
  const std::tuple<const char*, const char*, bool> kCases[] = {
      {"http://h/x", "http://H:80/y?z", true}, {"https://h/", "HTTPS://h:443/", true},
      {"http://h/", "https://h/", false},      {"https://h/", "https://h:80/", false},
      {"http://h/", "http://h:8080/", false},  {"http://h/", "http://h.example/", false},
      {"http://u:p@h/", "http://h/", true},    {"http://[::1]:80/", "http://[::1]/", true},
      {"http://h:443/", "https://h/", false},
  };
  for (const auto& [a, b, same] : kCases)
    EXPECT_EQ(SameOrigin(SplitUrl(a).url, SplitUrl(b).url), same) << a << " " << b;
}

TEST(UrlReference, ShowsNoUserInformation) {
  const std::tuple<const char*, const char*, const char*> kCases[] = {
      {"https://u:p@h/x?q#f", "https://h/x?q", "https://h/x?q#f"},
      {"u:p@h:8080", "http://h:8080/", "h:8080"},
      {"//u@h", "http://h/", "//h"},
      {"HTTPS://h:443", "https://h/", "HTTPS://h:443"},
      {"https://h:80/", "https://h:80/", "https://h:80/"},
      {"http://h/a@b?c@d", "http://h/a@b?c@d", "http://h/a@b?c@d"},
      {"h?u=x://y@z", "http://h/?u=x://y@z", "h?u=x://y@z"},
      {"http://u:a@b@h/", "http://h/", "http://h/"},
      {"http://u:p@[fe80::1%25eth0]:1/", "http://[fe80::1%25eth0]:1/",
       "http://[fe80::1%25eth0]:1/"},
      // Not URLs.
      {"http://u:pa/ss@h/", nullptr, "http://h/"},
      {"http://u:p@h:x/", nullptr, "http://h:x/"},
      {"u:p?w@h:x", nullptr, "h:x"},
      {"u:p://w@h/", nullptr, "h/"},
      {"http://\x1B[1m\r\n", nullptr, "http://?[1m??"},
      {"", nullptr, ""}};
  for (const auto& [text, whole, shown] : kCases) {
    EXPECT_EQ(ShownUrl(text), shown) << text;
    const UrlResult split = SplitUrl(text);
    EXPECT_EQ(split.error.empty(), whole != nullptr) << text;
    if (whole == nullptr) continue;
    EXPECT_EQ(UrlText(split.url), whole) << text;
    EXPECT_TRUE(SameOrigin(SplitUrl(whole).url, split.url)) << text;
  }
}

}  // namespace
}  // namespace netro

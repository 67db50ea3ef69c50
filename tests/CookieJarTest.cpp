// Cookies: what is taken, where it goes, what pushes it out, and the file.
#include <netro/CookieJar.h>

#include "TestKit.h"
#include "tests/SystemKit.h"
#include "web/CookieStore.h"
#include "web/SetCookie.h"

namespace netro {
namespace {

TEST(CookieJar, CookiesGoWhereTheyBelong) {
  const struct {
    const char *setCookie, *from, *to;
    const char* header;  // null: refused
  } kCases[] = {
      {"a=1", "http://h.example/", "http://h.example/x", "a=1"},
      {" a = 1 ; x", "http://h.example", "http://H.Example:8080/", "a=1"},
      {"a=", "http://h.example", "http://h.example", "a="},
      {"a=\"q,r s\"", "http://h.example", "http://h.example", "a=\"q,r s\""},
      {"a", "http://h.example", "", nullptr},
      {"", "http://h.example", "", nullptr},
      {"a=\x01", "http://h.example", "", nullptr},
      {"a=1\r\nX: y", "http://h.example", "", nullptr},
      {"a=1; Path=/\x7F", "http://h.example", "", nullptr},
      {"a=1", "http://", "", nullptr},
      // Domains.
      {"a=1", "http://h.example/", "http://www.h.example/", ""},
      {"a=1; Domain=h.example", "http://h.example/", "http://www.h.example/", "a=1"},
      {"a=1; domain=.H.EXAMPLE", "http://www.h.example/", "http://other.h.example/", "a=1"},
      {"a=1; Domain=h.example", "http://h.example/", "http://badh.example/", ""},
      {"a=1; Domain=", "http://h.example/", "http://www.h.example/", ""},
      {"a=1; Domain=www.h.example", "http://h.example/", "", nullptr},
      {"a=1; Domain=other.example", "http://h.example/", "", nullptr},
      {"a=1; Domain=example", "http://h.example/", "", nullptr},
      {"a=1; Domain=example.", "http://h.example./", "", nullptr},
      {"a=1; Domain=localhost", "http://localhost/", "http://localhost/", "a=1"},
      {"a=1; Domain=localhost", "http://localhost/", "http://www.localhost/", ""},
      {"a=1; Domain=127.0.0.1", "http://127.0.0.1/", "http://127.0.0.1:81/", "a=1"},
      {"a=1; Domain=0.0.1", "http://127.0.0.1/", "", nullptr},
      {"a=1", "http://[::1]/", "http://[::1]:81/", "a=1"},
      {"a=1", "http://.example/", "", nullptr},
      {"a=1; Domain=..h.example", "http://h.example/", "", nullptr},
      // Paths.
      {"a=1", "http://h.example/a/b", "http://h.example/a/c", "a=1"},
      {"a=1", "http://h.example/a/b", "http://h.example/a", "a=1"},
      {"a=1", "http://h.example/a/b", "http://h.example/ab", ""},
      {"a=1", "http://h.example/a", "http://h.example/", "a=1"},
      {"a=1; Path=/a/", "http://h.example/", "http://h.example/a", ""},
      {"a=1; Path=/a", "http://h.example/", "http://h.example/a/b?q", "a=1"},
      {"a=1; Path=/a; Path=x", "http://h.example/b/", "http://h.example/b/", "a=1"},
      {"a=1; Path=/a", "http://h.example/", "http://h.example/A", ""},
      // Secure and prefixes.
      {"a=1; Secure", "https://h.example/", "http://h.example/", ""},
      {"a=1; SECURE; HttpOnly", "https://h.example/", "https://h.example/", "a=1"},
      {"a=1; Secure", "http://h.example/", "", nullptr},
      {"__Secure-a=1; Secure", "https://h.example/", "https://h.example/", "__Secure-a=1"},
      {"__secure-a=1", "https://h.example/", "", nullptr},
      {"__Host-a=1; Secure; Path=/", "https://h.example/", "https://h.example/", "__Host-a=1"},
      {"__Host-a=1; Secure", "https://h.example/", "", nullptr},
      {"__Host-a=1; Path=/", "https://h.example/", "", nullptr},
      {"__HOST-a=1; Secure; Path=/; Domain=h.example", "https://h.example/", "", nullptr},
      // Dates.
      {"a=1; Expires=Fri, 31 Dec 9999 23:59:59 GMT", "http://h.example", "http://h.example", "a=1"},
      {"a=1; Expires=Thu, 01 Jan 1970 00:00:00 GMT", "http://h.example", "http://h.example", ""},
      {"a=1; Expires=never", "http://h.example", "http://h.example", "a=1"},
      {"a=1; Max-Age=0", "http://h.example", "http://h.example", ""},
      {"a=1; Max-Age=-99999999999999999999", "http://h.example", "http://h.example", ""},
      {"a=1; Max-Age=9223372036854775807", "http://h.example", "http://h.example", "a=1"},
      {"a=1; Max-Age=9; Expires=Thu, 01 Jan 1970 00:00:00 GMT", "http://h.example",
       "http://h.example", "a=1"},
      {"a=1; Max-Age=x; Max-Age=", "http://h.example", "http://h.example", "a=1"},
  };
  for (const auto& [setCookie, from, to, header] : kCases) {
    SCOPED_TRACE(std::string(setCookie) + " from " + from);
    CookieJar jar;
    EXPECT_EQ(jar.Take(setCookie, from), header != nullptr);
    EXPECT_EQ(jar.CookieHeader(to), header == nullptr ? "" : header);
  }
}

TEST(CookieJar, LongerPathsGoFirstThenOlderCookies) {
  CookieJar jar;
  const char* const url = "http://www.h.example/a/b/";
  for (const char* one : {"old=1; Path=/", "deep=2; Path=/a/b", "new=3; Path=/; Domain=h.example",
                          "old=4; Path=/", "mid=5; Path=/a"}) {
    EXPECT_TRUE(jar.Take(one, url));
  }
  EXPECT_EQ(jar.CookieHeader(url), "deep=2; mid=5; old=4; new=3");
  EXPECT_TRUE(jar.Take("deep=; Path=/a/b; Max-Age=0", url));
  EXPECT_EQ(jar.CookieHeader(url), "mid=5; old=4; new=3");
}

TEST(CookieJar, CookiesEndWithTheirTimeOrTheSession) {
  CookieJar jar;
  const char* const url = "http://h.example/";
  jar.Take("short=1; Max-Age=10", url);
  jar.Take("long=2; Max-Age=1000", url);
  jar.Take("session=3", url);
  EXPECT_EQ(jar.Count(), 3u);
  AdvanceClockForTests(std::chrono::seconds(11));
  EXPECT_EQ(jar.CookieHeader(url), "long=2; session=3");
  jar.ClearSession();
  EXPECT_EQ(jar.CookieHeader(url), "long=2");
  jar.Clear();
  EXPECT_EQ(jar.Count(), 0u);
}

TEST(CookieJar, NoSecureCookieIsReplacedFromClear) {
  CookieJar jar;
  ASSERT_TRUE(jar.Take("a=secret; Secure; Path=/x; Domain=h.example", "https://h.example/"));
  EXPECT_FALSE(jar.Take("a=forged; Path=/x", "http://h.example/"));
  EXPECT_FALSE(jar.Take("a=; Max-Age=0; Path=/x; Domain=h.example", "http://h.example/"));
  EXPECT_FALSE(jar.Take("a=forged; Path=/x/y", "http://www.h.example/"));
  EXPECT_TRUE(jar.Take("a=other; Path=/", "http://h.example/"));
  EXPECT_EQ(jar.CookieHeader("https://h.example/x"), "a=secret; a=other");
  EXPECT_TRUE(jar.Take("a=mine; Path=/x; Domain=h.example", "https://h.example/"));
  EXPECT_EQ(jar.CookieHeader("http://h.example/x"), "a=mine; a=other");
}

TEST(CookieJar, SizesHaveLimits) {
  CookieJar jar;
  const std::string url = "http://h.example/";
  EXPECT_TRUE(jar.Take("a=" + std::string(4095, 'x'), url));
  EXPECT_FALSE(jar.Take("b=" + std::string(4096, 'x'), url));
  EXPECT_TRUE(jar.Take("c=1; Path=/" + std::string(1024, 'p'), url));  // an attribute is left out
  EXPECT_NE(jar.CookieHeader(url).find("c=1"), std::string::npos);

  jar.Clear();
  jar.Take("keep=1; Secure", "https://h.example/");
  for (int i = 0; i < 60; ++i) {
    jar.Take("n" + std::to_string(i) + "=v", url);
    if (i > 0) jar.CookieHeader(url + "none");
  }
  EXPECT_EQ(jar.Count(), 50u);
  EXPECT_TRUE(jar.CookieHeader("https://h.example/").starts_with("keep=1; "));
  EXPECT_TRUE(jar.CookieHeader(url).ends_with("n59=v"));

  for (int i = 0; i < 3100; ++i) jar.Take("a=1", "http://h" + std::to_string(i) + ".example/");
  EXPECT_EQ(jar.Count(), 3000u);
  EXPECT_EQ(jar.CookieHeader("http://h3099.example/"), "a=1");
  EXPECT_EQ(jar.CookieHeader("http://h0.example/"), "");
}

struct CookieFile : testing::Test {
  std::string LoadError(const std::string& text) {
    WriteFile(path_, text);
    jar_.Load(path_);
    return jar_.ErrorText();
  }

  TemporaryFolder folder_;
  std::string path_ = folder_ / "cookies.txt";
  CookieJar jar_;
};

TEST_F(CookieFile, ComesBackAsWritten) {
  jar_.Take("a=1; Expires=Fri, 31 Dec 2060 23:59:59 GMT; Domain=h.example; HttpOnly; Secure",
            "https://www.h.example/x/y");
  jar_.Take("b=\"2 \"; Path=/", "http://[::1]:81/");
  jar_.Take("c=", "http://localhost/");
  jar_.Take("gone=1; Max-Age=5", "http://localhost/");
  AdvanceClockForTests(std::chrono::seconds(6));
  ASSERT_EQ(jar_.Save(path_), 0);
  EXPECT_TRUE(HasMode(path_, 0600));
  const std::string text = ReadFile(path_);
  EXPECT_EQ(text.substr(text.find("\n\n") + 2),
            "#HttpOnly_.h.example\tTRUE\t/x\tTRUE\t2871763199\ta\t1\n"
            "::1\tFALSE\t/\tFALSE\t0\tb\t\"2 \"\n"
            "localhost\tFALSE\t/\tFALSE\t0\tc\t\n");
  CookieJar other;
  ASSERT_EQ(other.Load(path_), 0) << other.ErrorText();
  EXPECT_EQ(other.CookieHeader("https://h.example/x"), "a=1");
  EXPECT_EQ(other.CookieHeader("http://localhost/"), "c=");
  ASSERT_EQ(other.Save(path_), 0);
  EXPECT_EQ(ReadFile(path_), text);
}

TEST_F(CookieFile, TakesWhatOtherProgramsWrite) {
  EXPECT_EQ(LoadError("# comment\r\n\r\n"
                      ".H.example\ttrue\t/\tfalse\t0\tx\r\n"
                      "com\tTRUE\t/\tFALSE\t99999999999999\ty\tz\n"
                      "h.example\tFALSE\t/\tFALSE\t1\told\t1"),
            "");
  EXPECT_EQ(jar_.CookieHeader("http://www.h.example/"), "x=");
  EXPECT_EQ(jar_.CookieHeader("http://h.com/"), "");
  EXPECT_EQ(jar_.Count(), 2u);
}

TEST_F(CookieFile, ABadLineIsNamedAndNothingIsAdded) {
  const std::pair<const char*, const char*> kCases[] = {
      {"no tabs secret", "seven columns"},
      {"h\tTRUE\t/\tTRUE\t0\tn\tsecret\tx", "seven columns"},
      {"h\tYES\t/\tTRUE\t0\tn\tsecret", "second column"},
      {"h\tTRUE\tx\tTRUE\t0\tn\tsecret", "path"},
      {"h\tTRUE\t/\t1\t0\tn\tsecret", "fourth column"},
      {"h\tTRUE\t/\tTRUE\t12x\tn\tsecret", "date"},
      {"h\tTRUE\t/\tTRUE\t\tn\tsecret", "date"},
      {"h\tTRUE\t/\tTRUE\t0\t\tsecret", "name"},
      {"h\tTRUE\t/\tTRUE\t0\tn;\tsecret", "name"},
      {"h\tTRUE\t/\tTRUE\t0\tn\tsecret; b=2", "value"},
      {"h\tTRUE\t/\tTRUE\t0\tn\tsecret\rx", "control"},
      {"\tTRUE\t/\tTRUE\t0\tn\tsecret", "domain"},
  };
  for (const auto& [line, why] : kCases) {
    const std::string error =
        LoadError("h.example\tFALSE\t/\tFALSE\t0\ta\t1\n\n" + std::string(line) + "\n");
    EXPECT_TRUE(error.starts_with("Line 3 is no cookie: ")) << error;
    EXPECT_NE(error.find(why), std::string::npos) << line << ": " << error;
    EXPECT_EQ(error.find("secret"), std::string::npos);
  }
  EXPECT_EQ(jar_.Count(), 0u);
  EXPECT_EQ(jar_.Load(folder_ / "none"), 20002);
  EXPECT_FALSE(jar_.ErrorText().empty());
  EXPECT_EQ(jar_.Save(path_), 0);
  EXPECT_EQ(jar_.ErrorText(), "") << "of the Load before";
  EXPECT_EQ(jar_.Save(folder_ / "no/such"), 20002);
  EXPECT_EQ(jar_.ErrorText(), "The cookies could not be written.");
}

}  // namespace
}  // namespace netro

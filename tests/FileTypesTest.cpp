// Content types from the system's tables and the one behind them.

#include <gtest/gtest.h>

#include <string>

#include "SystemRoot.h"
#include "platform/FileTypes.h"

namespace netro {
namespace {

TEST(FileTypes, ReadsTheSystemsTables) {
  SystemRoot root;
  root.Put("etc/mime.types",
           "# image/wrong png\n"
           "image/x-mine\tpng PNX # gone\r\n"
           "application/later pnx\n"
           "application/none\n"
           "message/rfc822 eml\n"
           "no-type one\n"
           "a/b/c two\n"
           "text/bad;charset=x three\n"
           "application/last last");
  root.Put("usr/share/mime/globs2",
           "# comment\n50:image/other:*.png\n50:application/x-tgz:*.tar.gz:cs\n"
           "60:text/x-make:makefile\n50:text/x-c:*.c:cs\n50:text/x-glob:*.[ab]\nnonsense\n::\n");
  const struct {
    std::string extension;
    std::string type;
  } kCases[] = {
      {"png", "image/x-mine"},
      {"pnx", "image/x-mine"},
      {"last", "application/last"},
      {"c", "text/x-c"},
      {"tar.gz", "application/x-tgz"},
      {"pdf", "application/pdf"},  // the built-in one
      {"eml", ""},                 // must not be encoded
      {"one", ""},
      {"two", ""},
      {"three", ""},
      {"[ab]", ""},
      {"", ""},
      {"nosuch", ""},
  };
  for (const auto& [extension, type] : kCases) {
    EXPECT_EQ(ContentTypeOf(extension), type) << extension;
  }
}

TEST(FileTypes, KnowsSomeWithoutThem) {
  const SystemRoot root;
  EXPECT_EQ(ContentTypeOf("png"), "image/png");
  EXPECT_EQ(ContentTypeOf("c"), "");
}

}  // namespace
}  // namespace netro

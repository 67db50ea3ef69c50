// Every message of tests/mime/mime_test.py goes through postfix, and is read where it arrived.

#include <gtest/gtest.h>

#include "Postfix.h"

namespace netro::interop {
namespace {

TEST(PostfixMime, EveryPartArrivesAsItWasComposed) {
  if (!Postfix::Missing().empty()) GTEST_SKIP() << Postfix::Missing();
  const std::string python = FindProgram("python3");
  if (python.empty()) GTEST_SKIP() << "python3 is not installed";
  Postfix server;
  ASSERT_TRUE(server.IsUp()) << server.Output();
  interop::Run({python, "-B", NETRO_MIME_TEST, NETRO_COMPOSE, "--server",
                std::to_string(server.Port()), server.Mailbox()});
}

}  // namespace
}  // namespace netro::interop

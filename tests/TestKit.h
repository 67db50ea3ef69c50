// What most tests use: the test framework, the standard headers, a folder and a clock of their own,
// the common peers, and the names of peers and times without their namespaces.
#pragma once

#include <gtest/gtest.h>
#include <netro/MessageLoop.h>
#include <netro/testkit/BytesServer.h>
#include <netro/testkit/HttpServer.h>
#include <netro/testkit/SocksServer.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "SystemRoot.h"
#include "platform/Clock.h"

namespace netro {

using namespace testkit;
using namespace std::chrono_literals;
using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// What happens while it lives takes so long by the library's clock.
class Takes {
 public:
  explicit Takes(TimePoint::duration least, TimePoint::duration most = std::chrono::hours(24))
      : least_(least), most_(most) {}
  ~Takes() {
    EXPECT_GE(Now() - begun_, least_);
    EXPECT_LT(Now() - begun_, most_);
  }

 private:
  const TimePoint::duration least_, most_;
  const TimePoint begun_ = Now();
};

}  // namespace netro

// What most tests use: the test framework, the standard headers, a folder and a clock of their own,
// and the names of the peers and of times without their namespaces.
#pragma once

#include <gtest/gtest.h>
#include <netro/MessageLoop.h>

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

#include "TemporaryFolder.h"
#include "platform/Clock.h"

namespace netro {
namespace peers {}

using namespace peers;
using namespace std::chrono_literals;
using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;

}  // namespace netro

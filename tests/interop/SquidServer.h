// The HTTP proxy squid on a port of 127.0.0.1: it lets "user" with "secret" of the realm "test
// area" pass, and nobody to closed.test. Thread: the test's.
#pragma once

#include <memory>
#include <string>

#include "ServerProcess.h"

namespace netro::interop {

/// Asks for passwords by `scheme`, "basic" or "digest"; null when squid is not installed.
std::unique_ptr<ServerProcess> StartSquid(const std::string& scheme);

}  // namespace netro::interop

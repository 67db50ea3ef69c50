// Where Windows has what other systems have under this name.
#pragma once

// Each needs those before it.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
// clang-format on

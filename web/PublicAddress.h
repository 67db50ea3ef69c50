// IsPublicAddress (<netro/PublicAddress.h>) for the library's own addresses. Pure; any thread.
#pragma once

#include <netro/PublicAddress.h>

#include "platform/Address.h"

namespace netro {

/// False for none too.
bool IsPublic(const IpAddress& address);

}  // namespace netro

// Asks a host for its NetBIOS adapter status. For NetBIOSCls, on its thread.
#pragma once

#include <netro/NetBIOSCls.h>

#include <string>

#include "socket/Wait.h"

namespace netro {

/// Looks the host up, asks it and waits in the loop for the reply. Touches no object but `status`,
/// and that on success only. Returns the NetBIOS code.
std::int32_t QueryNodeStatus(const std::string& host, const CancelMark& mark,
                             AdapterStatus& status);

}  // namespace netro

// The addresses that header text names. Thread: the loop's.
#pragma once

#include <netro/SendMailCls.h>

#include <string>
#include <vector>

namespace netro::tool {

/// What stands in the lists, each address once; of an address that is none as much as can be told.
/// Only Address and Type count.
std::vector<RecipientOutcome> RecipientsOf(const std::string& to, const std::string& cc = {},
                                           const std::string& bcc = {});

}  // namespace netro::tool

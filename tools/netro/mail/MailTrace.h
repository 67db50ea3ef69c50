// What "netro mail --trace" shows. Thread: the main one.
#pragma once

#include <netro/SendMailCls.h>

#include <vector>

namespace netro::tool {

/// True when each recipient has a server that takes it.
bool IsGood(const std::vector<MailTrace>& traces);

void PrintTrace(const std::vector<MailTrace>& traces);
void PrintTraceJson(const SendMailCls& mail, const std::vector<MailTrace>& traces);

}  // namespace netro::tool

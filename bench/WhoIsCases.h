// WHOIS answers of growing size: WhoIsCls beside a loop that reads a socket.
#pragma once

namespace netro::bench {

void AddWhoIsCases();

}  // namespace netro::bench

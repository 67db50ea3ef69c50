#pragma once

namespace netro::bench {

/// Small messages and large ones, each in an SMTP session of its own, beside libcurl.
void AddMailCases();

}  // namespace netro::bench

// Encodings of mail beside a plain copy of the memory.
#pragma once

namespace netro::bench {

void AddTextCases();

}  // namespace netro::bench

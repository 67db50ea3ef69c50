// Composing messages beside GMime.
#pragma once

namespace netro::bench {

void AddMimeCases();

}  // namespace netro::bench

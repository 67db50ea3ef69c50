#include "watch/ReloadSignal.h"

namespace netro::tool {

ReloadSignal::ReloadSignal() = default;

ReloadSignal::~ReloadSignal() = default;

bool ReloadSignal::Take() { return false; }

}  // namespace netro::tool

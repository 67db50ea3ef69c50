#include "platform/SystemFiles.h"

namespace netro {

std::string OwnSystemRoot() { return {}; }

}  // namespace netro

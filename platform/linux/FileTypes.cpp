#include "platform/FileTypes.h"

namespace netro {

std::string RegisteredContentType(std::string_view /*extension*/) { return {}; }

}  // namespace netro

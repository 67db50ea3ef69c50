#include "platform/ResolverConfig.h"

namespace netro {

std::uint64_t ResolverConfigStamp() { return ResolverFilesStamp(); }

ResolverConfig ReadResolverConfig() { return ReadResolverFiles(); }

}  // namespace netro

// The content codings of the system's libraries: gzip and deflate by zlib, br by brotli, zstd by
// zstd, each where it was there when the library was built. In a library of its own: link
// netro::codings (find_package(netro COMPONENTS codings)).
#pragma once

#include <netro/ContentCodings.h>
#include <netro/Export.h>

#include <memory>

namespace netro {

/// - "gzip" and "x-gzip" (RFC 1952) may have several members;
/// - "deflate" is taken with the wrapper that RFC 9110 demands and without, as some servers send;
/// - "br" (RFC 7932);
/// - "zstd" (RFC 8878) may have several frames, of windows up to 8 MiB (RFC 9659).
/// Anything else behind the end is codingTrailing.
NETRO_EXPORT std::shared_ptr<CodingProvider> SystemCodings();

}  // namespace netro

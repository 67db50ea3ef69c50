// The content types of files, from the system's tables with a small one of our own behind them. Any
// thread.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// The content type for an extension in lower case, without its dot, as "image/png" for "png";
/// empty when none is known, or one of the composite types "message" and "multipart". The system's
/// tables are read once.
std::string ContentTypeOf(std::string_view extension);

/// What the system knows of an extension beside its tables in files; empty when it knows nothing.
std::string RegisteredContentType(std::string_view extension);

}  // namespace netro

// Makes the decoder of each library that this component was built with.
#pragma once

#include <netro/ContentCodings.h>

#include <memory>

namespace netro {

std::unique_ptr<ContentDecoder> MakeGzipDecoder();
std::unique_ptr<ContentDecoder> MakeDeflateDecoder();
std::unique_ptr<ContentDecoder> MakeBrotliDecoder();
std::unique_ptr<ContentDecoder> MakeZstdDecoder();

}  // namespace netro

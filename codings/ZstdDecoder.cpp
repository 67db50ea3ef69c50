// zstd (RFC 8878), by zstd.

#include <zstd.h>
#include <zstd_errors.h>

#include "codings/Decoders.h"
#include "codings/StreamDecoder.h"

namespace netro {
namespace {

// RFC 9659: no server may ask for a larger window than 8 MiB.
constexpr int kWindowLog = 23;

struct Destroy {
  void operator()(ZSTD_DStream* stream) const { ZSTD_freeDStream(stream); }
};

class ZstdDecoder final : public StreamDecoder {
 public:
  ZstdDecoder() : StreamDecoder("zstd") {
    if (stream_) ZSTD_DCtx_setParameter(stream_.get(), ZSTD_d_windowLogMax, kWindowLog);
  }

 private:
  Step Run(std::span<const std::uint8_t>& block, std::span<std::uint8_t> out) override {
    if (!stream_) return {Outcome::NoMemory, 0, nullptr};
    ZSTD_inBuffer input{block.data(), block.size(), 0};
    ZSTD_outBuffer output{out.data(), out.size(), 0};
    const std::size_t result = ZSTD_decompressStream(stream_.get(), &output, &input);
    block = block.subspan(input.pos);
    if (ZSTD_isError(result) == 0) {
      return {result == 0 ? Outcome::End : Outcome::More, output.pos, nullptr};
    }
    const bool noMemory = ZSTD_getErrorCode(result) == ZSTD_error_memory_allocation;
    return {noMemory ? Outcome::NoMemory : Outcome::Corrupt, output.pos, ZSTD_getErrorName(result)};
  }

  bool Restart() override { return true; }  // the next frame begins by itself

  std::unique_ptr<ZSTD_DStream, Destroy> stream_{ZSTD_createDStream()};
};

}  // namespace

std::unique_ptr<ContentDecoder> MakeZstdDecoder() { return std::make_unique<ZstdDecoder>(); }

}  // namespace netro

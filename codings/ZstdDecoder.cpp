// zstd (RFC 8878), by zstd.

#include <zstd.h>
#include <zstd_errors.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "codings/Decoders.h"
#include "codings/StreamDecoder.h"

namespace netro {
namespace {

// RFC 9659: no server may ask for a larger window than 8 MiB.
constexpr int kWindowLog = 23;
constexpr std::size_t kLongestHeader = 18;
constexpr std::size_t kMagic = 4;

struct Destroy {
  void operator()(ZSTD_DStream* stream) const { ZSTD_freeDStream(stream); }
};

// Or the begin of one. zstd may also take formats that are older than the standard.
bool IsFrame(std::span<const std::uint8_t> magic) {
  constexpr std::uint8_t kFrame[kMagic] = {0x28, 0xB5, 0x2F, 0xFD};
  constexpr std::uint8_t kSkippable[kMagic] = {0x50, 0x2A, 0x4D, 0x18};  // up to 5F
  bool frame = true, skippable = true;
  for (std::size_t i = 0; i < magic.size(); ++i) {
    frame = frame && magic[i] == kFrame[i];
    skippable = skippable && (i == 0 ? magic[i] & 0xF0 : magic[i]) == kSkippable[i];
  }
  return frame || skippable;
}

class ZstdDecoder final : public StreamDecoder {
 public:
  ZstdDecoder() : StreamDecoder("zstd") {
    if (stream_) ZSTD_DCtx_setParameter(stream_.get(), ZSTD_d_windowLogMax, kWindowLog);
  }

 private:
  Step Run(std::span<const std::uint8_t>& block, std::span<std::uint8_t> out) override {
    if (!stream_) return {Outcome::NoMemory, 0, nullptr};
    if (!BeginsFrame(block)) return {Outcome::Corrupt, 0, "unknown frame"};
    // Until it has the header, zstd takes a piece that could be a whole frame by other rules, and
    // one that begins inside the header even for a frame of its own.
    const auto piece = header_.size() < kLongestHeader
                           ? block.first(std::min<std::size_t>(block.size(), 1))
                           : block;
    ZSTD_inBuffer input{piece.data(), piece.size(), 0};
    ZSTD_outBuffer output{out.data(), out.size(), 0};
    const std::size_t result = ZSTD_decompressStream(stream_.get(), &output, &input);
    const std::size_t room = kLongestHeader - header_.size();
    const auto begun = block.first(std::min(room, input.pos));
    header_.insert(header_.end(), begun.begin(), begun.end());
    block = block.subspan(input.pos);
    produced_ += output.pos;
    if (ZSTD_isError(result) == 0) {
      if (result != 0) return {Outcome::More, output.pos, nullptr};
      if (IsComplete()) return {Outcome::End, output.pos, nullptr};
      return {Outcome::Corrupt, output.pos, "the frame has another size than it says"};
    }
    const bool noMemory = ZSTD_getErrorCode(result) == ZSTD_error_memory_allocation;
    return {noMemory ? Outcome::NoMemory : Outcome::Corrupt, output.pos, ZSTD_getErrorName(result)};
  }

  // The next frame begins by itself.
  bool Restart(std::uint8_t) override {
    header_.clear();
    produced_ = 0;
    return true;
  }

  bool BeginsFrame(std::span<const std::uint8_t> block) const {
    if (header_.size() >= kMagic) return true;
    std::vector<std::uint8_t> magic = header_;
    for (const std::uint8_t byte : block.first(std::min(block.size(), kMagic - magic.size()))) {
      magic.push_back(byte);
    }
    return IsFrame(magic);
  }

  // zstd itself does not look when an empty block ends a frame that comes in pieces.
  bool IsComplete() const {
    const unsigned long long wanted = ZSTD_getFrameContentSize(header_.data(), header_.size());
    return wanted == ZSTD_CONTENTSIZE_UNKNOWN || wanted == ZSTD_CONTENTSIZE_ERROR ||
           wanted == produced_;
  }

  std::vector<std::uint8_t> header_;  // of the present frame
  std::uint64_t produced_ = 0;        // by it
  std::unique_ptr<ZSTD_DStream, Destroy> stream_{ZSTD_createDStream()};
};

}  // namespace

std::unique_ptr<ContentDecoder> MakeZstdDecoder() { return std::make_unique<ZstdDecoder>(); }

}  // namespace netro

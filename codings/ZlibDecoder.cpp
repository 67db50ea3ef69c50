// gzip (RFC 1952), zlib (RFC 1950) and raw deflate (RFC 1951), by zlib.

#include <zlib.h>

#include <algorithm>
#include <limits>

#include "codings/Decoders.h"
#include "codings/StreamDecoder.h"

namespace netro {
namespace {

constexpr int kGzip = MAX_WBITS + 16;
constexpr int kWrapped = MAX_WBITS;
constexpr int kRaw = -MAX_WBITS;

/// The wrapper's first byte has the compression method 8 in its low half. Without the wrapper that
/// would be a stored block whose unused bits are set, which no compressor writes.
int DeflateForm(std::uint8_t firstByte) { return (firstByte & 0x0F) == 8 ? kWrapped : kRaw; }

class ZlibDecoder final : public StreamDecoder {
 public:
  explicit ZlibDecoder(bool gzip) : StreamDecoder(gzip ? "gzip" : "deflate"), gzip_(gzip) {}
  ~ZlibDecoder() override {
    if (open_) inflateEnd(&stream_);
  }
  ZlibDecoder(const ZlibDecoder&) = delete;
  ZlibDecoder& operator=(const ZlibDecoder&) = delete;

 private:
  Step Run(std::span<const std::uint8_t>& block, std::span<std::uint8_t> out) override {
    if (!Open(block)) return {Outcome::NoMemory, 0, nullptr};
    constexpr std::size_t kMost = std::numeric_limits<uInt>::max();
    const std::size_t offered = std::min(block.size(), kMost);
    stream_.next_in = const_cast<Bytef*>(block.data());  // zlib only reads it
    stream_.avail_in = static_cast<uInt>(offered);
    stream_.next_out = out.data();
    stream_.avail_out = static_cast<uInt>(out.size());
    const int status = inflate(&stream_, Z_NO_FLUSH);
    block = block.subspan(offered - stream_.avail_in);
    return {OutcomeOf(status), out.size() - stream_.avail_out, stream_.msg};
  }

  bool Restart(std::uint8_t first) override {
    constexpr std::uint8_t kMagic = 0x1F;
    return gzip_ && first == kMagic && inflateReset(&stream_) == Z_OK;
  }

  bool Open(std::span<const std::uint8_t> block) {
    if (!open_) {
      open_ = inflateInit2(&stream_, gzip_ ? kGzip : DeflateForm(block.front())) == Z_OK;
    }
    return open_;
  }

  static Outcome OutcomeOf(int status) {
    switch (status) {
      case Z_OK:
      case Z_BUF_ERROR:  // it wants more
        return Outcome::More;
      case Z_STREAM_END:
        return Outcome::End;
      case Z_MEM_ERROR:
        return Outcome::NoMemory;
      default:  // also when a dictionary is asked for
        return Outcome::Corrupt;
    }
  }

  bool gzip_;
  bool open_ = false;
  z_stream stream_{};
};

}  // namespace

std::unique_ptr<ContentDecoder> MakeGzipDecoder() { return std::make_unique<ZlibDecoder>(true); }

std::unique_ptr<ContentDecoder> MakeDeflateDecoder() {
  return std::make_unique<ZlibDecoder>(false);
}

}  // namespace netro

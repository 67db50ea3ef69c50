// Content codings (RFC 9110, section 8.4): what a component that can unpack them offers to the
// classes of this library, which know none themselves. <netro/SystemCodings.h> has one ready.
//
// Thread: a provider may be used by any number of threads at once, a decoder by one at a time.
#pragma once

#include <netro/Export.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace netro {

/// Why a body could not be unpacked.
enum CodingErrorEnum : std::int32_t {
  codingCorrupt = 10190,    ///< the bytes are none of this coding, or a checksum does not match
  codingTruncated = 10191,  ///< the body ended before its coding did
  codingTrailing = 10192,   ///< something else follows the end of the coding
  codingUnknown = 10193,    ///< the answer names a coding that nobody here has
  codingStopped = 10194,    ///< the sink threw; the decoder is of no more use
  codingNoMemory = 10195,   ///< the decoder's own memory could not be had
};

/// Takes a piece of what was unpacked. Returns 0 to go on; any other number ends the decoding and
/// comes back from Decode.
using ContentSink = std::function<std::int32_t(std::span<const std::uint8_t> Piece)>;

/// Unpacks one body, block by block. The blocks may be cut anywhere.
class NETRO_EXPORT ContentDecoder {
 public:
  /// The longest piece that a sink is given, in bytes. So what a small block unpacks to never
  /// stands in memory at once, and the sink may stop in time.
  static constexpr std::size_t kLongestPiece = 64 * 1024;

  virtual ~ContentDecoder() = default;

  /// Unpacks `Block` and gives all of it that can be told already to `Sink`, at most kLongestPiece
  /// bytes at a time, none of them empty. Returns 0, a CodingErrorEnum, or the number that the sink
  /// ended it with. After a failure every further call returns the same number.
  virtual std::int32_t Decode(std::span<const std::uint8_t> Block, const ContentSink& Sink) = 0;

  /// The body has ended. Returns 0 when its coding had ended too, or when there was no byte of it;
  /// codingTruncated otherwise, or the earlier failure.
  virtual std::int32_t Finish() = 0;

  /// What was wrong, with the coding's name; empty while nothing was.
  virtual std::string ErrorText() const = 0;
};

/// Knows some codings and makes decoders for them.
class NETRO_EXPORT CodingProvider {
 public:
  virtual ~CodingProvider() = default;

  /// The codings in order of preference, as the value of Accept-Encoding: "gzip, deflate, br,
  /// zstd".
  virtual std::string Codings() const = 0;

  /// A decoder for one coding, whose name's case does not matter; null when it is not known.
  virtual std::unique_ptr<ContentDecoder> MakeDecoder(std::string_view Coding) const = 0;
};

}  // namespace netro

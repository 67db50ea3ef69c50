// What the decoders have in common: one buffer that every piece passes through, the end of the
// coding and what may follow it, and failures that stay.
//
// A decoder of one coding only says how a step of its library goes. Nothing here trusts the bytes:
// the memory is that of the buffer and of the library's window, whatever they say.
#pragma once

#include <netro/ContentCodings.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace netro {

class StreamDecoder : public ContentDecoder {
 public:
  std::int32_t Decode(std::span<const std::uint8_t> block, const ContentSink& sink) final;
  std::int32_t Finish() final;
  std::string ErrorText() const final;

 protected:
  enum class Outcome { More, End, Corrupt, NoMemory };
  struct Step {
    Outcome outcome = Outcome::More;
    std::size_t produced = 0;
    const char* detail = nullptr;  // the library's own words for a failure
  };

  explicit StreamDecoder(std::string coding) : coding_(std::move(coding)) {}

  /// Unpacks from the front of `block`, and takes off it what was used, into `out`.
  virtual Step Run(std::span<const std::uint8_t>& block, std::span<std::uint8_t> out) = 0;
  /// More follows the end, beginning with this byte. Prepares for a further member; false when the
  /// coding has but one, or none begins so.
  virtual bool Restart(std::uint8_t first) = 0;

 private:
  std::int32_t Unpack(std::span<const std::uint8_t> block, const ContentSink& sink);
  std::int32_t Fail(const Step& step);
  std::int32_t Fail(std::int32_t error, const std::string& what, const char* detail = nullptr);

  std::string coding_;
  std::vector<std::uint8_t> piece_;
  bool started_ = false;        // a byte has come
  bool ended_ = false;          // the coding has, with what has come so far
  bool furtherMember_ = false;  // no byte of a second or later member was unpacked yet
  std::int32_t error_ = 0;
  std::string errorText_;
};

}  // namespace netro

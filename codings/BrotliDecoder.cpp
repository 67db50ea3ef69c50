// br (RFC 7932), by brotli.

#include <brotli/decode.h>

#include "codings/Decoders.h"
#include "codings/StreamDecoder.h"

namespace netro {
namespace {

struct Destroy {
  void operator()(BrotliDecoderState* state) const { BrotliDecoderDestroyInstance(state); }
};

class BrotliDecoder final : public StreamDecoder {
 public:
  BrotliDecoder() : StreamDecoder("br") {}

 private:
  Step Run(std::span<const std::uint8_t>& block, std::span<std::uint8_t> out) override {
    if (!state_) return {Outcome::NoMemory, 0, nullptr};
    std::size_t given = block.size();
    std::size_t room = out.size();
    const std::uint8_t* next = block.data();
    std::uint8_t* place = out.data();
    const BrotliDecoderResult result =
        BrotliDecoderDecompressStream(state_.get(), &given, &next, &room, &place, nullptr);
    block = block.last(given);
    return {OutcomeOf(result), out.size() - room, Detail(result)};
  }

  bool Restart(std::uint8_t) override { return false; }

  Outcome OutcomeOf(BrotliDecoderResult result) const {
    if (result == BROTLI_DECODER_RESULT_SUCCESS) return Outcome::End;
    if (result != BROTLI_DECODER_RESULT_ERROR) return Outcome::More;
    // The codes of failed allocations stand apart from those of bad bytes.
    const BrotliDecoderErrorCode code = BrotliDecoderGetErrorCode(state_.get());
    const bool noMemory = code <= BROTLI_DECODER_ERROR_ALLOC_CONTEXT_MODES &&
                          code >= BROTLI_DECODER_ERROR_ALLOC_BLOCK_TYPE_TREES;
    return noMemory ? Outcome::NoMemory : Outcome::Corrupt;
  }

  const char* Detail(BrotliDecoderResult result) const {
    return result == BROTLI_DECODER_RESULT_ERROR
               ? BrotliDecoderErrorString(BrotliDecoderGetErrorCode(state_.get()))
               : nullptr;
  }

  std::unique_ptr<BrotliDecoderState, Destroy> state_{
      BrotliDecoderCreateInstance(nullptr, nullptr, nullptr)};
};

}  // namespace

std::unique_ptr<ContentDecoder> MakeBrotliDecoder() { return std::make_unique<BrotliDecoder>(); }

}  // namespace netro

#include "codings/StreamDecoder.h"

namespace netro {

std::int32_t StreamDecoder::Decode(std::span<const std::uint8_t> block, const ContentSink& sink) {
  if (error_ != 0 || block.empty()) return error_;
  started_ = true;
  piece_.resize(kLongestPiece);
  return Unpack(block, sink);
}

std::int32_t StreamDecoder::Unpack(std::span<const std::uint8_t> block, const ContentSink& sink) {
  while (true) {
    if (ended_) {
      if (block.empty()) return 0;
      if (!Restart(block.front())) return Fail(codingTrailing, "is followed by something else");
      ended_ = false;
      furtherMember_ = true;
    }
    const std::size_t before = block.size();
    const Step step = Run(block, piece_);
    if (step.produced > 0) {
      furtherMember_ = false;
      error_ = codingStopped;  // that is, if the sink throws
      error_ = sink(std::span(piece_).first(step.produced));
      if (error_ != 0) return error_;
    }
    if (step.outcome == Outcome::End) {
      ended_ = true;
    } else if (step.outcome != Outcome::More) {
      return Fail(step);
    } else if (step.produced == 0 && (block.empty() || block.size() == before)) {
      return block.empty() ? 0 : Fail(Step{Outcome::Corrupt, 0, nullptr});
    }
  }
}

std::int32_t StreamDecoder::Finish() {
  if (error_ != 0 || ended_ || !started_) return error_;
  return Fail(codingTruncated, "ended too early");
}

std::string StreamDecoder::ErrorText() const {
  if (error_ != codingStopped) return errorText_;
  return "The unpacking of the body, coded with " + coding_ + ", was broken off.";
}

std::int32_t StreamDecoder::Fail(const Step& step) {
  if (step.outcome == Outcome::NoMemory) {
    return Fail(codingNoMemory, "could not be unpacked for want of memory");
  }
  if (furtherMember_) return Fail(codingTrailing, "is followed by something else", step.detail);
  return Fail(codingCorrupt, "is corrupt", step.detail);
}

std::int32_t StreamDecoder::Fail(std::int32_t error, const std::string& what, const char* detail) {
  error_ = error;
  errorText_ = "The " + coding_ + " coding of the body " + what;
  if (detail != nullptr) errorText_.append(" (").append(detail).append(")");
  errorText_ += '.';
  return error_;
}

}  // namespace netro

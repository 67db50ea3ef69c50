// The steps of a chunked body (RFC 9112, section 7.1).
//
//   ChunkSize → ChunkData → ChunkEnd → ChunkSize … → RestOfChunks | Trailer → Complete
//
// Lines of the framing are collected in `line_`, so that a cut anywhere does no harm; LF ends them
// as well as CR LF. With the framing removed, the answer is complete with the line of the last
// chunk, and what follows up to the empty line is read only to see where the next answer would
// begin. With the framing kept, the trailer up to its empty line belongs to the body.
#include <algorithm>

#include "platform/ErrorNumbers.h"
#include "support/Text.h"
#include "web/HttpAnswer.h"

namespace netro {
namespace {

constexpr std::size_t kLongestTrailer = 256 * 1024;
constexpr std::size_t kLongestChunkLine = 16 * 1024;

std::string_view WithoutLineEnd(std::string_view line) {
  line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

}  // namespace

void HttpAnswer::EmitLine() {
  Emit({reinterpret_cast<const std::uint8_t*>(line_.data()), line_.size()});
}

// Appends to `line_` up to a line end.
HttpAnswer::Block HttpAnswer::TakeLine(Block block, bool& complete) {
  const auto newline = std::ranges::find(block, '\n');
  complete = newline != block.end();
  const auto taken = static_cast<std::size_t>(newline - block.begin()) + (complete ? 1 : 0);
  line_.append(reinterpret_cast<const char*>(block.data()), taken);
  if (line_.size() > kLongestChunkLine) {
    Fail(kErrBadProtocolOption, "A line of the answer's chunk framing is too long.");
    complete = false;
  }
  return block.subspan(taken);
}

HttpAnswer::Block HttpAnswer::TakeChunkSize(Block block) {
  bool complete = false;
  const Block rest = TakeLine(block, complete);
  if (!complete) return rest;
  const std::string_view line = WithoutLineEnd(line_);
  const auto size = ParseLength(Trim(line.substr(0, line.find(';'))), 16);
  if (!size) {
    Fail(kErrBadProtocolOption, "The answer's chunk size \"" + Shown(line) + "\" is no length.");
    return {};
  }
  remaining_ = *size;
  const bool last = *size == 0;
  step_ = !last ? Step::ChunkData : options_.removeChunks ? Step::RestOfChunks : Step::Trailer;
  if (!options_.removeChunks) EmitLine();
  line_.clear();
  return rest;
}

HttpAnswer::Block HttpAnswer::TakeChunkData(Block block) {
  const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), remaining_));
  remaining_ -= taken;
  if (remaining_ == 0) step_ = Step::ChunkEnd;
  Emit(block.first(taken));
  return block.subspan(taken);
}

HttpAnswer::Block HttpAnswer::TakeChunkEnd(Block block) {
  bool complete = false;
  const Block rest = TakeLine(block, complete);
  const bool broken = complete ? !WithoutLineEnd(line_).empty() : line_ != "\r";
  if (broken) {
    Fail(kErrBadProtocolOption, "A chunk of the answer is longer than its size line says.");
    return {};
  }
  if (!complete) return rest;
  step_ = Step::ChunkSize;
  if (!options_.removeChunks) EmitLine();
  line_.clear();
  return rest;
}

HttpAnswer::Block HttpAnswer::TakeTrailer(Block block) {
  bool complete = false;
  const Block rest = TakeLine(block, complete);
  if (!complete) return rest;
  trailerLength_ += line_.size();
  if (trailerLength_ > kLongestTrailer) {
    Fail(kErrMessageTooLong, "The answer's trailer is longer than 256 KiB.");
    return {};
  }
  if (WithoutLineEnd(line_).empty()) step_ = Step::Complete;
  EmitLine();
  line_.clear();
  return rest;
}

// The answer is there already, so nothing here can fail it: a rest that is too long only means that
// the connection is of no further use.
HttpAnswer::Block HttpAnswer::TakeRestOfChunks(Block block) {
  const auto newline = std::ranges::find(block, '\n');
  const bool complete = newline != block.end();
  const auto taken = static_cast<std::size_t>(newline - block.begin()) + (complete ? 1 : 0);
  trailerLength_ += taken;
  leftOver_ = trailerLength_ > kLongestTrailer;
  if (leftOver_) {
    step_ = Step::Complete;
    return {};
  }
  line_.append(reinterpret_cast<const char*>(block.data()), taken);
  if (complete && WithoutLineEnd(line_).empty()) step_ = Step::Complete;
  if (complete) line_.clear();
  return block.subspan(taken);
}

double HttpAnswer::NextChunk() const {
  if (!framing_.chunked) return 0;
  constexpr double kEmptyLine = 4;
  const double framing = options_.removeChunks ? 0 : 2;
  const double ahead = step_ == Step::ChunkData ? static_cast<double>(remaining_) + framing : 0;
  return static_cast<double>(headerLength_) + kEmptyLine + bodyLength_ + ahead;
}

}  // namespace netro

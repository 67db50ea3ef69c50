// Taking in an HTTP answer.
//
//   Header → SizedBody | OpenBody | ChunkSize → ChunkData → ChunkEnd → ChunkSize … → Trailer
//   and from each of them Complete or Failed
//
// Each step takes what it can of the block and returns the rest; a block is used up or the answer
// is complete. The header is searched in the answer text itself, which holds nothing else yet. 1xx
// answers are dropped when their header is complete, and the search starts anew. An answer to HEAD,
// 204 and 304 have no body whatever their header says. Chunks go before a length (section 6.3).
//
// Lines of the chunk framing are collected in `line_`, so that a cut anywhere does no harm. With
// the framing removed, the answer is complete with the line of the last chunk: nothing after it is
// used. With the framing kept, the trailer up to its empty line belongs to the body.
#include "web/HttpAnswer.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kLongestHeader = 256 * 1024;
constexpr std::size_t kLongestChunkLine = 16 * 1024;
constexpr std::size_t kGrowth = 4;
constexpr std::uint64_t kLargestLength = 1ULL << 53;  // what a double still counts exactly
constexpr std::string_view kHeaderEnd = "\r\n\r\n";

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 99;
}

std::optional<std::uint64_t> ParseNumber(std::string_view text, unsigned base) {
  std::uint64_t value = 0;
  if (text.empty()) return std::nullopt;
  for (const char c : text) {
    const auto digit = static_cast<unsigned>(DigitValue(c));
    if (digit >= base) return std::nullopt;
    value = value * base + digit;
    if (value > kLargestLength) return std::nullopt;
  }
  return value;
}

std::string Shown(std::string_view text) {
  std::string shown(text.substr(0, 40));
  for (char& c : shown) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return shown;
}

bool EndsWithChunked(std::string_view value) {
  const auto comma = value.find_last_of(',');
  const auto last = comma == std::string_view::npos ? value : value.substr(comma + 1);
  return EqualsIgnoreCase(Trim(last), "chunked");
}

}  // namespace

HttpStatus ParseStatusLine(std::string_view line) {
  HttpStatus status;
  const auto first = line.find(' ');
  if (first == std::string_view::npos) return status;
  const std::string_view rest = line.substr(first + 1);
  const auto second = rest.find(' ');
  const std::string_view code = rest.substr(0, second);
  for (std::size_t i = 0; i < code.size() && i < 9 && DigitValue(code[i]) < 10; ++i) {
    status.code = status.code * 10 + DigitValue(code[i]);
  }
  if (second != std::string_view::npos) status.reason = rest.substr(second + 1);
  return status;
}

void HttpAnswer::Fail(std::int32_t error, std::string text) {
  step_ = Step::Failed;
  error_ = error;
  errorText_ = std::move(text);
}

void HttpAnswer::Feed(Block block) {
  while (!block.empty()) {
    switch (step_) {
      case Step::Header:
        block = TakeHeader(block);
        break;
      case Step::SizedBody:
        block = TakeSizedBody(block);
        break;
      case Step::OpenBody:
        block = TakeOpenBody(block);
        break;
      case Step::ChunkSize:
        block = TakeChunkSize(block);
        break;
      case Step::ChunkData:
        block = TakeChunkData(block);
        break;
      case Step::ChunkEnd:
        block = TakeChunkEnd(block);
        break;
      case Step::Trailer:
        block = TakeTrailer(block);
        break;
      case Step::Complete:
      case Step::Failed:
        return;
    }
  }
}

void HttpAnswer::ConnectionEnded(std::int32_t error) {
  switch (step_) {
    case Step::Complete:
    case Step::Failed:
      return;
    case Step::OpenBody:
      if (error == 0) {
        step_ = Step::Complete;
        return;
      }
      break;
    case Step::Header:
      if (text_.empty()) return Fail(kErrConnectionReset, "");
      break;
    default:
      break;
  }
  Fail(kErrConnectionReset, "The connection ended before the answer was complete.");
}

HttpAnswer::Block HttpAnswer::TakeHeader(Block block) {
  const std::size_t had = text_.size();
  const std::size_t from = had < 3 ? 0 : had - 3;
  // No more of the block than a header may have: the rest may be a body of any size.
  const std::size_t taken = std::min(block.size(), kLongestHeader + kHeaderEnd.size() - had);
  text_.append(reinterpret_cast<const char*>(block.data()), taken);
  const auto end = text_.find(kHeaderEnd, from);
  if (end == std::string::npos) {
    if (text_.size() >= kLongestHeader + kHeaderEnd.size()) {
      Fail(kErrMessageTooLong, "The answer's header is longer than 256 KiB.");
    }
    return block.subspan(taken);
  }
  const std::size_t length = end + kHeaderEnd.size();
  text_.resize(length);
  headerLength_ = end;
  ReadHeader();
  return block.subspan(length - had);
}

void HttpAnswer::ReadHeader() {
  const HttpStatus status = ParseStatusLine(FirstLine());
  if (status.code >= 100 && status.code < 200) {
    text_.clear();
    headerLength_ = 0;
    return;
  }
  headerComplete_ = true;
  std::string_view rest = Header();
  for (auto end = rest.find('\r'); end != std::string_view::npos; end = rest.find('\r')) {
    rest.remove_prefix(end + 1);
    if (rest.starts_with('\n')) rest.remove_prefix(1);
    if (!ReadHeaderLine(rest.substr(0, rest.find('\r')))) return;
  }
  if (chunked_) {
    lengthKnown_ = false;
    expectedLength_ = -1;
  }
  closeMeansEnd_ = connectionClose_ || (!chunked_ && !lengthKnown_);
  if (options_.headOnly || status.code == 204 || status.code == 304) {
    step_ = Step::Complete;
  } else {
    BeginBody();
  }
}

bool HttpAnswer::ReadHeaderLine(std::string_view line) {
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return true;
  const std::string name = Trim(line.substr(0, colon));
  const std::string value = Trim(line.substr(colon + 1));
  if (EqualsIgnoreCase(name, "Content-Length")) return ReadLength(value);
  if (EqualsIgnoreCase(name, "Content-Type") && contentType_.empty()) contentType_ = value;
  if (EqualsIgnoreCase(name, "Transfer-Encoding")) chunked_ = EndsWithChunked(value);
  if (EqualsIgnoreCase(name, "Connection") && EqualsIgnoreCase(value, "close")) {
    connectionClose_ = true;
  }
  return true;
}

bool HttpAnswer::ReadLength(std::string_view value) {
  const auto length = ParseNumber(value, 10);
  if (!length) {
    Fail(kErrBadProtocolOption,
         "The answer's Content-Length \"" + Shown(value) + "\" is no length.");
    return false;
  }
  if (lengthKnown_ && *length != remaining_) {
    Fail(kErrBadProtocolOption, "The answer has two different Content-Length lines.");
    return false;
  }
  lengthKnown_ = true;
  remaining_ = *length;
  expectedLength_ = static_cast<double>(*length);
  return true;
}

void HttpAnswer::BeginBody() {
  if (chunked_) {
    step_ = Step::ChunkSize;
  } else if (lengthKnown_) {
    step_ = remaining_ > 0 ? Step::SizedBody : Step::Complete;
  } else {
    step_ = Step::OpenBody;
  }
  toSink_ = sink_->BeginBody();
}

void HttpAnswer::Emit(Block bytes) {
  bodyLength_ += static_cast<double>(bytes.size());
  if (toSink_) return sink_->WriteBody(bytes);
  MakeRoom(text_.size() + bytes.size());
  text_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// Moving a large text costs more than receiving it, since the system clears every page anew; so it
// grows in larger steps than a string would by itself. What was received decides how far; a length
// that the header tells can only make the step smaller.
void HttpAnswer::MakeRoom(std::size_t needed) {
  if (needed <= text_.capacity()) return;
  std::size_t room = needed * kGrowth;
  if (lengthKnown_) room = std::min<std::uint64_t>(room, needed + remaining_);
  try {
    text_.reserve(room);
  } catch (const std::bad_alloc&) {
    // Then the text grows by itself as far as it can.
  }
}

void HttpAnswer::EmitLine() {
  Emit({reinterpret_cast<const std::uint8_t*>(line_.data()), line_.size()});
}

HttpAnswer::Block HttpAnswer::TakeSizedBody(Block block) {
  const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), remaining_));
  remaining_ -= taken;
  if (remaining_ == 0) step_ = Step::Complete;
  Emit(block.first(taken));
  return block.subspan(taken);
}

HttpAnswer::Block HttpAnswer::TakeOpenBody(Block block) {
  Emit(block);
  return {};
}

// Appends to `line_` up to a CR LF.
HttpAnswer::Block HttpAnswer::TakeLine(Block block, bool& complete) {
  const auto newline = std::ranges::find(block, '\n');
  complete = newline != block.end();
  const auto taken = static_cast<std::size_t>(newline - block.begin()) + (complete ? 1 : 0);
  line_.append(reinterpret_cast<const char*>(block.data()), taken);
  if (complete && !line_.ends_with("\r\n")) {
    Fail(kErrBadProtocolOption, "A line of the answer's chunk framing does not end with CR LF.");
    complete = false;
  } else if (line_.size() > kLongestChunkLine) {
    Fail(kErrBadProtocolOption, "A line of the answer's chunk framing is too long.");
    complete = false;
  }
  return block.subspan(taken);
}

HttpAnswer::Block HttpAnswer::TakeChunkSize(Block block) {
  bool complete = false;
  const Block rest = TakeLine(block, complete);
  if (!complete) return rest;
  const std::string_view line(line_.data(), line_.size() - 2);
  const auto size = ParseNumber(Trim(line.substr(0, line.find(';'))), 16);
  if (!size) {
    Fail(kErrBadProtocolOption, "The answer's chunk size \"" + Shown(line) + "\" is no length.");
    return {};
  }
  remaining_ = *size;
  const bool last = *size == 0;
  step_ = !last ? Step::ChunkData : options_.removeChunks ? Step::Complete : Step::Trailer;
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
  if (!complete && line_.size() <= 2) return rest;
  if (line_ != "\r\n") {
    Fail(kErrBadProtocolOption, "A chunk of the answer is longer than its size line says.");
    return {};
  }
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
  if (trailerLength_ > kLongestHeader) {
    Fail(kErrMessageTooLong, "The answer's trailer is longer than 256 KiB.");
    return {};
  }
  if (line_ == "\r\n") step_ = Step::Complete;
  EmitLine();
  line_.clear();
  return rest;
}

double HttpAnswer::NextChunk() const {
  if (!chunked_) return 0;
  const double framing = options_.removeChunks ? 0 : 2;
  const double ahead = step_ == Step::ChunkData ? static_cast<double>(remaining_) + framing : 0;
  return static_cast<double>(headerLength_ + kHeaderEnd.size()) + bodyLength_ + ahead;
}

}  // namespace netro

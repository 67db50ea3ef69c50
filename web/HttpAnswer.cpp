// Taking in an HTTP answer.
//
//   Header → SizedBody | OpenBody | ChunkSize → ChunkData → ChunkEnd → ChunkSize … → Trailer
//   and from each of them Complete or Failed
//
// Each step takes what it can of the block and returns the rest; a block is used up or the answer
// is complete. The header's end is searched in the answer text itself, which holds nothing else
// yet. 1xx answers are dropped when their header is complete, and the search starts anew; only 101,
// which nobody asked for, is taken for the answer. What the header says of the body is read by
// HttpFraming. The steps of chunked bodies are in HttpAnswerChunks.cpp.
#include "web/HttpAnswer.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kLongestHeader = 256 * 1024;
constexpr std::size_t kGrowth = 4;
constexpr std::size_t kTrusted = 16 << 20;  // who has sent this much may send so many times that
constexpr std::size_t kTrust = 64;
constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr std::string_view kProtocol = "HTTP/";
constexpr std::int32_t kFirstError = 400;

}  // namespace

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
      case Step::RestOfChunks:
        block = TakeRestOfChunks(block);
        break;
      case Step::Complete:
        leftOver_ = true;
        return;
      case Step::Failed:
        return;
    }
  }
}

bool HttpAnswer::LeavesConnectionUsable() const {
  return step_ == Step::Complete && framing_.persistent && !leftOver_;
}

void HttpAnswer::ConnectionEnded(std::int32_t error) {
  switch (step_) {
    case Step::RestOfChunks:
    case Step::Complete:
    case Step::Failed:
      return;
    case Step::OpenBody:
      if (error == 0 || (options_.resetMayEnd && error == kErrConnectionReset &&
                         Status().code >= kFirstError)) {
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
  // No more of the block than a header may have: the rest may be a body of any size.
  const std::size_t taken = std::min(block.size(), kLongestHeader + kHeaderEnd.size() - had);
  text_.append(reinterpret_cast<const char*>(block.data()), taken);
  if (!LooksLikeHttp()) return {};
  const auto length = FindHeaderEnd(had < 3 ? 0 : had - 3);
  if (length == std::string::npos) {
    if (text_.size() >= kLongestHeader + kHeaderEnd.size()) {
      Fail(kErrMessageTooLong, "The answer's header is longer than 256 KiB.");
    }
    return block.subspan(taken);
  }
  text_.resize(headerLength_);
  text_ += kHeaderEnd;
  ReadHeader();
  return block.subspan(length - had);
}

// Whatever else talks on that port is not waited for.
bool HttpAnswer::LooksLikeHttp() {
  const std::size_t size = std::min(text_.size(), kProtocol.size());
  if (StartsWithIgnoreCase(kProtocol, std::string_view(text_).substr(0, size))) return true;
  Fail(kErrBadProtocolOption, "The answer is no HTTP: it begins with \"" +
                                  Shown(text_.substr(0, text_.find_first_of("\r\n"))) + "\".");
  return false;
}

// The header ends with an empty line, after LF or CR LF. Sets its length, and returns it together
// with the line ends as they came.
std::size_t HttpAnswer::FindHeaderEnd(std::size_t from) {
  for (auto at = text_.find('\n', from); at != std::string::npos; at = text_.find('\n', at + 1)) {
    const std::size_t next = at + 1 + (text_.compare(at + 1, 1, "\r") == 0 ? 1 : 0);
    if (text_.compare(next, 1, "\n") != 0) continue;
    headerLength_ = at > 0 && text_[at - 1] == '\r' ? at - 1 : at;
    return next + 1;
  }
  return std::string::npos;
}

void HttpAnswer::ReadHeader() {
  const std::string_view line = Head().FirstLine();
  status_ = ParseStatusLine(line);
  const std::int32_t code = status_.code;
  if (!HasHttpVersion(line) || code < 100) {
    return Fail(kErrBadProtocolOption,
                "The answer's status line \"" + Shown(line) + "\" is none of HTTP.");
  }
  if (code < 200 && code != 101) {
    continues_ = continues_ || code == 100;
    text_.clear();
    headerLength_ = 0;
    status_ = {};
    return;
  }
  headerComplete_ = true;
  const std::vector<std::string> types = Head().Lines("Content-Type");
  if (!types.empty()) contentType_ = types.front();
  framing_ = ReadFraming(Head(), code, options_.headOnly);
  if (!framing_.error.empty()) return Fail(kErrBadProtocolOption, framing_.error);
  BeginBody();
}

void HttpAnswer::BeginBody() {
  switch (framing_.body) {
    case HttpFraming::Body::None:
      step_ = Step::Complete;
      return;
    case HttpFraming::Body::Sized:
      remaining_ = *framing_.length;
      step_ = remaining_ > 0 ? Step::SizedBody : Step::Complete;
      break;
    case HttpFraming::Body::Chunked:
      step_ = Step::ChunkSize;
      break;
    case HttpFraming::Body::UntilClose:
      step_ = Step::OpenBody;
      break;
  }
  sink_->BeginBody();
}

void HttpAnswer::Emit(Block bytes) {
  bodyLength_ += static_cast<double>(bytes.size());
  if (!sink_->WriteBody(bytes)) AppendToText(bytes);
}

void HttpAnswer::AppendToText(Block bytes) {
  MakeRoom(text_.size() + bytes.size());
  text_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// Moving a large text costs more than receiving it, since the system clears every page anew; so it
// grows in larger steps than a string would by itself. What was received decides how far; a length
// that the header tells makes the step smaller, and larger only when much of it is there.
void HttpAnswer::MakeRoom(std::size_t needed) {
  if (needed <= text_.capacity()) return;
  std::size_t room = needed * kGrowth;
  if (framing_.length) {
    const std::uint64_t most = needed >= kTrusted ? needed * kTrust : room;
    room = std::min<std::uint64_t>(most, needed + remaining_);
  }
  try {
    text_.reserve(room);
  } catch (const std::bad_alloc&) {
    // Then the text grows by itself as far as it can.
  }
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

}  // namespace netro

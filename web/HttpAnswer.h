// Takes in one HTTP answer (RFC 9112) block by block: header, then a body framed by a length, by
// chunks, or by the end of the connection. Pure parsing: no socket, no file.
//
// The answer text collects the header with its empty line, and the body unless the sink takes it.
// The empty line is kept as CR LF CR LF whatever line ends the server uses, so the body begins four
// bytes behind the header. Blocks may be cut anywhere. Nothing is reserved by the server's word.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "web/HttpFraming.h"
#include "web/HttpHead.h"

namespace netro {

/// Decides where a body goes, and takes it.
class HttpBodySink {
 public:
  /// Called once, when the header of an answer with a body is complete.
  virtual void BeginBody() = 0;
  /// False: the bytes stay in the answer text.
  virtual bool WriteBody(std::span<const std::uint8_t> bytes) = 0;

 protected:
  ~HttpBodySink() = default;
};

class HttpAnswer {
 public:
  struct Options {
    bool headOnly = false;     // answer to HEAD: complete with its header
    bool removeChunks = true;  // chunk framing is left out of the body
    bool resetMayEnd = true;   // the body of an error, where that ends with the connection
  };

  HttpAnswer(Options options, HttpBodySink& sink) : options_(options), sink_(&sink) {}

  void Feed(std::span<const std::uint8_t> block);
  /// The connection has ended; `error` is 0 for an orderly close. Ends the answer or fails it. A
  /// body that ends with the connection is complete after a reset too when the status is 400 or
  /// above: a server that refuses a request closes without having read it all.
  void ConnectionEnded(std::int32_t error);
  /// Takes no more; for a sink that could not take the body.
  void Abandon() { step_ = Step::Failed; }

  bool IsComplete() const { return step_ == Step::Complete || step_ == Step::RestOfChunks; }
  /// The connection may carry another exchange: the answer allows it, has ended to its last byte,
  /// and nothing came behind it. A complete answer may still get there with its next block.
  bool LeavesConnectionUsable() const;
  /// 0, or 10040 (header too long), 10042 (no HTTP, or framing broken), 10054 (ended too early);
  /// then ErrorText says what was wrong.
  std::int32_t Error() const { return error_; }
  const std::string& ErrorText() const { return errorText_; }

  const std::string& Text() const { return text_; }
  std::string TakeText() { return std::move(text_); }
  bool HeaderComplete() const { return headerComplete_; }
  std::string_view Header() const { return std::string_view(text_).substr(0, headerLength_); }
  /// Of a complete header; a view until the next Feed.
  HttpHead Head() const { return HttpHead(Header()); }
  /// Of the header that came last.
  const HttpStatus& Status() const { return status_; }

  const std::string& ContentType() const { return contentType_; }
  bool CloseMeansEnd() const { return framing_.closeMeansEnd; }
  /// Expected bytes of the body, -1 when the header does not tell.
  double ExpectedLength() const {
    return framing_.length ? static_cast<double>(*framing_.length) : -1;
  }
  double BodyLength() const { return bodyLength_; }
  /// Puts bytes of the body into the answer text that the sink has made of others.
  void AppendToText(std::span<const std::uint8_t> bytes);
  /// The server has said that it wants the request's body (100).
  bool Continues() const { return continues_; }
  /// Something came behind the answer.
  bool HasLeftOver() const { return leftOver_; }
  /// Position in the answer at which the next chunk-size line is expected; 0 without chunks.
  double NextChunk() const;

 private:
  enum class Step {
    Header,
    SizedBody,
    OpenBody,
    ChunkSize,
    ChunkData,
    ChunkEnd,
    Trailer,
    RestOfChunks,
    Complete,
    Failed,
  };

  using Block = std::span<const std::uint8_t>;

  void Fail(std::int32_t error, std::string text);
  Block TakeHeader(Block block);
  bool LooksLikeHttp();
  std::size_t FindHeaderEnd(std::size_t from);
  void ReadHeader();
  void BeginBody();
  Block TakeSizedBody(Block block);
  Block TakeOpenBody(Block block);
  Block TakeChunkSize(Block block);
  Block TakeChunkData(Block block);
  Block TakeChunkEnd(Block block);
  Block TakeTrailer(Block block);
  Block TakeRestOfChunks(Block block);
  Block TakeLine(Block block, bool& complete);
  void Emit(Block bytes);
  void EmitLine();
  void MakeRoom(std::size_t needed);

  Options options_;
  HttpBodySink* sink_;
  Step step_ = Step::Header;
  std::string text_;
  std::string line_;  // a chunk-size or trailer line, with its line end, as far as it has come
  bool headerComplete_ = false;
  std::size_t headerLength_ = 0;
  HttpStatus status_;
  std::size_t trailerLength_ = 0;
  HttpFraming framing_;
  bool continues_ = false;
  bool leftOver_ = false;  // something came behind the answer
  double bodyLength_ = 0;
  std::uint64_t remaining_ = 0;  // of the sized body or the present chunk
  std::string contentType_;
  std::int32_t error_ = 0;
  std::string errorText_;
};

}  // namespace netro

// Takes in one HTTP answer (RFC 9112) block by block: header, then a body framed by a length, by
// chunks, or by the end of the connection. Pure parsing: no socket, no file.
//
// The answer text collects the header with its empty line, and the body unless the sink takes it.
// Blocks may be cut anywhere. Nothing is reserved by the server's word.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace netro {

/// Decides where a body goes, and takes it.
class HttpBodySink {
 public:
  /// Called once, when the header of an answer with a body is complete. True: the body comes to
  /// WriteBody; false: it stays in the answer text.
  virtual bool BeginBody() = 0;
  virtual void WriteBody(std::span<const std::uint8_t> bytes) = 0;

 protected:
  ~HttpBodySink() = default;
};

struct HttpStatus {
  std::int32_t code = 0;
  std::string reason;
};

/// "HTTP/1.1 200 OK" → 200, "OK": what stands between the first two blanks, and the rest.
HttpStatus ParseStatusLine(std::string_view line);

class HttpAnswer {
 public:
  struct Options {
    bool headOnly = false;     // answer to HEAD: complete with its header
    bool removeChunks = true;  // chunk framing is left out of the body
  };

  HttpAnswer(Options options, HttpBodySink& sink) : options_(options), sink_(&sink) {}

  void Feed(std::span<const std::uint8_t> block);
  /// The connection has ended; `error` is 0 for an orderly close. Ends the answer or fails it.
  void ConnectionEnded(std::int32_t error);
  /// Takes no more; for a sink that could not take the body.
  void Abandon() { step_ = Step::Failed; }

  bool IsComplete() const { return step_ == Step::Complete; }
  /// 0, or 10040 (header too long), 10042 (framing broken), 10054 (ended too early); then ErrorText
  /// says what was wrong.
  std::int32_t Error() const { return error_; }
  const std::string& ErrorText() const { return errorText_; }

  const std::string& Text() const { return text_; }
  std::string TakeText() { return std::move(text_); }
  bool HeaderComplete() const { return headerComplete_; }
  std::string_view Header() const { return std::string_view(text_).substr(0, headerLength_); }
  std::string_view FirstLine() const {
    return std::string_view(text_).substr(0, text_.find("\r\n"));
  }

  const std::string& ContentType() const { return contentType_; }
  bool CloseMeansEnd() const { return closeMeansEnd_; }
  /// Expected bytes of the body, -1 when the header does not tell.
  double ExpectedLength() const { return expectedLength_; }
  double BodyLength() const { return bodyLength_; }
  /// True when the sink took the body.
  bool BodyInFile() const { return toSink_; }
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
    Complete,
    Failed,
  };

  using Block = std::span<const std::uint8_t>;

  void Fail(std::int32_t error, std::string text);
  Block TakeHeader(Block block);
  void ReadHeader();
  bool ReadHeaderLine(std::string_view line);
  bool ReadLength(std::string_view value);
  void BeginBody();
  Block TakeSizedBody(Block block);
  Block TakeOpenBody(Block block);
  Block TakeChunkSize(Block block);
  Block TakeChunkData(Block block);
  Block TakeChunkEnd(Block block);
  Block TakeTrailer(Block block);
  Block TakeLine(Block block, bool& complete);
  void Emit(Block bytes);
  void EmitLine();
  void MakeRoom(std::size_t needed);

  Options options_;
  HttpBodySink* sink_;
  Step step_ = Step::Header;
  std::string text_;
  std::string line_;  // a chunk-size or trailer line, with its CR LF, as far as it has come
  bool headerComplete_ = false;
  std::size_t headerLength_ = 0;
  std::size_t trailerLength_ = 0;
  bool toSink_ = false;
  bool chunked_ = false;
  bool connectionClose_ = false;
  bool closeMeansEnd_ = true;
  bool lengthKnown_ = false;
  double expectedLength_ = -1;
  double bodyLength_ = 0;
  std::uint64_t remaining_ = 0;  // of the sized body or the present chunk
  std::string contentType_;
  std::int32_t error_ = 0;
  std::string errorText_;
};

}  // namespace netro

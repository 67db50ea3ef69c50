// A message as it goes over the wire (RFC 5321, section 4.5.2), in blocks: lines that consist of
// one dot, or all that begin with one, get another one, and the line with a dot ends it. Only one
// block stands in memory, and what stays as it is is copied once. Thread: any, one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/ByteSource.h"

namespace netro {

/// Which lines get another dot in front. None is for what needs no end (RFC 3030).
enum class DotRule { LoneDots, AllDots, None };

/// Whether CR LF follows a text that ends with CR LF: what users of a session give lacks the end of
/// its last line, a composed message does not.
enum class LastLine { IsOpen, IsEnded };

/// What a server wants to know of a message before it comes.
struct SmtpFacts {
  std::size_t size = 0;     // bytes in all, as they go over the wire
  bool has8Bit = false;     // not in ASCII alone (RFC 6152)
  bool utf8Header = false;  // nor are its fields, which are UTF-8 (RFC 6532)
};

class SmtpData {
 public:
  /// `message` must stay as it is; its last line is open.
  SmtpData(std::string_view message, DotRule rule);
  /// A text of unknown length, which is read to its end once to measure it; see Error.
  SmtpData(std::unique_ptr<ByteSource> text, DotRule rule, LastLine last);
  /// A text that was measured by other means.
  SmtpData(std::unique_ptr<ByteSource> text, DotRule rule, LastLine last, SmtpFacts facts);

  std::size_t Size() const { return facts_.size; }
  bool Has8Bit() const { return facts_.has8Bit; }
  const SmtpFacts& Facts() const { return facts_; }

  /// The next bytes: `size` of them, fewer at the end, then none. Valid until the next call. None
  /// before the end too, when the text cannot be read: then the message must not be ended.
  std::string_view Next(std::size_t size);
  /// Appends all of it as it is: without other dots and the line that ends it. False when the text
  /// cannot be read. Begins again afterwards.
  bool AppendPlain(std::string& to);
  /// Begins again, for another session.
  void Rewind();

  /// 0, or the number of what kept the text from being read, and its words.
  std::int32_t Error() const { return error_; }
  std::string ErrorText() const;

 private:
  void Measure();
  bool Fill(std::size_t size);
  void MakeRoom(std::size_t size);
  void AddEnd();
  std::string_view View(std::size_t from, std::size_t to) const;
  std::size_t FindDot(std::size_t from, std::size_t to) const;
  std::string_view WithDots(std::size_t size);

  std::unique_ptr<ByteSource> text_;
  DotRule rule_;
  LastLine last_;
  SmtpFacts facts_;
  std::int32_t error_ = 0;
  std::unique_ptr<char[]> buffer_;
  std::size_t capacity_ = 0;
  std::size_t begin_ = 0;    // of what is still to go; what has gone last stands before it
  std::size_t end_ = 0;      // of what was read
  std::size_t textEnd_ = 0;  // of the text, once it has been read to its end; else 0
  bool owesDot_ = false;     // the next byte is the other dot of the last one
  std::string block_;
};

}  // namespace netro

// Reads a server's replies (RFC 5321, section 4.2) out of the bytes as they arrive. Owned by a
// session. Thread: any, one at a time.
//
// A reply ends with the first line that has a blank as its fourth character and a number that is
// not zero in front. The last line is judged as far as it has come, so a reply may be taken before
// its line end is there; the rest of that line is left out of the next reply.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

class SmtpReply {
 public:
  static constexpr std::size_t kLargest = 1024 * 1024;

  /// `text` gets what arrives. When others change it, what is there is read anew.
  explicit SmtpReply(std::string& text) : text_(text) {}
  SmtpReply(const SmtpReply&) = delete;
  SmtpReply& operator=(const SmtpReply&) = delete;

  /// A new reply is awaited; empties the text.
  void Begin();
  /// The reply after this one, of commands that were sent together: forgets this one only.
  void Next();
  /// Takes bytes in. False, with the text full, when it would become larger than kLargest.
  bool Add(std::string_view bytes);
  /// The reply code; 0 while the reply is not complete.
  std::int32_t Code() const { return code_; }
  /// True when the line end of the last line is there as well.
  bool IsWhole() const { return code_ != 0 && End() != std::string::npos; }
  /// True when the first line is there and begins as no reply does.
  bool IsForeign() const;
  /// This reply without what came behind it.
  std::string_view Text() const { return std::string_view(text_).substr(0, End()); }
  bool HasBytes() const { return !text_.empty(); }
  bool HasMore() const { return !text_.empty() && Text().size() < text_.size(); }

 private:
  enum class Rest { None, LineFeed, Line };  // what may come of a line taken before its end

  std::size_t End() const;
  bool DropRest();
  void Judge();
  bool JudgeLine(std::string_view line);

  std::string& text_;
  std::size_t line_ = 0;     // where the first line begins that has not been judged
  std::size_t scanned_ = 0;  // where to go on looking for its end
  Rest rest_ = Rest::None;
  std::int32_t code_ = 0;
};

}  // namespace netro

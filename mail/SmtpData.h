// A message as it goes over the wire (RFC 5321, section 4.5.2), in blocks: lines that consist of
// one dot, or all that begin with one, get another one, and the line with a dot ends it. What stays
// as it is is not copied. Thread: any, one at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace netro {

/// Which lines get another dot in front.
enum class DotRule { LoneDots, AllDots };

class SmtpData {
 public:
  /// `message` must stay as it is.
  SmtpData(std::string_view message, DotRule rule);

  /// Bytes in all.
  std::size_t Size() const { return size_; }
  /// The next bytes: `size` of them, fewer at the end, then none. Valid until the next call.
  std::string_view Next(std::size_t size);

 private:
  std::size_t FindDot(std::size_t from) const;
  bool NextPiece();

  std::string_view message_;
  DotRule rule_;
  std::size_t size_ = 0;
  std::size_t position_ = 0;   // in the message, behind the piece
  std::size_t dot_ = 0;        // the next that gets another; npos: none
  std::string_view piece_;     // what is left of it
  std::string_view inserted_;  // between this piece and the next
  bool ended_ = false;         // the piece is the last of the message
  std::string block_;
};

}  // namespace netro

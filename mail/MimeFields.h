// The header fields of a composed message, up to those that tell of its parts (RFC 5322, section
// 3.6). Thread: any.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "mail/MimeComposer.h"

namespace netro {

/// A text as UTF-8, copied only when it is not that already.
class Utf8Text {
 public:
  Utf8Text(const std::string& text, const std::string& charSet);
  Utf8Text(const Utf8Text&) = delete;
  Utf8Text& operator=(const Utf8Text&) = delete;

  std::string_view View() const { return text_; }

 private:
  std::string copy_;
  std::string_view text_;
};

/// The id as it may stand between angle brackets; its line, which cannot be folded, has room for
/// it.
std::string CleanMessageID(std::string_view id);

/// What to reserve for the fields.
std::size_t RoomForFields(const MimeContent& content);
void AppendFields(std::string& out, const MimeContent& content);

}  // namespace netro

#include "mail/MimeMessage.h"

#include <algorithm>
#include <utility>

#include "mail/HeaderBlock.h"
#include "platform/CodePage.h"
#include "support/Text.h"

namespace netro {
namespace {

/// Only letters, digits, "_" and "." stay.
std::string NameInMime(std::string_view name) {
  constexpr std::string_view kKept =
      "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_.";
  std::string kept(name);
  std::erase_if(kept, [&](char c) { return kKept.find(c) == kKept.npos; });
  return kept;
}

}  // namespace

MimeMessage::MimeMessage() { content_.charSet = LocaleCharSet(); }

void MimeMessage::Begin(Kind kind, Envelope envelope, std::string text, std::string alternative) {
  std::shared_ptr<const std::string> finished;
  if (kind == Kind::Finished) {
    finished = std::make_shared<const std::string>(std::move(text));
    text.clear();
  }
  // From here on nothing fails.
  if (kind_ != Kind::None) {
    content_.messageID.clear();
    content_.headers.clear();
    content_.files = {};
  }
  kind_ = kind;
  content_.envelope = std::move(envelope);
  content_.html = kind == Kind::Html;
  content_.text = std::move(text);
  content_.alternative = std::move(alternative);
  content_.date = LocalClock();
  text_ = std::move(finished);
}

bool MimeMessage::HasHeader(const std::string& title) const {
  const auto isIt = [&](const auto& header) { return EqualsIgnoreCase(header.first, title); };
  return HasFieldOfItsOwn(content_.envelope, title) ||
         (StandsOnce(title) && std::ranges::any_of(content_.headers, isIt));
}

void MimeMessage::AddHeader(const std::string& title, const std::string& value) {
  content_.headers.emplace_back(title, value);
  Changed();
}

void MimeMessage::AddFile(std::string bytes, const std::string& name, bool related) {
  content_.files.push_back({std::move(bytes), NameInMime(name), related});
  Changed();
}

void MimeMessage::CharSet(std::string value) {
  content_.charSet = std::move(value);
  Changed();
}

void MimeMessage::AddBcc(bool value) {
  content_.addBcc = value;
  Changed();
}

void MimeMessage::MsgDate(Date value) {
  content_.date = AtLocalTime(value);
  Changed();
}

void MimeMessage::MessageID(std::string value) {
  content_.messageID = std::move(value);
  Changed();
}

void MimeMessage::Changed() {
  if (kind_ != Kind::Finished) text_.reset();
}

const std::string& MimeMessage::Text() {
  if (!text_) {
    text_ = std::make_shared<const std::string>(kind_ == Kind::None ? "" : ComposeMime(content_));
  }
  return *text_;
}

TextForDelivery MimeMessage::TextToSend() {
  Text();
  TextForDelivery result{text_, {}};
  if (kind_ == Kind::Finished && !IsFitToSend(*text_, content_.addBcc)) {
    result.owner = std::make_shared<const std::string>(MakeFitToSend(*text_, content_.addBcc));
  }
  result.text = *result.owner;
  if (result.text.ends_with("\r\n")) result.text.remove_suffix(2);
  return result;
}

bool MayAddHeader(const std::string& title) {
  constexpr std::size_t kLongest = 90;  // leaves room for a long word beside it
  constexpr std::string_view kOurs[] = {"MIME-Version", "Content-Type",
                                        "Content-Transfer-Encoding"};
  return IsFieldName(title) && title.size() <= kLongest &&
         std::ranges::none_of(kOurs,
                              [&](std::string_view name) { return EqualsIgnoreCase(title, name); });
}

}  // namespace netro

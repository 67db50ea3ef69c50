#include "mail/MimeMessage.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "mail/FinishedText.h"
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

/// All of it, or nothing.
std::string ReadAll(ByteSource& source) {
  constexpr std::size_t kBlock = 65536;
  std::string text;
  if (const auto length = source.Length()) text.reserve(static_cast<std::size_t>(*length));
  std::vector<std::uint8_t> block(kBlock);
  for (std::size_t got = 1; got > 0;) {
    if (source.Read(block, got) != 0) return {};
    text.append(reinterpret_cast<const char*>(block.data()), got);
  }
  return text;
}

}  // namespace

MimeMessage::MimeMessage() { content_.charSet = LocaleCharSet(); }

// From here on nothing fails.
void MimeMessage::StartOver(Envelope envelope) {
  if (kind_ != Kind::None) {
    content_.messageID.clear();
    content_.headers.clear();
    content_.files = {};
  }
  content_.envelope = std::move(envelope);
  content_.date = LocalClock();
  finished_ = {};
  Changed();
}

void MimeMessage::Begin(Kind kind, Envelope envelope, std::string text, std::string alternative) {
  StartOver(std::move(envelope));
  kind_ = kind;
  content_.html = kind == Kind::Html;
  content_.text = std::move(text);
  content_.alternative = std::move(alternative);
}

void MimeMessage::BeginFinished(Envelope envelope, std::shared_ptr<const std::string> message) {
  BeginFinished(std::move(envelope), HoldBytes(message));
  text_ = std::move(message);
}

void MimeMessage::BeginFinished(Envelope envelope, MimeBytes message) {
  Begin(Kind::Finished, std::move(envelope), {}, {});
  finished_ = std::move(message);
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

void MimeMessage::AddFile(MimeBytes bytes, const std::string& name, bool related) {
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
  composed_.reset();
  if (finished_.open == nullptr) text_.reset();
}

const MimeText& MimeMessage::Composed() {
  if (!composed_) {
    composed_ =
        std::make_shared<const MimeText>(kind_ == Kind::None ? MimeText() : ComposeMime(content_));
  }
  return *composed_;
}

const std::string& MimeMessage::Text() {
  const bool isFinished = kind_ == Kind::Finished;
  if (!text_ && !isFinished) text_ = Composed().InMemory();
  if (!text_) {
    const auto source = isFinished ? finished_.open() : Composed().Open();
    text_ = std::make_shared<const std::string>(ReadAll(*source));
  }
  return *text_;
}

std::uint64_t MimeMessage::Size() {
  return kind_ == Kind::Finished ? finished_.size : Composed().Size();
}

std::unique_ptr<ByteSource> MimeMessage::TextToSend() {
  if (kind_ != Kind::Finished) return Composed().Open();
  return std::make_unique<FinishedText>(finished_.open(), content_.addBcc);
}

// Files in Base64 are in ASCII and no line of theirs begins with a dot; so the texts tell all.
std::unique_ptr<SmtpData> MimeMessage::DataToSend(DotRule rule) {
  if (kind_ == Kind::Finished)
    return std::make_unique<SmtpData>(TextToSend(), rule, LastLine::IsEnded);
  const SmtpData texts(Composed().OpenTexts(), rule, LastLine::IsEnded);
  SmtpFacts facts = texts.Facts();
  facts.size += static_cast<std::size_t>(Composed().SizeOfFiles());
  return std::make_unique<SmtpData>(TextToSend(), rule, LastLine::IsEnded, facts);
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

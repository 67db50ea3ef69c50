#include "dns/DnsName.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kLongestLabel = 63;
constexpr std::size_t kLongestName = 255;  // with length bytes and the root's
constexpr std::uint8_t kPointer = 0xC0;
constexpr int kMostPointers = 128;

constexpr std::string_view kSpecial = ".\\\"();@$";
constexpr std::string_view kNeverInMailbox = "\"(),:;<>@[\\]";

// Takes three digits off the front.
std::optional<std::uint8_t> TakeNumber(std::string_view& text) {
  std::uint8_t number = 0;
  const std::string_view digits = text.substr(0, 3);
  const char* end = digits.data() + digits.size();
  const auto read = std::from_chars(digits.data(), end, number);
  if (digits.size() < 3 || read.ptr != end || read.ec != std::errc()) return std::nullopt;
  text.remove_prefix(3);
  return number;
}

// Takes a byte off the front, which may be escaped. None when the escape is none.
std::optional<std::uint8_t> TakeByte(std::string_view& text, NameForm form) {
  if (form == NameForm::Escaped && text[0] == '\\') {
    text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    if (text[0] >= '0' && text[0] <= '9') return TakeNumber(text);
  }
  const auto byte = static_cast<std::uint8_t>(text[0]);
  text.remove_prefix(1);
  return byte;
}

// A name on the wire, built up byte by byte.
class WireName {
 public:
  void Add(std::uint8_t byte) { wire_.push_back(byte); }
  bool IsInLabel() const { return wire_.size() > start_ + 1; }
  // Where a label ends, the next one begins with its length, of which 0 is the root's.
  bool EndLabel() {
    const std::size_t length = wire_.size() - start_ - 1;
    if (length == 0 || length > kLongestLabel) return false;
    wire_[start_] = static_cast<std::uint8_t>(length);
    start_ = wire_.size();
    wire_.push_back(0);
    return wire_.size() <= kLongestName;
  }
  const Bytes& Wire() const { return wire_; }

 private:
  Bytes wire_ = {0};
  std::size_t start_ = 0;  // of the label
};

bool Encode(std::string_view name, NameForm form, WireName& wire) {
  while (!name.empty()) {
    const bool separator = name[0] == '.';
    const auto byte = TakeByte(name, form);
    if (!byte) return false;
    if (!separator) {
      wire.Add(*byte);
    } else if (!wire.EndLabel()) {
      return false;
    }
  }
  return !wire.IsInLabel() || wire.EndLabel();
}

// The text of a name, gathered label by label. It has room for 255 escaped bytes, so that the
// string is made once.
class NameText {
 public:
  explicit NameText(NameForm form) : form_(form) {}

  // False when the label or the name gets too long.
  bool Add(std::span<const std::uint8_t> label) {
    length_ += label.size() + 1;
    if (label.size() > kLongestLabel || length_ > kLongestName) return false;
    if (size_ > 0) text_[size_++] = '.';
    if (form_ == NameForm::Escaped) {
      for (const std::uint8_t byte : label) AddEscaped(byte);
    } else {
      std::memcpy(text_.data() + size_, label.data(), label.size());
      size_ += label.size();
    }
    return true;
  }
  std::string_view Text() const { return {text_.data(), size_}; }

 private:
  void AddEscaped(std::uint8_t byte) {
    const char c = static_cast<char>(byte);
    const bool shown = c > ' ' && c <= '~';
    if (!shown || kSpecial.find(c) != kSpecial.npos) text_[size_++] = '\\';
    if (shown) {
      text_[size_++] = c;
    } else {
      for (const int unit : {100, 10, 1}) {
        text_[size_++] = static_cast<char>('0' + byte / unit % 10);
      }
    }
  }

  const NameForm form_;
  std::size_t length_ = 1;  // on the wire, with the root's
  std::size_t size_ = 0;
  std::array<char, 4 * kLongestName> text_;  // left as it is where nothing was added
};

enum class LabelsEnd { Root, Pointer, Malformed };

// Reads labels up to the root or to a pointer, whose target it gives.
LabelsEnd ReadLabels(ByteReader& reader, NameText& text, std::size_t& target) {
  for (;;) {
    const std::size_t here = reader.Position();
    const std::uint8_t size = reader.U8();
    if (size == 0) return reader.Ok() ? LabelsEnd::Root : LabelsEnd::Malformed;
    if (size >= kPointer) {
      target = (size & 0x3Fu) << 8 | reader.U8();
      return reader.Ok() && target < here ? LabelsEnd::Pointer : LabelsEnd::Malformed;
    }
    const auto label = reader.Take(size);
    if (!reader.Ok() || !text.Add(label)) return LabelsEnd::Malformed;
  }
}

}  // namespace

bool WriteName(std::string_view name, ByteWriter& writer, NameForm form) {
  WireName wire;
  if (name.empty() || (name != "." && !Encode(name, form, wire))) return false;
  writer.Append(wire.Wire());
  return true;
}

bool ReadName(std::span<const std::uint8_t> message, ByteReader& reader, std::string& name,
              NameForm form) {
  NameText text(form);
  std::size_t target = 0;
  LabelsEnd end = ReadLabels(reader, text, target);
  for (int pointers = 0; end == LabelsEnd::Pointer; ++pointers) {
    if (pointers == kMostPointers) return false;
    ByteReader behind(message);
    behind.Skip(target);
    end = ReadLabels(behind, text, target);
  }
  if (end != LabelsEnd::Root) return false;
  name = std::string(text.Text());
  return true;
}

std::string NormalName(std::string_view name, NameForm form) {
  if (form == NameForm::Plain) {
    return std::string(name.substr(0, name.size() - (name.ends_with('.') ? 1 : 0)));
  }
  ByteWriter wire;
  std::string normal;
  if (!WriteName(name, wire, form)) return std::string(name);
  ByteReader reader(wire.Data());
  ReadName(wire.Data(), reader, normal, form);
  return normal;
}

std::string MailboxOf(std::string_view name) {
  std::string local;
  while (!name.empty() && name[0] != '.') {
    const auto byte = TakeByte(name, NameForm::Escaped);
    if (!byte) return {};
    local += static_cast<char>(*byte);
  }
  const bool dotted = ("." + local + ".").find("..") == local.npos;  // one between two atoms
  const bool plain = std::ranges::all_of(local, [](char c) {
    return c > ' ' && c <= '~' && kNeverInMailbox.find(c) == std::string_view::npos;
  });
  if (!dotted || !plain || name.empty() || !IsHostName(name.substr(1))) return {};
  return local + "@" + std::string(name.substr(1));
}

}  // namespace netro

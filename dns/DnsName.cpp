#include "dns/DnsName.h"

#include <algorithm>
#include <charconv>
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

void AppendEscaped(std::string& text, std::span<const std::uint8_t> label) {
  for (const std::uint8_t byte : label) {
    const char c = static_cast<char>(byte);
    if (byte <= ' ' || byte > '~') {
      text += '\\';
      for (const int unit : {100, 10, 1}) text += static_cast<char>('0' + byte / unit % 10);
    } else {
      if (kSpecial.find(c) != kSpecial.npos) text += '\\';
      text += c;
    }
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
  name.clear();
  std::size_t length = 1;
  int pointers = 0;
  ByteReader behind({});  // reads where the last pointer led to
  ByteReader* current = &reader;
  for (;;) {
    const std::size_t here = current->Position();
    const std::uint8_t size = current->U8();
    if (!current->Ok()) return false;
    if (size == 0) return true;
    if (size >= kPointer) {
      const std::size_t target = (size & 0x3Fu) << 8 | current->U8();
      if (!current->Ok() || target >= here || ++pointers > kMostPointers) return false;
      behind = ByteReader(message);
      behind.Skip(target);
      current = &behind;
      continue;
    }
    const auto label = current->Take(size);
    length += size + 1u;
    if (size > kLongestLabel || !current->Ok() || length > kLongestName) return false;
    if (!name.empty()) name += '.';
    if (form == NameForm::Escaped) {
      AppendEscaped(name, label);
    } else {
      name.append(reinterpret_cast<const char*>(label.data()), label.size());
    }
  }
}

std::string NormalName(std::string_view name, NameForm form) {
  if (form == NameForm::Plain)
    return std::string(name.substr(0, name.size() - name.ends_with('.')));
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
  const bool plain = std::ranges::all_of(local, [](char c) {
    return c > ' ' && c <= '~' && kNeverInMailbox.find(c) == std::string_view::npos;
  });
  if (local.empty() || !plain || name.empty() || !IsHostName(name.substr(1))) return {};
  return local + "@" + std::string(name.substr(1));
}

}  // namespace netro

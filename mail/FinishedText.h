// A finished message as it is sent: every line ends with CR LF, whatever ended it before, and Bcc
// fields are left out, with the lines that continue them. Made while the message is read, in little
// memory. Thread: any, one at a time.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/ByteSource.h"

namespace netro {

class FinishedText final : public ByteSource {
 public:
  /// `message` begins with header fields, see HasHeaderBlock.
  FinishedText(std::unique_ptr<ByteSource> message, bool keepBlindCopies)
      : message_(std::move(message)), keepBlindCopies_(keepBlindCopies) {}

  std::optional<std::uint64_t> Length() const override { return std::nullopt; }
  std::int32_t Read(std::span<std::uint8_t> room, std::size_t& got) override;
  bool Rewind() override;
  std::string ErrorText() const override { return message_->ErrorText(); }

 private:
  // Where in a message a byte stands; Name until it is known whether the line is left out.
  enum class Place { Name, Field, LeftOut, Body };

  std::int32_t Refill();
  void Take(std::string_view bytes);
  void TakeText(std::string_view text);
  void EndName();
  void EndLine();

  std::unique_ptr<ByteSource> message_;
  bool keepBlindCopies_;
  Place place_ = Place::Name;
  bool leavesOut_ = false;   // the field that was begun last
  bool afterCr_ = false;     // LF belongs to it
  bool lineIsOpen_ = false;  // something stands in it
  bool ended_ = false;
  Bytes block_;
  std::string name_;  // what the line begins with
  std::string made_;
  std::size_t given_ = 0;  // of it
};

}  // namespace netro

// What a user sees of mail sessions while they run: the transcript, if it is wanted, and how much
// of a large message has been sent, both on standard error. Thread: the loop's.
#pragma once

#include <netro/SMTPCls.h>

#include <cstdint>
#include <optional>
#include <string>

#include "terminal/ProgressLines.h"

namespace netro::tool {

class MailDisplay : public SMTPClsEvents {
 public:
  explicit MailDisplay(bool transcript) : transcript_(transcript) {}

 private:
  void DisplayProtocol(const std::string& LastResult) override;
  void DataStatus(std::int32_t SendBytes, std::int32_t CompleteBytes) override;

  const bool transcript_;
  std::int32_t sent_ = 0;
  std::int32_t total_ = 0;
  ProgressLines lines_;
  std::optional<ProgressLines::Line> line_;  // none while nothing is sent
};

}  // namespace netro::tool

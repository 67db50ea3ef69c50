#include "mail/SmtpTranscript.h"

#include <utility>

namespace netro {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kLookup = "[DNS ";  // how text 7006 begins
constexpr std::string_view kLabelEnd = "] ";
constexpr std::string_view kArrow = " => ";

}  // namespace

SmtpTranscript::SmtpTranscript(ProtocolLevelEnum level, std::shared_ptr<SmtpResult> result,
                               const SmtpEvents& events)
    : level_(level), result_(std::move(result)), events_(events) {}

void SmtpTranscript::Add(std::string line) {
  if (level_ == pl_Off || line.empty()) return;
  if (level_ == pl_OnlyErrors && !failed_) {
    kept_.push_back(std::move(line));
  } else {
    Show(line);
  }
}

void SmtpTranscript::Restart(ProtocolLevelEnum level) {
  level_ = level;
  failed_ = false;
  kept_.clear();
}

void SmtpTranscript::Release() {
  failed_ = true;
  for (const std::string& line : std::exchange(kept_, {})) Show(line);
}

void SmtpTranscript::Show(const std::string& line) {
  result_->protocol.append(line).append(kLineEnd);
  if (events_.line) events_.line(line);
}

std::string_view WithoutLineEnd(std::string_view text) {
  if (text.ends_with(kLineEnd)) text.remove_suffix(kLineEnd.size());
  return text;
}

std::string GatewayText(const std::string& name, const std::string& address) {
  return name + std::string(kArrow) + address;
}

Gateway FindGateway(std::string_view transcript) {
  while (!transcript.empty()) {
    const std::size_t end = transcript.find(kLineEnd);
    std::string_view line = transcript.substr(0, end);
    transcript.remove_prefix(end == transcript.npos ? transcript.size() : end + kLineEnd.size());
    const std::size_t label = line.find(kLabelEnd);
    if (!line.starts_with(kLookup) || label == line.npos) continue;
    line.remove_prefix(label + kLabelEnd.size());
    const std::size_t arrow = line.find(kArrow);
    if (arrow == line.npos) continue;
    return {std::string(line.substr(0, arrow)), std::string(line.substr(arrow + kArrow.size()))};
  }
  return {};
}

}  // namespace netro

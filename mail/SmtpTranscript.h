// The transcript of a session as it grows, and what can be read back from one. Owned by the
// session. Thread: the session's.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mail/SmtpResult.h"

namespace netro {

class SmtpTranscript {
 public:
  /// `events` must outlive it.
  SmtpTranscript(ProtocolLevelEnum level, std::shared_ptr<SmtpResult> result,
                 const SmtpEvents& events);

  bool IsOff() const { return level_ == pl_Off; }
  bool HasWholeMessage() const { return level_ == pl_WithCompleteData; }
  /// Another call begins, which has a level of its own.
  void Restart(ProtocolLevelEnum level);
  /// Adds a line, with its event; nothing when it is empty. With pl_OnlyErrors it is kept back.
  void Add(std::string line);
  /// The session fails: adds what was kept back, and keeps nothing back any more.
  void Release();

 private:
  void Show(const std::string& line);

  ProtocolLevelEnum level_;
  bool failed_ = false;
  std::vector<std::string> kept_;
  std::shared_ptr<SmtpResult> result_;
  const SmtpEvents& events_;
};

/// Without a CR LF at the end, as replies and transcripts are shown.
std::string_view WithoutLineEnd(std::string_view text);

/// The mail exchanger that a transcript tells of; both empty when it tells of none.
struct Gateway {
  std::string name;
  std::string address;
};

/// The line that FindGateway reads, without what stands in brackets before it.
std::string GatewayText(const std::string& name, const std::string& address);
Gateway FindGateway(std::string_view transcript);

}  // namespace netro

// The dialogue of a session: commands go out, replies come back, both go into the transcript, and
// the first failure closes the connection and is recorded. The steps of a session (SmtpOpening,
// SmtpLogin, SmtpTransaction) are made of this. Owned by the session. Thread: the session's.
//
// A wait ends with a reply, with the connection, by its time-out or by the mark; a complete reply
// counts first. What a server sends without being asked belongs to the reply of the step that runs,
// and is forgotten with the next command.
//
// Every line of the transcript and every DataStatus calls out, and the object that the session runs
// for may be gone after it. The mark is cancelled then; so before a command is sent, and before
// the message is read on, the mark is asked.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mail/SmtpConnection.h"
#include "mail/SmtpExtensions.h"
#include "mail/SmtpResult.h"
#include "mail/SmtpTranscript.h"
#include "socket/Wait.h"

namespace netro {

class SmtpDialogue {
 public:
  SmtpDialogue(SMTPValues values, WaitClock waits, std::shared_ptr<SmtpResult> into,
               SmtpEvents sink);
  SmtpDialogue(const SmtpDialogue&) = delete;
  SmtpDialogue& operator=(const SmtpDialogue&) = delete;

  /// The call that the session works for from now on; null while it works for none.
  void Use(const CancelMark* mark);
  const CancelMark& Mark() const { return *mark_; }
  /// Another call begins: its result is a new one.
  void Restart(const SMTPValues& values);

  // Steps. What returns a bool is false when the session has failed.

  /// Sends a command and awaits the reply; true when the success table has it. `shown` stands in
  /// the transcript in the command's place.
  bool Command(std::int32_t step, const std::string& command);
  /// The same; returns the code, whatever it is, and 0 when the session has failed.
  std::int32_t Ask(std::int32_t step, const std::string& command);
  std::int32_t Ask(std::int32_t step, const std::string& command, const std::string& shown);
  /// Sends commands that are shown already.
  bool Send(std::int32_t step, std::string_view bytes);
  std::int32_t AwaitCode(std::int32_t step, TimePoint deadline);
  bool Await(std::int32_t step, TimePoint deadline);
  /// Whether the code, 0 for none, lets the session go on.
  bool Accept(std::int32_t step, std::int32_t code);

  TimePoint Deadline(std::int32_t step) const;
  TimePoint TimeOn(std::chrono::milliseconds timeOut) const;

  // The transcript.

  /// Puts "***" in the place of secrets.
  void Hide(std::string& text) const;
  void Show(const std::string& label, std::string_view text);
  void ShowCommand(std::string_view text) { Show(settings.senderHostName, text); }

  // Failures; all return false. `line` goes into the transcript.

  bool Fail(std::int32_t step, std::int32_t code, std::string message, std::string line = {});
  /// By the last reply.
  bool FailReply(std::int32_t step, std::int32_t code);
  /// With a text that no server said.
  bool FailText(std::int32_t step, std::int32_t code, const std::string& text);
  bool FailWait(std::int32_t step, std::int32_t error);
  bool FailSocket(std::int32_t error);
  void Succeed(std::int32_t step);

  /// The text of the last reply alone.
  std::string ReplyText() const { return std::string(connection.Reply().Text()); }

  SMTPValues settings;
  const std::shared_ptr<SmtpResult> result;
  const SmtpEvents events;
  SmtpTranscript transcript;
  SmtpConnection connection;
  std::string greeting;         // the whole reply
  bool repliesAreShown = true;  // as they come
  /// What no text may show, the longer ones first: one may be a part of another.
  std::vector<std::string> secrets;
  SmtpExtensions extensions;
  bool idled = false;  // for long enough that the server may be gone

 private:
  void ShowReceived(std::string_view bytes);

  const WaitClock waits_;
  const std::chrono::seconds zone_;
  TimePoint limit_;  // of all that the call does in the session
  const CancelMark* mark_ = nullptr;
};

/// CR, LF, NUL, or one of the forbidden characters.
bool BreaksCommand(std::string_view text, std::string_view forbidden);
std::string Printable(std::string text);
bool IsWaitError(std::int32_t error);

}  // namespace netro

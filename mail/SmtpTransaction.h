// One mail transaction (RFC 5321, section 3.3) in an open session: sender, recipients, message.
// Where the server offers PIPELINING (RFC 2920), all commands up to DATA are sent together; with
// CHUNKING (RFC 3030) too, a message of one block goes along with them, in one round trip.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mail/SmtpData.h"
#include "mail/SmtpDialogue.h"

namespace netro {

/// One recipient, and what has become of it.
struct SmtpRecipient {
  enum class State {
    Waiting,    // nobody has decided: another server may be asked
    Taken,      // by the server, for a message that is not there yet
    Delivered,  // with the message; in a simulation, without
    Refused,    // for the reason below
    Unknown,    // the whole message was sent, and no reply came
  };

  std::string address;
  State state = State::Waiting;
  std::int32_t stepID = 0;
  std::int32_t result = 0;
  std::string message;
  std::string enhanced;      // see EnhancedStatus
  std::int32_t dnsError = 0;  // of the exchanger lookup
  bool tooMany = false;  // refused in a transaction that took others; there is room in the next
};

/// Runs a transaction. False when the session has failed in it, and cannot be used again. `from`
/// may be empty. The recipients' states tell what happened, also when an event throws.
bool RunTransaction(SmtpDialogue& dialogue, const std::string& from, SmtpData& message,
                    const std::vector<SmtpRecipient*>& recipients);

void NoteState(SmtpRecipient& recipient, SmtpRecipient::State state, std::int32_t step,
               std::int32_t result, const std::string& text);

}  // namespace netro

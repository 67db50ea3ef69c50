// Reads what a server chooses: a reply to EHLO and its enhanced code, or, when the first byte is
// odd, the challenges of a login, one in each line, after a byte that chooses the mechanism.

#include "fuzz/Fuzz.h"
#include "mail/Sasl.h"
#include "mail/SmtpExtensions.h"

namespace {

void ReadReply(std::string_view reply) {
  const netro::SmtpExtensions found = netro::ParseExtensions(reply);
  if (found.lines.size() > 100 || found.mechanisms.size() > reply.size()) std::abort();
  for (const std::string& line : found.lines) {
    if (reply.find(line) == reply.npos) std::abort();
  }
  const std::string code = netro::EnhancedStatus(reply);
  if (!code.empty() && (code.size() > 9 || reply.find(code) == reply.npos)) std::abort();
  for (const char c : netro::XText(reply)) {
    if (c <= 32 || c == 127 || c == '=') std::abort();
  }
}

void Answer(std::uint8_t choice, std::string_view challenges) {
  constexpr std::string_view kNames[] = {"SCRAM-SHA-256", "CRAM-MD5", "PLAIN", "LOGIN", "XOAUTH2"};
  const auto mechanism =
      netro::MakeMechanism(kNames[choice % 5], {"user", "pencil", "token"}, "nonce");
  mechanism->InitialResponse();
  for (int round = 0; round < 4; ++round) {
    const std::size_t end = challenges.find('\n');
    const std::string_view challenge = challenges.substr(0, end);
    // An honest count of iterations only takes time.
    if (challenge.find("i=") != challenge.npos && challenge.size() > challenge.find("i=") + 3) return;
    mechanism->Respond(challenge);
    if (kNames[choice % 5] == "SCRAM-SHA-256" && mechanism->IsComplete()) std::abort();
    if (end == challenges.npos) return;
    challenges.remove_prefix(end + 1);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size > 100'000) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data), size);
  if (data[0] % 2 != 0) {
    Answer(data[1], rest.substr(2));
  } else {
    ReadReply(rest.substr(1));
  }
  return 0;
}

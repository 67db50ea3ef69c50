// Fuzzes the search for a referral in the answer of a WHOIS server: who is asked next is a host and
// a port that were not asked yet, and what is told of the rest can be shown.

#include "fuzz/Fuzz.h"
#include "web/WhoIsReferral.h"

namespace {

bool IsHostCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string answer(data, data + size);
  const netro::WhoIsServer asked{"whois.test", 43};
  const netro::WhoIsReferral referral = netro::FindWhoIsReferral(answer, {asked});
  if (referral.next) {
    Require(*referral.next != asked && !referral.next->host.empty());
    Require(std::ranges::all_of(referral.next->host, IsHostCharacter));
    Require(referral.next->port >= 1 && referral.next->port <= 65535);
  }
  for (const std::string& note : referral.notes) {
    Require(note.size() < 1000);
    Require(std::ranges::all_of(note, [](char c) { return c >= ' ' && c <= '~'; }));
  }
  return 0;
}

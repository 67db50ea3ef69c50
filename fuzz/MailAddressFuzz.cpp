// Fuzzes the address extractor, the list splitter and the rules of the syntax: an address is always
// what its parts say, and no list holds more than its text.

#include "fuzz/Fuzz.h"
#include "mail/AddressSyntax.h"
#include "mail/MailAddress.h"

namespace {

void CheckAddress(std::string_view text) {
  const netro::MailAddress found = netro::ExtractAddress(text);
  const bool hasHost = found.address != found.local;
  Require(found.address == (hasHost ? found.local + "@" + found.host : found.local));
  Require(hasHost || found.host.empty());
  Require(text.size() >= found.address.size() + found.displayName.size());
  const std::int32_t rule = netro::CheckAddressSyntax(text, {});
  Require(rule >= 0 && rule <= 9 && rule != 5);
  Require(rule != 0 || (!found.local.empty() && found.host.size() >= 5));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  CheckAddress(text);
  std::size_t total = 0;
  for (const std::string& element : netro::SplitAddressList(text)) {
    Require(!element.empty());
    total += element.size();
    CheckAddress(element);
  }
  Require(total <= size);
  return 0;
}

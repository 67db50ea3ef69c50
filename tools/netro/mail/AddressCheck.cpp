// The check of one mail address.

#include "mail/AddressCheck.h"

#include <algorithm>
#include <iterator>

#include "mail/MailRecipients.h"

namespace netro::tool {
namespace {

AddressFinding LastFinding(const SendMailCls& mail) {
  return {mail.Result(), mail.ResultMessage()};
}

std::string DomainOf(const std::string& text) {
  const auto found = RecipientsOf(text);
  const std::string address = found.empty() ? std::string() : found.front().Address;
  return address.substr(address.rfind('@') + 1);
}

void LookUp(SendMailCls& mail, AddressReport& report) {
  const std::string domain = DomainOf(report.address);
  report.exchanger = mail.QueryGatewayName(domain);
  report.lookup = LastFinding(mail);
  if (report.lookup->result != 0) return;
  report.exchangerAddress = mail.QueryGatewayIP(domain);
  report.lookup = LastFinding(mail);
  constexpr std::int32_t kNoAddress = 59;
  if (report.lookup->result == 0 && report.exchangerAddress.empty()) {
    report.lookup = {kNoAddress, "the exchanger " + report.exchanger + " has no address"};
  }
}

bool IsFine(const std::optional<AddressFinding>& finding) {
  return !finding || finding->result == 0;
}

}  // namespace

bool AddressReport::IsGood() const {
  return syntax.result == 0 && IsFine(lookup) && (!server || serverTakesIt);
}

bool AddressReport::MayBeFoundLater() const {
  constexpr std::int32_t kForGood[] = {0, 22, 59, 10131};  // no such data, no such domain, no mail
  return lookup && std::ranges::find(kForGood, lookup->result) == std::end(kForGood);
}

bool AddressReport::IsCancelled() const {
  return (lookup && lookup->result == SMTP_CANCELED) || (server && server->result == SMTP_CANCELED);
}

AddressReport CheckAddress(SendMailCls& mail, const std::string& address,
                           const AddressCheckOptions& options) {
  AddressReport report;
  report.address = address;
  const bool written = mail.CheckeMailAddressSyntax(address);
  report.syntax = LastFinding(mail);
  if (written && options.lookUp) LookUp(mail, report);
  if (written && options.askServer && !report.IsCancelled()) {
    report.serverTakesIt = mail.CheckeMailAddress(address, options.from);
    report.server = LastFinding(mail);
  }
  return report;
}

}  // namespace netro::tool

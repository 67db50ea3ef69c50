#include "mail/BounceMessage.h"

#include <algorithm>
#include <cstdint>

#include "support/DateText.h"
#include "support/QuotedPrintable.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::size_t kLongestHeader = 64 * 1024;
constexpr std::string_view kLineEnd("\r\n");

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

/// The length of "5.1.10" at the front of a text; 0 when there is none (RFC 3463, section 2).
std::size_t StatusLength(std::string_view text) {
  if (text.size() < 2 || (text[0] != '4' && text[0] != '5') || text[1] != '.') return 0;
  std::size_t at = 1;
  for (int part = 0; part < 2; ++part) {
    if (at >= text.size() || text[at] != '.') return 0;
    const std::size_t first = ++at;
    while (at < text.size() && IsDigit(text[at])) ++at;
    if (at == first || at - first > 3) return 0;
  }
  return at == text.size() || text[at] == ' ' ? at : 0;
}

std::string InAscii(std::string_view text) {
  std::string ascii(text);
  std::ranges::replace_if(
      ascii, [](char c) { return c < ' ' || c > '~'; }, '?');
  return ascii;
}

std::string DateField(Date date) {
  return FormatDate(DateFormat::Rfc822, date, std::chrono::seconds(0));
}

bool IsReply(const SpooledRecipient& recipient) {
  return recipient.Result >= 200 && recipient.Result < 600;
}

std::string Verdict(const SpooledRecipient& recipient) {
  constexpr std::int32_t kFirstTemporary = 3014;
  if (recipient.State == SpoolMayHaveArrived)
    return "may have arrived: it was sent whole, and no answer came";
  if (recipient.ResultClass < kFirstTemporary) return "was refused";
  return "could not be delivered in " + std::to_string(recipient.Tries) +
         (recipient.Tries == 1 ? " try" : " tries");
}

std::string Text(const SpooledMail& mail, const std::vector<std::size_t>& failed,
                 const BounceFacts& facts) {
  std::string text = "This is the mail system at " + facts.host + ".\r\n\r\nYour message of " +
                     DateField(mail.Created) +
                     " did not reach all of its recipients. It will not be\r\n"
                     "sent to the following ones again.\r\n";
  for (const std::size_t number : failed) {
    const SpooledRecipient& recipient = mail.Recipients[number];
    text += "\r\n<" + recipient.Address + ">: " + Verdict(recipient) + "\r\n";
    if (!recipient.Answer.empty()) text += "    " + recipient.Answer + "\r\n";
  }
  return text;
}

std::string Status(const SpooledMail& mail, const std::vector<std::size_t>& failed,
                   const BounceFacts& facts) {
  std::string status = "Reporting-MTA: dns; " + InAscii(facts.host) +
                       "\r\nArrival-Date: " + DateField(mail.Created) + "\r\n";
  for (const std::size_t number : failed) {
    const SpooledRecipient& recipient = mail.Recipients[number];
    status += "\r\nFinal-Recipient: rfc822; " + InAscii(recipient.Address) +
              "\r\nAction: failed\r\nStatus: " + StatusCode(recipient) +
              "\r\nLast-Attempt-Date: " + DateField(recipient.LastTry) + "\r\n";
    if (recipient.Answer.empty()) continue;
    status += IsReply(recipient) ? "Diagnostic-Code: smtp; " : "Diagnostic-Code: x-netro; ";
    status += InAscii(recipient.Answer) + "\r\n";
  }
  return status;
}

/// The lines of a header, whole ones only.
std::string_view HeaderOf(std::string_view message) {
  std::size_t end = message.substr(0, kLongestHeader).find("\r\n\r\n");
  if (end == message.npos) end = message.substr(0, kLongestHeader).rfind(kLineEnd);
  return end == message.npos ? std::string_view() : message.substr(0, end + kLineEnd.size());
}

/// Whatever ended its lines; a file may hold anything.
std::string WithLineEnds(std::string_view header) {
  std::string lines;
  for (std::size_t at = 0; at < header.size(); ++at) {
    const char c = header[at];
    if (c == '\r' && header.substr(at).starts_with(kLineEnd)) continue;
    if (c == '\r' || c == '\n') {
      lines += kLineEnd;
    } else {
      lines += c;
    }
  }
  return lines;
}

void AddPart(std::string& out, const std::string& boundary, std::string_view type,
             std::string_view text, bool encode) {
  out += "--" + boundary + "\r\nContent-Type: ";
  out.append(type).append(kLineEnd);
  if (encode) out += "Content-Transfer-Encoding: quoted-printable\r\n";
  out += kLineEnd;
  if (encode) {
    AppendQuotedPrintable(out, text);
  } else {
    out += text;
  }
  out += kLineEnd;
}

}  // namespace

std::string StatusCode(const SpooledRecipient& recipient) {
  constexpr std::size_t kCode = 4;  // "550 "
  const std::string_view answer = recipient.Answer;
  const std::string_view said =
      IsReply(recipient) ? answer.substr(std::min(kCode, answer.size())) : std::string_view();
  if (const std::size_t length = StatusLength(said)) return std::string(said.substr(0, length));
  if (recipient.State == SpoolMayHaveArrived) return "4.4.2";
  switch (recipient.ResultClass) {
    case 3010:
      return "5.1.2";
    case 3013:
      return "5.1.3";
    case 3011:
      return "5.0.0";
    default:
      return "4.4.7";
  }
}

std::string ComposeBounce(const SpooledMail& mail, const std::vector<std::size_t>& failed,
                          const BounceFacts& facts) {
  const std::string host = InAscii(facts.host);
  std::string out = "From: Mail Delivery System <mailer-daemon@" + host +
                    ">\r\nDate: " + DateField(facts.now) + "\r\nTo: <" + mail.Sender +
                    ">\r\nSubject: Undelivered mail\r\nMessage-ID: <" + facts.boundary + "@" +
                    host +
                    ">\r\nAuto-Submitted: auto-replied\r\nMIME-Version: 1.0\r\n"
                    "Content-Type: multipart/report; report-type=delivery-status;\r\n"
                    "\tboundary=\"" +
                    facts.boundary + "\"\r\n\r\n";
  const std::string header = WithLineEnds(HeaderOf(facts.message));
  AddPart(out, facts.boundary, "text/plain; charset=utf-8", Text(mail, failed, facts), true);
  AddPart(out, facts.boundary, "message/delivery-status", Status(mail, failed, facts), false);
  AddPart(out, facts.boundary, "text/rfc822-headers", header, !IsAscii(header));
  return out + "--" + facts.boundary + "--\r\n";
}

}  // namespace netro

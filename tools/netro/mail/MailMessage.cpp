// The message of "netro mail": checks what the user has given and composes it.

#include "mail/MailMessage.h"

#include <netro/SocketCls.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>

#include "mail/MailRecipients.h"
#include "terminal/Command.h"
#include "terminal/OptionValues.h"
#include "terminal/System.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

std::string Joined(const std::vector<std::string>& lists) {
  std::string joined;
  for (const std::string& list : lists) joined += (joined.empty() ? "" : ", ") + list;
  return joined;
}

/// A named server may know hosts of one word.
bool IsAddress(SendMailCls& mail, const std::string& address) {
  const auto found = RecipientsOf(address);
  const bool good = mail.CheckeMailAddressSyntax(address);
  if (good || mail.ReceiverHostName().empty() || found.size() != 1) return good;
  const std::string& bare = found[0].Address;
  const std::size_t at = bare.rfind('@');
  const bool isWord = at != bare.npos && at + 1 < bare.size() && bare.find('.', at) == bare.npos;
  if (isWord && mail.CheckeMailAddressSyntax(bare + ".localdomain")) return true;
  return mail.CheckeMailAddressSyntax(address);  // for its words
}

void CheckAddress(SendMailCls& mail, const std::string& option, const std::string& address) {
  if (!IsAddress(mail, address)) {
    throw UsageError(option + ": \"" + address + "\" is no address: " + mail.ResultMessage());
  }
  const auto isControl = [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; };
  if (std::ranges::any_of(address, isControl)) {  // which only a session would refuse
    throw UsageError(option + ": \"" + address + "\" has control characters");
  }
}

void CheckAddresses(SendMailCls& mail, const MailOptions& options, const std::string& to,
                    const std::string& cc, const std::string& bcc) {
  constexpr const char* kOptions[] = {"", "--to", "--cc", "--bcc"};
  if (!options.hasFrom) throw UsageError("--from is required");
  mail.NullSender(options.from.empty());
  if (!options.from.empty()) CheckAddress(mail, "--from", options.from);
  const auto recipients = RecipientsOf(to, cc, bcc);
  if (recipients.empty()) throw UsageError("no recipient; name one with --to, --cc or --bcc");
  for (const RecipientOutcome& recipient : recipients) {
    CheckAddress(mail, kOptions[recipient.Type], recipient.Address);
  }
}

void UseCharset(SendMailCls& mail, const std::string& name) {
  if (name.empty()) return;
  if (!IsCharset(name)) {
    throw UsageError("--charset: this system does not know \"" + name + "\"");
  }
  mail.CharSet(name);
}

std::string ReadText(const MailOptions& options) {
  return options.textFile.empty() ? options.text : ReadInput("--text-file", options.textFile);
}

/// A file, and its name in the message.
std::pair<std::string, std::string> ReadFileAndName(const std::string& value) {
  std::error_code problem;
  const std::size_t equals = value.rfind('=');
  if (equals == value.npos || std::filesystem::exists(value, problem)) {
    return {value, std::filesystem::path(value).filename().string()};
  }
  return {value.substr(0, equals), value.substr(equals + 1)};
}

void CheckAdded(bool added, const SendMailCls& mail, const std::string& what) {
  constexpr std::int32_t kSystemErrors = 20000;
  if (added) return;
  const std::int32_t error = mail.Result() - kSystemErrors;
  throw UsageError(what + ": " + (error > 0 ? std::strerror(error) : mail.ResultMessage()));
}

/// A second field of these would spoil the message (RFC 5322, section 3.6), Bcc reach nobody.
void CheckHeaderName(std::string name) {
  constexpr const char* kOwn[] = {"from", "to", "cc", "bcc", "subject", "date", "message-id"};
  std::ranges::transform(name, name.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  if (std::ranges::find(kOwn, name) != std::end(kOwn)) {
    throw UsageError("--header: \"" + name + "\" is a field that the message has from elsewhere");
  }
}

/// The library would leave away what an id cannot hold.
void UseMessageID(SendMailCls& mail, std::string id) {
  if (id.empty()) return;
  const std::string given = id;
  if (id.size() > 1 && id.starts_with('<') && id.ends_with('>')) id = id.substr(1, id.size() - 2);
  constexpr std::size_t kLongest = 900;
  const std::size_t at = id.find('@');
  const bool good =
      id.size() <= kLongest && at != id.npos && at > 0 && at + 1 < id.size() &&
      std::ranges::all_of(id, [](char c) { return c > ' ' && c <= '~' && c != '<' && c != '>'; });
  if (!good) throw UsageError("--message-id: \"" + given + "\" is not like left@right");
  mail.MessageID(id);
}

void AddFiles(SendMailCls& mail, const MailOptions& options) {
  for (const std::string& value : options.inlineFiles) {
    const auto [file, name] = ReadFileAndName(value);
    CheckAdded(mail.AddRelatedFileX(file, name), mail, "--inline: cannot read " + file);
  }
  for (const std::string& value : options.attachments) {
    const auto [file, name] = ReadFileAndName(value);
    CheckAdded(mail.AddAttachmentX(file, name), mail, "--attach: cannot read " + file);
  }
}

/// A picture that nothing refers to is not shown; the name may have lost characters.
void WarnOfUnusedFiles(const MailOptions& options, const std::string& html) {
  const auto isDropped = [](char c) {
    return !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
             c == '_' || c == '.');
  };
  for (const std::string& value : options.inlineFiles) {
    std::string name = ReadFileAndName(value).second;
    std::erase_if(name, isDropped);
    if (html.find("cid:" + name) == html.npos) {
      ShowMessage("--inline: the HTML does not refer to cid:" + name);
    }
  }
}

/// Who the message is from; that of one without a sender names the program that wrote it.
std::string SenderOf(const MailOptions& options, const SendMailCls& mail) {
  if (!options.from.empty()) return options.from;
  const SocketCls system;
  std::string host = mail.SenderHostName().empty() ? system.LocalHostName() : mail.SenderHostName();
  if (host.find('.') == host.npos) host += ".localdomain";
  return "Mail Delivery <MAILER-DAEMON@" + host + ">";
}

void UseMessageFile(const MailOptions& options, SendMailCls& mail, const std::string& from,
                    const std::string& to, const std::string& cc, const std::string& bcc) {
  const std::string& file = options.messageFile;
  const bool good =
      file == "-" ? mail.NewMsgFromMimeBuffer(ReadInput("--eml", file), from, to, cc, bcc)
                  : mail.NewMsgFromMimeFile(file, from, to, cc, bcc);
  CheckAdded(good, mail, "--eml: cannot send " + file);
}

}  // namespace

void ComposeMail(const MailOptions& options, SendMailCls& mail) {
  const std::string to = Joined(options.to), cc = Joined(options.cc), bcc = Joined(options.bcc);
  CheckAddresses(mail, options, to, cc, bcc);
  UseCharset(mail, options.charset);
  const std::string from = SenderOf(options, mail);
  if (!options.messageFile.empty()) return UseMessageFile(options, mail, from, to, cc, bcc);
  const bool isHtml = !options.htmlFile.empty();
  if (!options.hasText && options.textFile.empty() && !isHtml && options.attachments.empty() &&
      !options.simulate && !options.trace && options.lastStep.empty()) {
    throw UsageError("no message; give --text, --text-file (- is standard input) or --html");
  }
  if (options.textFile == "-" && options.htmlFile == "-") {
    throw UsageError("standard input cannot be both --text-file and --html");
  }
  const std::string text = ReadText(options);
  const std::string html = isHtml ? ReadInput("--html", options.htmlFile) : std::string();
  WarnOfUnusedFiles(options, html);
  if (isHtml) {
    mail.NewHTMLMsgX(options.subject, from, to, html, text, cc, bcc);
  } else {
    mail.NewTextMsg(options.subject, from, to, text, cc, bcc);
  }
  UseMessageID(mail, options.messageID);
  for (const std::string& line : options.headers) {
    const auto [name, value] = ReadHeader(line);
    CheckHeaderName(name);
    CheckAdded(mail.AddHeader(name, value), mail, "--header: \"" + name + "\"");
  }
  AddFiles(mail, options);
}

}  // namespace netro::tool

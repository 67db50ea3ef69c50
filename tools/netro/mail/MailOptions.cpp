// The options of "netro mail".

#include "mail/MailOptions.h"

#include <CLI/CLI.hpp>

namespace netro::tool {
namespace {

constexpr const char* kExamples = R"(
Examples:
  netro mail --from jane@example.com --to boss@example.org --subject Report --text 'All is well.'
  netro mail -f jane@example.com --to 'Boss <boss@example.org>, bob@example.net' --text-file - < note
  netro mail -f jane@example.com --to boss@example.org --html page.html --inline chart.png \
      --attach report.pdf=Report2024.pdf --server mail.example.com --transcript
  netro mail -f jane@example.com --to boss@example.org --eml message.eml \
      --server mail.example.com --user jane --password-file ~/.mailpass
  netro mail -f jane@example.com --to boss@example.org --trace
  netro mail -f jane@example.com --to boss@example.org --text Hello. --spool ~/outgoing
  netro mail --deliver ~/outgoing --server mail.example.com

Addresses are written as in header fields, several in a list separated by commas; all are checked
before anything is sent. All recipients at a server share a session. One line tells of each, as soon
as all are done: accepted, or where it failed and whether it is worth another try. Exit status 0 when
all were accepted. With --trace it is 0 when each has a server that takes it.

Texts are UTF-8. Of the names of files ASCII letters, digits, "_" and "." are kept in the message;
an inline file is shown where the HTML has "cid:" and this name. The fields that have options, and
Date, cannot be given with --header.

--spool prints the id of the message. --deliver tries what is due: a message at once, then after 5,
15, 30 and 60 minutes, then every hour for two days; what cannot be delivered is returned to its
sender by mail. Run it every few minutes; several may work on one folder. Its exit status is 0 when
all that was due was delivered.

--json prints one object: ok, simulated, message_bytes, seconds, error (number and text), and the
list recipients: address, list (to, cc, bcc), accepted, step (number and name), result, message (the
server's words), class (number and text, 0 when accepted), enhanced_status, tries (host, address,
protected, step, result, message) and, with --transcript, transcript. Of --trace it has ok, error and
recipients, each with its servers. Of --spool it has ok, id and error; of --deliver ok, error, next_try and the list events; of --list ok,
error and the list messages.)";

void DeclareList(CLI::App& options, const char* names, std::vector<std::string>& values,
                 const char* use, const char* type, const char* group) {
  options.add_option(names, values, use)
      ->type_name(type)
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->group(group);
}

void DeclareAddresses(CLI::App& options, MailOptions& values) {
  constexpr const char* kGroup = "Addresses";
  constexpr const char* kType = "ADDRESSES";
  options
      .add_option_function<std::string>(
          "-f,--from",
          [&values](const std::string& given) {
            values.from = given;
            values.hasFrom = true;
          },
          "The sender; empty as that of bounces, to which nobody replies")
      ->type_name("ADDRESS")
      ->group(kGroup);
  DeclareList(options, "--to", values.to, "The recipients; may be repeated", kType, kGroup);
  DeclareList(options, "--cc", values.cc, "Those who get a copy", kType, kGroup);
  DeclareList(options, "--bcc", values.bcc, "The same; the message does not name them", kType,
              kGroup);
}

void DeclareMessage(CLI::App& options, MailOptions& values) {
  constexpr const char* kGroup = "Message";
  options.add_option("--subject", values.subject, "What it is about")
      ->type_name("TEXT")
      ->group(kGroup);
  auto* text = options
                   .add_option_function<std::string>(
                       "--text",
                       [&values](const std::string& given) {
                         values.text = given;
                         values.hasText = true;
                       },
                       "The text")
                   ->type_name("TEXT")
                   ->group(kGroup);
  options.add_option("--text-file", values.textFile, "The text is this file; - is standard input")
      ->type_name("FILE")
      ->excludes(text)
      ->group(kGroup);
  auto* html = options
                   .add_option("--html", values.htmlFile,
                               "This HTML; a plain text goes along, made of it unless one is\n"
                               "given. - is standard input")
                   ->type_name("FILE")
                   ->group(kGroup);
  DeclareList(options, "-a,--attach", values.attachments,
              "Attach this file, under another name if one is given; may be\nrepeated",
              "FILE[=NAME]", kGroup);
  DeclareList(options, "--inline", values.inlineFiles,
              "Add a file that the HTML refers to as cid:NAME; may be repeated", "FILE[=NAME]",
              kGroup);
  options.get_option("--inline")->needs(html);
  DeclareList(options, "-H,--header", values.headers, "Add a header field; may be repeated",
              "'NAME: VALUE'", kGroup);
  options
      .add_option("--message-id", values.messageID,
                  "The Message-ID; else a random one at the sender's domain")
      ->type_name("ID")
      ->group(kGroup);
  auto* eml = options
                  .add_option("--eml", values.messageFile,
                              "Send this finished message as it is, but for Bcc fields; - is\n"
                              "standard input")
                  ->type_name("FILE")
                  ->group(kGroup);
  for (const char* other : {"--subject", "--text", "--text-file", "--html", "--attach", "--inline",
                            "--header", "--message-id"}) {
    eml->excludes(options.get_option(other));
  }
  options
      .add_option("--charset", values.charset,
                  "Send texts in this character set, if it can hold them; else\n"
                  "the locale's")
      ->type_name("NAME")
      ->group(kGroup);
}

void DeclareOutput(CLI::App& options, MailOptions& values) {
  constexpr const char* kGroup = "Output";
  auto* simulate = options
                       .add_flag("-n,--simulate", values.simulate,
                                 "Only ask the servers whether they take the addresses; nothing\n"
                                 "is delivered")
                       ->group(kGroup);
  options
      .add_option("--quit-after", values.lastStep,
                  "Say QUIT after this step: connect, helo, tls, login, from or to")
      ->type_name("STEP")
      ->group(kGroup);
  auto* transcript = options
                         .add_flag("-v,--transcript", values.transcript,
                                   "Show what is said in the sessions, on standard error")
                         ->group(kGroup);
  auto* trace = options
                    .add_flag("--trace", values.trace,
                              "Show what would happen to each recipient: all servers in their\n"
                              "order, what they offer and whether they take it; nothing is sent")
                    ->excludes(simulate)
                    ->group(kGroup);
  auto* json = options.add_flag("--json", values.json, "Print one JSON object")->group(kGroup);
  options.add_flag("--print", values.print, "Print the message instead of sending it")
      ->excludes(simulate)
      ->excludes(trace)
      ->excludes(transcript)
      ->excludes(json)
      ->group(kGroup);
}

void DeclareFolder(CLI::App& options, MailOptions& values) {
  constexpr const char* kGroup = "Spool";
  auto* spool = options
                    .add_option("--spool", values.spoolFolder,
                                "Put the message into this folder, from where it is delivered\n"
                                "later, instead of sending it; the folder is made if need be")
                    ->type_name("DIR")
                    ->group(kGroup);
  for (const char* other : {"--simulate", "--print", "--trace", "--quit-after", "--transcript"}) {
    spool->excludes(options.get_option(other));
  }
  auto* deliver = options
                      .add_option("--deliver", values.deliverFolder,
                                  "Deliver what is due in this folder, and plan the next tries")
                      ->type_name("DIR")
                      ->excludes(spool)
                      ->group(kGroup);
  options.add_flag("--all", values.all, "What is not due yet, too")->needs(deliver)->group(kGroup);
  options.add_option("--list", values.listFolder, "List the messages in this folder")
      ->type_name("DIR")
      ->excludes(spool)
      ->excludes(deliver)
      ->group(kGroup);
}

}  // namespace

void DeclareMailOptions(CLI::App& options, MailOptions& values) {
  DeclareAddresses(options, values);
  DeclareMessage(options, values);
  DeclareMailConnection(options, values.connection);
  DeclareOutput(options, values);
  DeclareFolder(options, values);
  options.footer(kExamples);
}

}  // namespace netro::tool

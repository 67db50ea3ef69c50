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
  netro mail -f jane@example.com --to boss@example.org --simulate

Addresses are written as in header fields, several in a list separated by commas; all are checked
before anything is sent. Each recipient gets the message in a session of its own. One line tells of
each, as soon as all are done: accepted, or where the session failed and whether it is worth another
try. Exit status 0 when all were accepted.

Texts are UTF-8. Of the names of files ASCII letters, digits, "_" and "." are kept in the message;
an inline file is shown where the HTML has "cid:" and this name. There is no encryption and no
login. The fields that have options, and Date, cannot be given with --header.

--json prints one object: ok, simulated, message_bytes, seconds, error (number and text), and the
list recipients: address, list (to, cc, bcc), accepted, step (number and name), result, message (the
server's words), class (number and text, 0 when accepted) and, with --transcript, transcript.)";

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
  options.add_option("-f,--from", values.from, "The sender")
      ->required()
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
  auto* transcript = options
                         .add_flag("-v,--transcript", values.transcript,
                                   "Show what is said in the sessions, on standard error")
                         ->group(kGroup);
  auto* json = options.add_flag("--json", values.json, "Print one JSON object")->group(kGroup);
  options.add_flag("--print", values.print, "Print the message instead of sending it")
      ->excludes(simulate)
      ->excludes(transcript)
      ->excludes(json)
      ->group(kGroup);
}

}  // namespace

void DeclareMailOptions(CLI::App& options, MailOptions& values) {
  DeclareAddresses(options, values);
  DeclareMessage(options, values);
  DeclareMailConnection(options, values.connection);
  DeclareOutput(options, values);
  options.footer(kExamples);
}

}  // namespace netro::tool

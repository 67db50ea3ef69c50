// The options of "netro mail". Thread: any.
#pragma once

#include <string>
#include <vector>

#include "mail/MailConnection.h"

namespace netro::tool {

/// The options as they were typed.
struct MailOptions {
  std::string from;
  bool hasFrom = false;  // it may be empty
  std::vector<std::string> to;
  std::vector<std::string> cc;
  std::vector<std::string> bcc;
  std::string subject;
  std::string text;
  bool hasText = false;  // it may be empty
  std::string textFile;
  std::string htmlFile;
  std::vector<std::string> attachments;
  std::vector<std::string> inlineFiles;
  std::vector<std::string> headers;
  std::string messageID;
  std::string messageFile;
  std::string charset;
  std::string spoolFolder;
  std::string deliverFolder;
  std::string listFolder;
  bool all = false;
  MailConnectionOptions connection;
  bool simulate = false;
  bool trace = false;
  std::string lastStep;
  bool print = false;
  bool transcript = false;
  bool json = false;
};

void DeclareMailOptions(CLI::App& options, MailOptions& values);

}  // namespace netro::tool

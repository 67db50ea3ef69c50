// netro_compose: makes the message that the JSON object on standard input describes, see
// mime_test.py, and writes its MIME text to standard output; with a port it delivers it there
// first.
#include <netro/SendMailCls.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

namespace {

using netro::SendMailCls;

bool AddFile(SendMailCls& mail, const nlohmann::json& file) {
  const std::string path = file["path"], name = file["name"];
  if (file["related"]) return mail.AddRelatedFileX(path, name);
  return mail.AddAttachmentX(path, name);
}

bool Compose(SendMailCls& mail, const nlohmann::json& message) {
  const std::string subject = message["subject"], from = message["from"], to = message["to"],
                    cc = message["cc"], text = message["text"];
  if (message.contains("charset")) mail.CharSet(message["charset"]);
  const bool begun = message["html"]
                         ? mail.NewHTMLMsgX(subject, from, to, text, message["alternative"], cc)
                         : mail.NewTextMsg(subject, from, to, text, cc);
  if (!begun) return false;
  for (const auto& [title, value] : message["headers"].items()) {
    if (!mail.AddHeader(title, value)) return false;
  }
  for (const auto& file : message["files"]) {
    if (!AddFile(mail, file)) return false;
  }
  return true;
}

// As it is, or as a finished message.
bool Deliver(SendMailCls& mail, const nlohmann::json& message) {
  mail.ReceiverHostName("127.0.0.1");
  mail.Port(message["port"]);
  const std::string composed = mail.MimeBuffer();
  return (!message["finished"] || mail.NewMsgFromMimeBuffer(composed, "a@xy.test", "b@xy.test")) &&
         mail.SendMail();
}

}  // namespace

int main() {
  SendMailCls mail;
  const auto message = nlohmann::json::parse(std::cin);
  if (!Compose(mail, message) || (message.contains("port") && !Deliver(mail, message))) {
    std::cerr << mail.Result() << ' ' << mail.ResultMessage() << '\n';
    return 1;
  }
  std::cout << mail.MimeBuffer();
}

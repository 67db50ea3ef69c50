// netro_compose: makes the message that the JSON object on standard input describes, see
// mime_test.py, and writes its MIME text to standard output; with a port it delivers it there
// first. With the name of a file to save it in, it measures memory.
#include <netro/SendMailCls.h>

#include <fstream>
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

// Each way on which no message is held whole; then how much memory that took at most, in KiB, or 0
// where a sanitizer has its own in it.
bool MeasureMemory(SendMailCls& mail, const nlohmann::json& message) {
  mail.ReceiverHostName("127.0.0.1");
  mail.Port(message["port"]);
  const std::string file = message["saved"];
  if (!mail.SaveMessage(file) || !mail.SendMail()) return false;
  if (!mail.NewMsgFromMimeFile(file, "a@xy.test", "b@xy.test") || !mail.SendMail()) return false;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  std::cout << 0;
#else
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word && word != "VmHWM:") continue;
  status >> word;
  std::cout << word;
#endif
  return true;
}

}  // namespace

int main() {
  SendMailCls mail;
  const auto message = nlohmann::json::parse(std::cin);
  const bool measures = message.contains("saved");
  bool done = Compose(mail, message);
  if (done && measures) done = MeasureMemory(mail, message);
  if (done && !measures && message.contains("port")) done = Deliver(mail, message);
  if (!done) {
    std::cerr << mail.Result() << ' ' << mail.ResultMessage() << '\n';
    return 1;
  }
  if (!measures) std::cout << mail.MimeBuffer();
}

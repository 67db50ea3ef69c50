// Delivers a finished message in one session, and prints what both sides say:
// smtp_session HOST PORT FROM TO < message
#include <netro/SMTPCls.h>

#include <cstdlib>
#include <iostream>
#include <string>

struct Transcript : netro::SMTPClsEvents {
  void DisplayProtocol(const std::string& line) override { std::cout << line << '\n'; }
};

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  std::string message;
  for (std::string line; std::getline(std::cin, line);) message += line + "\r\n";

  Transcript transcript;
  netro::SMTPCls smtp;
  smtp.Events(&transcript);
  smtp.ProtocolLevel(netro::pl_standard);  // passwords are never in it
  smtp.ReceiverHostName(argv[1]);
  smtp.Port(std::atoi(argv[2]));
  smtp.TotalTimeout(std::chrono::seconds(60));
  if (smtp.SMTP(argv[3], argv[4], message)) return 0;
  std::cout << "ended at " << smtp.GetSMTPStepName(smtp.StepID()) << ": " << smtp.ResultMessage()
            << '\n';
  return 1;
}

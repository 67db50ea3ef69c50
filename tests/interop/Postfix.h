// The mail server postfix, an instance of its own on a port of 127.0.0.1. It takes mail for xy.test
// from everybody, refuses gone@xy.test with 550 and busy@xy.test with 451, and puts all the rest
// into one mailbox. Needs root. Thread: the test's.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ServerProcess.h"

namespace netro::interop {

struct ArrivedMail {
  std::string recipient;
  std::string text;  // as sent: with CR LF, and without what the server put in front
};

class Postfix {
 public:
  /// Lines behind those of main.cf and of master.cf.
  struct Extra {
    std::string settings;
    std::string services;
  };
  using MakeExtra = std::function<Extra(const std::string& folder, const std::string& port)>;

  explicit Postfix(const MakeExtra& extra = nullptr);

  /// Why it cannot be used here; empty when it can.
  static std::string Missing();

  bool IsUp() const { return server_.IsUp(); }
  int Port() const { return server_.Port(); }
  std::string Output() const { return server_.Output(); }
  /// The folder that gets a file for each mail.
  std::string Mailbox() const { return server_.Folder() / "mail/new"; }

  /// Waits until no session holds a mail and none is under way to the mailbox, and empties that.
  std::vector<ArrivedMail> TakeMail();

 private:
  bool AwaitEmptyQueue() const;

  ServerProcess server_;
};

}  // namespace netro::interop

// The mails of a watcher's reports, sent one after the other on a helper thread, which ends when
// there is none left. Any thread may call any member.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace netro {

class SendMailCls;

struct WatchMail {
  std::string server;  // "host[:port]"; empty: the recipients' exchangers
  std::string sender;
  std::string recipients;
  std::string subject;
  std::string text;
};

class WatchMails : public std::enable_shared_from_this<WatchMails> {
 public:
  /// Returns the empty text, or why the mail will not be sent.
  std::string Send(WatchMail mail);
  /// Mails that are not out yet.
  std::size_t Waiting() const;
  /// What went wrong since the last call, a text for each mail.
  std::vector<std::string> TakeFailures();
  /// Ends the one under way and forgets the others.
  void GiveUp();

 private:
  void Work();
  bool Next(SendMailCls& sender, WatchMail& mail);
  static std::string Deliver(SendMailCls& sender, const WatchMail& mail);
  void Done(std::string failure);

  mutable std::mutex mutex_;
  std::deque<WatchMail> mails_;
  std::vector<std::string> failures_;
  SendMailCls* underWay_ = nullptr;
  bool running_ = false;
};

}  // namespace netro

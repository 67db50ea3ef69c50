// One DeliverDue: made on the caller's stack. It works on copies of the settings and outlives a
// deletion of the MailSpool, which it then no longer touches; an answer that a server has given is
// recorded all the same.
//
// What is due is visited domain by domain, so that one session serves all of a domain. A visit
// claims the message, reads it anew, sends it, records the answers, and only then tells the events.
// The last visit of a message reports what has failed and removes what is done.
#pragma once

#include <netro/MailSpool.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "mail/SpoolFolder.h"
#include "mail/SpoolSchedule.h"
#include "platform/CallState.h"
#include "socket/Wait.h"

namespace netro {

class SpoolRun {
 public:
  SpoolRun(MailSpool& owner, bool all);
  /// True when all was tried.
  bool Deliver();

 private:
  struct Group {
    std::string domain;  // in small letters; empty when all go to one server
    std::vector<std::string> ids;
  };
  using Numbers = std::vector<std::size_t>;  // of recipients

  void Pass();
  void Plan(const std::string& id);
  Group& GroupOf(const std::string& domain);
  std::string DomainOf(const std::string& address) const;
  bool IsDueNow(const SpooledRecipient& recipient) const;
  Numbers DueIn(const SpooledMail& mail, const std::string& domain) const;

  void Visit(const std::string& domain, const std::string& id, bool last);
  void Send(SpoolItem& item, const Numbers& due);
  bool Compose(const SpoolItem& item, const Numbers& due);
  Numbers Keep(SpoolItem& item, const Numbers& due, const std::vector<RecipientOutcome>& outcomes);
  void Tell(const SpooledMail& mail, const Numbers& numbers);
  void Settle(SpoolItem& item);
  bool Return(SpoolItem& item, const Numbers& failed);
  std::int32_t PutBounce(const SpoolItem& item, const Numbers& failed, const std::string& id) const;
  RecipientOutcome Missing() const;

  bool GoesOn();
  void Trouble(std::int32_t error, const std::string& path);
  void SetAside(const std::string& id);
  template <class Event>
  void Raise(Event event);

  MailSpool& owner_;
  const std::shared_ptr<CallState> call_;
  const std::shared_ptr<SendMailCls> mail_;
  const CallMark mark_;
  const std::string folder_;
  const SpoolSchedule schedule_;
  const bool bounces_;
  bool all_;
  std::vector<Group> groups_;
  std::unordered_map<std::string, std::size_t> groupNumbers_;
  std::unordered_map<std::string, std::size_t> visitsLeft_;  // of an id
  std::optional<RecipientOutcome> down_;  // why the server of the group cannot be reached
  bool bounced_ = false;
  bool stopped_ = false;
  std::int32_t result_ = 0;  // what went wrong first
  std::string resultMessage_;
};

}  // namespace netro

// One question of a lookup by name, asked of one server after the other until one knows. Each try
// has a connected socket of its own, which stays open until the question is decided: a late reply
// counts. On the caller's thread.
#pragma once

#include <chrono>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dns/DnsExchange.h"
#include "dns/LookupQuery.h"
#include "socket/DatagramSocket.h"
#include "socket/HostLookup.h"

namespace netro {

/// How often and how long servers are asked.
struct LookupRules {
  std::chrono::milliseconds wait{1500};  // for each try
  int rounds = 3;                        // through the servers that are silent
};

class NameQuestion {
 public:
  /// `servers` and `mark` are the caller's.
  NameQuestion(DnsQuestion question, const std::vector<DnsServer>& servers, LookupRules rules,
               const CancelMark& mark, TimePoint deadline);

  /// Takes what has come and makes the tries that are due. May wait, for a server's own address or
  /// for an exchange over TCP.
  void Step();
  bool IsDecided() const { return decided_; }
  bool HasFound() const { return decided_ && answer_.error == 0; }
  TimePoint DecidedAt() const { return decidedAt_; }
  /// True when Step would find something, or when the moment has come.
  bool HasNews() const;
  TimePoint Due() const { return due_; }
  void Decide(std::int32_t error);
  LookupAnswer TakeAnswer() { return std::move(answer_); }

 private:
  struct Try {
    Try(Notifier& notifier, std::shared_ptr<CallState> call) : socket(notifier, std::move(call)) {}
    DatagramSocket socket;
    LookupQuery query;
    std::size_t server = 0;
  };

  // What a reply comes to that does not decide the question. Attacked: it is not the server's,
  // whose own may still come.
  enum class Outcome { Useless, AskedAgain, Attacked };

  void Next();
  bool ChooseServer();
  void Begin(std::size_t server, bool extended);
  void Take(Try& of);
  void Drop(std::size_t server);
  Outcome Judge(const Bytes& message, const Try& of);
  void Judge(const DnsReply& reply);
  bool AskOverTcp(std::size_t server);
  bool TakeRecords(const DnsReply& reply);
  bool IsUsable(const std::string& data) const;

  const DnsQuestion question_;
  const std::string name_;  // as it stands in the question
  const std::vector<DnsServer>& servers_;
  const LookupRules rules_;
  const CancelMark& mark_;
  const TimePoint deadline_;

  std::vector<std::size_t> order_;  // servers that may know, by their number
  std::size_t next_ = 0;            // in `order_`
  int round_ = 0;
  std::list<Try> tries_;
  int strangers_ = 0;                 // replies that do not fit
  TimePoint due_;                     // of the next try
  bool awaiting_ = false;             // the last one may still be answered in time
  std::set<std::size_t> withoutTcp_;  // servers that were asked over it, and did not decide
  bool endless_ = false;              // the aliases of a reply lead in a circle
  bool decided_ = false;
  TimePoint decidedAt_;
  LookupAnswer answer_;
};

}  // namespace netro

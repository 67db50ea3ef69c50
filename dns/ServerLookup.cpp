#include "dns/ServerLookup.h"

#include <algorithm>
#include <list>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::chrono::milliseconds kResolutionDelay(50);

// Whoever has found something does not wait long for the other family (RFC 8305, section 3).
TimePoint Patience(const std::list<NameQuestion>& questions) {
  TimePoint until = TimePoint::max();
  for (const NameQuestion& question : questions) {
    if (question.HasFound()) until = std::min(until, question.DecidedAt() + kResolutionDelay);
  }
  return until;
}

// Steps through the questions until all are decided or the call has to end.
std::int32_t Answer(std::list<NameQuestion>& questions, const CancelMark& mark,
                    TimePoint deadline) {
  const auto news = [&] { return std::ranges::any_of(questions, &NameQuestion::HasNews); };
  for (;;) {
    TimePoint due = deadline;
    bool open = false;
    for (NameQuestion& question : questions) {
      if (!question.IsDecided()) question.Step();
      if (mark.Cancelled()) return kErrCancelled;
      if (question.IsDecided()) continue;
      open = true;
      due = std::min(due, question.Due());
    }
    if (!open) return 0;
    const TimePoint patience = Patience(questions);
    if (Now() >= patience) return kErrTryAgain;
    if (mark.Expired(deadline)) return kErrTimedOut;
    WaitUntil(mark, std::min(due, patience), news);
    if (mark.Cancelled()) return kErrCancelled;
  }
}

}  // namespace

std::optional<std::vector<DnsServer>> ParseServerList(const std::string& list) {
  std::vector<DnsServer> servers;
  for (const std::string& element : Split(list, ',')) {
    if (Trim(element).empty()) continue;
    DnsServer& server = servers.emplace_back();
    if (!SplitEndpoint(element, server.host, server.port)) return std::nullopt;
  }
  return servers;
}

std::vector<LookupAnswer> AskServers(const std::vector<DnsServer>& servers, const std::string& name,
                                     const std::vector<std::int32_t>& types,
                                     const LookupRules& rules, const CancelMark& mark,
                                     TimePoint deadline) {
  std::list<NameQuestion> questions;
  for (const std::int32_t type : types) {
    DnsQuestion question;
    question.domain = name;
    question.type = type;
    questions.emplace_back(std::move(question), servers, rules, mark, deadline);
  }
  const std::int32_t error = Answer(questions, mark, deadline);
  std::vector<LookupAnswer> answers;
  for (NameQuestion& question : questions) {
    if (!question.IsDecided()) question.Decide(error);
    answers.push_back(question.TakeAnswer());
  }
  return answers;
}

}  // namespace netro

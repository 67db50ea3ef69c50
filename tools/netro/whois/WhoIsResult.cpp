// The answers of WHOIS servers, from one to the next.

#include "whois/WhoIsResult.h"

#include <netro/WhoIsCls.h>

#include <utility>

#include "terminal/Interrupt.h"
#include "terminal/Stopwatch.h"

namespace netro::tool {
namespace {

constexpr std::size_t kMostReferrals = 5;

WhoIsAnswer Ask(WhoIsCls& client, const WhoIsServer& server, const std::string& name) {
  WhoIsAnswer answer;
  answer.server = server;
  client.Port(server.port);
  const Stopwatch watch;
  {
    const InterruptGuard guard(client);
    client.WhoIs(BracketedHost(server.host), name);
  }
  answer.seconds = watch.Seconds();
  answer.text = client.Result();
  answer.errorNumber = client.LastErr();
  answer.errorText = client.LastErrMsg();
  return answer;
}

/// `asked` are all servers up to the one that gave the answer.
void DecideNext(const std::vector<WhoIsServer>& asked, WhoIsAnswer& answer) {
  Referral referral = FindReferral(answer.text, asked);
  answer.notes = std::move(referral.notes);
  if (referral.next && asked.size() > kMostReferrals) {
    answer.notes.push_back("not gone on to " + referral.next->Text() +
                           ": five referrals have been followed");
  } else {
    answer.next = std::move(referral.next);
  }
}

}  // namespace

void AskWhoIsServers(const WhoIsRequest& request, const std::function<void(WhoIsAnswer)>& take) {
  WhoIsCls client;
  client.Timeout(request.connection.timeout);
  UseConnection(client, request.connection, request.proxy);
  std::vector<WhoIsServer> asked;
  std::optional<WhoIsServer> next = request.server;
  while (next) {
    asked.push_back(*next);
    WhoIsAnswer answer = Ask(client, *next, request.name);
    if (request.follow && answer.errorNumber == 0) DecideNext(asked, answer);
    next = answer.next;
    take(std::move(answer));
  }
}

}  // namespace netro::tool

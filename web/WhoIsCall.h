// One running WhoIs of a WhoIsCls: the servers one after the other. Made on the caller's stack; it
// works on a copy of the settings and outlives a deletion of the object, which it then no longer
// touches.
#pragma once

#include <netro/WhoIsCls.h>

#include <optional>
#include <string>
#include <vector>

#include "socket/OpenConnection.h"
#include "socket/Wait.h"
#include "web/WhoIsReferral.h"
#include "web/WhoIsTable.h"

namespace netro {

class WhoIsCall {
 public:
  explicit WhoIsCall(WhoIsCls& owner);

  /// Leaves the results in the object unless that is gone.
  bool Run(const std::string& host, const std::string& query);

 private:
  bool Begin(const std::string& host, const std::string& query);
  bool AskOne(const WhoIsServer& server, const std::string& query, bool referred);
  /// How an exchange ended.
  struct Outcome {
    std::int32_t error = 0;
    std::string text;  // the number's usual one where this is empty
    bool connected = false;
  };
  Outcome Exchange(const ConnectionPlan& plan, const std::string& query);
  Outcome ExchangeReferred(ConnectionPlan plan, const std::string& query);
  bool LooksUp(const ConnectionPlan& plan) const;
  void DecideNext(WhoIsAnswer& answer);

  WhoIsCls& owner_;
  const std::shared_ptr<CallState> call_;
  const CancelMark mark_;
  const std::shared_ptr<const WhoIsTable> table_;
  const bool follow_;
  const bool followPrivate_;
  const std::size_t maxAnswer_;
  const std::function<void(const WhoIsAnswer&)> sink_;
  const TimePoint limit_;
  ConnectionPlan plan_;  // without a server
  std::vector<WhoIsServer> asked_;
  std::optional<WhoIsServer> next_;
};

}  // namespace netro

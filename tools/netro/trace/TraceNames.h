// The names of the hops of "netro trace", looked up side by side while the probes are under way.
// Thread: the loop's; each lookup has a thread of its own.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace netro::tool {

class TraceNames {
 public:
  /// `dns` as in ICMPCls::DNSURL.
  explicit TraceNames(std::string dns) : dns_(std::move(dns)) {}
  /// Ends the lookups that still run.
  ~TraceNames();

  /// Begins to look up the name of an address, the first time that it is called with it.
  void Ask(const std::string& address);
  /// False while the name of an address that was asked for may still come.
  bool IsSettled(const std::string& address) const;
  /// Empty when there is none.
  std::string NameOf(const std::string& address) const;

 private:
  using Names = std::map<std::string, std::optional<std::string>>;  // by address

  const std::string dns_;
  const std::shared_ptr<Names> names_ = std::make_shared<Names>();
  std::vector<std::jthread> lookups_;
};

}  // namespace netro::tool

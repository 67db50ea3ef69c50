// DNSCacheCls: one remembered name lookup.
//
// All classes of a thread share one cache of these; every lookup of a name fills it, and the
// members of NameLookups serve it. A plain value.
#pragma once

#include <netro/Export.h>
#include <netro/Types.h>

#include <string>
#include <utility>

namespace netro {

class NETRO_EXPORT DNSCacheCls {
 public:
  /// What was asked for: a host name, or a dotted address for a reverse lookup.
  const std::string& Key() const { return key_; }
  void Key(std::string value) { key_ = std::move(value); }
  /// A dotted address, or the host name for a reverse lookup.
  const std::string& Result() const { return result_; }
  void Result(std::string value) { result_ = std::move(value); }
  /// The moment (UTC) after which the entry no longer counts.
  Date Expiry() const { return expiry_; }
  void Expiry(Date value) { expiry_ = value; }

 private:
  std::string key_;
  std::string result_;
  Date expiry_ = 0;
};

}  // namespace netro

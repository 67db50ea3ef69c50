// The check of one mail address: how it is written, where its mail goes, and whether the server
// takes it. Thread: the loop's.
#pragma once

#include <netro/SendMailCls.h>

#include <cstdint>
#include <optional>
#include <string>

namespace netro::tool {

struct AddressCheckOptions {
  bool lookUp = false;
  bool askServer = false;
  std::string from;  // of the session with the server
};

/// What a part of the check came to; 0 is good.
struct AddressFinding {
  std::int32_t result = 0;
  std::string message;
};

struct AddressReport {
  std::string address;
  AddressFinding syntax;
  std::optional<AddressFinding> lookup;  // none: not asked for, or the syntax is wrong
  std::string exchanger;
  std::string exchangerAddress;
  std::optional<AddressFinding> server;
  bool serverTakesIt = false;

  bool IsGood() const;
  /// Nobody could tell the exchanger now; later somebody may.
  bool MayBeFoundLater() const;
  bool IsCancelled() const;
};

/// Blocks until `mail` is stopped, which ends the check early.
AddressReport CheckAddress(SendMailCls& mail, const std::string& address,
                           const AddressCheckOptions& options);

}  // namespace netro::tool

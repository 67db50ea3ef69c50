#include <netro/Localization.h>
#include <netro/SMTPSettings.h>

#include "platform/CallState.h"
#include "socket/HostLookup.h"
#include "socket/SocketModule.h"
#include "socket/Wait.h"

namespace netro {
namespace {

constexpr std::int32_t kTextSuccess = 6009;
constexpr std::int32_t kTextTimeOuts = 6010;

}  // namespace

SMTPSettings::SMTPSettings() {
  smtp_.success = GetMessageText(kTextSuccess);
  smtp_.timeOuts = GetMessageText(kTextTimeOuts);
}

SMTPValues SMTPSettings::Values() const {
  SMTPValues values = smtp_;
  values.options = Options();
  return values;
}

const std::string& SMTPSettings::DNSURL() const {
  if (smtp_.dnsURL) return *smtp_.dnsURL;
  return DefaultHostLookup().DefaultServers(
      CancelMark(SocketModule::ForThread(), std::make_shared<CallState>()));
}

}  // namespace netro

#include <netro/LogfileCLS.h>
#include <netro/SocketCls.h>

#include <memory>
#include <utility>

#include "Scenario.h"
#include "Servers.h"
#include "tests/TemporaryFolder.h"

namespace netro::torture {
namespace {

const TemporaryFolder& Folder() {
  static const auto& folder = *new TemporaryFolder();
  return folder;
}

std::string line;  // of this call

bool Log(std::unique_ptr<LogfileCLS>& log) {
  const bool started = log->StartLogging();
  const bool noted = log && started && log->LogEvent(line);
  const bool written = log && noted && log->CommitBuffer();
  return log && log->StopLogging() && written;
}

// What was told to be in the file is there once, whatever failed before.
std::int32_t IsLogged(LogfileCLS& log, bool done) {
  static int number = 0;
  const std::string last = std::exchange(line, "line " + std::to_string(++number));
  if (!done) return 1;
  const std::string text = "\n" + ReadFile(log.LogFileName());
  const std::size_t found = text.find("\n" + last);
  const bool once = found != text.npos && text.find("\n" + last + "\n", found + 1) == text.npos;
  return once ? kDone : kWrongResult;
}

// Saved and read back; 1 where one of the three fails.
std::int32_t KeepNames(SocketCls& socket) {
  static const std::string file = Folder() / "names.ini";
  socket.ClearDNSCache();
  if (socket.DNSLookup("www.test").empty()) return socket.DNSLastErr();
  if (socket.SaveDNSCache(file) < 0) return 1;
  socket.ClearDNSCache();
  const std::int32_t count = socket.RestoreDNSCache(file);
  if (count < 0) return 1;
  return count > 0 && socket.GetDNSCacheCount() == count ? kDone : kWrongResult;
}

}  // namespace

std::vector<Scenario> FileScenarios() {
  return {
      Make<LogfileCLS>(
          "Logfile",
          [](World& world, LogfileCLS& log) {
            log.Events(&world.events);
            log.LogFileName(Folder() / "log.txt");
          },
          Log, IsLogged),
      Make<SocketCls>(
          "cache of names", [](World&, SocketCls& socket) { socket.DNSURL(NameServerUrl()); },
          KeepNames, [](SocketCls&, std::int32_t result) { return result; }),
  };
}

}  // namespace netro::torture

#include "NamedServer.h"

#include <chrono>
#include <filesystem>

#include "Dig.h"

namespace netro::interop {
namespace {

using std::chrono::steady_clock;

constexpr auto kLoadLimit = std::chrono::seconds(30);

std::string Configuration(const std::string& folder, const std::string& port,
                          const std::vector<Zone>& zones, const std::string& options) {
  std::string text = "options {\n  directory \"" + folder + "\";\n  listen-on port " + port +
                     " { 127.0.0.1; };\n  listen-on-v6 port " + port + " { ::1; };\n" +
                     "  recursion no; notify no; dnssec-validation no; empty-zones-enable no;\n" +
                     "  minimal-responses no; check-integrity no; version \"netro test\";\n" +
                     "  pid-file none; lock-file none; session-keyfile \"" + folder +
                     "/session.key\";\n  " + options + "\n};\ncontrols {};\n";
  for (const Zone& zone : zones)
    text += "zone \"" + zone.name + "\" { type primary; file \"" + zone.name + ".zone\"; " +
            zone.options + " };\n";
  return text;
}

// The packaged program may only use the system's own folders where AppArmor is in force; that rule
// goes by the program's path.
std::vector<std::string> Prepare(const std::string& folder, const std::string& port,
                                 const std::vector<Zone>& zones, const std::string& options) {
  std::filesystem::copy_file(FindProgram("named"), folder + "/named",
                             std::filesystem::copy_options::overwrite_existing);
  WriteFile(folder + "/named.conf", Configuration(folder, port, zones, options));
  for (const Zone& zone : zones) WriteFile(folder + "/" + zone.name + ".zone", zone.text);
  return {folder + "/named", "-g", "-n", "1", "-c", folder + "/named.conf"};
}

}  // namespace

NamedServer::NamedServer(const std::vector<Zone>& zones, const std::string& options)
    : server_([&](const std::string& folder, const std::string& port) {
        return Prepare(folder, port, zones, options);
      }),
      ready_(server_.IsUp() && AwaitZone(zones.back().name)) {}

bool NamedServer::IsInstalled() {
  return !FindProgram("named").empty() && !FindProgram("dig").empty();
}

// It listens before it has loaded its zones, and says "server failure" until then.
bool NamedServer::AwaitZone(const std::string& name) const {
  const auto deadline = steady_clock::now() + kLoadLimit;
  while (steady_clock::now() < deadline) {
    const auto replies = Dig(Port(), {name, "SOA"});
    if (replies.size() == 1 && replies[0].status == "NOERROR") return true;
  }
  return false;
}

}  // namespace netro::interop

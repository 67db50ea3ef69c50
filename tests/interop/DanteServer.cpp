#include "DanteServer.h"

#include <sys/stat.h>
#include <unistd.h>

namespace netro::interop {
namespace {

// The SHA-512 crypt of "secret".
constexpr char kShadowLine[] =
    "netro:$6$salt$egUxKNxDs8kPfh8iPMNcosMhb2eWah6d3R44JDm5Rj/j/"
    "XWR5E33QPd0YmHXoDHOIDR6kL5D3JcQcz0O8"
    "FHE00:19000:0:99999:7:::\n";

std::string Configuration(const std::string& folder, const std::string& port,
                          const std::string& method) {
  return "logoutput: " + folder + "/log\ninternal: 127.0.0.1 port = " + port +
         "\ninternal: ::1 port = " + port + "\nexternal: 127.0.0.1\nexternal: ::1\n" +
         (geteuid() == 0 ? "user.privileged: root\nuser.unprivileged: nobody\n" : "") +
         "clientmethod: none\nsocksmethod: " + method +
         "\nclient pass {\n  from: 127.0.0.0/8 to: 0.0.0.0/0\n}\n"
         "client pass {\n  from: ::1/128 to: ::/0\n}\n"
         "socks pass {\n  from: 127.0.0.0/8 to: 0/0\n  command: connect\n}\n"
         "socks pass {\n  from: ::1/128 to: 0/0\n  command: connect\n}\n";
}

void WriteUserFiles(const std::string& folder) {
  WriteFile(folder + "/passwd", ReadFile("/etc/passwd") + "netro:x:65000:65534::/:/bin/false\n");
  WriteFile(folder + "/shadow", "");
  chmod((folder + "/shadow").c_str(), 0600);
  WriteFile(folder + "/shadow", ReadFile("/etc/shadow") + kShadowLine);
}

std::vector<std::string> Prepare(const std::string& folder, const std::string& port,
                                 DanteServer::Users users) {
  const bool open = users == DanteServer::kAll;
  WriteFile(folder + "/conf", Configuration(folder, port, open ? "none" : "username"));
  const std::vector<std::string> command = {FindProgram("danted"), "-f", folder + "/conf", "-p",
                                            folder + "/pid"};
  if (open) return command;
  WriteUserFiles(folder);
  std::string script = "mount --bind " + folder + "/passwd /etc/passwd && mount --bind " + folder +
                       "/shadow /etc/shadow && exec";
  for (const std::string& word : command) script += " " + word;
  return {"unshare", "--mount", "--propagation", "private", "sh", "-c", script};
}

}  // namespace

DanteServer::DanteServer(Users users)
    : server_([=](const std::string& folder, const std::string& port) {
        return Prepare(folder, port, users);
      }) {}

}  // namespace netro::interop

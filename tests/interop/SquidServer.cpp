#include "SquidServer.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

namespace netro::interop {
namespace {

std::string Configuration(const std::string& folder, const std::string& port,
                          const std::string& scheme) {
  return "http_port 127.0.0.1:" + port + "\npid_filename " + folder + "/squid.pid\n" +
         "access_log none\ncache_store_log none\ncache_log " + folder + "/cache.log\n" +
         "coredump_dir " + folder + "\npinger_enable off\ncache deny all\n" +
         "visible_hostname localhost\nshutdown_lifetime 0 seconds\n" + "auth_param " + scheme +
         " program /bin/sh " + folder + "/login.sh\n" + "auth_param " + scheme +
         " children 1\nauth_param " + scheme + " realm test area\n" +
         "acl closed dstdomain closed.test\nhttp_access deny closed\n"
         "acl known proxy_auth REQUIRED\nhttp_access allow known\nhttp_access deny all\n";
}

constexpr char kLogin[] =
    "while read -r line; do\n"
    "  if [ \"$line\" = 'user secret' ]; then echo OK; else echo ERR; fi\n"
    "done\n";

// MD5 of "user:test area:secret"
constexpr char kDigestLogin[] =
    "while read -r line; do\n"
    "  case \"$line\" in\n"
    "    '\"user\":'*) echo 'OK ha1=\"e023e82f32d8f8f01bbc2e4c7e7077cb\"';;\n"
    "    *) echo ERR;;\n"
    "  esac\n"
    "done\n";

}  // namespace

std::unique_ptr<ServerProcess> StartSquid(const std::string& scheme) {
  const std::string program = FindProgram("squid");
  if (program.empty()) return nullptr;
  return std::make_unique<ServerProcess>([&](const std::string& folder, const std::string& port) {
    const passwd* user = geteuid() == 0 ? getpwnam("proxy") : nullptr;
    if (user != nullptr && chown(folder.c_str(), user->pw_uid, user->pw_gid) != 0)
      ADD_FAILURE() << "cannot give the folder to squid's user";
    WriteFile(folder + "/login.sh", scheme == "basic" ? kLogin : kDigestLogin);
    WriteFile(folder + "/squid.conf", Configuration(folder, port, scheme));
    return std::vector<std::string>{program,        "-N", "-n",
                                    "netro" + port, "-f", folder + "/squid.conf"};
  });
}

}  // namespace netro::interop

#include "Postfix.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

namespace netro::interop {
namespace {

using std::chrono::steady_clock;
using std::filesystem::directory_iterator;

constexpr auto kDeliveryLimit = std::chrono::seconds(30);
constexpr int kPauseMilliseconds = 2;

// Adds and changes nothing but the fields of the delivery; asks no name server.
constexpr char kSettings[] = R"conf(
compatibility_level = 3.6
maillog_file = /dev/stdout
inet_interfaces = 127.0.0.1, ::1
inet_protocols = all
disable_dns_lookups = yes
smtpd_peername_lookup = no
smtpd_client_connection_count_limit = 0
smtpd_banner = $myhostname ready
myhostname = mx.xy.test
mydestination =
mynetworks =
alias_maps =
local_recipient_maps =
local_header_rewrite_clients =
local_transport = virtual
default_transport = error:mail does not leave the test
message_size_limit = 0
virtual_mailbox_limit = 0
virtual_mailbox_domains = xy.test
virtual_mailbox_maps = static:mail/
virtual_uid_maps = static:65534
virtual_gid_maps = static:65534
smtpd_recipient_restrictions = check_recipient_access inline:{
 {gone@xy.test = 550 5.1.1 No such user}, {busy@xy.test = 451 4.3.0 Try again later} }
 reject_unauth_destination
)conf";

constexpr char kServer[] = " inet n - n - - smtpd\n";
constexpr char kServices[] = R"conf(cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
error unix - - n - - error
virtual unix - n n - - virtual
postlog unix-dgram n - n - 1 postlogd
)conf";

// The master makes itself the leader of a session, which the leader of a process group may not; so
// this one stays above it and passes the end on.
constexpr char kScript[] = R"sh(
postfix -c "$0" check || exit
setpriv --pdeathsig TERM "$(postconf -c "$0" -h -x daemon_directory)/master" -c "$0" -s &
master=$!
trap 'kill $master' TERM
wait $master
wait $master
)sh";

std::vector<std::string> Prepare(const std::string& folder, const std::string& port,
                                 const Postfix::Extra& extra) {
  const std::string configuration = folder + "/conf";
  for (const char* name : {"/conf", "/queue", "/mail", "/mail/new"})
    std::filesystem::create_directory(folder + name);
  for (const char* name : {"/mail", "/mail/new"})  // for the user nobody
    chmod((folder + name).c_str(), 0777);
  const std::string folders = "queue_directory = " + folder + "/queue\ndata_directory = " + folder +
                              "/data\nvirtual_mailbox_base = " + folder;
  WriteFile(configuration + "/main.cf", folders + kSettings + extra.settings);
  // What has just been written could be half of it: postfix would wait for two seconds.
  const std::string settings = configuration + "/main.cf";
  std::filesystem::last_write_time(
      settings, std::filesystem::last_write_time(settings) - std::chrono::hours(1));
  // The one that is waited for comes last: then all listen.
  WriteFile(configuration + "/master.cf", kServices + extra.services + "[::1]:" + port + kServer +
                                              "127.0.0.1:" + port + kServer);
  return {"sh", "-c", kScript, configuration};
}

bool IsEmpty(const std::string& folder) {
  return directory_iterator(folder) == directory_iterator();
}

std::string LineOf(const std::string& text, const std::string& name) {
  const std::size_t begin = text.find('\n' + name + ": ") + name.size() + 3;
  return text.substr(begin, text.find('\n', begin) - begin);
}

// The field "Received" is the last that a server adds.
ArrivedMail Read(const std::string& file) {
  const std::string text = ReadFile(file);
  std::size_t end = text.find("\nReceived: ");
  do end = text.find('\n', end + 1);
  while (end != text.npos && text[end + 1] == '\t');
  ArrivedMail mail{LineOf(text, "X-Original-To"), {}};
  for (std::size_t at = end + 1; at < text.size(); ++at) {
    if (text[at] == '\n') mail.text += '\r';
    mail.text += text[at];
  }
  return mail;
}

}  // namespace

Postfix::Postfix(const MakeExtra& extra)
    : server_([&](const std::string& folder, const std::string& port) {
        std::filesystem::create_directory(folder + "/conf");
        return Prepare(folder, port, extra ? extra(folder + "/conf", port) : Extra());
      }) {}

std::string Postfix::Missing() {
  if (FindProgram("postfix").empty()) return "postfix is not installed";
  return geteuid() == 0 ? "" : "postfix needs root";
}

bool Postfix::AwaitEmptyQueue() const {
  const std::string queue = server_.Folder() / "queue";
  const auto deadline = steady_clock::now() + kDeliveryLimit;
  do {  // in the order in which mail moves
    if (IsEmpty(queue + "/incoming") && IsEmpty(queue + "/active")) return true;
    poll(nullptr, 0, kPauseMilliseconds);
  } while (steady_clock::now() < deadline);
  return false;
}

std::vector<ArrivedMail> Postfix::TakeMail() {
  EXPECT_TRUE(AwaitEmptyQueue()) << Output();
  std::vector<std::string> files;
  for (const auto& entry : directory_iterator(Mailbox())) files.push_back(entry.path());
  std::ranges::sort(files);
  std::vector<ArrivedMail> mails;
  for (const std::string& file : files) {
    mails.push_back(Read(file));
    std::filesystem::remove(file);
  }
  return mails;
}

}  // namespace netro::interop

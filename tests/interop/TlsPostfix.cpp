#include "TlsPostfix.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <mutex>
#include <set>
#include <utility>

#include "tests/TlsTestKit.h"

namespace netro::interop {
namespace {

constexpr char kTokenSecret[] = "of the tests";

std::string Base64(const std::string& bytes, bool forUrl) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  text.resize(static_cast<std::size_t>(
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()),
                      static_cast<int>(bytes.size()))));
  if (!forUrl) return text;
  while (text.ends_with('=')) text.pop_back();
  for (char& c : text) c = c == '+' ? '-' : c == '/' ? '_' : c;
  return text;
}

std::string LoginSettings(const std::string& folder) {
  return "base_dir = " + folder + "/run\nlog_path = /dev/stderr\nprotocols =\nssl = no\n" +
         "disable_plaintext_auth = no\nauth_failure_delay = 0\n"
         "auth_mechanisms = plain login cram-md5 scram-sha-256 xoauth2\n"
         "passdb {\n driver = oauth2\n mechanisms = xoauth2\n args = " + folder + "/oauth2.conf\n}\n"
         "passdb {\n driver = passwd-file\n args = username_format=%u " + folder + "/users\n"
         " mechanisms = plain login cram-md5 scram-sha-256\n}\n"
         "userdb {\n driver = static\n args = uid=65534 gid=65534 home=/nonexistent\n}\n"
         "service auth {\n unix_listener " + folder + "/auth.sock {\n mode = 0666\n }\n}\n";
}

std::vector<std::string> ConfigureLogins(const std::string& folder, const std::string& /*port*/) {
  const std::string keys = folder + "/keys/default/HS256";
  std::filesystem::create_directories(keys);
  WriteFile(keys + "/default", Base64(kTokenSecret, false));
  WriteFile(folder + "/oauth2.conf",
            "introspection_mode = local\nusername_attribute = sub\n"
            "local_validation_key_dict = fs:posix:prefix=" + folder + "/keys/\n");
  WriteFile(folder + "/users",
            std::string(TlsPostfix::kUser) + ":{PLAIN}" + TlsPostfix::kPassword + "\n");
  WriteFile(folder + "/dovecot.conf", LoginSettings(folder));
  return {FindProgram("dovecot"), "-F", "-c", folder + "/dovecot.conf"};
}

std::string Server(Door door, const std::string& port, const std::string& options) {
  return TlsPostfix::Address(door) + ":" + port + " inet n - n - - smtpd\n" + options;
}

std::string Certificate(const std::string& folder, const std::string& name, int lastDay) {
  testkit::CertificateWish wish;
  wish.names = "DNS:mx.xy.test";
  for (int last = 1; last <= 9; ++last) wish.names += ",IP:127.0.0." + std::to_string(last);
  wish.firstDay = -30;
  wish.lastDay = lastDay;
  const testkit::Identity identity = Authority().Issue(wish);
  const std::string file = folder + "/" + name;
  WriteFile(file, identity.key + identity.certificate);
  chmod(file.c_str(), 0600);
  return file;
}

}  // namespace

TlsPostfix::TlsPostfix()
    : policy_(std::make_unique<testkit::LoopbackServer>(
          [this](testkit::Connection& connection, std::size_t) { AskToComeBack(connection); })) {
  std::string sockets;
  logins_ = std::make_unique<ServerProcess>(
      [&](const std::string& folder, const std::string& port) {
        sockets = folder + "/auth.sock";
        return ConfigureLogins(folder, port);
      },
      [&](int) { return std::filesystem::exists(sockets); });
  const std::string policyPort = std::to_string(policy_->Port());
  server_ = std::make_unique<Postfix>([&](const std::string& folder, const std::string& port) {
    const std::string login =
        " -o smtpd_sasl_auth_enable=yes\n"
        " -o { smtpd_recipient_restrictions = permit_sasl_authenticated, reject }\n";
    Postfix::Extra extra;
    extra.settings = "smtpd_tls_security_level = may\nsmtpd_tls_chain_files = " +
                     Certificate(folder, "good.pem", 30) +
                     "\nsmtpd_sasl_type = dovecot\nsmtpd_sasl_path = " + sockets +
                     "\n";
    extra.services =
        "tlsmgr unix - - n 1000? 1 tlsmgr\n" +
        Server(Door::FromFirstByte, port, " -o smtpd_tls_wrappermode=yes\n" + login) +
        Server(Door::Submission, port,
               " -o smtpd_tls_security_level=encrypt\n -o smtpd_tls_auth_only=yes\n" + login) +
        Server(Door::ClearLogin, port, " -o smtpd_tls_security_level=none\n" + login) +
        Server(Door::Greylisting, port,
               " -o { smtpd_recipient_restrictions = reject_unauth_destination, "
               "check_policy_service inet:127.0.0.1:" + policyPort + " }\n") +
        Server(Door::Expired, port,
               " -o smtpd_tls_chain_files=" + Certificate(folder, "expired.pem", -1) + "\n");
    const std::pair<Door, const char*> single[] = {
        {Door::OnlyPlain, "plain"}, {Door::OnlyLogin, "login"}, {Door::OnlyCramMd5, "cram-md5"}};
    for (const auto& [door, mechanism] : single) {
      extra.services += Server(door, port,
                               " -o smtpd_tls_wrappermode=yes\n -o smtpd_sasl_mechanism_filter=" +
                                   std::string(mechanism) + "\n" + login);
    }
    return extra;
  });
}

std::string TlsPostfix::Missing() {
  if (FindProgram("dovecot").empty()) return "dovecot-core is not installed";
  return Postfix::Missing();
}

std::string TlsPostfix::Address(Door door) {
  return "127.0.0." + std::to_string(1 + static_cast<int>(door));
}

std::string TlsPostfix::AccessToken() {
  const std::time_t now = std::time(nullptr);
  const std::string claims = "{\"sub\":\"" + std::string(kUser) + "\",\"iat\":" +
                             std::to_string(now - 60) + ",\"exp\":" + std::to_string(now + 3600) + "}";
  const std::string text = Base64(R"({"typ":"JWT","alg":"HS256"})", true) + "." + Base64(claims, true);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  HMAC(EVP_sha256(), kTokenSecret, sizeof kTokenSecret - 1,
       reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest, &size);
  return text + "." + Base64(std::string(reinterpret_cast<char*>(digest), size), true);
}

// The policy protocol: lines of "name=value", an empty one asks.
void TlsPostfix::AskToComeBack(testkit::Connection& connection) {
  static std::mutex mutex;
  static std::set<std::string> known;
  for (std::string received; connection.Read(received);) {
    const std::size_t end = received.find("\n\n");
    if (end == received.npos) continue;
    const std::size_t begin = received.find("\nrecipient=") + 11;
    const std::string recipient = received.substr(begin, received.find('\n', begin) - begin);
    received.erase(0, end + 2);
    const std::lock_guard lock(mutex);
    const bool isNew = known.insert(recipient).second;
    connection.Send(isNew ? "action=450 4.2.0 Greylisted, come back\n\n" : "action=dunno\n\n");
  }
}

}  // namespace netro::interop

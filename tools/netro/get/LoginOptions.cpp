// Who the user of "netro get" is to servers.

#include "get/LoginOptions.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>

#include "get/Netrc.h"
#include "get/UrlText.h"
#include "terminal/Command.h"
#include "terminal/Secret.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

constexpr const char* kGroup = "Login";

void ReadUser(const LoginOptions& options, Logins& logins) {
  const std::size_t colon = std::min(options.user.find(':'), options.user.size());
  const bool hasPassword = colon < options.user.size();
  logins.user = options.user.substr(0, colon);
  if (hasPassword) logins.password = options.user.substr(colon + 1);
  if (!options.passwordFile.empty()) {
    if (logins.user.empty()) throw UsageError("--password-file needs --user NAME");
    if (hasPassword) throw UsageError("--password-file: --user has a password already");
    logins.password = ReadPasswordFile("--password-file", options.passwordFile);
  } else if (!logins.user.empty() && !hasPassword && CanAskPassword()) {
    logins.password = AskPassword("Password of " + logins.user + ": ");
  }
}

std::shared_ptr<CookieJar> LoadCookies(const std::string& file) {
  if (file.empty()) return nullptr;
  auto cookies = std::make_shared<CookieJar>();
  if (::access(file.c_str(), F_OK) == 0 && cookies->Load(file) != 0) {
    throw UsageError("--cookie-jar: " + cookies->ErrorText());
  }
  return cookies;
}

}  // namespace

void DeclareLogin(CLI::App& options, LoginOptions& values) {
  const auto text = [&options](const char* name, std::string& value, const char* type,
                               const char* help) {
    return options.add_option(name, value, help)->type_name(type)->group(kGroup);
  };
  auto* user = text("-u,--user", values.user, "USER[:PASSWORD]",
                    "Credentials for the server: sent at once as Basic, and again\n"
                    "as Basic or Digest when the server asks; without a password\n"
                    "it is asked for on the terminal");
  text("--password-file", values.passwordFile, "FILE",
       "Take the password from the first line of this file");
  options.add_flag("--netrc", values.netrc, "Take credentials from ~/.netrc, by the host")
      ->excludes(user)
      ->group(kGroup);
  text("--netrc-file", values.netrcFile, "FILE", "Take them from this file")->excludes(user);
  options
      .add_flag("--no-challenge", values.noChallenge,
                "Print a 401 answer instead of answering it; the credentials\n"
                "of the URL are still sent at once")
      ->excludes(user)
      ->group(kGroup);
  text("--cookie-jar", values.cookieJar, "FILE",
       "Send the cookies of this file, and save those that are set to it");
}

Logins ReadLogins(const LoginOptions& options) {
  Logins logins;
  if (options.netrc || !options.netrcFile.empty()) logins.netrc = ReadNetrc(options.netrcFile);
  logins.answerChallenges = !options.noChallenge;
  logins.cookies = LoadCookies(options.cookieJar);
  ReadUser(options, logins);
  return logins;
}

void Apply(HTTPCls& http, const Logins& logins, const std::string& url) {
  Login login{logins.user, logins.password};
  if (logins.netrc) login = FindLogin(*logins.netrc, HostOf(url)).value_or(login);
  http.User(login.user);
  http.Password(login.password);
  http.SendAuthAfterChallenge(logins.answerChallenges &&
                              (!login.user.empty() || HasCredentials(url)));
  http.StandardDigest(true);
  http.Cookies(logins.cookies);
}

bool SaveCookies(const Logins& logins, const LoginOptions& options) {
  if (logins.cookies == nullptr || logins.cookies->Save(options.cookieJar) == 0) return true;
  ShowMessage("--cookie-jar: " + logins.cookies->ErrorText());
  return false;
}

}  // namespace netro::tool

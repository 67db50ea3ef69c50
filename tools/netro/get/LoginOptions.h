// Who the user of "netro get" is to servers: credentials and cookies. Thread: the main one.
#pragma once

#include <netro/CookieJar.h>
#include <netro/HTTPCls.h>

#include <memory>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct LoginOptions {
  std::string user;
  std::string passwordFile;
  bool netrc = false;
  std::string netrcFile;
  bool noChallenge = false;
  std::string cookieJar;
};

void DeclareLogin(CLI::App& options, LoginOptions& values);

struct Logins {
  std::string user;
  std::string password;
  std::optional<std::string> netrc;  // the text of that file
  bool answerChallenges = true;      // where there are credentials
  std::shared_ptr<CookieJar> cookies;
};

/// Reads the files, and asks for a password where one is missing and somebody is there. Throws
/// UsageError.
Logins ReadLogins(const LoginOptions& options);

/// Those for this URL.
void Apply(HTTPCls& http, const Logins& logins, const std::string& url);

/// Saves the cookies. False, with a message, when that failed.
bool SaveCookies(const Logins& logins, const LoginOptions& options);

}  // namespace netro::tool

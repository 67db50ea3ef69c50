// No secret is shown: the transcript has "***" for it, also where a server repeats what it was told.
#include "mail/SmtpLogin.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "mail/RandomText.h"
#include "mail/Sasl.h"
#include "mail/SmtpTranscript.h"
#include "platform/ErrorNumbers.h"
#include "support/Base64.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kGoOn = 334;
constexpr std::int32_t kDone = 235;
constexpr std::int32_t kMechanismRefused = 504;
constexpr std::int32_t kMechanismTooWeak = 534;
constexpr std::size_t kNonceSize = 24;
// RFC 4954, section 4: a longer response waits for the server's word.
constexpr std::size_t kLongestCommand = 510;
constexpr int kMostRounds = 10;
constexpr std::string_view kHidden = "***";

std::string Encoded(const std::string& response) {
  return response.empty() ? "=" : Base64Encode(response);
}

// The dialogue as long as it is about secrets.
class Login {
 public:
  explicit Login(SmtpDialogue& dialogue) : dialogue_(dialogue) {
    const SMTPOptionValues& options = dialogue.settings.options;
    for (const std::string& secret : {options.password, options.accessToken}) Keep(secret);
    dialogue_.repliesAreShown = false;
  }
  ~Login() {
    dialogue_.repliesAreShown = true;
    dialogue_.secrets.clear();
  }
  Login(const Login&) = delete;
  Login& operator=(const Login&) = delete;

  /// The code that ends the exchange, 0 when the session has failed.
  std::int32_t Exchange(const std::string& name, SaslMechanism& mechanism);

 private:
  std::int32_t Ask(const std::string& command, const std::string& secret);
  std::int32_t Begin(const std::string& name, SaslMechanism& mechanism,
                     std::optional<std::string>& held);
  std::optional<std::string> Challenge() const {
    return Base64Decode(reply_.substr(std::min<std::size_t>(reply_.size(), 4)));
  }
  void Keep(const std::string& secret) {
    if (secret.empty()) return;
    dialogue_.secrets.push_back(secret);
    const auto longer = [](const std::string& a, const std::string& b) { return a.size() > b.size(); };
    std::ranges::sort(dialogue_.secrets, longer);
  }

  SmtpDialogue& dialogue_;
  std::string reply_;  // as it came
};

std::int32_t Login::Ask(const std::string& command, const std::string& secret) {
  Keep(secret);
  const bool isBare = command.empty();
  const std::string hidden = secret.empty() ? std::string() : std::string(kHidden);
  const std::string between = isBare || secret.empty() ? "" : " ";
  const std::int32_t code = dialogue_.Ask(SMTP_STEP_AUTH, command + between + secret,
                                          command + between + hidden);
  reply_ = code != 0 ? dialogue_.ReplyText() : std::string();
  std::string shown = reply_;
  dialogue_.Hide(shown);
  dialogue_.Hide(dialogue_.result->lastBuffer);
  if (code != 0) dialogue_.Show(dialogue_.settings.receiverHostName, WithoutLineEnd(shown));
  return code;
}

std::int32_t Login::Begin(const std::string& name, SaslMechanism& mechanism,
                          std::optional<std::string>& held) {
  const std::string command = "AUTH " + name;
  std::string first;
  held = mechanism.InitialResponse();
  if (held && command.size() + 1 + Encoded(*held).size() <= kLongestCommand) {
    first = Encoded(*std::exchange(held, std::nullopt));
  }
  return Ask(command, first);
}

std::int32_t Login::Exchange(const std::string& name, SaslMechanism& mechanism) {
  std::optional<std::string> held;  // the first response, when the server speaks first
  std::int32_t code = Begin(name, mechanism, held);
  for (int round = 0; code == kGoOn; ++round) {
    std::optional<std::string> response = std::exchange(held, std::nullopt);
    const auto challenge = Challenge();
    if (!response && challenge && round < kMostRounds) response = mechanism.Respond(*challenge);
    if (!response) {
      if (Ask("*", {}) == 0) return 0;
      dialogue_.FailText(SMTP_STEP_AUTH, SMTP_INITERROR,
                         "The server's part of AUTH " + name + " is wrong: it sent what cannot be "
                         "answered, or does not know the password.");
      return 0;
    }
    code = Ask({}, Base64Encode(*response));
  }
  if (code != kDone || mechanism.IsComplete()) return code;
  dialogue_.FailText(SMTP_STEP_AUTH, SMTP_INITERROR,
                     "The server has not proved that it knows the password (AUTH " + name + ").");
  return 0;
}

std::string WhyNone(const SmtpDialogue& dialogue, const SaslCredentials& credentials) {
  const SmtpExtensions& offered = dialogue.extensions;
  if (!offered.auth) return "The server offers no login (AUTH).";
  if (!ChooseMechanisms(offered.mechanisms, credentials, true).empty()) {
    return "The server takes the password only as it is, and the session is not protected; see "
           "Security and AllowPlainPasswords.";
  }
  return "The server offers no login that is known here (AUTH).";
}

}  // namespace

std::string CredentialsFault(const SMTPOptionValues& options) {
  const std::pair<const std::string&, std::string_view> kParts[] = {
      {options.user, "User"}, {options.password, "Password"}, {options.accessToken, "AccessToken"}};
  for (const auto& [text, name] : kParts) {
    if (HasControlCharacter(text)) return std::string(name) + " holds a control character.";
  }
  return {};
}

bool LogIn(SmtpDialogue& dialogue) {
  const SMTPOptionValues& options = dialogue.settings.options;
  if (options.user.empty()) return true;
  const SaslCredentials credentials{options.user, options.password, options.accessToken};
  const bool showsSecret = dialogue.connection.IsProtected() || options.allowPlainPasswords;
  const std::vector<std::string> names =
      ChooseMechanisms(dialogue.extensions.mechanisms, credentials, showsSecret);
  if (names.empty()) {
    return dialogue.FailText(SMTP_STEP_AUTH, kErrProtocolNotSupported,
                             WhyNone(dialogue, credentials));
  }
  Login login(dialogue);
  std::int32_t code = 0;
  for (const std::string& name : names) {
    const auto mechanism = MakeMechanism(name, credentials, RandomText(kNonceSize));
    code = login.Exchange(name, *mechanism);
    if (code != kMechanismRefused && code != kMechanismTooWeak) break;
  }
  if (code != kDone) return code != 0 && dialogue.FailReply(SMTP_STEP_AUTH, code);
  dialogue.result->accepted = SMTP_STEP_AUTH;
  return true;
}

}  // namespace netro

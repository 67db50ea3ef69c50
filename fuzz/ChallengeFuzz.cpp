// Fuzzes the reader of authentication challenges: the input is the lines of a field. Whatever comes
// in, the line that answers it stays one line, and what is chosen is one of the challenges.

#include "fuzz/Fuzz.h"
#include "web/HttpAuthorization.h"

namespace {

void Answer(const std::vector<netro::HttpChallenge>& challenges, netro::DigestForm form) {
  netro::HttpCredentials credentials{"user", "secret", {}, form};
  if (!netro::ChooseChallenge(challenges, form, credentials.challenge)) return;
  const std::string line = credentials.Authorization({"GET", "/"});
  for (const char c : line) Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
  const bool offersDigest = line.starts_with("Digest ");
  bool offered = !offersDigest;
  for (const auto& each : challenges) offered = offered || each.IsDigest();
  Require(offered);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string head = "HTTP/1.1 401 No\r\nWWW-Authenticate: ";
  for (std::size_t i = 0; i < size; ++i) {
    head += static_cast<char>(data[i]);
    const bool ends = data[i] == '\n' && i + 1 < size && data[i + 1] != ' ' && data[i + 1] != '\t';
    if (ends) head += "WWW-Authenticate: ";
  }
  const auto challenges = netro::ParseChallenges(netro::HttpHead(head), "www-authenticate");
  Require(challenges.size() <= 64);
  Answer(challenges, netro::DigestForm::Md5Only);
  Answer(challenges, netro::DigestForm::Standard);
  return 0;
}

// The HTTP server of the tour.

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "terminal/Timer.h"
#include "tour/TourHttpMessage.h"
#include "tour/TourServers.h"

namespace netro::tool {
namespace {

constexpr std::string_view kText = "Content-Type: text/plain\r\n";
constexpr std::string_view kRealm = "tour";
constexpr std::string_view kNonce = "dcd98b7102dd2f0e8b11d0f600bfb0c093";

/// The value of name="value" in a list of parameters.
std::string ParameterOf(const std::string& line, std::string_view name) {
  const std::string begin = std::string(name) + "=\"";
  const std::size_t at = line.find(begin);
  if (at == line.npos) return {};
  const std::size_t value = at + begin.size();
  return line.substr(value, line.find('"', value) - value);
}

/// The shape of the answer to a Digest challenge (RFC 2617, section 3.2.2). The hash itself is not
/// computed again here: the command uses nothing but the library's public classes.
bool IsDigestAnswer(const TourRequest& request) {
  const std::string line = FieldOf(request, "Authorization");
  const std::string response = ParameterOf(line, "response");
  return line.starts_with("Digest ") && ParameterOf(line, "Username") == kTourUser &&
         ParameterOf(line, "realm") == kRealm && ParameterOf(line, "nonce") == kNonce &&
         ParameterOf(line, "uri") == request.target && !ParameterOf(line, "cnonce").empty() &&
         response.size() == 32 && response.find_first_not_of("0123456789abcdef") == response.npos;
}

class HttpPeer : public TourPeer {
 public:
  explicit HttpPeer(TourJournal& journal) : TourPeer("HTTP server", journal) {}

 private:
  using Handler = void (HttpPeer::*)(const TourRequest&);
  struct Route {
    std::string_view target;
    Handler handle;
  };

  void Receive() override {
    const auto request = TakeRequest(input_);
    if (!request) return;
    Record(request->bytes);
    Handle(*request);
  }

  void Handle(const TourRequest& request) {
    static constexpr Route kRoutes[] = {
        {"/hello", &HttpPeer::Hello},     {"/echo", &HttpPeer::Echo},
        {"/chunked", &HttpPeer::Chunked}, {"/basic", &HttpPeer::Basic},
        {"/digest", &HttpPeer::Digest},   {"/picture", &HttpPeer::Picture},
        {"/slow", &HttpPeer::Slow},       {"/silent", &HttpPeer::Silent},
    };
    const auto* route = std::ranges::find(kRoutes, request.target, &Route::target);
    if (route != std::end(kRoutes)) {
      (this->*route->handle)(request);
    } else {
      Send(MakeAnswer("404 Not Found", kText, "There is no such page.\n"));
    }
  }

  void Hello(const TourRequest& request) {
    const std::string answer = MakeAnswer("200 OK", kText, "Hello from the tour.\n");
    // The answer to HEAD announces the body without sending it.
    Send(request.method == "HEAD" ? answer.substr(0, answer.find("\r\n\r\n") + 4) : answer);
  }

  void Echo(const TourRequest& request) {
    Send(MakeAnswer("200 OK", kText, "You sent: " + request.body + "\n"));
  }

  void Chunked(const TourRequest&) {
    Send("HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nTransfer-Encoding: chunked\r\n\r\n");
    timer_ = std::make_unique<Timer>(25, [this] { SendNextChunk(); });
  }

  void SendNextChunk() {
    constexpr std::array kChunks = {"6\r\nPiece \r\n", "9\r\nby piece \r\n", "a\r\nby piece.\n\r\n",
                                    "0\r\n\r\n"};
    if (nextChunk_ < kChunks.size()) Send(kChunks[nextChunk_++]);
  }

  void Basic(const TourRequest& request) {
    AnswerIf(IsTourUser(FieldOf(request, "Authorization")), "Basic realm=\"tour\"");
  }

  void Digest(const TourRequest& request) {
    AnswerIf(IsDigestAnswer(request), "Digest realm=\"" + std::string(kRealm) +
                                          "\", qop=\"auth\", nonce=\"" + std::string(kNonce) +
                                          "\"");
  }

  void AnswerIf(bool allowed, const std::string& challenge) {
    Send(allowed ? MakeAnswer("200 OK", kText, "Welcome, Aladdin.\n")
                 : MakeAnswer("401 Unauthorized", "WWW-Authenticate: " + challenge + "\r\n", ""));
  }

  void Picture(const TourRequest&) {
    Send(MakeAnswer("200 OK", "Content-Type: image/png\r\n", kTourPicture));
  }

  void Slow(const TourRequest&) {
    timer_ = std::make_unique<Timer>(300, [this] {
      if (!slowAnswered_) {
        slowAnswered_ = true;
        Send(MakeAnswer("200 OK", kText, "Sorry for the wait.\n"));
      }
    });
  }

  void Silent(const TourRequest&) {}

  std::unique_ptr<Timer> timer_;
  std::size_t nextChunk_ = 0;
  bool slowAnswered_ = false;
};

}  // namespace

TourServer::PeerMaker HttpServer(TourJournal& journal) {
  return [&journal] { return std::make_unique<HttpPeer>(journal); };
}

}  // namespace netro::tool

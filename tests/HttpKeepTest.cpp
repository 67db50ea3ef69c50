// After which answers a connection may carry another exchange (RFC 9112, section 9.3).
#include "TestKit.h"
#include "web/HttpAnswer.h"

namespace netro {
namespace {

class NoSink final : public HttpBodySink {
 public:
  void BeginBody() override {}
  bool WriteBody(std::span<const std::uint8_t>) override { return false; }
};

TEST(HttpConnection, IsUsableAfterAWholeAnswerOnly) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string sized = "Content-Length: 2\r\n\r\nhi";
  const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n2\r\nhi\r\n0\r\n";
  const struct {
    std::string answer;
    bool usable;
    bool head = false;
    bool keepChunks = false;
  } kCases[] = {
      {ok + sized, true},
      {ok + sized + "X", false},
      {ok + "Content-Length: 2\r\n\r\nh", false},
      {ok + "Content-Length: 0\r\n\r\n", true},
      {ok + "\r\nhi", false},
      {ok + "Connection: close\r\n" + sized, false},
      {ok + "Connection: X, Close\r\nConnection: keep-alive\r\n" + sized, false},
      {"HTTP/1.0 200 OK\r\n" + sized, false},
      {"HTTP/1.0 200 OK\r\nConnection: Keep-Alive\r\n" + sized, true},
      {ok + "Content-Length: 2\r\n" + chunked.substr(ok.size()) + "\r\n", false},
      {"HTTP/1.0 200 OK\r\nConnection: Keep-Alive\r\n" + chunked.substr(ok.size()) + "\r\n", false},
      {chunked, false},
      {chunked + "\r\n", true},
      {chunked + "T: 1\r\n\r\n", true},
      {chunked + "T: 1\r\n\r\nX", false},
      {chunked + std::string(300000, 'x'), false},
      {chunked + "\r\n", true, false, true},
      {ok + "Content-Length: 9\r\n\r\n", true, true},
      {ok + "\r\n", true, true},
      {"HTTP/1.1 204 No\r\n\r\n", true},
      {"HTTP/1.1 101 Go\r\nContent-Length: 0\r\n\r\n", false},
      {"HTTP/1.1 100 Go\r\n\r\n" + ok + sized, true},
  };
  for (const auto& c : kCases)
    for (const std::size_t piece : {c.answer.size(), std::size_t{1}}) {
      SCOPED_TRACE(c.answer.substr(0, 200));
      NoSink sink;
      HttpAnswer answer({c.head, !c.keepChunks}, sink);
      const std::span bytes(reinterpret_cast<const std::uint8_t*>(c.answer.data()),
                            c.answer.size());
      for (std::size_t at = 0; at < bytes.size(); at += piece)
        answer.Feed(bytes.subspan(at, piece));
      EXPECT_EQ(answer.LeavesConnectionUsable(), c.usable);
    }
}

}  // namespace
}  // namespace netro

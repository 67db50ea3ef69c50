// The servers that the recipes of the cookbook talk to in their test. Prints "name=port" for each,
// and serves until its standard input ends. They refuse what a recipe should not do.
#include <netro/testkit/DatagramServer.h>
#include <netro/testkit/DnsServer.h>
#include <netro/testkit/HttpServer.h>
#include <netro/testkit/SmtpServer.h>
#include <netro/testkit/SocksServer.h>
#include <netro/testkit/TimeServer.h>
#include <netro/testkit/WhoIsServer.h>

#include <atomic>
#include <fstream>
#include <iostream>
#include <string>

#include "tests/peers/TlsAuthority.h"
#include "tests/peers/TlsServer.h"

using namespace netro::testkit;

namespace {

// 1,000 times "hello" and a line end.
std::string Gzip() {
  constexpr char kBytes[] =
      "\x1F\x8B\x08\x00\x00\x00\x00\x00\x02\x03\xED\xC4\xA1\x0D\x00\x00\x08\x03\x30\xCF\x9F\x24\x88"
      "\x25\xFC\xEF\x38\x02\xDB\x8A\x4E\x27\x5B\x63\xDB\xB6\x6D\xDB\xB6\x6D\xDB\xB6\x1F\x1F\x3A\x22"
      "\xD4\x4F\x70\x17\x00\x00";
  return {kBytes, sizeof kBytes - 1};
}

void ServePages(HttpServer& http) {
  http.OnText("/", "hello\n");
  http.OnText("/lines", "one\ntwo\nthree\n");
  http.On("/packed", [](const HttpRequest& request) {
    if (request.Field("Accept-Encoding").find("gzip") == std::string::npos) {
      return HttpServer::Answer("406 Unpacked", "");
    }
    return HttpServer::Answer("200 OK\r\nContent-Encoding: gzip\r\nContent-Type: text/plain",
                              Gzip());
  });
  http.On("/moved", [](const HttpRequest&) {
    return HttpServer::Answer("302 Found\r\nLocation: /\r\nContent-Length: 0", "");
  });
  http.On("/silent", [](const HttpRequest&) { return Response("", After::Stay); });
  http.On("/busy", [count = std::make_shared<std::atomic<int>>(0)](const HttpRequest&) {
    if (++*count > 2) return HttpServer::Answer("200 OK\r\nContent-Length: 0", "");
    return HttpServer::Answer("503 Busy\r\nRetry-After: 0\r\nContent-Length: 0", "");
  });
  http.On("/json", [](const HttpRequest& request) {
    const bool good =
        request.method == "POST" && request.Field("Content-Type") == "application/json";
    return HttpServer::Answer(
        std::string(good ? "201 Created" : "400 Bad") + "\r\nContent-Type: application/json",
        "{\"got\":" + request.body + "}");
  });
}

// The first answer to each file ends in the middle.
Response CutFile(const HttpRequest& request) {
  const std::string head = "\r\nETag: \"1\"\r\nContent-Type: application/octet-stream";
  if (request.Field("Range") != "bytes=500-") {
    return HttpServer::Answer("200 OK\r\nContent-Length: 1000" + head, std::string(500, 'a'));
  }
  return HttpServer::Answer(
      "206 Partial Content\r\nContent-Length: 500\r\nContent-Range: bytes 500-999/1000" + head,
      std::string(500, 'b'));
}

Response Form(const HttpRequest& request) {
  const bool whole = request.Field("Authorization") == "Basic amFuZTpzZWNyZXQ=" &&
                     request.body.find("A report") != std::string::npos &&
                     request.body.find("filename=\"first.txt\"") != std::string::npos;
  return HttpServer::Answer((whole ? "204 Taken" : "400 Bad") + std::string(), "");
}

void ServeAccount(HttpServer& http) {
  http.On("/login", [](const HttpRequest& request) {
    const bool good = request.body == "user=jane&password=secret";
    return HttpServer::Answer(
        good ? "204 In\r\nSet-Cookie: session=7; Max-Age=3600" : "403 No\r\nContent-Length: 0", "");
  });
  http.On("/account", [](const HttpRequest& request) {
    const bool in = request.Field("Cookie") == "session=7";
    return HttpServer::Answer((in ? "200 OK" : "401 Who?") + std::string("\r\nContent-Length: 0"),
                              "");
  });
}

// A session of a server that wants a login and a message with two attachments.
void Submission(TlsPeer& peer) {
  std::string bytes;
  std::string message;
  bool in = false;
  peer.Send("220 mail.test\r\n");
  for (bool inMessage = false;;) {
    const std::size_t end = bytes.find("\r\n");
    if (end == bytes.npos) {
      if (!peer.Read(bytes)) return;
      continue;
    }
    const std::string line = bytes.substr(0, end);
    bytes.erase(0, end + 2);
    if (inMessage && line != ".") {
      message += line + "\n";
      continue;
    }
    std::string reply = SmtpServer::Politely(line).bytes;
    if (line.starts_with("EHLO")) reply = "250-mail.test\r\n250 AUTH PLAIN\r\n";
    if (line.starts_with("AUTH")) {
      in = line == "AUTH PLAIN AGphbmVAZXhhbXBsZS5jb20Ac2VjcmV0";
      reply = in ? "235 in\r\n" : "535 no\r\n";
    }
    if (line.starts_with("MAIL") && !in) reply = "530 login first\r\n";
    if (inMessage &&
        (message.find("first.txt") == message.npos || message.find("second.txt") == message.npos)) {
      reply = "554 two files are wanted\r\n";
    }
    inMessage = line == "DATA";
    peer.Send(reply);
  }
}

DnsServer::Replies AnswerMail(const std::string& query) {
  using namespace dns;
  const std::string soa = Record(kQuestion, 6, Soa());
  switch (QuestionType(query)) {
    case 2:  // EDNS: 1,232 bytes, and the flag that was asked for
      return {DnsReply(query).Additional(Record(Name(""), 41, "", 0x8000, 1232)).Bytes()};
    case 15:
      return {DnsReply(query).Answer(Record(kQuestion, 15, U16(10) + Name("mx.test"))).Bytes()};
    case 252:
      return {DnsReply(query)
                  .Answer(soa)
                  .Answer(Record(kQuestion, 16, Text("hello")))
                  .Answer(soa)
                  .Bytes()};
    default:
      return AnswersOf({{"one.test", "192.0.2.1"}, {"two.test", "192.0.2.2"}})(query);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  HttpServer http;
  ServePages(http);
  ServeAccount(http);
  http.On("/file", CutFile);
  http.On("/form", Form);
  const TlsAuthority authority;
  std::ofstream(std::string(argv[1]) + "/authority.pem") << authority.Certificate();
  TlsRules rules;
  rules.identity = authority.Issue();
  const std::string pin = rules.identity.pin;
  rules.serve = [&](TlsPeer& peer) {
    http.ServeOn({[&](std::string& into) { return peer.Read(into); },
                  [&](const Response& answer) { return peer.Send(answer.bytes); }},
                 0);
    peer.CloseNotify();
  };
  const TlsServer https(rules);
  rules.serve = Submission;
  const TlsServer submission(rules);
  const SmtpServer smtp([](const std::string& command) -> Response {
    if (command.starts_with("RCPT TO:<nobody")) return "550 no such user\r\n";
    return SmtpServer::Politely(command);
  });
  const DnsServer dns(AnswerMail);
  const SocksServer socks({.method = 2, .user = "jane", .password = "secret"});
  const TimeServer time(std::chrono::hours(1), [](TimeReply reply) { return reply.Bytes(); });
  const WhoIsServer whois([](const std::string& name) { return name + " is Jane's\r\n"; });
  const DatagramServer echo([](const std::string& text) { return DatagramServer::Replies{text}; });
  const RefusingPort refusing;

  std::cout << "http=" << http.Port() << "\nhttps=" << https.Port() << "\npin=" << pin
            << "\nsubmission=" << submission.Port() << "\nsmtp=" << smtp.Port()
            << "\ndns=" << dns.Port() << "\nsocks=" << socks.Port() << "\ntime=" << time.Port()
            << "\nwhois=" << whois.Port() << "\nudp=" << echo.Port()
            << "\nrefusing=" << refusing.Port() << std::endl;
  while (std::cin.get() != std::char_traits<char>::eof()) {
  }
}

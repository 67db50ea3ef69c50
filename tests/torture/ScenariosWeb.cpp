#include <netro/HTTPCls.h>
#include <netro/QueryTimeCLS.h>
#include <netro/WhoIsCls.h>
#include <netro/testkit/BytesServer.h>
#include <netro/testkit/DatagramServer.h>
#include <netro/testkit/HttpServer.h>
#include <netro/testkit/SocksServer.h>
#include <netro/testkit/TimeReply.h>

#include <memory>

#include "Scenario.h"
#include "Servers.h"
#include "tests/TemporaryFolder.h"

namespace netro::torture {
namespace {

const std::string kBody(200, 'b');
const std::string kAnswer = "an answer\r\n";

testkit::HttpServer& Origin() {
  static testkit::HttpServer& server = *[] {
    auto* const made = new testkit::HttpServer(true);
    made->OnText("/", kBody);
    made->On("/chunked", [](const testkit::HttpRequest&) {
      return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nTransfer-Encoding: chunked\r\n\r\n"
             "64\r\n" + kBody.substr(0, 100) + "\r\n64\r\n" + kBody.substr(0, 100) + "\r\n0\r\n\r\n";
    });
    made->On("/moved", [](const testkit::HttpRequest&) {
      return testkit::HttpServer::Answer("302 Found\r\nContent-Length: 0\r\nLocation: /", "");
    });
    made->On("/file", [](const testkit::HttpRequest&) {
      return testkit::HttpServer::Answer("200 OK\r\nContent-Length: 200\r\nContent-Type: image/png", kBody);
    });
    return made;
  }();
  return server;
}

using Judge = std::int32_t (*)(HTTPCls&, const std::string&);

std::string Get(HTTPCls& http) {
  bool timeout = false;
  return http.HTTPQuery(timeout);
}

std::int32_t IsGot(HTTPCls& http, const std::string& answer) {
  const bool good = http.HTTPResult() == 200 && http.BodyLen() == 200 && answer.ends_with(kBody);
  return Told(http.LastErr() == 0, good, http.LastErr());
}

std::int32_t IsInFile(HTTPCls& http, const std::string&) {
  const bool good = http.HTTPResult() == 200 && ReadFile(http.Filename()) == kBody;
  return Told(http.LastErr() == 0, good, http.LastErr());
}

Scenario Query(const std::string& name, const std::string& path,
               std::function<void(World&, HTTPCls&)> more = nullptr,
               Judge judge = IsGot) {
  const auto prepare = [=](World& world, HTTPCls& http) {
    http.Events(&world.events);
    http.TimeOutSeconds(2);
    http.URL("http://127.0.0.1:" + std::to_string(world.Via(Origin().Port())) + path);
    if (more) more(world, http);
  };
  return Make<HTTPCls>("HTTP " + name, prepare, Get, judge);
}

void BySocks(World& world, HTTPCls& http) {
  static auto& proxy = *new testkit::SocksServer();
  http.URL("http://localhost:" + std::to_string(Origin().Port()) + "/");
  http.ProxyType(ProxySocks5NoAuth);
  http.ProxyUseRemoteDNS(true);
  http.ProxyURL("127.0.0.1");
  http.ProxyPort(world.Via(proxy.Port()));
}

void ByName(World& world, HTTPCls& http) {
  http.DNSURL(NameServerUrl());
  http.URL("http://origin.test:" + std::to_string(world.Via(Origin().Port())) + "/");
}

Scenario Time(const std::string& name, bool udp, std::function<int(World&)> port) {
  const auto prepare = [=](World& world, QueryTimeCLS& time) {
    time.Server("127.0.0.1");
    time.Port(port(world));
    time.UseUDP(udp);
    time.Timeout(2);
  };
  return Make<QueryTimeCLS>(
      "QueryTime " + name, prepare, [](QueryTimeCLS& time) { return time.QueryTime(); },
      [](QueryTimeCLS& time, bool done) { return Told(done, true, time.LastErr()); });
}

int UdpTime(World&) {
  static auto& server = *new testkit::DatagramServer(
      [](const std::string&) -> testkit::DatagramServer::Replies {
        return {testkit::Big32(3'155'673'600)};
      });
  return server.Port();
}

int TcpTime(World& world) {
  static auto& server = *new testkit::BytesServer({{testkit::Send(testkit::Big32(3'155'673'600))}});
  return world.Via(server.Port());
}

void AtWhoIs(World& world, WhoIsCls& whois) {
  static auto& server =
      *new testkit::BytesServer({{testkit::AwaitText("\n"), testkit::Send(kAnswer)}});
  whois.Port(world.Via(server.Port()));
  whois.Timeout(2);
}

}  // namespace

std::vector<Scenario> WebScenarios() {
  static const auto& folder = *new TemporaryFolder();
  return {
      Query("GET", "/"),
      Query("by name", "/", ByName),
      Query("by SOCKS", "/", BySocks),
      Query("kept alive", "/", [](World&, HTTPCls& http) { http.KeepAlive(true); }),
      Query("chunked", "/chunked"),
      Query("redirected", "/moved",
            [](World&, HTTPCls& http) { http.MaxRedirects(3); }),
      Query("into a file", "/file",
            [](World&, HTTPCls& http) {
              http.SaveAsFile(true);
              http.Filename(folder / "body");
            },
            IsInFile),
      Time("over UDP", true, UdpTime),
      Time("over TCP", false, TcpTime),
      Make<WhoIsCls>(
          "WhoIs", AtWhoIs, [](WhoIsCls& whois) { return whois.WhoIs("127.0.0.1", "name"); },
          [](WhoIsCls& whois, bool done) {  // a close is the end of any answer
            const bool good = kAnswer.starts_with(whois.Result());
            return Told(done, good, whois.LastErr());
          }),
  };
}

}  // namespace netro::torture

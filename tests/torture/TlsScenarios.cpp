#include <netro/HTTPCls.h>
#include <netro/tls/OpenSslTls.h>
#include <netro/testkit/HttpServer.h>

#include "Scenario.h"
#include "tests/TemporaryFolder.h"
#include "tests/peers/TlsServer.h"

namespace netro::torture {
namespace {

const std::string kBody(200, 'b');

testkit::TlsServer& Server(const testkit::TlsAuthority& authority) {
  static auto& plain = *new testkit::HttpServer(true);
  static auto& server = *[&] {
    plain.OnText("/", kBody);
    testkit::TlsRules rules;
    rules.identity = authority.Issue();
    rules.serve = [](testkit::TlsPeer& peer) {
      plain.ServeOn({[&](std::string& into) { return peer.Read(into); },
                     [&](const testkit::Response& answer) { return peer.Send(answer.bytes); }},
                    0);
      peer.CloseNotify();
    };
    return new testkit::TlsServer(rules);
  }();
  return server;
}

void AtServer(World& world, HTTPCls& http) {
  static const auto& authority = *new testkit::TlsAuthority();
  static const auto provider = [&] {
    const TemporaryFolder folder;
    TlsSettings settings;
    settings.trustFile = folder / "trust.pem";
    WriteFile(settings.trustFile, authority.Certificate());
    std::string error;
    return MakeOpenSslProvider(settings, error);
  }();
  http.Events(&world.events);
  http.TimeOutSeconds(2);
  http.Tls(provider);
  http.URL("https://localhost:" + std::to_string(world.Via(Server(authority).Port())) + "/");
}

std::string Get(HTTPCls& http) {
  bool timeout = false;
  return http.HTTPQuery(timeout);
}

std::int32_t IsGot(HTTPCls& http, const std::string& answer) {
  const bool good = http.HTTPResult() == 200 && answer.ends_with(kBody);
  return Told(http.LastErr() == 0, good, http.LastErr());
}

}  // namespace

std::vector<Scenario> TlsScenarios() {
  const auto kept = [](World& world, HTTPCls& http) {
    AtServer(world, http);
    http.KeepAlive(true);
  };
  return {Make<HTTPCls>("HTTPS", AtServer, Get, IsGot),
          Make<HTTPCls>("HTTPS kept alive", kept, Get, IsGot)};
}

}  // namespace netro::torture

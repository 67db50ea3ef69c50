// Whom StartTls believes and why not: certificates, names, pins, versions, settings.
#include "TlsTestKit.h"

namespace netro {
namespace {

TEST(TlsCertificates, AreBelievedOrRefusedWithANumberOfTheirOwn) {
  const CertificateWish good, wild{.names = "DNS:*.wild.test,IP:::1"};
  const struct {
    const char* what;
    CertificateWish wish;
    const char* host;
    std::int32_t error;
    const char* text;
  } cases[] = {
      {"good", good, "localhost", 0, ""},
      {"large letters and a dot", good, "LocalHost.", 0, ""},
      {"address", good, "127.0.0.1", 0, ""},
      {"address that it has not", good, "127.0.0.2", 10162, "localhost, 127.0.0.1"},
      {"IPv6 address", wild, "::1", 0, ""},
      {"wildcard", wild, "a.wild.test", 0, ""},
      {"wildcard for two labels", wild, "a.b.wild.test", 10162, "*.wild.test, ::1"},
      {"wildcard for none", wild, "wild.test", 10162, "*.wild.test"},
      {"expired",
       {.firstDay = -20, .lastDay = -10},
       "localhost",
       10160,
       "The certificate of localhost expired"},
      {"not yet valid", {.firstDay = 5}, "localhost", 10161, "clock"},
      {"wrong name",
       {.names = "DNS:other.test,DNS:second.test"},
       "localhost",
       10162,
       "other.test, second.test"},
      {"common name does not count",
       {.names = "", .commonName = "named.test"},
       "named.test",
       10162,
       "no name at all"},
      {"self-signed", {.selfSigned = true}, "localhost", 10164, "trust file"},
      {"weak key", {.rsaBits = 1024}, "localhost", 10165, "too weak"},
  };
  const auto provider = Trusting();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    TlsRules rules;
    rules.identity = Authority().Issue(c.wish);
    TlsServer server(rules);
    SocketCls socket;
    Recorder recorder(socket);
    EXPECT_EQ(Protect(socket, server.Port(), provider, c.host), c.error);
    if (c.error == 0) {
      EXPECT_TRUE(Echoes(socket, recorder));
      continue;
    }
    EXPECT_EQ(socket.SocketHandle(), 0) << "closed";
    EXPECT_FALSE(recorder.Saw("Closed") || recorder.Saw("DataArrival"));
    EXPECT_NE(socket.LastSocketErrMsg().find(c.text), std::string::npos)
        << socket.LastSocketErrMsg();
  }
}

TEST(TlsCertificates, AnAuthorityThatNobodyKnowsIsNotTrusted) {
  const testkit::TlsAuthority stranger("Stranger");
  TlsRules rules;
  rules.identity = stranger.Issue();
  TlsServer server(rules);
  SocketCls socket;
  EXPECT_EQ(Protect(socket, server.Port(), Trusting()), 10163);
  EXPECT_NE(socket.LastSocketErrMsg().find("CN=Stranger"), std::string::npos);
  EXPECT_EQ(socket.TlsInfo().subject, "CN=localhost") << "of the certificate refused";
  EXPECT_EQ(socket.TlsInfo().names, (std::vector<std::string>{"localhost", "127.0.0.1"}));

  TlsSettings anyone;
  anyone.trustAnyoneForTestsOnly = true;
  EXPECT_EQ(Protect(socket, server.Port(), MustProvide(anyone), "no.such.name"), 0);
}

TEST(TlsCertificates, HostsThatNoCertificateCanBeForAreRefused) {
  TlsServer server(GoodRules());
  for (const char* host : {"", ".", "a b",
                           "b\xFC"
                           "cher.test"}) {
    SocketCls socket;
    EXPECT_EQ(Protect(socket, server.Port(), Trusting(), host), 10022) << host;
  }
}

TEST(TlsCertificates, PinsAreCheckedBesidesAllElse) {
  TlsServer server(GoodRules());
  const std::string pin = GoodRules().identity.pin;  // another key's
  TlsRules rules = GoodRules();
  TlsServer pinned(rules);
  for (const bool anyone : {false, true}) {
    TlsSettings settings;
    settings.trustAnyoneForTestsOnly = anyone;
    settings.pins = {pin};
    SocketCls socket;
    EXPECT_EQ(Protect(socket, pinned.Port(), Trusting(settings)), 10168);
    EXPECT_NE(socket.LastSocketErrMsg().find("sha256//" + rules.identity.pin), std::string::npos);
    settings.pins.push_back("sha256//" + rules.identity.pin);
    EXPECT_EQ(Protect(socket, pinned.Port(), Trusting(settings)), 0);
    EXPECT_EQ(Protect(socket, server.Port(), Trusting(settings)), 10168);
  }
}

TEST(TlsCertificates, ClientCertificateIsGivenWhenWanted) {
  const testkit::TlsAuthority other("Other");
  const TemporaryFolder folder;
  const testkit::Identity own = Authority().Issue(), foreign = other.Issue();
  WriteFile(folder / "own.pem", own.certificate + own.key);
  WriteFile(folder / "foreign.pem", foreign.certificate);
  WriteFile(folder / "foreign.key", foreign.key);
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    TlsRules rules = GoodRules();
    rules.clientAuthority = Authority().Certificate();
    rules.highest = version;
    TlsServer server(rules);
    const auto outcome = [&](const TlsSettings& settings) {
      SocketCls socket;
      Recorder recorder(socket);
      const std::int32_t error = Protect(socket, server.Port(), Trusting(settings));
      if (error != 0) return error;
      // In TLS 1.3 the server looks at it when the client is through already.
      if (socket.SendData("ping") != 0) return -2;
      EXPECT_TRUE(PumpUntil([&] { return !recorder.received.empty() || recorder.Saw("Closed"); }));
      return recorder.received == "ping" ? 0 : socket.LastSocketErr();
    };
    TlsSettings settings;
    EXPECT_EQ(outcome(settings), 10171) << version;
    settings.clientCertificateFile = folder / "own.pem";
    EXPECT_EQ(outcome(settings), 0) << version;
    settings.clientCertificateFile = folder / "foreign.pem";
    settings.clientKeyFile = folder / "foreign.key";
    EXPECT_EQ(outcome(settings), 10171) << version;
  }
}

TEST(TlsVersions, AreNegotiatedWithinWhatIsAllowed) {
  const struct {
    int lowest, highest;
    TlsVersion minimum;
    std::int32_t error;
    const char* protocol;
  } cases[] = {
      {TLS1_VERSION, TLS1_VERSION, TlsVersion::Tls12, 10169, ""},
      {TLS1_1_VERSION, TLS1_1_VERSION, TlsVersion::Tls12, 10169, ""},
      {TLS1_2_VERSION, TLS1_2_VERSION, TlsVersion::Tls12, 0, "TLSv1.2"},
      {TLS1_3_VERSION, TLS1_3_VERSION, TlsVersion::Tls12, 0, "TLSv1.3"},
      {TLS1_2_VERSION, TLS1_2_VERSION, TlsVersion::Tls13, 10169, ""},
      {0, 0, TlsVersion::Tls13, 0, "TLSv1.3"},
  };
  for (const auto& c : cases) {
    TlsRules rules = GoodRules(c.highest);
    rules.lowest = c.lowest;
    TlsServer server(rules);
    TlsSettings settings;
    settings.minimumVersion = c.minimum;
    SocketCls socket;
    EXPECT_EQ(Protect(socket, server.Port(), Trusting(settings)), c.error) << c.highest;
    EXPECT_EQ(socket.TlsInfo().protocol, c.protocol);
  }
}

TEST(TlsVersions, AlpnIsOfferedInOrder) {
  TlsRules rules = GoodRules();
  rules.alpn = "http/1.1";
  TlsServer server(rules);
  TlsSettings settings;
  SocketCls socket;
  settings.alpn = {"h2", "http/1.1"};
  ASSERT_EQ(Protect(socket, server.Port(), Trusting(settings)), 0);
  EXPECT_EQ(socket.TlsInfo().alpn, "http/1.1");
  settings.alpn = {"h2"};
  EXPECT_EQ(Protect(socket, server.Port(), Trusting(settings)), 10170);
  EXPECT_NE(socket.LastSocketErrMsg().find("no application protocol"), std::string::npos);
}

TEST(TlsSettings, WhatCannotBeUsedIsNamed) {
  const TemporaryFolder folder;
  WriteFile(folder / "empty", "");
  WriteFile(folder / "certificate", Authority().Issue().certificate);
  WriteFile(folder / "key", Authority().Issue().key);
  const std::pair<const char*, std::function<void(TlsSettings&)>> cases[] = {
      {"trustFile", [&](auto& s) { s.trustFile = folder / "none"; }},
      {"trustFile", [&](auto& s) { s.trustFile = folder / "empty"; }},
      {"trustFolder", [&](auto& s) { s.trustFolder = folder / "none"; }},
      {"clientCertificateFile", [&](auto& s) { s.clientCertificateFile = folder / "empty"; }},
      {"clientKeyFile", [&](auto& s) { s.clientCertificateFile = folder / "certificate"; }},
      {"mismatch",
       [&](auto& s) {
         s.clientCertificateFile = folder / "certificate";
         s.clientKeyFile = folder / "key";
       }},
      {"pin \"sha256//c2hvcnQ=\"", [&](auto& s) { s.pins = {"sha256//c2hvcnQ="}; }},
      {"alpn", [&](auto& s) { s.alpn = {""}; }},
      {"keyLogFile", [&](auto& s) { s.keyLogFile = folder / "no/such/folder"; }},
  };
  for (const auto& [text, change] : cases) {
    std::string error;
    TlsSettings settings;
    change(settings);
    EXPECT_EQ(MakeOpenSslProvider(settings, error), nullptr) << text;
    EXPECT_NE(error.find(text), std::string::npos) << error;
  }
}

TEST(TlsSettings, KeyLogHoldsTheSecretsForTheOwnerOnly) {
  const TemporaryFolder folder;
  TlsServer server(GoodRules());
  TlsSettings settings;
  settings.keyLogFile = folder / "keys";
  SocketCls socket;
  ASSERT_EQ(Protect(socket, server.Port(), Trusting(settings)), 0);
  EXPECT_NE(ReadFile(settings.keyLogFile).find("CLIENT_HANDSHAKE_TRAFFIC_SECRET "),
            std::string::npos);
  using std::filesystem::perms;
  EXPECT_EQ(std::filesystem::status(settings.keyLogFile).permissions() & perms::all,
            perms::owner_read | perms::owner_write);
  std::filesystem::create_symlink("keys", folder / "link");
  settings.keyLogFile = folder / "link";
  std::string error;
  EXPECT_EQ(MakeOpenSslProvider(settings, error), nullptr);
  EXPECT_NE(error.find("it is a link"), std::string::npos) << error;
}

TEST(TlsResumption, ContinuesOnlyWhatThisProviderHasVerifiedForTheName) {
  for (const auto& [version, tickets] :
       {std::pair(TLS1_2_VERSION, true), {TLS1_2_VERSION, false}, {TLS1_3_VERSION, true}}) {
    TlsRules rules = GoodRules(version);
    rules.tickets = tickets;
    TlsServer server(rules);
    const auto provider = Trusting();
    const auto resumed = [&](const std::shared_ptr<TlsProvider>& by, const char* host) {
      SocketCls socket;
      Recorder recorder(socket);
      EXPECT_EQ(Protect(socket, server.Port(), by, host), 0);
      EXPECT_TRUE(Echoes(socket, recorder));  // tickets have come then
      EXPECT_EQ(socket.TlsInfo().subject, "CN=localhost");
      return socket.TlsInfo().resumed;
    };
    EXPECT_FALSE(resumed(provider, "localhost"));
    for (int i = 0; i < 5; ++i) EXPECT_TRUE(resumed(provider, "localhost")) << version;
    EXPECT_FALSE(resumed(provider, "127.0.0.1")) << "another name";
    EXPECT_FALSE(resumed(Trusting(), "localhost")) << "another provider";
  }
}

}  // namespace
}  // namespace netro

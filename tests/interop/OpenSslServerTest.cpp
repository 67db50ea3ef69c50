// StartTls against "openssl s_server": handshakes and records that a plain server seldom makes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ServerProcess.h"
#include "tests/TlsTestKit.h"

namespace netro::interop {
namespace {

struct Odd {
  const char* name;
  std::vector<std::string> options;
  const char* protocol;
  std::int32_t error = 0;
  bool clientCertificate = false;
};

std::ostream& operator<<(std::ostream& out, const Odd& odd) { return out << odd.name; }

class OpenSslServer : public testing::TestWithParam<Odd> {};

TEST_P(OpenSslServer, TakesAConnectionAndGivesItBack) {
  const Odd& odd = GetParam();
  const std::string program = FindProgram("openssl");
  if (program.empty()) GTEST_SKIP() << "openssl is not installed";
  ServerProcess server([&](const std::string& folder, const std::string& port) {
    const testkit::Identity identity = Authority().Issue();
    WriteFile(folder + "/server.pem", identity.certificate + identity.key);
    WriteFile(folder + "/trust.pem", Authority().Certificate());
    std::vector<std::string> command = {program,   "s_server",
                                        "-accept", "127.0.0.1:" + port,
                                        "-cert",   folder + "/server.pem",
                                        "-CAfile", folder + "/trust.pem",
                                        "-rev",    "-quiet"};
    command.insert(command.end(), odd.options.begin(), odd.options.end());
    return command;
  });
  ASSERT_TRUE(server.IsUp()) << server.Output();

  const TemporaryFolder folder;
  TlsSettings settings;
  if (odd.clientCertificate) {
    const testkit::Identity own = Authority().Issue();
    settings.clientCertificateFile = folder / "own.pem";
    WriteFile(settings.clientCertificateFile, own.certificate + own.key);
  }
  const auto provider = Trusting(settings);
  for (int round = 0; round < 3; ++round) {  // the later ones may be resumed
    SocketCls socket;
    Recorder recorder(socket);
    ASSERT_EQ(Protect(socket, server.Port(), provider), odd.error) << socket.LastSocketErrMsg();
    if (odd.error != 0) return;
    EXPECT_EQ(socket.TlsInfo().protocol, odd.protocol);
    for (const std::size_t length : {1u, 100u, 15'000u}) {
      const std::string text = std::string(length, 'x') + "end";
      recorder.received.clear();
      EXPECT_EQ(socket.SendData(text + "\n"), 0);
      EXPECT_TRUE(PumpUntil([&] { return recorder.received.size() == length + 4; }));
      EXPECT_EQ(recorder.received, "dne" + std::string(length, 'x') + "\n");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Odd, OpenSslServer,
    testing::Values(
        Odd{"Hello retry request", {"-groups", "P-384"}, "TLSv1.3"},
        Odd{"Hello retry request with a cookie", {"-groups", "P-521", "-stateless"}, "TLSv1.3"},
        Odd{"ChaCha20", {"-ciphersuites", "TLS_CHACHA20_POLY1305_SHA256"}, "TLSv1.3"},
        Odd{"padded records", {"-record_padding", "4096"}, "TLSv1.3"},
        Odd{"records of 512 bytes", {"-max_send_frag", "512"}, "TLSv1.3"},
        Odd{"many tickets", {"-num_tickets", "50"}, "TLSv1.3"},
        Odd{"no tickets", {"-num_tickets", "0"}, "TLSv1.3"},
        Odd{"CBC", {"-tls1_2", "-cipher", "ECDHE-ECDSA-AES128-SHA256"}, "TLSv1.2"},
        Odd{"sessions by identifier", {"-tls1_2", "-no_ticket"}, "TLSv1.2"},
        Odd{"no middlebox look", {"-no_middlebox"}, "TLSv1.3"},
        Odd{"client certificate", {"-Verify", "1"}, "TLSv1.3", 0, true},
        Odd{"client certificate of 1.2", {"-Verify", "1", "-tls1_2"}, "TLSv1.2", 0, true},
        Odd{"no client certificate", {"-Verify", "1", "-tls1_2"}, "", 10171},
        Odd{"no forward secrecy", {"-tls1_2", "-cipher", "AES128-GCM-SHA256"}, "", 10170}),
    [](const auto& test) {
      std::string name = test.param.name;
      std::erase_if(name, [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); });
      return name;
    });

}  // namespace
}  // namespace netro::interop

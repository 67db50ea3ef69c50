// Content codings as nginx packs them, over TLS: what is unpacked is what curl unpacks.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/SystemCodings.h>

#include <string>

#include "TlsNginx.h"
#include "tests/TlsTestKit.h"

namespace netro::interop {
namespace {

TEST(TlsCodingsNginx, BodiesAreUnpackedAsCurlDoes) {
  if (!TlsNginx::IsInstalled()) GTEST_SKIP() << "nginx is not installed";
  TlsNginx server;
  ASSERT_TRUE(server.IsUp()) << server.Output();
  std::string text;
  for (long i = 0; text.size() < 3'000'000; ++i) text += std::to_string(i * 7919) + "\n";
  WriteFile(server.In("www/long.txt"), text);
  const struct {
    const char* path;
    const char* coding;
  } kCases[] = {{"/gzip/long.txt", "gzip"}, {"/brotli/long.txt", "br"}, {"/long.txt", ""}};
  HTTPCls http;
  http.Tls(Trusting());
  http.ContentCoding(SystemCodings());
  server.Reach(http, Site::Good);
  for (const bool keep : {false, true})
    for (const auto& c : kCases) {
      SCOPED_TRACE(c.path);
      http.KeepAlive(keep);
      http.URL(server.Url(c.path));
      bool timeout = false;
      const std::string answer = http.HTTPQuery(timeout);
      const std::string wanted = server.CurlOf(Site::Good, c.path, {"--compressed"});
      EXPECT_EQ(http.LastErr(), 0) << answer.substr(0, 500);
      EXPECT_EQ(StableHeader(answer), StableHeader(wanted));
      EXPECT_TRUE(Body(answer) == text && Body(wanted) == text);
      const bool asked = std::string(c.coding) != "br" || server.PacksBrotli();
      EXPECT_EQ(http.Header("Content-Encoding"), asked ? c.coding : "");
    }
  if (!server.PacksBrotli()) GTEST_SKIP() << "nginx has no brotli module: that part was left out";
}

}  // namespace
}  // namespace netro::interop

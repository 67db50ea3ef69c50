#include "TlsNginx.h"

#include <unistd.h>

#include <filesystem>

#include "tests/TlsTestKit.h"

namespace netro::interop {
namespace {

constexpr char kBrotli[] = "/usr/lib/nginx/modules/ngx_http_brotli_filter_module.so";

struct Rules {
  testkit::CertificateWish wish = {};
  bool strangeIssuer = false;
  std::string lines = {};
};

// In the order of Site.
std::vector<Rules> AllRules(const std::string& folder) {
  testkit::CertificateWish expired, notYet, wrongName, selfSigned;
  expired.firstDay = -30;
  expired.lastDay = -1;
  notYet.firstDay = 2;
  wrongName.names = "DNS:other.test";
  selfSigned.selfSigned = true;
  return {
      {},
      {expired},
      {notYet},
      {wrongName},
      {selfSigned},
      {.strangeIssuer = true},
      {.lines = "ssl_verify_client on; ssl_client_certificate " + folder + "/trust.pem;"},
      {.lines = "ssl_protocols TLSv1.2; ssl_session_tickets off; ssl_session_cache shared:s:1m;"},
      {.lines = "ssl_protocols TLSv1.2;"},
      {.lines = "ssl_protocols TLSv1.3;"}};
}

std::string Address(std::size_t site) { return "127.0.0." + std::to_string(1 + site); }

std::string ServerBlocks(const std::string& folder, const std::string& port) {
  const testkit::TlsAuthority stranger("Strange Authority");
  std::string blocks;
  std::size_t number = 0;
  for (const Rules& rules : AllRules(folder)) {
    const testkit::Identity identity =
        (rules.strangeIssuer ? stranger : Authority()).Issue(rules.wish);
    const std::string file = folder + "/" + std::to_string(number) + ".pem";
    WriteFile(file, identity.certificate + identity.key);
    blocks += "server { listen " + Address(number++) + ":" + port + " ssl; ssl_certificate " +
              file + "; ssl_certificate_key " + file + "; " + rules.lines + " include " + folder +
              "/site.conf; }\n";
  }
  return blocks;
}

// What every site has.
constexpr char kSite[] = R"(
location = /told { return 200 "$connection $ssl_session_reused $ssl_protocol $ssl_client_verify"; }
location = /hop1 { return 301 /hop2; }
location = /hop2 { return 302 /hop3; }
location = /hop3 { return 303 /hop4; }
location = /hop4 { return 307 /hop5; }
location = /hop5 { return 308 /plain.txt; }
location = /round { return 302 /round; }
location /gzip/ { alias FOLDER/www/; gzip on; gzip_types *; }
location /brotli/ { alias FOLDER/www/; BROTLI }
client_max_body_size 50m;
location /put/ { dav_methods PUT; }
location /post/ { proxy_pass https://127.0.0.1:PORT/put/; proxy_method PUT; }
location = /moved { return 307 /put/moved; }
location /small/ { dav_methods PUT; client_max_body_size 1m; }
)";

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at; (at = text.find(from)) != std::string::npos;)
    text.replace(at, from.size(), to);
  return text;
}

std::vector<std::string> Configure(const std::string& folder, const std::string& port) {
  const bool brotli = TlsNginx::PacksBrotli();
  std::string site = Replaced(kSite, "FOLDER", folder);
  site = Replaced(site, "BROTLI", brotli ? "brotli on; brotli_types *;" : "");
  WriteFile(folder + "/site.conf", Replaced(site, "PORT", port));
  WriteFile(folder + "/trust.pem", Authority().Certificate());
  std::filesystem::create_directories(folder + "/www/put");
  std::string conf = (brotli ? "load_module " + std::string(kBrotli) + ";\n" : "") +
                     (geteuid() == 0 ? "user root;\n" : "") +
                     "daemon off;\nmaster_process off;\nevents {}\npid " + folder +
                     "/nginx.pid;\n" +
                     "http {\naccess_log off;\nssl_protocols TLSv1.2 TLSv1.3;\ntypes { text/plain "
                     "txt; image/png png; }\n"
                     "default_type text/plain;\nkeepalive_requests 1000000;\nroot " +
                     folder + "/www;\n";
  for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
    conf += std::string(kind) + "_temp_path " + folder + "/temp;\n";
  WriteFile(folder + "/nginx.conf", conf + ServerBlocks(folder, port) + "}\n");
  return {FindProgram("nginx"), "-e", folder + "/error.log", "-c", folder + "/nginx.conf"};
}

}  // namespace

bool TlsNginx::PacksBrotli() { return std::filesystem::exists(kBrotli); }

TlsNginx::TlsNginx() : server_(Configure) {}

std::string TlsNginx::Url(const std::string& path, const std::string& host) const {
  return "https://" + host + ":" + std::to_string(Port()) + path;
}

void TlsNginx::Reach(HTTPCls& http, Site site) const {
  http.ClearHostAddresses();
  http.AddHostAddress("localhost", Port(), Address(static_cast<std::size_t>(site)));
}

std::string TlsNginx::CurlOf(Site site, const std::string& path,
                             std::vector<std::string> options) const {
  options.insert(options.end(), {"--include", "--cacert", In("trust.pem"), "--connect-to",
                                 "::" + Address(static_cast<std::size_t>(site)) + ":", Url(path)});
  return Curl(options);
}

}  // namespace netro::interop

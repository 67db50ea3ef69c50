// nginx runs as one process with a configuration of its own. The own server answers one connection
// after the other, which is enough for one client and leaves the other core to it.

#include "bench/HttpServers.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace netro::bench {
namespace {

constexpr std::size_t kMebibyte = 1024 * 1024;
constexpr std::string_view kOk = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n";
const std::string kSmallBody(100, 's');

/// A quarter of a MiB of plain body, and the same in chunks of 4 KiB.
const std::string kPlainBlock(kMebibyte / 4, '\0');
const std::string kChunkedBlock = [] {
  std::string block;
  for (int chunk = 0; chunk < 64; ++chunk) {
    block += "1000\r\n" + std::string(4096, '\0') + "\r\n";
  }
  return block;
}();

void SendBlocks(int fd, const std::string& block, int mebibytes) {
  for (int i = 0; i < mebibytes * 4 && SendAll(fd, block); ++i) {
  }
}

/// Takes the request line of a GET to its end; the rest of the request is small enough to have come
/// with it.
std::string ReadRequest(int fd) {
  std::array<char, 4096> buffer;
  std::string request;
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t got = recv(fd, buffer.data(), buffer.size(), 0);
    if (got <= 0) {
      return {};
    }
    request.append(buffer.data(), static_cast<std::size_t>(got));
  }
  return request;
}

/// Answers GET /small, /length/N, /chunked/N and /close/N, N in MiB.
void Answer(int fd, const std::string& request) {
  const std::string head(kOk);
  const std::size_t number = request.find('/', 5) + 1;
  const int mebibytes = std::atoi(request.c_str() + number);
  if (request.starts_with("GET /small ")) {
    SendAll(fd, head + "Content-Length: 100\r\n\r\n" + kSmallBody);
  } else if (request.starts_with("GET /length/")) {
    const std::size_t bytes = static_cast<std::size_t>(mebibytes) * kMebibyte;
    SendAll(fd, head + "Content-Length: " + std::to_string(bytes) + "\r\n\r\n");
    SendBlocks(fd, kPlainBlock, mebibytes);
  } else if (request.starts_with("GET /chunked/")) {
    SendAll(fd, head + "Transfer-Encoding: chunked\r\n\r\n");
    SendBlocks(fd, kChunkedBlock, mebibytes);
    SendAll(fd, "0\r\n\r\n");
  } else {
    SendAll(fd, head + "Connection: close\r\n\r\n");
    SendBlocks(fd, kPlainBlock, mebibytes);
  }
}

/// Waits for the client's close, so that no byte of an answer is lost to a reset.
void Finish(int fd) {
  shutdown(fd, SHUT_WR);
  const timeval longest{1, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
  std::array<char, 4096> rest;
  while (recv(fd, rest.data(), rest.size(), 0) > 0) {
  }
  close(fd);
}

void Serve(int listening) {
  for (int fd = 0; (fd = accept(listening, nullptr, nullptr)) >= 0;) {
    Answer(fd, ReadRequest(fd));
    Finish(fd);
  }
}

/// A key and a certificate for localhost. False without the program openssl.
bool MakeCertificate(const std::string& folder) {
  const std::string command =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
      "-subj /CN=localhost -addext subjectAltName=DNS:localhost,IP:127.0.0.1 -keyout " +
      folder + "/key.pem -out " + folder + "/trust.pem >/dev/null 2>&1";
  return std::system(command.c_str()) == 0;
}

std::string SecureConfiguration(const std::string& folder, std::uint16_t port) {
  if (port == 0) {
    return {};
  }
  return "  server { listen 127.0.0.1:" + std::to_string(port) + " ssl; root " + folder +
         "; ssl_certificate " + folder + "/trust.pem; ssl_certificate_key " + folder +
         "/key.pem; ssl_session_cache shared:s:4m; ssl_protocols TLSv1.2 TLSv1.3; }\n";
}

std::string NginxConfiguration(const std::string& folder, std::uint16_t port,
                               std::uint16_t securePort) {
  return "daemon off; master_process off; worker_processes 1; pid " + folder + "/pid;\n" +
         "error_log " + folder + "/error.log;\n" + "events { worker_connections 512; }\n" +
         "http {\n" + "  access_log off; keepalive_requests 10000000; default_type text/plain; sendfile on;\n" +
         "  client_body_temp_path " + folder + "/a; proxy_temp_path " + folder + "/b;\n" +
         "  fastcgi_temp_path " + folder + "/c; uwsgi_temp_path " + folder + "/d;\n" +
         "  scgi_temp_path " + folder + "/e;\n" +
         "  server { listen 127.0.0.1:" + std::to_string(port) + "; root " + folder + "; }\n" +
         SecureConfiguration(folder, securePort) + "}\n";
}

const char* FindNginx() {
  for (const char* path : {"/usr/sbin/nginx", "/usr/local/sbin/nginx", "/usr/bin/nginx"}) {
    if (access(path, X_OK) == 0) {
      return path;
    }
  }
  return nullptr;
}

bool Answers(std::uint16_t port) {
  for (int attempt = 0; attempt < 500; ++attempt) {
    const int fd = ConnectToLoopback(port);
    if (fd >= 0) {
      close(fd);
      return true;
    }
    usleep(10'000);
  }
  return false;
}

[[noreturn]] void GiveUp(const char* what) {
  std::fprintf(stderr, "cannot start %s\n", what);
  std::exit(1);
}

}  // namespace

HttpServers::HttpServers() {
  StartOwn();
  StartNginx();
  std::fprintf(stderr, "answers of known length come from %s\n", Name());
}

void HttpServers::StartOwn() {
  const int listening = ListenOnLoopback(ownPort_);
  if (listening < 0) {
    GiveUp("the benchmark's own server");
  }
  own_ = std::make_unique<ChildProcess>([listening] { Serve(listening); });
  close(listening);
}

/// The bodies are files with a hole, which cost no disk space and are read from memory.
void HttpServers::StartNginx() {
  const char* program = FindNginx();
  if (program == nullptr) {
    return;
  }
  const std::string& folder = folder_.Path();
  std::filesystem::create_directory(folder + "/length");
  std::ofstream(folder + "/small") << kSmallBody;
  for (const int mebibytes : kBodySizes) {
    const std::string path = folder + "/length/" + std::to_string(mebibytes);
    std::ofstream{path};
    std::filesystem::resize_file(path, static_cast<std::size_t>(mebibytes) * kMebibyte);
  }
  close(ListenOnLoopback(nginxPort_));
  const std::string configuration = folder + "/nginx.conf";
  if (MakeCertificate(folder)) {
    close(ListenOnLoopback(securePort_));
  }
  std::ofstream(configuration) << NginxConfiguration(folder, nginxPort_, securePort_);
  nginx_ = std::make_unique<ChildProcess>([&] {
    execl(program, "nginx", "-e", (folder + "/error.log").c_str(), "-c", configuration.c_str(),
          static_cast<char*>(nullptr));
  });
  if (!Answers(nginxPort_)) {
    GiveUp("nginx");
  }
}

std::string HttpServers::SmallUrl() const {
  const std::uint16_t port = nginx_ ? nginxPort_ : ownPort_;
  return "http://127.0.0.1:" + std::to_string(port) + "/small";
}

std::string HttpServers::SecureUrl(const std::string& path) const {
  return securePort_ == 0 ? "" : "https://localhost:" + std::to_string(securePort_) + path;
}

std::string HttpServers::BodyUrl(BodyKind kind, int mebibytes) const {
  const bool own = !nginx_ || kind != BodyKind::Length;
  const std::string path = kind == BodyKind::Length    ? "/length/"
                           : kind == BodyKind::Chunked ? "/chunked/"
                                                       : "/close/";
  return "http://127.0.0.1:" + std::to_string(own ? ownPort_ : nginxPort_) + path +
         std::to_string(mebibytes);
}

}  // namespace netro::bench

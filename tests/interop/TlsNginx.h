// nginx with TLS on a free port, with a site on each of some loopback addresses: all of them are
// "localhost" with the same content, each with a certificate or rules of its own. Thread: the
// test's.
#pragma once

#include <netro/HTTPCls.h>

#include <string>
#include <vector>

#include "ServerProcess.h"

namespace netro::interop {

enum class Site {
  Good,
  Expired,
  NotYetValid,
  WrongName,
  SelfSigned,
  UnknownIssuer,
  ClientCertificate,  // wants one of the tests' authority
  Tls12,              // resumes by its cache
  Tls12Tickets,
  Tls13,
};

class TlsNginx {
 public:
  TlsNginx();

  static bool IsInstalled() { return !FindProgram("nginx").empty(); }

  static bool PacksBrotli();  // its module is installed

  bool IsUp() const { return server_.IsUp(); }
  int Port() const { return server_.Port(); }
  std::string Output() const { return server_.Output() + ReadFile(In("error.log")); }
  /// A file of the server's folder; "www/" is what it serves.
  std::string In(const std::string& file) const { return server_.Folder() / file; }
  std::string Url(const std::string& path, const std::string& host = "localhost") const;
  /// Leads requests for localhost to a site.
  void Reach(HTTPCls& http, Site site) const;
  /// What curl gets of a site, with the answer's header.
  std::string CurlOf(Site site, const std::string& path,
                     std::vector<std::string> options = {}) const;

 private:
  ServerProcess server_;
};

}  // namespace netro::interop

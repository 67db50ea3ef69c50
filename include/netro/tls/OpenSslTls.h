// The TLS provider on OpenSSL 3. Its library is netro::tls, apart from netro::netro:
// find_package(netro COMPONENTS tls).
#pragma once

#include <netro/Export.h>
#include <netro/Tls.h>

#include <memory>
#include <string>

namespace netro {

/// A provider under these settings, which reads the files that they name now. Sessions are resumed
/// only with the host and port that they were made with, and only within the same provider, so one
/// provider for each set of settings is best kept for the whole program. Any thread.
///
/// Safe by default: the peer's chain and host name are checked, the name is indicated to the peer,
/// forward secrecy, no compression, no renegotiation, keys of 112 bits of security at least.
///
/// Null when a setting cannot be used; `error` then says which and why.
NETRO_EXPORT std::shared_ptr<TlsProvider> MakeOpenSslProvider(const TlsSettings& settings,
                                                              std::string& error);

}  // namespace netro

// What the text of a URL tells (RFC 3986, section 3). Thread: any.
#pragma once

#include <string>

namespace netro::tool {

/// True for "http://user@host/".
bool HasCredentials(const std::string& url);

/// What may be shown of a URL or a reference, good or bad: without user and password.
std::string WithoutCredentials(const std::string& url);

/// "https"; "http" where the URL does not say. In small letters.
std::string ProtocolOf(const std::string& url);

/// The host's name or address, without brackets and port.
std::string HostOf(const std::string& url);

/// With "***" for the values of query parameters whose names speak of secrets.
std::string WithoutTokens(const std::string& url);

/// The file's name in the URL, which is the last part of its path as it is written; "index.html"
/// when there is none that a file could have.
std::string FileNameOf(const std::string& url);

}  // namespace netro::tool

// How a watcher's reports show what others say, and what may hold secrets. Thread: any.
#pragma once

#include <string>

namespace netro {

/// A host or URL with "***" in place of its user and password.
std::string WithoutUserInfo(const std::string& url);

/// Protocol, host and port of a URL: the rest of a webhook's is often a secret.
std::string OriginOf(const std::string& url);

/// The text, and a full stop where it has none.
std::string Sentence(std::string text);

}  // namespace netro

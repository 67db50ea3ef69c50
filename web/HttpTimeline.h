// What may be shown of a request: addresses without passwords and tokens. Pure.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// A URL as it may be shown: without user and password, and with "***" for the values of query
/// parameters whose names speak of secrets (token, key, password ...).
std::string WithoutSecrets(std::string_view url);
/// The same of one that has no user information.
std::string WithoutSecretParameters(std::string url);

/// True for names of parameters and fields whose value nobody should see.
bool IsSecretName(std::string_view name);

}  // namespace netro

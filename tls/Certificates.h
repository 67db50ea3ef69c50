// Facts of a certificate as text. What the certificate says comes from strangers: control
// characters are replaced, and long lists are cut. Any thread.
#pragma once

#include <openssl/x509.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace netro {

/// A certificate's subject or issuer (RFC 4514).
std::string NameText(const X509_NAME* name);
/// The DNS names and IP addresses that the certificate is for.
std::vector<std::string> NamesOf(const X509& certificate);
/// Whole days until it expires, rounded down.
std::int32_t DaysLeft(const X509& certificate);

using Sha256 = std::array<std::uint8_t, 32>;
/// Of the SubjectPublicKeyInfo; all zero when it cannot be made.
Sha256 PublicKeyHash(const X509& certificate);
/// "sha256//BASE64".
std::string PinText(const Sha256& hash);
/// Reads a pin, with or without "sha256//". False when it is none.
bool ReadPin(const std::string& text, Sha256& pin);

}  // namespace netro

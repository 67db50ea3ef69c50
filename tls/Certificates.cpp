#include "tls/Certificates.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "tls/OpenSslHandles.h"

namespace netro {
namespace {

constexpr std::size_t kMostNames = 1000;
constexpr std::size_t kLongestText = 1024;

std::string Printable(std::string_view text) {
  std::string printable(text.substr(0, kLongestText));
  std::ranges::replace_if(
      printable, [](char c) { return static_cast<unsigned char>(c) < 32 || c == 127; }, '?');
  return printable;
}

std::string_view TextOf(const ASN1_STRING* text) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
          static_cast<std::size_t>(ASN1_STRING_length(text))};
}

// RFC 5952 in short: the longest run of zero groups is left out.
std::string IPv6Text(const unsigned char* bytes) {
  unsigned groups[8];
  for (int i = 0; i < 8; ++i) groups[i] = bytes[2 * i] * 256u + bytes[2 * i + 1];
  int best = 0, most = 1;
  for (int i = 0; i < 8; ++i) {
    int end = i;
    while (end < 8 && groups[end] == 0) ++end;
    if (end - i > most) best = i, most = end - i;
  }
  std::string text;
  for (int i = 0; i < 8; ++i) {
    if (most > 1 && i == best) {
      text += "::";
      i += most - 1;
      continue;
    }
    char group[8];
    std::snprintf(group, sizeof group, "%x", groups[i]);
    if (!text.empty() && text.back() != ':') text += ':';
    text += group;
  }
  return text;
}

std::string AddressText(const ASN1_OCTET_STRING* address) {
  const unsigned char* bytes = ASN1_STRING_get0_data(address);
  const int size = ASN1_STRING_length(address);
  if (size == 16) return IPv6Text(bytes);
  if (size != 4) return "?";
  return std::to_string(bytes[0]) + '.' + std::to_string(bytes[1]) + '.' +
         std::to_string(bytes[2]) + '.' + std::to_string(bytes[3]);
}

}  // namespace

std::string NameText(const X509_NAME* name) {
  const Bio bio(BIO_new(BIO_s_mem()));
  constexpr unsigned long kForm = (XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
  if (bio == nullptr || name == nullptr || X509_NAME_print_ex(bio.get(), name, 0, kForm) < 0) {
    return {};
  }
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &text);
  return size > 0 ? Printable({text, static_cast<std::size_t>(size)}) : std::string();
}

std::vector<std::string> NamesOf(const X509& certificate) {
  std::vector<std::string> texts;
  const GeneralNames names(static_cast<GENERAL_NAMES*>(
      X509_get_ext_d2i(&certificate, NID_subject_alt_name, nullptr, nullptr)));
  const int count = names == nullptr ? 0 : sk_GENERAL_NAME_num(names.get());
  for (int i = 0; i < count && texts.size() < kMostNames; ++i) {
    const GENERAL_NAME* name = sk_GENERAL_NAME_value(names.get(), i);
    if (name->type == GEN_DNS) texts.push_back(Printable(TextOf(name->d.dNSName)));
    if (name->type == GEN_IPADD) texts.push_back(AddressText(name->d.iPAddress));
  }
  return texts;
}

std::int32_t DaysLeft(const X509& certificate) {
  int days = 0, seconds = 0;
  if (ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(&certificate)) != 1) return 0;
  return seconds < 0 ? days - 1 : days;
}

Sha256 PublicKeyHash(const X509& certificate) {
  Sha256 hash{};
  unsigned char* bytes = nullptr;
  const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(&certificate), &bytes);
  if (size > 0 && EVP_Digest(bytes, static_cast<std::size_t>(size), hash.data(), nullptr,
                             EVP_sha256(), nullptr) != 1) {
    hash = {};
  }
  OPENSSL_free(bytes);
  return hash;
}

std::string PinText(const Sha256& hash) {
  unsigned char text[48];
  const int size = EVP_EncodeBlock(text, hash.data(), static_cast<int>(hash.size()));
  return "sha256//" + std::string(text, text + size);
}

bool ReadPin(const std::string& text, Sha256& pin) {
  constexpr std::string_view kPrefix = "sha256//";
  constexpr std::size_t kLength = 44;  // of 32 bytes, the last character being padding
  std::string_view base64 = text;
  if (base64.starts_with(kPrefix)) base64.remove_prefix(kPrefix.size());
  if (base64.size() != kLength || base64.find('=') != kLength - 1) return false;
  unsigned char bytes[kLength];
  const int size = EVP_DecodeBlock(bytes, reinterpret_cast<const unsigned char*>(base64.data()),
                                   static_cast<int>(base64.size()));
  if (size != 33) return false;  // padding counts
  std::copy_n(bytes, pin.size(), pin.begin());
  return true;
}

}  // namespace netro

// Why a session failed: what OpenSSL tells, as the numbers of TlsError and texts for people.
#include <openssl/err.h>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

#include "tls/OpenSslProvider.h"
#include "tls/OpenSslSession.h"

namespace netro {
namespace {

constexpr std::size_t kNamesInText = 10;

struct Meaning {
  int code;
  std::int32_t error;
};

constexpr Meaning kVerifyResults[] = {
    {X509_V_ERR_CERT_HAS_EXPIRED, tlsExpired},
    {X509_V_ERR_CERT_NOT_YET_VALID, tlsNotYetValid},
    {X509_V_ERR_HOSTNAME_MISMATCH, tlsWrongName},
    {X509_V_ERR_IP_ADDRESS_MISMATCH, tlsWrongName},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT, tlsUnknownIssuer},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY, tlsUnknownIssuer},
    {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE, tlsUnknownIssuer},
    {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, tlsUnknownIssuer},
    {X509_V_ERR_CERT_SIGNATURE_FAILURE, tlsUnknownIssuer},
    {X509_V_ERR_CERT_UNTRUSTED, tlsUnknownIssuer},
    {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, tlsSelfSigned},
    {X509_V_ERR_EE_KEY_TOO_SMALL, tlsWeakKey},
    {X509_V_ERR_CA_KEY_TOO_SMALL, tlsWeakKey},
    {X509_V_ERR_CA_MD_TOO_WEAK, tlsWeakKey},
    {X509_V_ERR_CERT_REVOKED, tlsRevoked},
};

constexpr Meaning kReasons[] = {
    {SSL_R_UNSUPPORTED_PROTOCOL, tlsProtocolVersion},
    {SSL_R_UNKNOWN_SSL_VERSION, tlsProtocolVersion},
    {SSL_R_WRONG_SSL_VERSION, tlsProtocolVersion},
    {SSL_R_VERSION_TOO_LOW, tlsProtocolVersion},
    {SSL_R_VERSION_TOO_HIGH, tlsProtocolVersion},
    {SSL_R_NO_PROTOCOLS_AVAILABLE, tlsProtocolVersion},
    {SSL_R_INAPPROPRIATE_FALLBACK, tlsProtocolVersion},
    {SSL_R_DH_KEY_TOO_SMALL, tlsWeakKey},
    {SSL_R_EE_KEY_TOO_SMALL, tlsWeakKey},
    {SSL_R_CA_KEY_TOO_SMALL, tlsWeakKey},
    {SSL_R_CA_MD_TOO_WEAK, tlsWeakKey},
    {SSL_R_BAD_ECPOINT, tlsBroken},
    {SSL_R_TOO_MANY_KEY_UPDATES, tlsTooMuch},
    {SSL_R_TOO_MANY_WARN_ALERTS, tlsTooMuch},
    {SSL_R_RECORD_TOO_SMALL, tlsTooMuch},  // too many empty ones
};

template <std::size_t N>
std::int32_t Look(const Meaning (&table)[N], int code, std::int32_t otherwise) {
  const auto* found = std::ranges::find(table, code, &Meaning::code);
  return found != std::end(table) ? found->error : otherwise;
}

std::string Days(std::int32_t days) {
  return std::to_string(days) + (days == 1 ? " day" : " days");
}

std::string Listed(const X509& certificate) {
  const std::vector<std::string> names = NamesOf(certificate);
  std::string text;
  for (std::size_t i = 0; i < names.size() && i < kNamesInText; ++i) {
    text += (i == 0 ? "" : ", ") + names[i];
  }
  if (names.size() > kNamesInText) text += " and others";
  return text.empty() ? "no name at all" : text;
}

std::string TimeText(const ASN1_TIME* time) {
  const Bio bio(BIO_new(BIO_s_mem()));
  if (bio == nullptr || ASN1_TIME_print(bio.get(), time) != 1) return "an unreadable time";
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

}  // namespace

void OpenSslSession::Fail(std::int32_t error, std::string text) noexcept {
  if (state_ == TlsState::Failed) return;
  state_ = TlsState::Failed;
  error_ = error;
  errorText_ = std::move(text);
}

// Looks at why a call of OpenSSL gave `result`. Wanting more to read is no failure.
void OpenSslSession::FailBy(int result) noexcept {
  const int kind = SSL_get_error(ssl_.get(), result);
  if (kind == SSL_ERROR_WANT_READ) return;
  if (kind == SSL_ERROR_ZERO_RETURN) {
    if (state_ == TlsState::Handshake) {
      Fail(tlsCut, std::string());
    } else {
      state_ = TlsState::PeerClosed;
    }
    return;
  }
  try {
    const unsigned long code = ERR_peek_error();
    const int reason = ERR_GET_REASON(code);
    const long verified = SSL_get_verify_result(ssl_.get());
    const bool ofSsl = ERR_GET_LIB(code) == ERR_LIB_SSL;
    if (verified != X509_V_OK && state_ == TlsState::Handshake) {
      ExplainCertificate();
    } else if (reason == ERR_R_MALLOC_FAILURE || code == 0) {
      Fail(10055, std::string());
    } else if (ofSsl && reason > SSL_AD_REASON_OFFSET && reason <= SSL_AD_REASON_OFFSET + 255) {
      ExplainAlert(reason - SSL_AD_REASON_OFFSET);
    } else {
      ExplainReason(code);
    }
  } catch (const std::bad_alloc&) {
    Fail(10055, std::string());
  }
  ERR_clear_error();
}

void OpenSslSession::ExplainCertificate() {
  const int result = static_cast<int>(SSL_get_verify_result(ssl_.get()));
  std::int32_t error = badPin_ ? tlsPinMismatch : Look(kVerifyResults, result, tlsBadCertificate);
  const bool untrusted = error == tlsUnknownIssuer || error == tlsSelfSigned;
  if (untrusted && !provider_->HasOwnTrust() && !OpenSslProvider::SystemTrustIsThere()) {
    error = tlsTrustStore;
  }
  if (leaf_ == nullptr) return Fail(error, std::string());
  const std::string of = "The certificate of " + host_ + " ";
  switch (error) {
    case tlsExpired: {
      const std::int32_t days = DaysLeft(*leaf_);
      return Fail(error, days >= 0 ? "TLS: Certificate Expired. One of those that vouch for " +
                                         host_ + " is no longer valid. Its owner has to renew it."
                                   : "TLS: Certificate Expired. " + of + "expired " + Days(-days) +
                                         " ago, on " + TimeText(X509_get0_notAfter(leaf_.get())) +
                                         ". Its owner has to renew it.");
    }
    case tlsNotYetValid:
      return Fail(error, "TLS: Certificate Not Yet Valid. " + of +
                             "or of its issuer is valid from " +
                             TimeText(X509_get0_notBefore(leaf_.get())) +
                             ". Check the clock of this computer.");
    case tlsWrongName:
      return Fail(error, "TLS: Wrong Name. The certificate that " + host_ + " shows is for " +
                             Listed(*leaf_) + ". Connect by a name that it has.");
    case tlsUnknownIssuer:
      return Fail(error,
                  "TLS: Unknown Issuer. " + of + "was issued by \"" +
                      NameText(X509_get_issuer_name(leaf_.get())) +
                      "\", for whom nobody vouches who is trusted. If it is one of your own, "
                      "give its issuer's certificate as trust file.");
    case tlsPinMismatch:
      return Fail(error, "TLS: Pin Mismatch. The public key of " + host_ + " is " +
                             PinText(PublicKeyHash(*leaf_)) +
                             ", which is none of the pinned ones. It has a new key, or another "
                             "server answers.");
    case tlsBadCertificate:
      return Fail(error, "TLS: Bad Certificate. " + of +
                             "cannot be accepted: " + X509_verify_cert_error_string(result) + ".");
    default:
      return Fail(error, std::string());
  }
}

void OpenSslSession::ExplainAlert(int alert) {
  const std::string name = SSL_alert_desc_string_long(alert);
  const bool aboutCertificates = alert == SSL_AD_HANDSHAKE_FAILURE ||
                                 (alert >= SSL_AD_BAD_CERTIFICATE && alert <= SSL_AD_UNKNOWN_CA) ||
                                 alert == SSL_AD_ACCESS_DENIED;
  if (alert == SSL_AD_CERTIFICATE_REQUIRED || alert == SSL_AD_NO_CERTIFICATE ||
      (certificateWanted_ && aboutCertificates)) {
    return Fail(tlsCertificateWanted, "TLS: Client Certificate Wanted. " + host_ +
                                          " wants a client certificate: give one (alert \"" + name +
                                          "\").");
  }
  if (provider_->HasCertificate() && aboutCertificates && alert != SSL_AD_HANDSHAKE_FAILURE &&
      alert != SSL_AD_ACCESS_DENIED) {
    return Fail(tlsCertificateWanted,
                "TLS: Client Certificate Wanted. " + host_ +
                    " does not accept the client certificate given (alert \"" + name + "\").");
  }
  if (alert == SSL_AD_PROTOCOL_VERSION) {
    return Fail(tlsProtocolVersion, "TLS: Protocol Version. " + host_ +
                                        " offers no version of TLS that is allowed here (alert \"" +
                                        name + "\").");
  }
  Fail(tlsAlertReceived, "TLS: Alert Received. " + host_ + " has refused to go on: \"" + name +
                             "\" (" + std::to_string(alert) + ").");
}

void OpenSslSession::ExplainReason(unsigned long code) {
  const bool ofSsl = ERR_GET_LIB(code) == ERR_LIB_SSL;
  const std::int32_t error = ofSsl ? Look(kReasons, ERR_GET_REASON(code), tlsBroken) : tlsBroken;
  const char* reason = ERR_reason_error_string(code);
  const std::string detail = reason != nullptr ? std::string(" (") + reason + ")." : ".";
  switch (error) {
    case tlsProtocolVersion:
      return Fail(error, "TLS: Protocol Version. " + host_ +
                             " offers no version of TLS that is allowed here" + detail);
    case tlsWeakKey:
      return Fail(error, "TLS: Weak Key. A key or signature of " + host_ +
                             " is too weak to protect; its owner has to replace it" + detail);
    case tlsTooMuch:
      return Fail(error, std::string());
    default:
      return Fail(error, "TLS: Broken. What " + host_ +
                             " sent is not TLS, or was changed on its way; check the port" +
                             detail);
  }
}

}  // namespace netro

// TLS as the library sees it: an abstract provider that makes sessions, and the settings and facts
// that every provider shares. The library itself knows no cryptography. A provider is a library
// of its own; netro::tls (netro/tls/OpenSslTls.h) is one on OpenSSL. Whoever has another one
// derives from the two classes here.
//
//   std::string error;
//   const auto provider = netro::MakeOpenSslProvider({}, error);
//   if (socket.StartTls("www.example.com", provider)) socket.SendData("...");
//
// Failures are numbers: 10160-10176, see TlsError, each with a text that says what to do.
#pragma once

#include <netro/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace netro {

/// Why TLS could not be begun, or ended. The numbers stand in LastSocketErr and the like.
enum TlsError : std::int32_t {
  tlsExpired = 10160,            ///< A certificate's time is over.
  tlsNotYetValid = 10161,        ///< A certificate's time has not begun; often a clock is wrong.
  tlsWrongName = 10162,          ///< The certificate is another host's; the text names its names.
  tlsUnknownIssuer = 10163,      ///< Nobody who is trusted has issued the certificate.
  tlsSelfSigned = 10164,         ///< The certificate is its own issuer.
  tlsWeakKey = 10165,            ///< A key or signature that no longer protects.
  tlsRevoked = 10166,            ///< The certificate was taken back.
  tlsBadCertificate = 10167,     ///< Anything else about a certificate; the text says what.
  tlsPinMismatch = 10168,        ///< The public key is none of the pinned ones.
  tlsProtocolVersion = 10169,    ///< No version of the protocol that both sides allow.
  tlsAlertReceived = 10170,      ///< The peer gave up; the text names its alert.
  tlsCertificateWanted = 10171,  ///< The peer wants a client certificate, or another one.
  tlsBroken = 10172,             ///< What arrived is not TLS, or was changed on its way.
  tlsEarlyBytes = 10173,         ///< Unprotected bytes came where protection was to begin.
  tlsTrustStore = 10174,         ///< The system's trusted certificates cannot be read.
  tlsCut = 10175,                ///< The peer closed in the middle of the handshake.
  tlsTooMuch = 10176,            ///< The peer sends without end and never any data.
};

/// The lowest version that is allowed.
enum class TlsVersion : std::int32_t { Tls12, Tls13 };

/// What a provider is made with. The defaults are safe: the system's trusted certificates, TLS 1.2.
struct TlsSettings {
  /// Trusted certificates (PEM) instead of the system's: a file, a folder in which they are named
  /// by their hash ("openssl rehash"), or both.
  std::string trustFile;
  std::string trustFolder;
  /// The client's own certificate with its chain, and its key (PEM; empty: in the same file).
  std::string clientCertificateFile;
  std::string clientKeyFile;
  std::string clientKeyPassword;
  /// When there are any, the peer's public key must be one of these, besides all other checks: the
  /// SHA-256 of its SubjectPublicKeyInfo in Base64, with or without "sha256//" before it.
  std::vector<std::string> pins;
  TlsVersion minimumVersion = TlsVersion::Tls12;
  /// Protocols to offer in order of preference (RFC 7301), such as "http/1.1"; none: no offer.
  std::vector<std::string> alpn;
  /// Continues earlier sessions with the same peer, which saves a round of cryptography.
  bool resumeSessions = true;
  /// A file that the secrets of every connection are appended to, for programs that show recorded
  /// traffic. Who can read it can read everything.
  std::string keyLogFile;
  /// Takes any certificate of any host. Only the pins, when there are any, are still checked.
  bool trustAnyoneForTestsOnly = false;

  bool operator==(const TlsSettings&) const = default;
};

/// What is known about a protected connection. Texts from the certificate hold no control
/// characters. Empty where nothing is known.
struct TlsInfo {
  std::string protocol;            ///< "TLSv1.2", "TLSv1.3"
  std::string cipher;              ///< "TLS_AES_256_GCM_SHA384" ...
  std::string subject;             ///< of the peer's certificate, as RFC 4514 has it
  std::string issuer;              ///< the same of who issued it
  std::vector<std::string> names;  ///< DNS names and IP addresses that it is for
  std::int32_t daysLeft = 0;       ///< whole days until it expires; below 0: it has
  bool resumed = false;            ///< continues an earlier session: no certificate was sent
  std::string alpn;                ///< the protocol chosen of those offered
};

/// Where a session stands. It only moves forward.
enum class TlsState : std::int32_t {
  Handshake,   ///< Handshake goes on with what arrives.
  Open,        ///< Encrypt and Decrypt work.
  PeerClosed,  ///< The peer has ended its data in order (close_notify). Encrypt still works.
  Failed,      ///< Error and ErrorText tell why. What is outgoing, an alert, should still be sent.
};

/// The client's end of one protected connection: turns plaintext into ciphertext and back. Nothing
/// in it waits or touches a socket. Belongs to one thread at a time. Its methods throw nothing:
/// what goes wrong, missing memory too, is the state Failed.
class NETRO_EXPORT TlsSession {
 public:
  /// What Decrypt has done.
  struct Decrypted {
    std::size_t taken = 0;  ///< bytes of ciphertext
    std::size_t made = 0;   ///< bytes of plaintext
  };

  virtual ~TlsSession() = default;

  /// How far it is; changes only inside of the calls below.
  virtual TlsState State() const = 0;

  /// Goes on with the handshake as far as `ciphertext` allows; the first call, without any, begins
  /// it. Returns how much was taken: all of it as long as the state is Handshake. When it is Open
  /// after that, the rest is for Decrypt, and the peer has proved who it is.
  virtual std::size_t Handshake(std::span<const std::uint8_t> ciphertext) = 0;

  /// Fills `room` as far as the ciphertext reaches. All of that is taken unless `room` is full or
  /// the state is no longer Open. May leave something outgoing, such as an answer to a key update.
  virtual Decrypted Decrypt(std::span<const std::uint8_t> ciphertext,
                            std::span<std::uint8_t> room) = 0;
  /// True when Decrypt without ciphertext has plaintext to give.
  virtual bool HasPlaintext() const = 0;

  /// Turns `plaintext` into ciphertext, which is outgoing from then on. Returns how much was taken:
  /// all, or nothing when that failed.
  virtual std::size_t Encrypt(std::span<const std::uint8_t> plaintext) = 0;
  /// The closing alert becomes outgoing. Nothing may be encrypted after it.
  virtual void CloseNotify() = 0;

  /// Ciphertext that is to be sent, oldest first; valid until the next call of a method that is not
  /// const. Sent takes off what the system has taken.
  virtual std::span<const std::uint8_t> Outgoing() const = 0;
  virtual void Sent(std::size_t count) = 0;

  /// The number (TlsError, 10022 for a host that no certificate can be for, 10055 for missing
  /// memory) and its text when the state is Failed; else 0 and empty. The text holds details, such
  /// as the names in the certificate.
  virtual std::int32_t Error() const = 0;
  virtual std::string ErrorText() const = 0;

  /// What is known so far, also when the state is Failed.
  virtual TlsInfo Info() const = 0;
};

/// Makes sessions under fixed settings, and remembers them to be resumed. Any thread.
class NETRO_EXPORT TlsProvider {
 public:
  virtual ~TlsProvider() = default;

  /// A session with `host`, a name or an IP address, which the peer's certificate must be for (RFC
  /// 9525). `port` serves to find an earlier session with the same peer. Null when memory is
  /// missing; any other failure is the session's state.
  virtual std::unique_ptr<TlsSession> NewSession(const std::string& host, std::int32_t port) = 0;
};

}  // namespace netro

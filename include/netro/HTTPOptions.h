// What an HTTPCls may be told beyond the classic settings: TLS, methods and bodies, redirects,
// connections that are kept, cookies, codings, limits, and where the body goes. Each default leaves
// the class as it always was.
//
// Thread: as HTTPCls. A change takes effect with the next HTTPQuery.
#pragma once

#include <netro/ContentCodings.h>
#include <netro/CookieJar.h>
#include <netro/Export.h>
#include <netro/Tls.h>
#include <netro/Types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace netro {

/// Gives the next bytes of a request's body: fills the beginning of `Room` and returns how many
/// bytes that are, 0 at the end, a negative number to give up (the query fails with 20125). Called
/// on the object's thread; it may wait, but not delete the object.
using HTTPBodyFunction = std::function<std::ptrdiff_t(std::span<std::uint8_t> Room)>;

/// The settings. HTTPCls has them.
class NETRO_EXPORT HTTPOptions {
 public:
  /// Protects connections to https URLs, see Tls.h; without it they fail with 10043.
  const std::shared_ptr<TlsProvider>& Tls() const { return options_.tls; }
  void Tls(std::shared_ptr<TlsProvider> value) { options_.tls = std::move(value); }

  /// The request method, any token ("PUT"), instead of QueryType's. Empty: QueryType decides.
  const std::string& Method() const { return options_.method; }
  void Method(std::string value) { options_.method = std::move(value); }
  /// A body from a file, a function, or the parts of a form; the last one that is set counts, and
  /// all go before PostData. Without a Method they make the request a POST. Bodies of more than 1
  /// MiB, or of a length that nobody knows, are announced first (Expect: 100-continue), and only
  /// sent when the server agrees or is silent for a second.
  void BodyFile(std::string Path);
  /// `Rewind` starts the body anew for a repetition (credentials, redirects), which fails without.
  void BodyFunction(HTTPBodyFunction Read, std::optional<std::uint64_t> Length = std::nullopt,
                    std::function<bool()> Rewind = nullptr);
  /// The parts of a form (multipart/form-data, RFC 7578). A file is read while it is sent; an empty
  /// FileName means the last part of its path, an empty ContentType what its extension says.
  void AddFormField(std::string Name, std::string Value);
  void AddFormFile(std::string Name, std::string Path, std::string ContentType = std::string(),
                   std::string FileName = std::string());
  /// Back to PostData.
  void ClearBody();

  /// How many redirects are followed (RFC 9110, section 15.4); one more fails with 10062. 0: they
  /// are returned as they are. A redirect to another scheme, host or port gets no credentials, no
  /// cookies but those of its own host, and of the added header lines only those that say what is
  /// wanted (Accept, User-Agent, Range ...).
  std::int32_t MaxRedirects() const { return options_.maxRedirects; }
  void MaxRedirects(std::int32_t value) { options_.maxRedirects = value; }

  /// Keeps a connection open for the next query of any object on this thread that has the same
  /// server, proxy, TLS provider and credentials: for 15 seconds, 32 of them at most. One that the
  /// server has closed meanwhile is noticed; a request that was lost with it is repeated once on a
  /// new one if that does no harm (GET, HEAD, PUT, DELETE, OPTIONS, TRACE).
  bool KeepAlive() const { return options_.keepAlive; }
  void KeepAlive(bool value) { options_.keepAlive = value; }

  /// Asks for content codings and unpacks the body, see ContentCodings.h.
  const std::shared_ptr<CodingProvider>& ContentCoding() const { return options_.codings; }
  void ContentCoding(std::shared_ptr<CodingProvider> value) { options_.codings = std::move(value); }

  /// Sends and takes cookies, see CookieJar.h.
  const std::shared_ptr<CookieJar>& Cookies() const { return options_.cookies; }
  void Cookies(std::shared_ptr<CookieJar> value) { options_.cookies = std::move(value); }

  /// The body stays in the answer text whatever its type, unless SaveAsFile is set.
  bool KeepInMemory() const { return options_.keepInMemory; }
  void KeepInMemory(bool value) { options_.keepInMemory = value; }
  /// The body is told by the event Body only, and kept nowhere.
  bool BodyToEvents() const { return options_.bodyToEvents; }
  void BodyToEvents(bool value) { options_.bodyToEvents = value; }
  /// The most bytes of a body in memory, or of one that was unpacked; more fail with 10040. 0: no
  /// limit.
  std::uint64_t MaxBodyLen() const { return options_.maxBodyLen; }
  void MaxBodyLen(std::uint64_t value) { options_.maxBodyLen = value; }

  /// With SaveAsFile and a Filename: the body is written under another name in the same folder and
  /// renamed when it is whole. Until then the old file stays, whatever happens.
  bool ReplaceWhenWhole() const { return options_.replaceWhenWhole; }
  void ReplaceWhenWhole(bool value) { options_.replaceWhenWhole = value; }
  /// The same, and what came of a body that was cut short stays in Filename + ".part" (and what it
  /// is a part of in Filename + ".part.info"). The next query of the same URL asks for the rest,
  /// provided that it has not changed since (RFC 9110, sections 13.1.5 and 14.2); else the file
  /// begins anew. For GET only.
  bool Resume() const { return options_.resume; }
  void Resume(bool value) { options_.resume = value; }

  // These limits are told in seconds or, as 500ms, in fractions of them; read, they are whole
  // seconds, rounded up.

  /// For all of connecting: lookup, proxy, TLS. 0: TimeOutSeconds for each of them.
  std::int32_t ConnectTimeout() const { return WholeSeconds(options_.connectTimeout); }
  void ConnectTimeout(std::int32_t value) { options_.connectTimeout = std::chrono::seconds(value); }
  void ConnectTimeout(std::chrono::milliseconds value) { options_.connectTimeout = value; }
  /// The time in which at least one byte must arrive, or leave while the request is sent (10002).
  /// 0: no such limit. TimeOutSeconds stays the limit of the whole answer.
  std::int32_t IdleTimeout() const { return WholeSeconds(options_.idleTimeout); }
  void IdleTimeout(std::int32_t value) { options_.idleTimeout = std::chrono::seconds(value); }
  void IdleTimeout(std::chrono::milliseconds value) { options_.idleTimeout = value; }
  /// For the whole query: redirects, logins and repetitions, sending and the answer, however slowly
  /// they go on (10002, with a text that names the limit). 0: none.
  std::int32_t TotalTimeout() const { return WholeSeconds(options_.totalTimeout); }
  void TotalTimeout(std::int32_t value) { options_.totalTimeout = std::chrono::seconds(value); }
  void TotalTimeout(std::chrono::milliseconds value) { options_.totalTimeout = value; }
  /// The most bytes a second that are received, on average. 0: as fast as they come.
  std::uint64_t MaxBytesPerSecond() const { return options_.maxBytesPerSecond; }
  void MaxBytesPerSecond(std::uint64_t value) { options_.maxBytesPerSecond = value; }

  /// Connects to `Address` when a URL or redirect leads to this host and port, without a lookup.
  /// `Host`, certificates and cookies stay those of the host.
  void AddHostAddress(std::string Host, std::int32_t Port, std::string Address);
  /// Forgets all of AddHostAddress.
  void ClearHostAddresses() { options_.hostAddresses.clear(); }

 protected:
  HTTPOptions() = default;
  ~HTTPOptions() = default;

  struct HostAddress {
    std::string host;
    std::int32_t port = 0;
    std::string address;
  };

  struct FormPart {
    std::string name;
    std::string value;  // of a field
    bool isFile = false;
    std::string path;
    std::string contentType;
    std::string fileName;
  };

  enum class BodyKind { PostData, File, Function, Form };

  // A query takes a copy, so that a change in an event is one for the next.
  struct Options {
    std::shared_ptr<TlsProvider> tls;
    std::string method;
    BodyKind bodyKind = BodyKind::PostData;
    std::string bodyFile;
    HTTPBodyFunction bodyFunction;
    std::optional<std::uint64_t> bodyLength;
    std::function<bool()> bodyRewind;
    std::vector<FormPart> form;
    std::int32_t maxRedirects = 0;
    bool keepAlive = false;
    std::shared_ptr<CodingProvider> codings;
    std::shared_ptr<CookieJar> cookies;
    bool keepInMemory = false;
    bool bodyToEvents = false;
    std::uint64_t maxBodyLen = std::uint64_t{1} << 30;
    bool replaceWhenWhole = false;
    bool resume = false;
    std::chrono::milliseconds connectTimeout{0};
    std::chrono::milliseconds idleTimeout{0};
    std::chrono::milliseconds totalTimeout{0};
    std::uint64_t maxBytesPerSecond = 0;
    std::vector<HostAddress> hostAddresses;
  };
  Options options_;
};

}  // namespace netro

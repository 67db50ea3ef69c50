// HTTPCls: an HTTP/1.1 client (RFC 9112) that fetches one answer with one call.
//
// HTTPQuery opens a connection, directly or through an HTTP or SOCKS proxy, sends one GET, HEAD or
// POST request, answers one authentication challenge of the proxy and one of the server (Basic RFC
// 7617, Digest RFC 2617 and RFC 7616), and returns the raw answer: status line, header, empty line
// and body. What else it may be told (TLS, redirects, kept connections ...) stands in
// HTTPOptions.h.
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Export.h>
#include <netro/HTTPOptions.h>
#include <netro/ProxyTypes.h>
#include <netro/SocketCls.h>
#include <netro/Tls.h>
#include <netro/Types.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro {

class HTTPCls;
class HttpQuery;

/// The request method.
enum QueryTypeEnum : std::int32_t {
  QueryGet = 0,
  QueryPost = 1,
  QueryHeader = 2,  ///< sends HEAD
};

/// Receives the events of an HTTPCls. Everything is allowed inside, deleting the object included;
/// an exception ends the query, see SocketClsEvents.
class NETRO_EXPORT HTTPClsEvents {
 public:
  virtual ~HTTPClsEvents() = default;
  /// A block of an answer has arrived and been taken in; ReceivedBytes, HeaderLen and
  /// WaitForDataLen tell how far it is. Comes for the answers to refused attempts as well.
  virtual void Status(HTTPCls& ParentObj, const std::string& RemoteHostIP) {
    (void)ParentObj, (void)RemoteHostIP;
  }
  /// The next bytes of the body, unpacked, in order, of the answer that HTTPQuery returns: not of
  /// refused attempts, redirects, and what a resumed file had already. HTTPResult and Headers are
  /// those of its answer.
  virtual void Body(HTTPCls& ParentObj, std::span<const std::uint8_t> BinData) {
    (void)ParentObj, (void)BinData;
  }
};

/// One moment of a query, see HTTPCls::Timeline.
struct HTTPMoment {
  double Milliseconds = 0;  ///< since HTTPQuery was called
  std::string_view What;    ///< one of the words below
  std::string Detail;       ///< addresses, sizes, texts; no password, cookie or token
};

class NETRO_EXPORT HTTPCls : public HTTPOptions {
 public:
  HTTPCls();
  ~HTTPCls();
  HTTPCls(const HTTPCls&) = delete;
  HTTPCls& operator=(const HTTPCls&) = delete;

  /// The sink of this object's events; not owned, may be null.
  HTTPClsEvents* Events() const { return events_; }
  void Events(HTTPClsEvents* sink) { events_ = sink; }

  // Settings. A change takes effect with the next HTTPQuery.

  /// [protocol://][user[:password]@]host[:port][/path][?query]. A missing protocol is http, a
  /// missing port 80. Blanks and other bytes that cannot stand in a URL are percent-encoded.
  const std::string& URL() const { return settings_.url; }
  void URL(std::string value) { settings_.url = std::move(value); }
  /// Stored only; the connection uses the port of the URL.
  std::int32_t Port() const { return port_; }
  void Port(std::int32_t value) { port_ = value; }
  /// GET, HEAD or POST; Method may name another.
  QueryTypeEnum QueryType() const { return settings_.queryType; }
  void QueryType(QueryTypeEnum value) { settings_.queryType = value; }
  /// Body of a QueryPost; its bytes are sent as they are.
  const std::string& PostData() const { return *settings_.postData; }
  void PostData(std::string value) {
    settings_.postData = std::make_shared<const std::string>(std::move(value));
  }
  /// Protocol token of the request line.
  const std::string& HTTPToken() const { return settings_.httpToken; }
  void HTTPToken(std::string value) { settings_.httpToken = std::move(value); }
  /// Credentials for the server; user information in the URL goes before them.
  const std::string& User() const { return settings_.user; }
  void User(std::string value) { settings_.user = std::move(value); }
  const std::string& Password() const { return settings_.password; }
  void Password(std::string value) { settings_.password = std::move(value); }
  /// True: the credentials go with the first request already, and again after a challenge. False:
  /// a 401 answer is returned as it is.
  bool SendAuthAfterChallenge() const { return settings_.sendAuthAfterChallenge; }
  void SendAuthAfterChallenge(bool value) { settings_.sendAuthAfterChallenge = value; }
  /// True: a Digest line has the form of RFC 7616 ("username" in small letters, "opaque" returned,
  /// "qop", "nc" and "algorithm" without quotes), with SHA-256 before MD5; an answer that says that
  /// the nonce is stale is answered once more. False: the line begins with "Username" and is of MD5
  /// with qop "auth" whatever the server offers, which many servers refuse.
  bool StandardDigest() const { return settings_.standardDigest; }
  void StandardDigest(bool value) { settings_.standardDigest = value; }
  /// Seconds that each wait may take: lookup and connect, each SOCKS reply, sending the request,
  /// the whole answer.
  std::int32_t TimeOutSeconds() const { return settings_.timeOutSeconds; }
  void TimeOutSeconds(std::int32_t value) { settings_.timeOutSeconds = value; }
  /// The kind of proxy, see ProxyTypes.h, and where it is.
  ProxyTypeEnum ProxyType() const { return settings_.proxyType; }
  void ProxyType(ProxyTypeEnum value) { settings_.proxyType = value; }
  const std::string& ProxyURL() const { return settings_.proxyURL; }
  void ProxyURL(std::string value) { settings_.proxyURL = std::move(value); }
  std::int32_t ProxyPort() const { return settings_.proxyPort; }
  void ProxyPort(std::int32_t value) { settings_.proxyPort = value; }
  /// What the proxy is told of the user.
  const std::string& ProxyUser() const { return settings_.proxyUser; }
  void ProxyUser(std::string value) { settings_.proxyUser = std::move(value); }
  const std::string& ProxyPassword() const { return settings_.proxyPassword; }
  void ProxyPassword(std::string value) { settings_.proxyPassword = std::move(value); }
  /// Lets a SOCKS proxy resolve the host name.
  bool ProxyUseRemoteDNS() const { return settings_.proxyUseRemoteDNS; }
  void ProxyUseRemoteDNS(bool value) { settings_.proxyUseRemoteDNS = value; }
  /// DNS servers for name lookups, see SocketCls::DNSURL.
  const std::string& DNSURL() const { return settings_.dnsURL; }
  void DNSURL(std::string value) { settings_.dnsURL = std::move(value); }
  /// Which address of a host is used, see AddressPreference.h.
  AddressPreferenceEnum AddressPreference() const { return settings_.preference; }
  void AddressPreference(AddressPreferenceEnum value) { settings_.preference = value; }
  /// Writes the body to Filename (replacing the file) instead of keeping it in the answer text. A
  /// body whose content type does not begin with "text/" is written to a file in any case; then
  /// both properties tell so until the next query: Filename keeps a name that was set, else it is a
  /// new temporary file, which is the caller's to delete. A failed query leaves no file, and an
  /// empty body makes none without a Filename.
  bool SaveAsFile() const { return settings_.saveAsFile; }
  void SaveAsFile(bool value) {
    settings_.saveAsFile = value;
    automaticSave_ = false;
  }
  const std::string& Filename() const { return settings_.filename; }
  void Filename(std::string value) {
    settings_.filename = std::move(value);
    automaticName_ = false;
  }
  /// Removes the chunk framing (RFC 9112 section 7.1) from a chunked body.
  bool RemoveChunkHeader() const { return settings_.removeChunkHeader; }
  void RemoveChunkHeader(bool value) { settings_.removeChunkHeader = value; }
  /// Stored only.
  const std::string& ExtraData() const { return extraData_; }
  void ExtraData(std::string value) { extraData_ = std::move(value); }

  // Results of the last query; each query resets them first.

  /// The answer's first Content-Type field, as it came.
  const std::string& ContentType() const { return contentType_; }
  /// Status code and reason phrase; 0 and empty when there was no answer. While a query runs, those
  /// of the last header that came.
  std::int32_t HTTPResult() const { return httpResult_; }
  const std::string& HTTPResultMsg() const { return httpResultMsg_; }
  /// Bytes of the header without the empty line that ends it.
  std::int32_t HeaderLen() const { return headerLen_; }
  /// Bytes of the body, in the answer text or in the file.
  double BodyLen() const { return bodyLen_; }
  /// Bytes received of the present answer, header included.
  double ReceivedBytes() const { return receivedBytes_; }
  /// The value of a header field, several lines of the name joined by ", "; empty when there is
  /// none. And all lines in their order.
  std::string Header(const std::string& Name) const;
  std::vector<std::pair<std::string, std::string>> Headers() const;
  /// The URL that the answer came from, without user information: another one than URL after
  /// redirects.
  const std::string& FinalURL() const { return finalURL_; }
  /// Seconds that the server asks to wait before the next request (Retry-After); -1: it does not.
  std::int64_t RetryAfter() const;
  /// What is known of the protection of the last https connection; empty without any.
  const netro::TlsInfo& TlsInfo() const { return tlsInfo_; }
  /// What happened and when, in order, from the last HTTPQuery on, also while it runs: "request"
  /// (method and URL), "reused" (a connection was there), "lookup", "attempt", "failed" (of an
  /// attempt), "connected", "socks", "tunnel", "tls", "sent", "continue" (the server wants the
  /// body), "first byte", "answer" (status), "login" (with credentials), "redirect", "repeated" (a
  /// kept connection was gone), "end", "error". At most 1,000 of them.
  const std::vector<HTTPMoment>& Timeline() const { return timeline_; }
  /// 0, or the number of the failure; see HTTPQuery.
  std::int32_t LastErr() const { return lastErr_; }
  /// State while a query runs.
  bool WaitForConnect() const { return waitForConnect_; }
  bool WaitForData() const { return waitForData_; }
  bool WaitForSocksData() const { return waitForSocksData_; }
  bool CloseMeansEnd() const { return closeMeansEnd_; }
  bool FirstChunk() const { return firstChunk_; }
  /// Expected bytes of the body; -1 when unknown.
  double WaitForDataLen() const { return waitForDataLen_; }
  /// Position in the answer text at which the next chunk-size line is expected.
  double TransferChunkOffset() const { return transferChunkOffset_; }

  /// Performs one request, blocking but keeping the loop alive, and returns the raw answer; with a
  /// file, the header and the empty line only. On failure returns an error text, sets LastErr, and
  /// discards what came: 9999 cancelled; 10002 timed out (`Timeout` is true when it was the wait
  /// for the answer); 10022 a setting that cannot be sent, named in the text; 10036 a query of this
  /// object is running (nothing changes); 10040 header over 256 KiB, or body over MaxBodyLen; 10042
  /// an answer that is no HTTP or breaks the framing rules; 10043 https without a TLS provider, or
  /// another protocol than http without an HTTP proxy; 10054 the connection ended before the answer
  /// did (without any byte of it the text is empty; an answer of 400 and above without a length may
  /// end by a reset); 10061 refused, also a tunnel by the proxy; 10062 too many redirects; TlsError;
  /// CodingErrorEnum; 11001 no such host; 9001-9003 refused by the SOCKS proxy; 20000 and more: a
  /// file could not be read or written.
  std::string HTTPQuery(bool& Timeout);

  /// Appends "HeaderName: HeaderValue" to the lines sent after the built-in ones. With the name of
  /// a built-in line it takes that one's place; of several, the last. What tells where the request
  /// ends is the class's own: with Transfer-Encoding, Trailer, or a Content-Length that differs
  /// from the body's, HTTPQuery fails with 10022.
  void AddHeader(std::string HeaderName, std::string HeaderValue);
  /// Removes all added lines.
  void ClearHeaders();

  /// Ends the running query with 9999 within 10 ms. Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  // What a query is made with. It takes a copy, so that a change in an event is one for the next.
  struct Settings {
    std::string url;
    QueryTypeEnum queryType = QueryGet;
    // Shared, so that a query's copy costs nothing.
    std::shared_ptr<const std::string> postData = std::make_shared<const std::string>();
    std::string httpToken = "HTTP/1.1";
    std::string user;
    std::string password;
    bool sendAuthAfterChallenge = false;
    bool standardDigest = false;
    std::int32_t timeOutSeconds = 30;
    ProxyTypeEnum proxyType = NoProxy;
    std::string proxyURL;
    std::int32_t proxyPort = 0;
    std::string proxyUser;
    std::string proxyPassword;
    bool proxyUseRemoteDNS = false;
    std::string dnsURL;
    AddressPreferenceEnum preference = preferIPv4;
    bool saveAsFile = false;
    std::string filename;
    bool removeChunkHeader = true;
    std::vector<std::pair<std::string, std::string>> headers;
  };

  friend class HttpQuery;

  std::shared_ptr<CallState> call_;
  std::shared_ptr<SocketModule> module_;
  std::unique_ptr<SocketCls> socket_;  // of the running query
  HTTPClsEvents* events_ = nullptr;

  Settings settings_;
  bool automaticSave_ = false;  // settings_.saveAsFile was set by an answer, not by the caller
  bool automaticName_ = false;  // settings_.filename likewise
  std::int32_t port_ = 80;
  std::string extraData_;

  std::string contentType_;
  std::int32_t httpResult_ = 0;
  std::string httpResultMsg_;
  std::int32_t headerLen_ = 0;
  double bodyLen_ = 0;
  double receivedBytes_ = 0;
  std::int32_t lastErr_ = 0;
  bool waitForConnect_ = false;
  bool waitForData_ = false;
  bool waitForSocksData_ = false;
  bool closeMeansEnd_ = false;
  bool firstChunk_ = false;
  double waitForDataLen_ = 0;
  double transferChunkOffset_ = 0;
  std::string header_;  // of the last answer
  std::string finalURL_;
  netro::TlsInfo tlsInfo_;
  std::vector<HTTPMoment> timeline_;
};

}  // namespace netro

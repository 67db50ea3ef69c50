// One running HTTPQuery of an HTTPCls: from the settings to the answer text. Made by HTTPQuery on
// the caller's stack; it outlives a deletion of the HTTPCls, which it then no longer touches.
#pragma once

#include <netro/HTTPCls.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/ByteSource.h"
#include "socket/OpenConnection.h"
#include "socket/Wait.h"
#include "support/Url.h"
#include "web/HttpAnswer.h"
#include "web/HttpAuthorization.h"
#include "web/HttpBodyTarget.h"
#include "web/HttpRequest.h"
#include "web/RangeAnswer.h"

namespace netro {

class HttpQuery final : private SocketClsEvents, private HttpBodySink {
 public:
  explicit HttpQuery(HTTPCls& owner);
  ~HttpQuery();

  /// The answer text, or the text of an error.
  std::string Run(bool& timeout);

 private:
  // HttpQuery.cpp: the course of a query, and its ends.
  void Reset();
  bool Exchange(bool& timeout);
  bool AwaitAnswer(bool& timeout);
  WaitEnd AwaitEnd();
  bool Conclude();
  void GiveUp();
  bool Fail(std::int32_t error, std::string text = std::string());
  std::string Finish();
  std::string TextOfLimit() const;
  void Note(std::string_view what, std::string detail = std::string());

  // HttpQuerySettings.cpp: what the settings say.
  bool CheckText(const std::string& value, const char* name);
  bool CheckSettings();
  bool CheckProxy();
  bool Prepare();
  bool PrepareBody();
  bool OpenBodySource();
  bool CheckOptions();
  void SetUrl(Url url);
  bool CheckProtocol();
  bool UsesHttpProxy() const;
  bool UsesSocks() const;
  bool UsesTunnel() const { return UsesHttpProxy() && url_.protocol == "https"; }
  std::string HostAddress() const;
  ConnectionPlan Plan() const;
  DigestForm Form() const;

  // HttpQueryConnect.cpp: the connection.
  bool Open();
  bool TakeKept();
  std::string ConnectionKey() const;
  bool OpenNew();
  bool OpenWithinLimit();
  bool OpenSocket();
  bool RunProlog(const ConnectionPlan& plan);
  bool OpenTunnel(bool& again);
  bool Protect();
  TimePoint ConnectDeadline() const;
  void LeaveConnection();

  // HttpQuerySend.cpp: the request.
  HttpRequest Request();
  void AddOwnFields(HttpRequest& request);
  bool Send();
  std::int32_t SendRequest();
  std::int32_t SendBody();
  std::int32_t SendPiece(std::string_view piece, bool last);
  bool AwaitContinue();
  TimePoint SendDeadline() const;

  // HttpQueryAnswer.cpp: the answer.
  void NoteSent();
  void BeginAnswer();
  void EndAnswer();
  void Publish();
  void PublishHead();
  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override;
  void Defer(std::span<const std::uint8_t> block);
  void Feed(std::span<const std::uint8_t> block);
  void Closed() override;
  void BeginBody() override;
  bool WriteBody(std::span<const std::uint8_t> bytes) override;
  HttpBodyTarget::Plan BodyPlan() const;
  void StopAnswer(std::int32_t error);
  void TellFile();
  void Throttle();

  // HttpQueryNext.cpp: whether and how it is repeated.
  enum class Next { Return, Repeat };
  void Decide();
  bool Refused(std::int32_t code, const HttpHead& head);
  bool Redirected(std::int32_t code, const HttpHead& head);
  bool FollowTo(std::string place, std::int32_t code);
  void LeaveOrigin();
  void DropBody();
  bool WithoutExpectation(std::int32_t code);
  bool Resumed(std::int32_t code, const HttpHead& head);
  bool CanRepeatBody();
  bool Stop(std::int32_t error, std::string text);
  bool WasLost() const;
  void TakeCookies(const HttpHead& head);

  HTTPCls& owner_;
  std::shared_ptr<CallState> call_;
  CancelMark mark_;
  const TimePoint begun_ = Now();
  HTTPCls::Settings settings_;
  HTTPCls::Options options_;
  const TimePoint limit_;  // of the whole

  // The present request: redirects change it.
  Url url_;
  std::string urlText_;  // of it, without user information
  std::string method_;
  std::unique_ptr<ByteSource> body_;  // else PostData
  bool hasBody_ = false;
  bool ownOrigin_ = true;  // of the URL that was set: credentials may go there
  bool expect_ = false;    // 100-continue
  bool refuseExpect_ = false;
  HttpLogin proxyLogin_;
  HttpLogin serverLogin_;
  std::int32_t redirects_ = 0;
  PartialBody part_;     // that is there already
  std::string partUrl_;  // what it is a part of

  // The present exchange.
  std::optional<Next> next_;  // decided once the header is there
  std::string key_;           // of the connection, which a redirect does not lead elsewhere
  TimePoint connectLimit_;
  bool reused_ = false;      // the connection was kept from another query
  bool onlyNew_ = false;     // one that was kept has failed
  bool asksRest_ = false;    // of the part
  bool goesOn_ = false;      // the answer has it
  std::uint64_t whole_ = 0;  // bytes with the rest
  std::unique_ptr<HttpAnswer> answer_;
  HttpBodyTarget target_;
  bool headKnown_ = false;
  bool ended_ = false;    // the answer is complete, broken, or cut short
  bool feeding_ = false;  // a block is being taken in
  Bytes deferred_;        // what came meanwhile
  bool closed_ = false;   // and the end
  bool sending_ = false;
  bool lastPiece_ = false;  // of the request is being sent
  bool sentAll_ = false;
  bool sentNoted_ = false;
  bool reset_ = false;  // noticed while sending
  TimePoint lastArrival_;
  TimePoint answerBegun_;
  std::int32_t timer_ = 0;
  std::int32_t error_ = 0;  // that ends the query; LastErr may be of a refused one
  std::string errorText_;
};

}  // namespace netro

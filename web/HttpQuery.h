// One running HTTPQuery of an HTTPCls: from the settings to the answer text. Made by HTTPQuery on
// the caller's stack; it outlives a deletion of the HTTPCls, which it then no longer touches.
#pragma once

#include <netro/HTTPCls.h>

#include <memory>
#include <string>

#include "platform/OutputFile.h"
#include "socket/OpenConnection.h"
#include "socket/Wait.h"
#include "support/Url.h"
#include "web/HttpAnswer.h"
#include "web/HttpRequest.h"

namespace netro {

class HttpQuery final : private SocketClsEvents, private HttpBodySink {
 public:
  explicit HttpQuery(HTTPCls& owner);

  /// The answer text, or the text of an error.
  std::string Run(bool& timeout);

 private:
  void Reset();
  bool CheckSettings();
  bool CheckProxy();
  bool CheckText(const std::string& value, const char* name);
  bool Prepare();
  bool Exchange(bool& timeout);
  bool Open();
  void BeginAnswer();
  bool Send();
  std::int32_t SendRequest();
  void EndAnswer();
  bool AwaitAnswer(bool& timeout);
  bool Refused();
  void Forget();
  void GiveUp();
  std::string Finish();

  ConnectionPlan Plan() const;
  HttpRequest Request() const;
  DigestForm Form() const;
  bool UsesHttpProxy() const;
  bool UsesSocks() const;
  bool Fail(std::int32_t error, std::string text = std::string());
  bool FailAnswer();
  void Publish();

  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override;
  void Closed() override;
  bool BeginBody() override;
  void WriteBody(std::span<const std::uint8_t> bytes) override;
  void AbandonBody(std::int32_t error);
  static std::string CanNotWrite(const std::string& path, std::int32_t error);
  bool MakeFile();
  void TellFile();

  HTTPCls& owner_;
  std::shared_ptr<CallState> call_;
  CancelMark mark_;
  HTTPCls::Settings settings_;
  Url url_;
  HttpLogin proxyLogin_;
  HttpLogin serverLogin_;
  bool repeat_ = false;  // with credentials
  std::unique_ptr<HttpAnswer> answer_;
  bool ended_ = false;  // the answer is complete, broken, or cut short
  bool sending_ = false;
  bool reset_ = false;    // noticed while sending
  bool hasFile_ = false;  // this answer has made one
  OutputFile file_;
  std::string errorText_;
};

}  // namespace netro

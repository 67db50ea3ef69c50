// One HTTP query: the answer as it arrives, and the file that its body may go to.
#include <new>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/Text.h"
#include "web/HttpQuery.h"

namespace netro {

void HttpQuery::DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) {
  if (answer_ == nullptr || ended_) return;
  owner_.receivedBytes_ += static_cast<double>(BinData.size());
  try {
    answer_->Feed(BinData);
  } catch (const std::bad_alloc&) {
    answer_->Abandon();
    owner_.lastErr_ = kErrNoBuffers;
  }
  Publish();
  if (answer_->IsComplete() || answer_->Error() != 0) EndAnswer();
  if (owner_.events_ != nullptr) owner_.events_->Status(owner_, RemoteHostIP);
}

void HttpQuery::Closed() {
  if (answer_ == nullptr || ended_) return;
  const std::int32_t error = SocketOwner::CloseError(owner_.socket_);
  answer_->ConnectionEnded(reset_ ? kErrConnectionReset : error);
  EndAnswer();
}

void HttpQuery::EndAnswer() {
  ended_ = true;
  owner_.waitForData_ = false;
  // Whoever has answered reads no further: there is no need to send the rest.
  if (sending_) owner_.socket_.Disconnect();
}

bool HttpQuery::BeginBody() {
  const bool text = StartsWithIgnoreCase(answer_->ContentType(), "text/");
  if (text && !settings_.saveAsFile) return false;
  // A temporary file is made with the first byte: nobody would look for an empty one.
  if (!settings_.filename.empty()) MakeFile();
  return true;
}

bool HttpQuery::MakeFile() {
  const std::int32_t error = settings_.filename.empty() ? file_.CreateTemporary("ansel", "tmp")
                                                        : file_.Create(settings_.filename);
  hasFile_ = true;
  TellFile();
  if (error != 0) AbandonBody(error);
  return error == 0;
}

// The properties tell where the body went, if that was not the caller's choice.
void HttpQuery::TellFile() {
  if (!settings_.saveAsFile) owner_.settings_.saveAsFile = owner_.automaticSave_ = true;
  if (!settings_.filename.empty()) return;
  owner_.settings_.filename = file_.Path();
  owner_.automaticName_ = true;
}

void HttpQuery::WriteBody(std::span<const std::uint8_t> bytes) {
  if (!hasFile_ && !MakeFile()) return;
  if (const std::int32_t error = file_.Write(bytes)) AbandonBody(error);
}

void HttpQuery::AbandonBody(std::int32_t error) {
  answer_->Abandon();
  owner_.lastErr_ = error;
  errorText_ = CanNotWrite(file_.Path(), error);
}

std::string HttpQuery::CanNotWrite(const std::string& path, std::int32_t error) {
  return "Can not write \"" + path + "\". " + SocketErrorText(error);
}

}  // namespace netro

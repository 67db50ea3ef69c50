// LogfileCLS: states, batches and events around a LogBuffer.
#include <netro/LogfileCLS.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include "support/LogBuffer.h"

namespace netro {
namespace {

constexpr std::int32_t kNotActive = 10000;
constexpr std::int32_t kAlreadyActive = 10001;
constexpr std::size_t kMostBatches = 10;

}  // namespace

LogfileCLS::LogfileCLS() : buffer_(std::make_shared<LogBuffer>()) {}

LogfileCLS::~LogfileCLS() {
  events_ = nullptr;
  if (buffer_->Active()) StopLogging();
}

bool LogfileCLS::Report(std::int32_t error, const std::string& text) {
  if (events_ != nullptr) events_->LogError(error, std::string(text));
  return false;
}

bool LogfileCLS::ReportInactive() { return Report(kNotActive, notActive_); }

bool LogfileCLS::ReportSystem(std::int32_t error) {
  return Report(error, std::generic_category().message(error));
}

// What a sink throws may come from one that has deleted the object.
template <class Call>
bool LogfileCLS::Guarded(Call call) {
  const std::weak_ptr<LogBuffer> alive = buffer_;
  try {
    return call();
  } catch (const std::bad_alloc&) {
    if (alive.expired()) throw;
    return ReportSystem(ENOMEM);
  }
}

bool LogfileCLS::StartLogging() {
  return Guarded([this] { return Start(); });
}

bool LogfileCLS::Start() {
  std::string header;
  if (!buffer_->Active() && !LogBuffer::Exists(logFileName_) && events_ != nullptr) {
    const std::weak_ptr<LogBuffer> alive = buffer_;
    events_->NewLogfile(header);
    if (alive.expired()) return false;
  }
  if (buffer_->Active()) return Report(kAlreadyActive, alreadyActive_);
  if (!header.empty()) header += "\r\n";
  const std::int32_t error = buffer_->Open(logFileName_, std::move(header));
  if (error != 0) return ReportSystem(error);
  if (events_ != nullptr) events_->LoggingStarted();
  return true;
}

bool LogfileCLS::StopLogging() {
  if (!buffer_->Active()) return ReportInactive();
  return Guarded([this] {
    const std::int32_t error = WriteOut();
    buffer_->Close();
    if (error != 0) return ReportSystem(error);
    if (events_ != nullptr) events_->LoggingStopped();
    return true;
  });
}

bool LogfileCLS::CommitBuffer() {
  if (!buffer_->Active()) return ReportInactive();
  return Guarded([this] { return Committed(WriteOut()); });
}

std::size_t LogfileCLS::Batch() const {
  return static_cast<std::size_t>(std::max(bufferSize_, std::int32_t{1}));
}

// After a failure the next try comes with the next full batch, not with each line.
std::int32_t LogfileCLS::WriteOut() {
  const std::int32_t error = buffer_->Commit();
  commitAt_ = error == 0 ? 0 : buffer_->Lines() + Batch();
  return error;
}

bool LogfileCLS::Committed(std::int32_t error) {
  if (error != 0) return ReportSystem(error);
  if (events_ != nullptr) events_->BufferCommited();
  return true;
}

bool LogfileCLS::LogEvent(const std::string& Output) {
  if (!buffer_->Active()) return ReportInactive();
  return Guarded([&] {
    bool committed = false;
    if (buffer_->Lines() >= kMostBatches * Batch()) {
      if (const std::int32_t error = WriteOut(); error != 0) return ReportSystem(error);
      committed = true;
    }
    buffer_->Append(Output);
    if (buffer_->Lines() >= std::max(Batch(), commitAt_)) return Committed(WriteOut());
    return committed ? Committed(0) : true;
  });
}

void LogfileCLS::Translate(const std::string& New_Translation) {
  const std::size_t bar = New_Translation.find('|');
  notActive_ = New_Translation.substr(0, bar);
  if (bar != std::string::npos) alreadyActive_ = New_Translation.substr(bar + 1);
}

}  // namespace netro

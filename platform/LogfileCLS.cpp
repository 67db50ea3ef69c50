// LogfileCLS: states, batches and events around a LogBuffer.
#include <netro/LogfileCLS.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include "platform/LogBuffer.h"
#include "support/OnException.h"

namespace netro {
namespace {

constexpr std::int32_t kNotActive = 10000;
constexpr std::int32_t kAlreadyActive = 10001;
constexpr std::int32_t kKept = 10010;
constexpr std::int32_t kLost = 10011;
constexpr std::size_t kMostBatches = 10;

// The system's own text speaks of too many links where one is refused.
std::string ReasonOf(std::int32_t error) {
  if (error == ELOOP) return "The log file is a symbolic link, which is not followed";
  return std::generic_category().message(error);
}

}  // namespace

LogfileCLS::LogfileCLS() : buffer_(std::make_shared<LogBuffer>()) {}

LogfileCLS::~LogfileCLS() {
  events_ = nullptr;
  if (buffer_->Active()) StopLogging();
}

// Without memory for the text, the number alone.
bool LogfileCLS::Report(std::int32_t error, const std::string& text) try {
  lastErr_ = error;
  lastErrMsg_.clear();
  lastErrMsg_ = text;
  return Raise(error, text);
} catch (const std::bad_alloc&) {
  return false;
}

bool LogfileCLS::Raise(std::int32_t error, const std::string& text) {
  if (events_ != nullptr) events_->LogError(error, std::string(text));
  return false;
}

// The event has the system's number; LastErr tells what it means for the lines.
bool LogfileCLS::ReportUnwritten(std::int32_t fate, std::int32_t error) try {
  lastErr_ = fate;
  lastErrMsg_.clear();
  const std::string reason = ReasonOf(error);
  lastErrMsg_ = reason + (fate == kKept ? "; kept for the next commit." : "; lost.");
  return Raise(error, reason);
} catch (const std::bad_alloc&) {
  return false;
}

bool LogfileCLS::Succeed() {
  lastErr_ = 0;
  lastErrMsg_.clear();
  return true;
}

bool LogfileCLS::ReportInactive() { return Report(kNotActive, notActive_); }

bool LogfileCLS::ReportSystem(std::int32_t error) { return Report(error, ReasonOf(error)); }

bool LogfileCLS::ReportNoMemory() try {
  return ReportSystem(ENOMEM);
} catch (const std::bad_alloc&) {
  return Report(ENOMEM, {});
}

// What a sink throws may come from one that has deleted the object.
template <class Call>
bool LogfileCLS::Guarded(Call call) {
  const std::weak_ptr<LogBuffer> alive = buffer_;
  try {
    return call();
  } catch (const std::bad_alloc&) {
    if (alive.expired()) throw;
    return ReportNoMemory();
  }
}

bool LogfileCLS::StartLogging() {
  return Guarded([this] { return Start(); });
}

bool LogfileCLS::Start() {
  std::string header;
  const std::weak_ptr<LogBuffer> alive = buffer_;
  if (!buffer_->Active() && !FileExists(logFileName_) && events_ != nullptr) {
    events_->NewLogfile(header);
    if (alive.expired()) return false;
  }
  if (buffer_->Active()) return Report(kAlreadyActive, alreadyActive_);
  if (!header.empty()) header += "\r\n";
  const std::string path = AbsolutePath(logFileName_);
  std::int32_t lost = 0;
  if (path != buffer_->Path() && buffer_->Lines() > 0) {
    if (const std::int32_t error = AppendFile().Open(path, header)) return ReportSystem(error);
    lost = LeaveOldFile();
  }
  const std::int32_t error = buffer_->Open(path, std::move(header));
  if (lost != 0) ReportUnwritten(kLost, lost);
  if (alive.expired()) return false;
  if (error != 0) return ReportSystem(error);
  if (lost == 0) Succeed();
  if (events_ != nullptr) events_->LoggingStarted();
  return true;
}

// What a failed stop has kept belongs to the file that it was logged to.
std::int32_t LogfileCLS::LeaveOldFile() {
  commitAt_ = 0;
  return buffer_->GiveUp();
}

std::int32_t LogfileCLS::WriteAndClose() {
  const OnException close([this] { buffer_->Close(); });
  const std::int32_t error = WriteOut();
  buffer_->Close();
  return error;
}

bool LogfileCLS::StopLogging() {
  if (!buffer_->Active()) return ReportInactive();
  return Guarded([this] {
    const std::int32_t error = WriteAndClose();
    if (error != 0) return ReportUnwritten(kKept, error);
    Succeed();
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
  // Who has each line written wants it to outlive the system too, as far as nobody waits for it.
  if (error == 0 && Batch() == 1) buffer_->StartWriteback();
  return error;
}

bool LogfileCLS::Committed(std::int32_t error) {
  if (error != 0) return ReportUnwritten(kKept, error);
  Succeed();
  if (events_ != nullptr) events_->BufferCommited();
  return true;
}

bool LogfileCLS::LogEvent(const std::string& Output) {
  if (!buffer_->Active()) return ReportInactive();
  return Guarded([&] {
    bool committed = false;
    if (buffer_->Lines() >= kMostBatches * Batch()) {
      if (const std::int32_t error = WriteOut(); error != 0) return ReportUnwritten(kLost, error);
      committed = true;
    }
    buffer_->Append(Output);
    if (buffer_->Lines() >= std::max(Batch(), commitAt_)) return Committed(WriteOut());
    return committed ? Committed(0) : Succeed();
  });
}

void LogfileCLS::Translate(const std::string& New_Translation) {
  const std::size_t bar = New_Translation.find('|');
  notActive_ = New_Translation.substr(0, bar);
  if (bar != std::string::npos) alreadyActive_ = New_Translation.substr(bar + 1);
}

}  // namespace netro

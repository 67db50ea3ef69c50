// LogfileCLS: a text log that collects its lines in memory and writes them to a file in batches.
//
// Every failure is a LogError event, and false. What could not be written, on a full disk for
// example, is kept for the next commit, up to ten batches. A crash of the program loses no more
// than the batch that it was collecting. Others may rotate the file, and several programs may log
// to it.
//
// Thread: any, one at a time for each object. Nothing waits but for the disk.
#pragma once

#include <netro/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace netro {

class LogBuffer;

/// Receives the events of a LogfileCLS. Everything is allowed inside, deleting the object included.
/// What an event throws leaves through the method that raised it, which has done its work then, but
/// for NewLogfile: no file is made.
class NETRO_EXPORT LogfileCLSEvents {
 public:
  virtual ~LogfileCLSEvents() = default;

  /// The last event of StartLogging.
  virtual void LoggingStarted() {}
  /// The only event of a StopLogging that succeeds.
  virtual void LoggingStopped() {}
  /// What was collected has been written, if only nothing.
  virtual void BufferCommited() {}
  /// StartLogging is about to make the file. A `Header` that is filled in becomes its first line.
  virtual void NewLogfile(std::string& Header) { (void)Header; }
  /// 10000 logging is not active, 10001 it is already (texts: see Translate); else the system's
  /// number and text.
  virtual void LogError(std::int32_t ErrorNr, const std::string& ErrorText) {
    (void)ErrorNr, (void)ErrorText;
  }
};

class NETRO_EXPORT LogfileCLS {
 public:
  LogfileCLS();
  /// Writes what is collected, without events.
  ~LogfileCLS();
  LogfileCLS(const LogfileCLS&) = delete;
  LogfileCLS& operator=(const LogfileCLS&) = delete;

  /// The sink of this object's events; not owned, may be null.
  LogfileCLSEvents* Events() const { return events_; }
  void Events(LogfileCLSEvents* sink) { events_ = sink; }

  /// The file; takes effect with the next StartLogging, as what it means in the current folder
  /// then.
  const std::string& LogFileName() const { return logFileName_; }
  void LogFileName(std::string value) { logFileName_ = std::move(value); }
  /// Lines in a batch; less than 1 counts as 1: each line is on its way to the disk when LogEvent
  /// returns.
  std::int32_t BufferSize() const { return bufferSize_; }
  void BufferSize(std::int32_t value) { bufferSize_ = value; }

  /// Opens the file, to append to it. Lines that a failed StopLogging has kept for another file are
  /// tried there once more and, if that fails, are lost: LogError tells it, and LastErr is 10011.
  bool StartLogging();
  /// Writes what is collected and closes the file; also when writing fails: false then, and what is
  /// left goes with the first commit after the next StartLogging of this file.
  bool StopLogging();
  /// Adds a line: CR and LF within it become \r and \n, other controls but tab \x1B, and what turns
  /// the direction of writing or separates lines \u202E (ShownText.h). The line that completes a
  /// batch writes it; false when that failed, though the line is kept (LastErr 10010), or when ten
  /// batches are waiting already and this line is lost (LastErr 10011, or 10000 where logging is
  /// not active).
  bool LogEvent(const std::string& Output);
  /// Writes what is collected, to the file that the name means now: one that was removed or renamed
  /// is made anew, and an empty one gets the header that StartLogging gave it.
  bool CommitBuffer();

  /// How the last method ended: 0; 10000 and 10001 as above; 10010 lines could not be written and
  /// are kept; 10011 lines are lost; of StartLogging the system's number.
  std::int32_t LastErr() const { return lastErr_; }
  /// Its text, which tells the system's reason; empty for 0.
  const std::string& LastErrMsg() const { return lastErrMsg_; }

  /// The texts of 10000 and 10001, separated by "|": "Logging not active.|Logging already active."
  /// Without a "|" only the first one.
  void Translate(const std::string& New_Translation);

 private:
  template <class Call>
  bool Guarded(Call call);
  bool Start();
  std::size_t Batch() const;
  std::int32_t WriteOut();
  bool Committed(std::int32_t error);
  std::int32_t LeaveOldFile();
  bool Report(std::int32_t error, const std::string& text);
  bool ReportUnwritten(std::int32_t fate, std::int32_t error);
  bool Raise(std::int32_t error, const std::string& text);
  bool Succeed();
  bool ReportInactive();
  bool ReportSystem(std::int32_t error);
  bool ReportNoMemory();
  std::int32_t WriteAndClose();

  LogfileCLSEvents* events_ = nullptr;
  std::string logFileName_ = "logfile.txt";
  std::int32_t bufferSize_ = 100;
  std::string notActive_ = "Logging not active.";
  std::string alreadyActive_ = "Logging already active.";
  std::shared_ptr<LogBuffer> buffer_;
  std::size_t commitAt_ = 0;  // lines; 0: a batch
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
};

}  // namespace netro

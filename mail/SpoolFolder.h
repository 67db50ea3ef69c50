// The files of a spool folder. Functions return the error number, 0 for success. One thread at a
// time; what others do in the folder meanwhile does no harm.
#pragma once

#include <netro/MailSpool.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "mail/MimeText.h"
#include "platform/ByteSource.h"
#include "platform/JournalFile.h"

namespace netro {

/// The path of a message, and the name of its file when that is no message.
std::string SpoolPath(const std::string& folder, const std::string& id);
std::string SpoolBadPath(const std::string& folder, const std::string& id);

/// What a user is told of an error.
std::string SpoolErrorText(std::int32_t error, const std::string& path);

/// The ids of the messages, the oldest first.
std::int32_t ListSpool(const std::string& folder, std::vector<std::string>& ids);

/// An id that nobody has.
std::string NewSpoolId(Date now);

/// Puts a new message into the folder: it is there whole, and on the disk, or not at all. The text
/// ends its last line; one of unknown length is read twice.
std::int32_t PutIntoSpool(const std::string& folder, SpooledMail& mail, ByteSource& text);

/// One message of the folder, opened.
class SpoolItem {
 public:
  /// Open reads; Claim may change it too, see JournalFile. IsBad tells that the file is no message.
  std::int32_t Open(const std::string& folder, const std::string& id);
  std::int32_t Claim(const std::string& folder, const std::string& id);
  static bool IsBad(std::int32_t error);

  const SpooledMail& Mail() const { return mail_; }
  /// The front of the text, `most` bytes of it at most.
  std::int32_t Front(std::string& text, std::size_t most) const;
  /// All of it, to be read any number of times, as long as the file is there.
  MimeBytes Text() const;

  // Of a claimed one.

  /// Takes room for so many records, so that a full disk is known before an answer is.
  std::int32_t Reserve(std::size_t records) const;
  /// Records what these recipients are from now on.
  std::int32_t Record(const std::vector<std::size_t>& numbers,
                      const std::vector<SpooledRecipient>& recipients);
  /// Records that they have been reported.
  std::int32_t Report(const std::vector<std::size_t>& numbers);

 private:
  std::int32_t Read(const std::string& id);
  std::int32_t ReadHead();
  std::int32_t Append(const std::string& records);

  JournalFile file_;
  std::string path_;
  SpooledMail mail_;
  std::size_t textAt_ = 0;
  std::size_t recordsSize_ = 0;  // of the whole ones
};

}  // namespace netro

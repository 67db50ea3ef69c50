// The format of a spool file: a head of lines, the text of the message, and records, one line each,
// which are only ever appended. Pure text; who reads it trusts none of it. Thread: any.
//
//   netro-spool 1
//   created 2026-11-21T10:45:00.123Z
//   from jane@example.com               empty for a message without a sender
//   to boss@example.org                 for each recipient; the first has number 0
//   size 1234                           of the text
//   (an empty line, and the text)
//   pending 0 LAST NEXT CLASS RESULT the server's words
//   delivered 0 LAST - 0 0 the server's words
//   reported 0
//
// LAST and NEXT are dates. "failed" and "unknown" are as "delivered".
#pragma once

#include <netro/MailSpool.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

inline constexpr std::size_t kMostSpoolHead = std::size_t{4} << 20;
/// A record is never longer than this.
inline constexpr std::size_t kMostSpoolRecord = 1000;

/// True for what can be the id of a message: letters, digits and "-", 64 of them at most.
bool IsSpoolId(std::string_view id);

/// True for an address that a line of a spool file, and a command of SMTP, can hold.
bool CanSpoolAddress(std::string_view address);

/// What a server has said, as one line of at most 500 bytes of UTF-8 without control characters.
std::string CleanAnswer(std::string_view answer);

/// The head of a new message, whose addresses can be spooled. The states of recipients and the
/// result's NextTry are not part of it.
std::string SpoolHead(const SpooledMail& mail);

enum class SpoolHeadEnd { Good, Cut, Bad };

/// Reads the front of a file; every recipient is pending and due since the message was created.
/// Cut: more of the file may help. On Good the text begins at `messageAt`.
SpoolHeadEnd ParseSpoolHead(std::string_view file, SpooledMail& mail, std::size_t& messageAt);

/// The record of what a recipient is now.
std::string SpoolRecord(const SpooledRecipient& recipient, std::size_t number);
std::string ReportedRecord(std::size_t number);

/// Takes the records in, and sets `whole` to the size of those that are complete: the last one may
/// have been cut off by a crash. False for what is no record, names a recipient that there is not,
/// or changes what was decided.
bool ApplySpoolRecords(std::string_view records, SpooledMail& mail, std::size_t& whole);

}  // namespace netro

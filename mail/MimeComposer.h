// Makes the MIME text of a message (RFC 2045, 2046 and 5322): the header block, then a text, or
// several parts. Thread: any.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mail/MimeText.h"
#include "platform/Clock.h"

namespace netro {

/// An attachment, or a file that the HTML refers to.
struct MimeFile {
  MimeBytes bytes;
  std::string name;  // as it stands in the message
  bool related = false;
};

struct MimeEnvelope {
  std::string subject;
  std::string from;
  std::string to;
  std::string cc;
  std::string bcc;
};

/// What a message consists of. Texts that are not UTF-8 are taken as being in `charSet`.
struct MimeContent {
  MimeEnvelope envelope;
  bool html = false;
  std::string text;
  std::string alternative;  // the plain text of an HTML message; empty: made of the HTML
  LocalDate date;
  std::string messageID;  // empty: a random one
  std::vector<std::pair<std::string, std::string>> headers;
  std::vector<MimeFile> files;
  std::string charSet;
  bool addBcc = false;
};

/// True for a field that the composed message has from its envelope or by itself.
bool HasFieldOfItsOwn(const MimeEnvelope& envelope, std::string_view name);
/// True for a field that a message may have only one of (RFC 5322, section 3.6).
bool StandsOnce(std::string_view name);

/// Takes memory for the texts, and little beside them.
MimeText ComposeMime(const MimeContent& content);

}  // namespace netro

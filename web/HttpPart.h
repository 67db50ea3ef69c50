// What stays of a download that was cut short: FILE.part, the bytes so far, and FILE.part.info,
// what they are a part of. Any thread.
#pragma once

#include <cstdint>
#include <string>

#include "web/RangeAnswer.h"

namespace netro {

struct HttpPart {
  static std::string PathOf(const std::string& file) { return file + ".part"; }
  /// The part of a file, if it is one of this URL; else one that has nothing.
  static PartialBody Find(const std::string& file, const std::string& url);
  /// What is noted beside a part; empty when its rest could not be asked for.
  static std::string NoteOf(const std::string& url, const PartialBody& part);
  /// Writes the note. Returns the error number (20000 plus the system's).
  static std::int32_t Note(const std::string& file, const std::string& note);
  /// Removes both files.
  static void Forget(const std::string& file);
};

}  // namespace netro

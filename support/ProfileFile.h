// The text of a profile (INI) file as a document: sections of "key=value" lines. It is pure text;
// whoever owns it reads and writes the file. Thread: any, one object on one thread at a time.
#pragma once

#include <cstddef>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/NameIndex.h"

namespace netro {

/// Names of sections and keys ignore the case of ASCII letters. Blanks and tabs around a name or
/// value do not count. Of sections with one name, and of keys with one name in a section, the first
/// counts. Lines before the first section, comments (";" or "#") and whatever else is no entry
/// stay as they are, and so does the spelling of every line that is not set.
///
/// Every operation costs the same in a large file as in a small one, but for Parse, Keys and Text,
/// which are linear.
class ProfileFile {
 public:
  ProfileFile() = default;
  ProfileFile(ProfileFile&&) = default;
  ProfileFile& operator=(ProfileFile&&) = default;
  ProfileFile(const ProfileFile&) = delete;
  ProfileFile& operator=(const ProfileFile&) = delete;

  /// Takes any text. Lines end in LF or CR LF.
  static ProfileFile Parse(std::string_view text);

  /// What was parsed, byte by byte, but for what was set or removed since.
  std::string Text() const;
  /// True when something was set or removed since.
  bool IsChanged() const { return changed_; }

  std::optional<std::string> Value(std::string_view section, std::string_view key) const;

  /// The keys in the order of the file, each once and as spelled there.
  std::vector<std::string> Keys(std::string_view section) const;

  /// Where a key stands in the text that was parsed: lines count from 1. 0 when there is none, or
  /// it was added since.
  std::size_t LineOf(std::string_view section, std::string_view key) const;
  /// The first line that begins another section of this name, or repeats a key of the first; 0 when
  /// there is none.
  std::size_t RepeatedSection(std::string_view section) const;
  std::size_t RepeatedKey(std::string_view section) const;

  /// Replaces the value, or adds the key at the end of its section and the section at the end of
  /// the file. Returns false, with nothing changed, when a line cannot hold one of the three.
  bool Set(std::string_view section, std::string_view key, std::string_view value);

  /// Removes the key with all its repetitions. Returns false when there is none.
  bool Remove(std::string_view section, std::string_view key);

  /// Whether a line can hold them, that is: reading it gives back the same.
  static bool CanHoldSection(std::string_view name);
  static bool CanHoldKey(std::string_view key);
  static bool CanHoldValue(std::string_view value);

 private:
  struct Span {
    std::size_t begin = 0;
    std::size_t size = 0;
  };
  struct Line;
  using Lines = std::list<Line>;
  struct Line {
    std::string text;  // with the line end
    Span key;          // of size 0 when the line is no entry, or repeats one
    Span value;
    std::vector<Lines::iterator> repetitions;  // lines below with the same key
    bool isText = false;                       // lines that are no entries; such pieces may grow
    std::size_t number = 0;                    // in the text that was parsed
  };
  struct KeyOf {
    std::string_view operator()(Lines::const_iterator line) const { return Part(*line, line->key); }
  };

  struct Section {
    Line header;  // with the name as its key; empty for what precedes the first section
    Lines lines;
    std::string blanks;  // blank lines at the end; what is added goes before them
    NameIndex<Lines::iterator, KeyOf> entries;
  };
  struct NameOf {
    std::string_view operator()(const Section* section) const {
      return Part(section->header, section->header.key);
    }
  };

  static std::string_view Part(const Line& line, Span span) {
    return std::string_view(line.text).substr(span.begin, span.size);
  }
  static Span SpanOf(std::string_view part, std::string_view line);
  void AddLine(std::string_view text);
  static void AddText(Section& section, std::string_view text);
  void AddSection(std::string_view text, Span name);
  static void AddEntry(Section& section, Line entry);
  Line* Find(std::string_view section, std::string_view key) const;

  std::list<Section> sections_ = std::list<Section>(1);
  NameIndex<Section*, NameOf> byName_;  // the first of each name
  std::string_view lineEnd_ = "\n";     // of lines that are added
  std::size_t lineCount_ = 0;           // that have been parsed
  bool lastLineEnds_ = true;            // else `lineEnd_` was added to the text that was parsed
  bool changed_ = false;
};

}  // namespace netro

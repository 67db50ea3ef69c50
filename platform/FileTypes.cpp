#include "platform/FileTypes.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <unordered_map>

#include "platform/ConfigText.h"
#include "platform/SystemFiles.h"
#include "platform/WholeFile.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kLargestTable = 8 << 20;

using TypeTable = std::unordered_map<std::string, std::string>;

struct KnownTypeRow {
  std::string_view extension;
  std::string_view contentType;
};

/// For systems without a table.
constexpr KnownTypeRow kKnownTypes[] = {
    {"avif", "image/avif"},
    {"bmp", "image/bmp"},
    {"bz2", "application/x-bzip2"},
    {"css", "text/css"},
    {"csv", "text/csv"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"gif", "image/gif"},
    {"gz", "application/gzip"},
    {"htm", "text/html"},
    {"html", "text/html"},
    {"ics", "text/calendar"},
    {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},
    {"js", "text/javascript"},
    {"json", "application/json"},
    {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},
    {"odp", "application/vnd.oasis.opendocument.presentation"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"pdf", "application/pdf"},
    {"png", "image/png"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"rtf", "application/rtf"},
    {"svg", "image/svg+xml"},
    {"tar", "application/x-tar"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"txt", "text/plain"},
    {"vcf", "text/vcard"},
    {"wav", "audio/wav"},
    {"webp", "image/webp"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"xml", "application/xml"},
    {"zip", "application/zip"},
};

bool IsToken(std::string_view text) {
  constexpr std::string_view kMarks = "!#$&^_.+-";  // RFC 6838, section 4.2
  for (const char c : text) {
    if (!IsAlphanumeric(c) && kMarks.find(c) == kMarks.npos) return false;
  }
  return !text.empty() && text.size() <= 127;
}

/// Files are sent encoded, which composite types forbid (RFC 2045, section 6.4): readers would look
/// for parts in them.
bool IsUsable(std::string_view contentType) {
  const std::size_t slash = contentType.find('/');
  return slash != contentType.npos && IsToken(contentType.substr(0, slash)) &&
         IsToken(contentType.substr(slash + 1)) &&
         !StartsWithIgnoreCase(contentType, "multipart/") &&
         !StartsWithIgnoreCase(contentType, "message/");
}

/// The first one to name an extension counts.
void Add(TypeTable& table, std::string_view extension, std::string_view contentType) {
  if (IsUsable(contentType)) table.try_emplace(ToLower(extension), contentType);
}

std::string ReadTable(std::string_view file) {
  std::string text;
  ReadWholeFile(SystemPath(file), text, kLargestTable);  // a missing one is an empty one
  return text;
}

/// Lines of a type and its extensions: "image/jpeg jpeg jpg jpe".
void AddMimeTypes(TypeTable& table, std::string_view text) {
  while (!text.empty()) {
    std::string_view line = TakeLine(text);
    line = line.substr(0, line.find('#'));
    const std::string_view type = TakeWord(line);
    for (auto word = TakeWord(line); !word.empty(); word = TakeWord(line)) Add(table, word, type);
  }
}

/// Lines of a weight, a type and a pattern, the weightiest first: "50:image/jpeg:*.jpg".
void AddGlobs(TypeTable& table, std::string_view text) {
  while (!text.empty()) {
    std::string_view line = TakeLine(text);
    line = TakeWord(line);
    const std::size_t type = line.find(':') + 1;
    const std::size_t glob = line.find(":*.", type);
    if (line.starts_with('#') || type == 0 || glob == line.npos) continue;
    const std::string_view extension = line.substr(glob + 3, line.find(':', glob + 3) - glob - 3);
    if (extension.find_first_of("*?[") == extension.npos) {
      Add(table, extension, line.substr(type, glob - type));
    }
  }
}

TypeTable ReadTypes() {
  TypeTable table;
  AddMimeTypes(table, ReadTable("etc/mime.types"));
  AddGlobs(table, ReadTable("usr/share/mime/globs2"));
  return table;
}

std::string KnownType(std::string_view extension) {
  const auto* const known = std::ranges::find(kKnownTypes, extension, &KnownTypeRow::extension);
  return known == std::end(kKnownTypes) ? std::string() : std::string(known->contentType);
}

/// The types of the system below one root; tests change the root.
struct Cache {
  std::mutex mutex;
  std::string root;
  TypeTable types;
};

// Never destroyed: destructors of static objects and late helper threads may still ask.
Cache& TheCache() {
  static auto* const cache = new Cache;
  return *cache;
}

}  // namespace

std::string ContentTypeOf(std::string_view extension) {
  Cache& cache = TheCache();
  const std::scoped_lock lock(cache.mutex);
  if (std::string root = SystemPath(""); root != cache.root) {
    cache.types = ReadTypes();
    cache.root = std::move(root);
  }
  const auto found = cache.types.find(std::string(extension));
  if (found != cache.types.end()) return found->second;
  std::string registered = RegisteredContentType(extension);
  return IsUsable(registered) ? registered : KnownType(extension);
}

}  // namespace netro

#include "mail/SpoolFolder.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <span>

#include "mail/RandomText.h"
#include "mail/SpoolFile.h"
#include "mail/SpoolText.h"
#include "platform/ErrorNumbers.h"
#include "platform/Folder.h"
#include "platform/OutputFile.h"
#include "socket/SocketErrors.h"
#include "support/DateText.h"
#include "support/OnException.h"

namespace netro {
namespace {

constexpr std::string_view kExtension = ".mail";
// A recipient is tried some fifty times in two days.
constexpr std::size_t kMostRecords = std::size_t{256} << 20;

std::int32_t Measure(ByteSource& text, std::uint64_t& size) {
  const std::optional<std::uint64_t> length = text.Length();
  size = length.value_or(0);
  if (length) return 0;
  const std::int32_t error = CopyAll(text, [&](std::span<const std::uint8_t> block) {
    size += block.size();
    return 0;
  });
  if (error != 0) return error;
  return text.Rewind() ? 0 : FileErrorNumber(ESPIPE);
}

std::int32_t BadFile() { return FileErrorNumber(EBADMSG); }

}  // namespace

std::string SpoolPath(const std::string& folder, const std::string& id) {
  return folder + "/" + id + std::string(kExtension);
}

std::string SpoolBadPath(const std::string& folder, const std::string& id) {
  return folder + "/" + id + ".bad";
}

std::string SpoolErrorText(std::int32_t error, const std::string& path) {
  const std::string text = SystemErrorText(error);
  return path + ": " + (text.empty() ? SocketErrorText(error) : text);
}

std::int32_t ListSpool(const std::string& folder, std::vector<std::string>& ids) {
  std::vector<std::string> names;
  const std::int32_t error = ListFolder(folder, names);
  ids.clear();
  for (const std::string& name : names) {
    if (!name.ends_with(kExtension)) continue;
    std::string id = name.substr(0, name.size() - kExtension.size());
    if (IsSpoolId(id)) ids.push_back(std::move(id));
  }
  std::ranges::sort(ids);  // the names have been, with what follows the ids
  return error;
}

// The date in front keeps them in order.
std::string NewSpoolId(Date now) {
  std::string id;
  for (const char c : DateToText(now)) {
    if (c >= '0' && c <= '9') id += c;
  }
  return id + "-" + RandomText(12);
}

std::int32_t PutIntoSpool(const std::string& folder, SpooledMail& mail, ByteSource& text) {
  if (const std::int32_t error = Measure(text, mail.Size)) return error;
  const std::string head = SpoolHead(mail);
  if (head.size() > kMostSpoolHead) return FileErrorNumber(EMSGSIZE);
  OutputFile file;
  std::int32_t error = file.CreateUnique(folder, ".netro-", "tmp");
  const auto write = [&file](std::span<const std::uint8_t> bytes) { return file.Write(bytes); };
  if (error == 0) error = write({reinterpret_cast<const std::uint8_t*>(head.data()), head.size()});
  if (error == 0) error = CopyAll(text, write);
  const std::string path = SpoolPath(folder, mail.Id);
  if (error == 0) error = file.FinishAs(path);
  if (error != 0) return error;
  const OnException remove([&] { RemoveFile(path); });
  error = SyncFolder(folder);
  if (error != 0) RemoveFile(path);
  return error;
}

std::int32_t SpoolItem::Open(const std::string& folder, const std::string& id) {
  path_ = SpoolPath(folder, id);
  const std::int32_t error = file_.Open(path_);
  return error == 0 ? Read(id) : error;
}

std::int32_t SpoolItem::Claim(const std::string& folder, const std::string& id) {
  path_ = SpoolPath(folder, id);
  const std::int32_t error = file_.Claim(path_);
  return error == 0 ? Read(id) : error;
}

bool SpoolItem::IsBad(std::int32_t error) { return error == BadFile(); }

std::int32_t SpoolItem::ReadHead() {
  std::string front;
  for (std::size_t size = 16 * 1024;; size = kMostSpoolHead) {
    if (const std::int32_t error = file_.ReadAt(0, size, front)) return error;
    switch (ParseSpoolHead(front, mail_, textAt_)) {
      case SpoolHeadEnd::Good:
        return 0;
      case SpoolHeadEnd::Bad:
        return BadFile();
      case SpoolHeadEnd::Cut:
        if (front.size() == file_.Size() || size == kMostSpoolHead) return BadFile();
    }
  }
}

std::int32_t SpoolItem::Read(const std::string& id) {
  mail_.Id = id;
  if (const std::int32_t error = ReadHead()) return error;
  if (mail_.Size > file_.Size() - textAt_) return BadFile();
  const std::uint64_t recordsAt = textAt_ + mail_.Size;
  const std::uint64_t room = file_.Size() - recordsAt;
  if (room > kMostRecords) return BadFile();
  std::string records;
  if (const std::int32_t error = file_.ReadAt(recordsAt, static_cast<std::size_t>(room), records)) {
    return error;
  }
  return ApplySpoolRecords(records, mail_, recordsSize_) ? 0 : BadFile();
}

std::int32_t SpoolItem::Front(std::string& text, std::size_t most) const {
  if (mail_.Size < most) most = static_cast<std::size_t>(mail_.Size);
  return file_.ReadAt(textAt_, most, text);
}

MimeBytes SpoolItem::Text() const {
  return {mail_.Size, [path = path_, begin = textAt_, size = mail_.Size] {
            return std::make_unique<SpoolText>(path, begin, size);
          }};
}

std::int32_t SpoolItem::Reserve(std::size_t records) const {
  return file_.Reserve(records * kMostSpoolRecord);
}

std::int32_t SpoolItem::Append(const std::string& records) {
  // What a crash has cut off must not become the beginning of the next record.
  const std::uint64_t whole = textAt_ + mail_.Size + recordsSize_;
  if (file_.Size() != whole) {
    if (const std::int32_t error = file_.CutTo(whole)) return error;
  }
  if (const std::int32_t error = file_.Append(records)) return error;
  std::size_t added = 0;
  ApplySpoolRecords(records, mail_, added);
  recordsSize_ += added;
  return 0;
}

std::int32_t SpoolItem::Record(const std::vector<std::size_t>& numbers,
                               const std::vector<SpooledRecipient>& recipients) {
  std::string records;
  for (std::size_t at = 0; at < numbers.size(); ++at) {
    records += SpoolRecord(recipients[at], numbers[at]);
  }
  return Append(records);
}

std::int32_t SpoolItem::Report(const std::vector<std::size_t>& numbers) {
  std::string records;
  for (const std::size_t number : numbers) records += ReportedRecord(number);
  return Append(records);
}

}  // namespace netro

#include "web/HttpBodyTarget.h"

#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Folder.h"
#include "socket/SocketErrors.h"
#include "web/HttpPart.h"

namespace netro {
namespace {

std::string FolderOf(const std::string& path) {
  const std::size_t own = OwnNameAt(path);
  return own == 0 ? "." : path.substr(0, own);
}

}  // namespace

std::int32_t HttpBodyTarget::Open(Plan plan) {
  Discard();
  plan_ = std::move(plan);
  length_ = static_cast<double>(plan_.had);
  errorText_.clear();
  // A temporary file is made with the first byte: nobody would look for an empty one.
  return plan_.place == Place::File ? MakeFile() : 0;
}

std::int32_t HttpBodyTarget::MakeFile() {
  std::int32_t error = 0;
  hasFile_ = true;
  path_ = plan_.file;
  if (plan_.place == Place::Temporary) {
    error = file_.CreateTemporary("ansel", "tmp");
    path_ = file_.Path();
  } else if (plan_.manner == Manner::AtOnce) {
    error = file_.Create(path_);
  } else if ((error = CanReplace(path_)) == 0) {
    const bool inParts = plan_.manner == Manner::InParts;
    error = inParts ? MakePart() : file_.CreateUnique(FolderOf(path_), ".netro", "part");
  }
  return error == 0 ? 0 : FileFailed(error);
}

std::int32_t HttpBodyTarget::MakePart() {
  const std::string path = HttpPart::PathOf(path_);
  const std::int32_t error = plan_.had > 0 ? file_.Continue(path, plan_.had) : file_.Create(path);
  return error == 0 ? HttpPart::Note(path_, plan_.note) : error;
}

std::int32_t HttpBodyTarget::FileFailed(std::int32_t error) {
  errorText_ = CanNotWrite(path_, error);
  return error;
}

std::string HttpBodyTarget::CanNotWrite(const std::string& path, std::int32_t error) {
  return "Can not write \"" + path + "\". " + SocketErrorText(error);
}

std::int32_t HttpBodyTarget::Write(std::span<const std::uint8_t> bytes, const Listener& listener,
                                   const Text& text, bool& kept) {
  kept = true;
  if (chain_.IsPlain()) return Deliver(bytes, listener, kept);
  bool ignored = true;
  const std::int32_t error = chain_.Decode(bytes, [&](std::span<const std::uint8_t> piece) {
    const std::int32_t failed = Deliver(piece, listener, ignored);
    if (failed == 0 && !ignored) text(piece);
    return failed;
  });
  if (error != 0 && errorText_.empty()) errorText_ = chain_.ErrorText();
  // What was unpacked before that may be as wrong: nothing is to go on from there.
  if (error != 0 && error != kErrCancelled) plan_.note.clear();
  return error;
}

std::int32_t HttpBodyTarget::Deliver(std::span<const std::uint8_t> bytes, const Listener& listener,
                                     bool& kept) {
  if (plan_.place == Place::Nowhere) return 0;
  length_ += static_cast<double>(bytes.size());
  kept = plan_.place != Place::Text;
  if (!kept && plan_.limit != 0 && length_ > static_cast<double>(plan_.limit)) {
    errorText_ = "The answer's body is longer than MaxBodyLen, " + std::to_string(plan_.limit) +
                 " bytes.";
    return kErrMessageTooLong;
  }
  if (plan_.place == Place::File || plan_.place == Place::Temporary) {
    if (!hasFile_) {
      if (const std::int32_t error = MakeFile()) return error;
    }
    if (const std::int32_t error = file_.Write(bytes)) return FileFailed(error);
  }
  return listener(bytes);
}

std::int32_t HttpBodyTarget::Finish() {
  if (const std::int32_t error = chain_.Finish()) {
    errorText_ = chain_.ErrorText();
    plan_.note.clear();
    return error;
  }
  if (!hasFile_) return 0;
  if (const double whole = static_cast<double>(plan_.whole.value_or(0));
      plan_.whole && length_ != whole) {
    if (length_ > whole) plan_.note.clear();
    errorText_ = "The server sent another rest of the body than it said.";
    return kErrConnectionReset;
  }
  const bool renamed = plan_.place == Place::File && plan_.manner != Manner::AtOnce;
  const std::int32_t error = renamed ? file_.FinishAs(path_) : file_.Finish();
  if (renamed && plan_.manner == Manner::InParts) HttpPart::Forget(path_);
  return error == 0 ? 0 : FileFailed(error);
}

void HttpBodyTarget::GiveUp() {
  const bool stays = plan_.manner == Manner::InParts && !plan_.note.empty() && file_.IsOpen();
  if (stays && file_.Finish() == 0) return;
  if (hasFile_ && plan_.manner == Manner::InParts) HttpPart::Forget(path_);
  Discard();
}

void HttpBodyTarget::Discard() {
  file_.Discard();
  chain_ = {};
  hasFile_ = false;
  path_.clear();
}

}  // namespace netro

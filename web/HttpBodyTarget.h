// Where the body of an answer goes: the answer text, a file, an event, or nowhere; unpacked on the
// way. A file that was not finished is removed, or kept as a part to be continued.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/OutputFile.h"
#include "web/ContentChain.h"

namespace netro {

class HttpBodyTarget {
 public:
  enum class Place { Nowhere, Text, Temporary, File, Event };

  /// How a file is written.
  enum class Manner {
    AtOnce,     // under its name
    WhenWhole,  // under another name, and renamed
    InParts,    // as a part that stays when it is cut short, and renamed
  };

  struct Plan {
    Place place = Place::Text;
    std::string file;
    Manner manner = Manner::AtOnce;
    std::uint64_t had = 0;               // bytes of the part that is there and goes on
    std::optional<std::uint64_t> whole;  // bytes of all of a body that goes on
    std::uint64_t limit = 0;             // of bytes in the text
    std::string note;                    // of a part; empty: it does not stay
  };

  /// Takes what is delivered, before it goes to its place. Another number than 0 ends it.
  using Listener = std::function<std::int32_t(std::span<const std::uint8_t>)>;
  /// Takes what was unpacked for the answer text.
  using Text = std::function<void(std::span<const std::uint8_t>)>;

  /// Begins a body. Returns the error number, see ErrorText.
  std::int32_t Open(Plan plan);
  ContentChain& Chain() { return chain_; }

  /// Takes bytes as they came. `kept` is false when they should be put into the answer text as they
  /// are. Returns the error number.
  std::int32_t Write(std::span<const std::uint8_t> bytes, const Listener& listener, const Text& text,
                     bool& kept);
  /// The body is whole. Returns the error number.
  std::int32_t Finish();
  /// The body is not whole: removes the file, or keeps it as a part.
  void GiveUp();
  /// The body is none of the caller's.
  void Discard();

  bool HasFile() const { return hasFile_; }
  const std::string& Path() const { return path_; }
  double Length() const { return length_; }
  const std::string& ErrorText() const { return errorText_; }

  /// "Can not write ..."
  static std::string CanNotWrite(const std::string& path, std::int32_t error);

 private:
  std::int32_t Deliver(std::span<const std::uint8_t> bytes, const Listener& listener, bool& kept);
  std::int32_t MakeFile();
  std::int32_t MakePart();
  std::int32_t FileFailed(std::int32_t error);

  Plan plan_;
  ContentChain chain_;
  OutputFile file_;
  bool hasFile_ = false;
  std::string path_;
  double length_ = 0;
  std::string errorText_;
};

}  // namespace netro

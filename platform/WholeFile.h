// Small files that are read and written whole, and the folder of the user's settings. Any thread.
// Functions return the error number (20000 plus the system's), 0 for success.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace netro {

class OutputFile;

/// Reads a regular file of at most `mostBytes`. Links are followed where that is asked for, else
/// refused: 20000 plus ELOOP. Anything else (a folder, a device,
/// a pipe) is refused without waiting for it. After a failure `text` is empty.
enum class Links { Followed, Refused };
std::int32_t ReadWholeFile(const std::string& path, std::string& text,
                           std::size_t mostBytes = std::size_t{256} << 20,
                           Links links = Links::Followed);

/// A number that changes when another file of this name stands there, or this one is written to.
std::uint64_t FileStamp(const std::string& path);

/// Writes `text` to a new file of mode 0600 in the same folder and renames it to `path`. Who reads
/// meanwhile sees the old file or the new one, and of two programs that replace it at once one
/// wins. A link is replaced, not followed; a folder or device is refused. On failure the old file
/// stays and nothing is left behind.
std::int32_t ReplaceFile(const std::string& path, const std::string& text);

/// The same with what `write` writes; what it returns ends it unless that is 0.
std::int32_t ReplaceFile(const std::string& path,
                         const std::function<std::int32_t(OutputFile&)>& write);

/// Creates a folder of mode 0700, and the ones above it that are missing. One that is there already
/// is a success.
std::int32_t CreateFolder(const std::string& path);

/// $XDG_CONFIG_HOME, else $HOME/.config, whether or not it exists; empty when neither variable
/// holds an absolute path.
std::string UserConfigFolder();

}  // namespace netro

// Where the system keeps its configuration files. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// The path of "etc/hosts" and the like: the root and `relative` behind it.
std::string SystemPath(std::string_view relative);

/// The system's own root, without the slash at its end: that of the file system, and on Windows the
/// folder that "etc" is in.
std::string OwnSystemRoot();

/// Puts a folder in the place of the root; an empty text puts the root back.
/// HasSystemRootForTests tells what stands there now, for what the system does not keep in files.
bool HasSystemRootForTests();
void UseSystemRootForTests(std::string root);

}  // namespace netro

// Where the system keeps its configuration files. Any thread.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// The path of "etc/hosts" and the like: the root, which is "/", and `relative` behind it.
std::string SystemPath(std::string_view relative);

/// Puts a folder in the place of the root; an empty text puts the root back.
void UseSystemRootForTests(std::string root);

}  // namespace netro

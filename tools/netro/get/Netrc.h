// The file .netrc, which holds a user's names and passwords for hosts. Thread: any.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace netro::tool {

struct Login {
  std::string user;
  std::string password;
};

/// What a file of this text has for a host: the first "machine" of that name, else "default".
/// Words may stand in quotation marks, with "\" before one; "#" begins a comment; a "macdef" ends
/// with an empty line.
std::optional<Login> FindLogin(std::string_view text, std::string_view host);

/// The text of `file`, or of ~/.netrc when that is empty. Throws UsageError when it cannot be read,
/// or when others may read it: it holds passwords.
std::string ReadNetrc(const std::string& file);

}  // namespace netro::tool

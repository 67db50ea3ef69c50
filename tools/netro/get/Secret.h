// Passwords that do not stand in the command line, and those that do. Thread: the main one.
#pragma once

#include <string>

namespace netro::tool {

/// Asks for a password on the terminal, without showing what is typed. Throws UsageError when there
/// is no terminal to ask on.
std::string AskPassword(const std::string& question);

/// The first line of a file. Throws UsageError when it cannot be read.
std::string ReadPasswordFile(const std::string& option, const std::string& file);

/// Overwrites the secrets among the program's own arguments, as the list of processes shows them to
/// everybody: the passwords behind "--user", "-u", "--proxy", "-x" and in URLs, and the values of
/// header lines like Authorization. To be called once the options have been read.
void BlankSecrets(int argc, char** argv);

}  // namespace netro::tool

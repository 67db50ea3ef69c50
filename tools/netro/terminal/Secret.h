// Passwords that do not stand in the command line, and those that do. Thread: the main one.
#pragma once

#include <string>

namespace netro::tool {

/// True when somebody is there to be asked: at the terminal, or by the program that the environment
/// names for that, NETRO_ASKPASS or SSH_ASKPASS.
bool CanAskPassword();

/// Asks for a password on the terminal, without showing what is typed; where nobody sits at one,
/// that program is run with the question and prints the password. Throws UsageError without an
/// answer.
std::string AskPassword(const std::string& question);

/// The first line of a file; "-" is the next line of standard input, which is not shown while it is
/// typed. Throws UsageError when it cannot be read.
std::string ReadPasswordFile(const std::string& option, const std::string& file);

/// Overwrites the secrets among the program's own arguments, as the list of processes shows them to
/// everybody: the passwords behind "--user", "-u", "--proxy", "-x" and in URLs, good or bad, and
/// the values of header lines like Authorization. To be called once the options have been read.
void BlankSecrets(int argc, char** argv);

}  // namespace netro::tool

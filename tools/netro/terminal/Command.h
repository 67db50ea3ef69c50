// What every subcommand of netro is made of. Each room has a header that declares its own; Main.cpp
// holds the table of them.
#pragma once

#include <functional>
#include <stdexcept>

namespace CLI {
class App;
}

namespace netro::tool {

/// The exit statuses of the command.
enum ExitStatus : int {
  Success = 0,
  QueryFailed = 1,
  WrongUsage = 2,
};

/// Thrown by a subcommand for arguments that only it can judge; the text is shown to the user.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Performs a subcommand whose options have been read; returns the exit status.
using CommandRun = std::function<int()>;

struct Command {
  const char* name;
  const char* summary;
  CommandRun (*setUp)(CLI::App& options);  // declares the options
};

}  // namespace netro::tool

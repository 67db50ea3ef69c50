// The command netro: chooses the subcommand, reads its options, turns every outcome into an exit
// status (Command.h).

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "dns/Dns.h"
#include "doctor/Doctor.h"
#include "get/Get.h"
#include "help/HelpFiles.h"
#include "help/OptionText.h"
#include "mac/Mac.h"
#include "mail/Mail.h"
#include "ping/Ping.h"
#include "terminal/Command.h"
#include "terminal/Interrupt.h"
#include "terminal/JsonOutput.h"
#include "terminal/Nearest.h"
#include "terminal/Secret.h"
#include "terminal/System.h"
#include "terminal/Terminal.h"
#include "time/Time.h"
#include "tour/Tour.h"
#include "trace/Trace.h"
#include "watch/Watch.h"
#include "whois/WhoIs.h"

namespace netro::tool {
namespace {

constexpr Command kCommands[] = {
    {"tour", "Watch every class at work on this computer; needs no network", SetUpTour},
    {"get", "Fetch URLs over HTTP and HTTPS, directly or through a proxy", SetUpGet},
    {"dns", "Ask a DNS server for records of any type, or for a whole zone", SetUpDns},
    {"mail", "Compose a message and send it, to a server or to the mail exchangers", SetUpMail},
    {"check-address", "Check mail addresses: form, mail exchanger, and whether a server takes them",
     SetUpCheckAddress},
    {"time", "Ask a time server what time it is", SetUpTime},
    {"whois", "Ask a WHOIS server about a name", SetUpWhoIs},
    {"ping", "Ask hosts for echoes: who answers, how fast, how much is lost", SetUpPing},
    {"trace", "Find the routers on the way to a host, all hops at once", SetUpTrace},
    {"mac", "Find the MAC address of a neighbour, by ARP or NetBIOS, or the own ones", SetUpMac},
    {"doctor", "Find the layer that is broken on the way to a host: adapter, name, port, TLS ...",
     SetUpDoctor},
    {"watch", "Observe hosts all the time, and report which go down and come up", SetUpWatch},
};

constexpr std::string_view kFooter =
    "\nnetro help COMMAND tells more. Exit status: 0 success, 1 the query failed, 2 wrong usage.";

/// The help without the technical remarks that CLI11 adds to an option's name.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() {
    column_width(28);
    label("SUBCOMMAND", "COMMAND");
    label("Positionals", "Arguments");
  }

  std::string make_option_opts(const CLI::Option* option) const override {
    const bool bare = option->get_type_size() == 0 || option->get_positional();
    return bare ? std::string() : " " + ValueName(*option);
  }

  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override {
    std::string help = CLI::Formatter::make_help(app, name, mode);
    for (std::size_t at = 0; (at = help.find("\n\n\n", at)) != help.npos;) help.erase(at, 1);
    return help;
  }
};

const Command* Find(std::string_view name) {
  for (const Command& command : kCommands) {
    if (name == command.name) return &command;
  }
  return nullptr;
}

/// CLI11 takes "[a,b]" for a list where several values are welcome; with an ending it does not.
constexpr std::string_view kBracketEnding = "]\x1F";

std::vector<std::string> ReadArguments(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  // "help" is another way to say --help.
  if (!arguments.empty() && arguments.front() == "help") {
    arguments.erase(arguments.begin());
    arguments.emplace_back("--help");
  }
  return arguments;
}

std::vector<std::string> ForParser(std::vector<std::string> arguments) {
  for (std::string& argument : arguments) {
    if (argument.ends_with(']')) argument += kBracketEnding.substr(1);
  }
  std::ranges::reverse(arguments);  // the order in which CLI11 wants them
  return arguments;
}

std::string WithoutEnding(std::string argument) {
  if (argument.ends_with(kBracketEnding)) argument.pop_back();
  return argument;
}

/// Tells of what CLI11 would take for a number and nobody means: nothing is 0, 0x10 is 16, and
/// "nan" and "inf" are in the range of some options.
std::string TellOddNumber(const std::string& value) {
  if (value.empty()) return "needs a number";
  return value.find_first_of("nNxX") == value.npos ? "" : "needs a decimal number, not " + value;
}

bool IsNumber(const CLI::Option& option) {
  constexpr std::string_view kNumbers[] = {"BYTES", "COUNT", "FLOAT",   "INT",  "N",
                                           "PORT",  "RATE",  "SECONDS", "SIZE", "UINT"};
  return std::ranges::find(kNumbers, option.get_type_name()) != std::end(kNumbers);
}

/// What is wrong with the arguments, and for whom.
class UsageReport {
 public:
  explicit UsageReport(const std::vector<std::string>& arguments)
      : json_(std::find(arguments.begin(), std::ranges::find(arguments, "--"), "--json") !=
              std::ranges::find(arguments, "--")) {}

  int Tell(const std::string& command, const std::string& text) const {
    ShowMessage(text);
    ShowMessage("see netro help" + (command.empty() ? "" : " " + command));
    if (json_) {
      PrintObject({{"ok", false}, {"error", {{"number", kInvalidArgument}, {"text", text}}}});
    }
    return WrongUsage;
  }

 private:
  static constexpr int kInvalidArgument = 10022;

  const bool json_;
};

std::string UnknownCommand(const std::string& name) {
  std::vector<std::string> known{"help"};
  std::string list;
  for (const Command& command : kCommands) {
    known.emplace_back(command.name);
    list += (list.empty() ? "" : ", ") + known.back();
  }
  const std::string meant = Nearest(name, known);
  return "there is no command \"" + name + "\"" +
         (meant.empty() ? ". The commands are: " + list : "; did you mean " + meant + "?");
}

std::vector<std::string> LongNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

std::string UnknownOption(const CLI::App& app, const std::string& name) {
  const auto commands = app.get_subcommands();
  const std::string meant =
      name.size() < 3 ? "" : Nearest(name, LongNames(commands.empty() ? app : *commands.front()));
  return "there is no option " + name + (meant.empty() ? "" : "; did you mean " + meant + "?");
}

/// An option that does not exist is named by itself: what else does not fit may be its value, or an
/// argument that is missing because of it.
std::string WhatIsWrong(const CLI::App& app, const CLI::ParseError& error) {
  std::string text = error.what();
  for (const std::string& left : app.remaining(true)) {
    if (left.size() < 2 || left.front() != '-' || left == "--") continue;
    text = UnknownOption(app, left.substr(0, left.find('=')));
    break;
  }
  std::erase(text, kBracketEnding.back());
  return text;
}

int RunCommand(const std::string& name, const CommandRun& run, const UsageReport& usage) {
  try {
    return run();
  } catch (const UsageError& error) {
    return usage.Tell(name, error.what());
  } catch (const std::exception& error) {
    ShowMessage(error.what());
    return QueryFailed;
  }
}

using CommandRuns = std::array<CommandRun, std::size(kCommands)>;

/// Declares the options, those of subcommands only of `wanted`, if there is one.
CommandRuns Declare(CLI::App& app, std::string_view wanted) {
  app.formatter(std::make_shared<HelpFormatter>());
  app.footer(std::string(kFooter));
  app.set_help_flag("-h,--help", "Show this help and exit");
  app.set_version_flag("-V,--version", "netro " NETRO_VERSION, "Show the version and exit");
  app.require_subcommand(0, 1);
  CommandRuns runs;
  for (std::size_t i = 0; i < std::size(kCommands); ++i) {
    CLI::App& options = *app.add_subcommand(kCommands[i].name, kCommands[i].summary);
    options.group("Commands");
    if (Find(wanted) != nullptr && wanted != kCommands[i].name) continue;
    runs[i] = kCommands[i].setUp(options);
    for (CLI::Option* option : options.get_options()) {
      option->transform(WithoutEnding);
      if (IsNumber(*option)) option->check(TellOddNumber);
    }
  }
  return runs;
}

int Run(int argc, char** argv) {
  CLI::App app("netro: internet protocols by hand, with the NetroClasses library.", "netro");
  app.allow_windows_style_options(false);  // "/tmp/hosts.ini" is a file on every system
  const std::vector<std::string> arguments = ReadArguments(argc, argv);
  const UsageReport usage(arguments);
  const std::string first = arguments.empty() ? "-" : arguments.front();
  if (!first.starts_with('-') && Find(first) == nullptr) {
    return usage.Tell("", UnknownCommand(first));
  }
  const CommandRuns runs = Declare(app, first);
  // For packages, which install them: man pages and completions.
  if (argc == 4 && argv[1] == std::string("help") && argv[2] == std::string("--write-files")) {
    return WriteHelpFiles(ReadCommandTexts(app), argv[3]) ? Success : QueryFailed;
  }

  const auto chosen = [&app] {
    const auto commands = app.get_subcommands();
    return commands.empty() ? std::string() : commands.front()->get_name();
  };
  try {
    app.parse(ForParser(arguments));
  } catch (const CLI::Success& request) {  // --help, --version
    std::ostringstream text;
    const int status = app.exit(request, text, text);
    Print(text.str());
    return status;
  } catch (const CLI::ParseError& error) {
    return usage.Tell(chosen(), WhatIsWrong(app, error));
  }

  BlankSecrets(argc, argv);

  const Command* command = Find(chosen());
  if (command == nullptr) {
    std::cerr << app.help();
    return WrongUsage;
  }
  return RunCommand(command->name, runs[command - kCommands], usage);
}

}  // namespace
}  // namespace netro::tool

int main(int argc, char** argv) {
  netro::tool::PrepareStreams();
  const int status = netro::tool::FinishOutput(netro::tool::Run(argc, argv));
  netro::tool::DieIfInterrupted();
  return status;
}

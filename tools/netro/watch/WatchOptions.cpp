// The options of "netro watch".

#include "watch/WatchOptions.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <system_error>

#include "terminal/Command.h"

namespace netro::tool {
namespace {

namespace fs = std::filesystem;

/// Empty for what cannot be looked at.
fs::path Canonical(const fs::path& file) {
  std::error_code error;
  return fs::weakly_canonical(fs::absolute(file, error), error);
}

/// Neither has to be there yet.
bool AreSameFile(const fs::path& one, const fs::path& other) {
  const fs::path canonical = Canonical(one);
  return !canonical.empty() && canonical == Canonical(other);
}

void CheckPage(const WatchOptions& options) {
  const fs::path settings = options.settings;
  if (AreSameFile(options.html, settings)) {
    throw UsageError("--html: the page would replace the settings");
  }
  if (AreSameFile(options.html, fs::path(settings).replace_extension("csv"))) {
    throw UsageError("--html: the page would replace the log");
  }
}

constexpr const char* kExamples = R"(
Examples:
  netro watch --example > hosts.ini
  netro watch hosts.ini
  netro watch hosts.ini --html /var/www/html/hosts.html
  netro watch hosts.ini --once

The settings file says which hosts to observe, how, and what to do when one goes down or comes up
again: send a mail, start a program, post to a webhook. Each change is in the log, which is beside
the settings with the ending "csv". --example prints one that works and explains every line.

On a terminal a table shows all hosts; where the window is too small, those that are down come first
and the rest is counted. The reports stay above it. The small line in each row has the recent times,
up to the row's longest (at least 8 ms), with a dot for each failure. Elsewhere, and with --verbose,
there is a line for each change: time (UTC), state, name, host, what the probe said.

SIGHUP reads the settings again; hosts that stay keep what is known of them, and settings that cannot
be used change nothing. Ctrl-C, or SIGTERM, ends the observation, and the command once each report
has been tried; a second Ctrl-C gives these up. The exit status is 0 after SIGTERM. With --once it is 0 when
every host has answered, else 1. It is 2 when the settings cannot be used.

--json prints a line for each change: type ("change"), time, change ("down", "up", "unreachable",
"flapping", "settled", "still down"), state, name, host, kind, behind, ms, text. The last line has
type "end", ok (every host has answered its last probe), interrupted, error (number and text of what
went wrong last, such as a mail; -1 when the page could not be written at the beginning), settings,
started, ended, rounds, the list hosts: name, host, kind ("Ping", "http", "tcp:22" ...), state ("up",
"down", "unreachable" or "unseen"), since, flapping, behind, successes and failures in a row,
last_answer, last_failure, ms, last_probe, uptime (0 to 1 of day, week and month), times (the last 120
in milliseconds, null for a failure), days (at most 31) and outages (begin, end, reason); and the list
changes, at most 500. What is not known is
null.)";

}  // namespace

void DeclareWatchOptions(CLI::App& options, WatchOptions& values) {
  constexpr const char* kOutput = "Output";
  options.add_option("SETTINGS", values.settings, "The settings file");
  options.add_flag("--example", values.example, "Print a settings file that explains itself");
  options.add_flag("--once", values.once, "Probe every host once, wait for the mails, and end");
  options
      .add_option("--html,--page", values.html, "Keep a page that shows the hosts, for browsers")
      ->type_name("FILE")
      ->check([](const std::string& file) {
        return std::string(file.empty() ? "must not be empty" : "");
      })
      ->group(kOutput);
  options.add_flag("-v,--verbose", values.verbose, "Print a line for each probe, and no table")
      ->group(kOutput);
  options
      .add_flag("--json", values.json, "Print JSON lines: one for each change, and one at the end")
      ->group(kOutput);
  DeclareTls(options, values.tls, "TLS (https, webhooks)");
  options.footer(kExamples);
}

void CheckWatchOptions(const WatchOptions& options) {
  const bool hasMore = !options.settings.empty() || !options.html.empty() || options.once ||
                       options.verbose || options.json;
  if (options.example && hasMore) throw UsageError("--example goes alone");
  if (!options.example && options.settings.empty()) {
    throw UsageError("SETTINGS is required; --example prints a file to begin with");
  }
  if (!options.html.empty()) CheckPage(options);
}

}  // namespace netro::tool

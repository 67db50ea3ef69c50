// Writes a log in batches; what the disk could not take is kept for the next one: log_lines FILE
#include <netro/LogfileCLS.h>

#include <iostream>

struct Watcher : netro::LogfileCLSEvents {
  void NewLogfile(std::string& header) override { header = "time;host;event"; }
  void LogError(std::int32_t number, const std::string& text) override {
    std::cerr << number << ' ' << text << '\n';
  }
};

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  Watcher watcher;
  netro::LogfileCLS log;
  log.Events(&watcher);
  log.LogFileName(argv[1]);
  log.BufferSize(50);  // lines in a batch
  if (!log.StartLogging()) return 1;
  log.LogEvent("10:00;web;down");
  log.LogEvent("10:05;web;up\nforged line");  // stays one line
  return log.StopLogging() ? 0 : 1;
}

// What is shown of a fetch while it runs: its news on standard error ("-v"), and a body that goes
// straight to standard output. Thread: the loop's.
#pragma once

#include <netro/HTTPCls.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "get/Fetch.h"
#include "get/GetOptions.h"
#include "terminal/ProgressLines.h"
#include "terminal/Timer.h"

namespace netro::tool {

class FetchEvents final : public HTTPClsEvents {
 public:
  FetchEvents(HTTPCls& http, const Fetch& fetch, const GetOptions& options, ProgressLines& lines);
  ~FetchEvents() override { http_.Events(nullptr); }
  FetchEvents(const FetchEvents&) = delete;
  FetchEvents& operator=(const FetchEvents&) = delete;

  /// A try begins; after the last one nothing is held back for a better one.
  void Begin(bool isLast);
  void End(HttpResult& result);

 private:
  void Status(HTTPCls& http, const std::string& remote) override;
  void Body(HTTPCls& http, std::span<const std::uint8_t> block) override;
  bool IsWanted() const;
  void TellNews();
  std::string TextOf(const HTTPMoment& moment) const;

  HTTPCls& http_;
  const Fetch& fetch_;
  const GetOptions& options_;
  ProgressLines& lines_;
  std::optional<Timer> timer_;  // for what takes its time without an answer
  bool isLast_ = true;
  bool isPrinted_ = false;
  bool isReaderGone_ = false;
  std::size_t told_ = 0;  // moments
};

}  // namespace netro::tool

// Feeds an HTTP answer whole and in pieces: both must give the same. The first byte chooses the
// options, others where to cut; the rest is the answer, after which the connection ends.

#include "fuzz/Fuzz.h"
#include "web/HttpAnswer.h"

namespace {

class Body final : public netro::HttpBodySink {
 public:
  explicit Body(bool take) : take_(take) {}
  void BeginBody() override {}
  bool WriteBody(std::span<const std::uint8_t> bytes) override {
    if (take_) text.append(bytes.begin(), bytes.end());
    return take_;
  }
  std::string text;

 private:
  bool take_;
};

struct Outcome {
  bool complete;
  std::int32_t error;
  std::string text;
  std::string body;
  bool usable;
  bool operator==(const Outcome&) const = default;
};

Outcome Feed(FuzzBytes bytes, const FuzzCuts& cuts, std::uint8_t options) {
  Body body((options & 4) != 0);
  netro::HttpAnswer answer({(options & 1) != 0, (options & 2) != 0}, body);
  cuts.Apply(bytes, [&](FuzzBytes piece) { answer.Feed(piece); });
  const bool usable = answer.LeavesConnectionUsable();
  answer.ConnectionEnded(0);
  answer.Head().Field("Location");
  if (!answer.IsComplete() && answer.Error() == 0) std::abort();
  const bool complete = answer.IsComplete();  // else the text is as far as its block happened to go
  return {complete, answer.Error(), complete ? answer.TakeText() : std::string(), body.text,
          usable};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzBytes bytes(data, size);
  const std::uint8_t options = TakeByte(bytes);
  const FuzzCuts cuts(bytes);
  FuzzBytes none;
  Require(Feed(bytes, FuzzCuts(none), options) == Feed(bytes, cuts, options));
  return 0;
}

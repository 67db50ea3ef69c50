#include <netro/testkit/BytesServer.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace netro::testkit {
namespace {

constexpr auto kPatience = std::chrono::seconds(5);

}  // namespace

Step AwaitText(std::string text) { return {Step::kAwaitText, std::move(text), 0, {}}; }
Step AwaitBytes(std::size_t count) { return {Step::kAwaitBytes, {}, count, {}}; }
Step Send(std::string bytes, std::vector<std::size_t> cuts) {
  return {Step::kSend, std::move(bytes), 0, std::move(cuts)};
}
Step Pause(std::chrono::milliseconds time) { return {Step::kPause, {}, 0, {}, time}; }
Step HalfClose() { return {Step::kHalfClose, {}, 0, {}}; }
Step Close() { return {Step::kClose, {}, 0, {}}; }
Step Reset() { return {Step::kReset, {}, 0, {}}; }
Step Stay() { return {Step::kStay, {}, 0, {}}; }

BytesServer::BytesServer(std::vector<Script> scripts)
    : scripts_(std::move(scripts)),
      server_([this](Connection& connection, std::size_t number) { Play(connection, number); }) {}

std::string BytesServer::Received(std::size_t connection) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, kPatience, [&] { return RecordOf(connection).ended; });
  return RecordOf(connection).received;
}

std::string BytesServer::ReceivedSoFar(std::size_t connection) {
  const std::lock_guard lock(mutex_);
  return RecordOf(connection).received;
}

bool BytesServer::AwaitReceived(std::size_t connection, const std::string& text) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, kPatience, [&] {
    return RecordOf(connection).received.find(text) != std::string::npos;
  });
}

BytesServer::Record& BytesServer::RecordOf(std::size_t number) {
  if (records_.size() <= number) records_.resize(number + 1);
  return records_[number];
}

void BytesServer::Keep(std::size_t number, std::string& block, bool ended) {
  const std::lock_guard lock(mutex_);
  RecordOf(number).received += block;
  RecordOf(number).ended = ended;
  block.clear();
  changed_.notify_all();
}

void BytesServer::Play(Connection& connection, std::size_t number) {
  std::size_t mark = 0;
  bool going = true;
  for (const Step& step : scripts_[std::min(number, scripts_.size() - 1)])
    if (going) going = PlayStep(connection, step, number, mark);
  std::string rest;
  if (going) connection.HalfClose();
  connection.ReadToEnd(rest);
  connection.Close();
  Keep(number, rest, true);
}

// False when nothing can follow any more.
bool BytesServer::PlayStep(Connection& connection, const Step& step, std::size_t number,
                           std::size_t& mark) {
  std::string block;
  switch (step.kind) {
    case Step::kAwaitText:
    case Step::kAwaitBytes:
      return Await(connection, step, number, mark);
    case Step::kSend:
      return connection.SendCut(step.bytes, step.cuts);
    case Step::kPause:
      return connection.Pause(step.time);
    case Step::kHalfClose:
      connection.HalfClose();
      return true;
    case Step::kStay:
      connection.ReadToEnd(block);
      break;
    case Step::kClose:
      connection.ReadAvailable(block);
      connection.Close();
      break;
    case Step::kReset:
      connection.ReadAvailable(block);
      connection.Reset();
      break;
  }
  Keep(number, block, false);
  return false;
}

bool BytesServer::Await(Connection& connection, const Step& step, std::size_t number,
                        std::size_t& mark) {
  std::string block;
  for (;;) {
    const std::string received = ReceivedSoFar(number);
    const std::size_t at = received.find(step.bytes, mark);
    const std::size_t wanted = step.kind == Step::kAwaitBytes ? mark + step.count
                               : at != std::string::npos      ? at + step.bytes.size()
                                                              : std::string::npos;
    if (wanted <= received.size()) {
      mark = wanted;
      return true;
    }
    if (!connection.Read(block)) return false;
    Keep(number, block, false);
  }
}

}  // namespace netro::testkit

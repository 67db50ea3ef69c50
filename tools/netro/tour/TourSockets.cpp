// The part of the tour about SocketCls: connect, send, receive, be closed.

#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>

#include <chrono>
#include <string>

#include "terminal/Timer.h"
#include "tour/TourSections.h"
#include "tour/TourServers.h"

namespace netro::tool {
namespace {

constexpr const char* kGreeting = "Hello, echo.\n";

/// Sends one line and notes every event in order; ends the loop when the server has closed.
class EchoClient : public SocketClsEvents {
 public:
  explicit EchoClient(std::int32_t port) {
    socket_.Events(this);
    if (!socket_.Connect("127.0.0.1", port)) Note("Connect failed: " + socket_.LastSocketErrMsg());
  }

  const std::string& Received() const { return received_; }
  const std::string& EventNames() const { return eventNames_; }

 private:
  void Connect() override {
    Note("Connect");
    socket_.SendData(kGreeting);
  }
  void SendComplete() override { Note("SendComplete"); }
  void DataArrival(const Bytes& BinData, const std::string&) override {
    Note("DataArrival");
    received_.append(BinData.begin(), BinData.end());
  }
  void Closed() override {
    Note("Closed");
    MessageLoop::ForThisThread().QuitLoop();
  }
  void Error(std::int32_t, const std::string& Description) override {
    Note("Error: " + Description);
    MessageLoop::ForThisThread().QuitLoop();
  }

  void Note(const std::string& event) { eventNames_ += (eventNames_.empty() ? "" : ", ") + event; }

  SocketCls socket_;
  std::string received_;
  std::string eventNames_;
};

}  // namespace

void TourSockets(TourReport& report) {
  TourJournal journal;
  const TourServer server(EchoServer(journal));
  TourStep step;
  step.title = "Connect, send a line, receive it again";
  step.call = "SocketCls.Connect(\"127.0.0.1\", " + std::to_string(server.Port()) + ")";

  const auto begin = std::chrono::steady_clock::now();
  const EchoClient client(server.Port());
  const Timer limit(2000, [] { MessageLoop::ForThisThread().QuitLoop(); });
  MessageLoop::ForThisThread().RunLoop();
  step.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();

  step.messages = journal.Take();
  step.outcome = "events " + client.EventNames();
  step.asExpected = client.Received() == kGreeting && client.EventNames().ends_with("Closed");
  report.Add(std::move(step));
}

}  // namespace netro::tool

// Messages to a mail server that does nothing but answer: it counts the bytes of each and throws
// them away.

#include "bench/MailCases.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "bench/Cases.h"
#include "bench/Delivery.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

constexpr std::string_view kEndOfData = "\r\n.\r\n";
constexpr std::size_t kBlock = 256 * 1024;

std::string_view Receive(int fd, std::vector<char>& block) {
  const ssize_t got = recv(fd, block.data(), block.size(), 0);
  return {block.data(), got > 0 ? static_cast<std::size_t>(got) : 0};
}

/// A client waits for the reply, so nothing comes behind the end of a command or of the data.
std::string ReceiveCommand(int fd, std::vector<char>& block) {
  std::string command;
  while (!command.ends_with("\r\n")) {
    const std::string_view got = Receive(fd, block);
    if (got.empty()) {
      return {};
    }
    command += got;
  }
  return command;
}

std::size_t ReceiveData(int fd, std::vector<char>& block) {
  std::size_t size = 0;
  std::string tail;
  while (tail != kEndOfData) {
    const std::string_view got = Receive(fd, block);
    if (got.empty()) {
      return 0;
    }
    size += got.size();
    tail += got.substr(got.size() - std::min(got.size(), kEndOfData.size()));
    tail.erase(0, tail.size() - std::min(tail.size(), kEndOfData.size()));
  }
  return size;
}

void ServeSession(int fd, std::size_t size, std::vector<char>& block) {
  SendAll(fd, "220 bench\r\n");
  for (;;) {
    const std::string command = ReceiveCommand(fd, block);
    if (command.empty() || command.starts_with("QUIT")) {
      SendAll(fd, "221 bye\r\n");
      return;
    }
    if (!command.starts_with("DATA")) {
      SendAll(fd, "250 ok\r\n");
      continue;
    }
    SendAll(fd, "354 go on\r\n");
    SendAll(fd, ReceiveData(fd, block) == size ? "250 ok\r\n" : "554 not all of it\r\n");
  }
}

void Serve(int listening, std::size_t messageSize) {
  std::vector<char> block(kBlock);
  for (int fd = 0; (fd = accept(listening, nullptr, nullptr)) >= 0; close(fd)) {
    ServeSession(fd, messageSize + kEndOfData.size(), block);
  }
}

std::string MessageOf(std::size_t size) {
  std::string message = "From: a@x.test\r\nTo: b@x.test\r\nSubject: measured\r\n\r\n";
  while (message.size() < size) {
    message.append(76, 'x').append("\r\n");
  }
  message.resize(size, 'x');
  return message;
}

using Deliverer = decltype(&NetroDeliver);

std::string DeliverAll(Deliverer deliver, std::size_t size, int repetitions, Stopwatch& watch) {
  Delivery delivery{0, MessageOf(size), repetitions};
  const int listening = ListenOnLoopback(delivery.port);
  if (listening < 0) {
    return "no mail server";
  }
  const ChildProcess server([&] { Serve(listening, size); });
  close(listening);
  return deliver(delivery, watch);
}

void AddBesideCurl(const std::string& name, const std::string& unit, double units, std::size_t size,
                   int repetitions) {
#ifdef NETRO_HAVE_CURL
  AddCase({name, "libcurl", unit, units, "", [size, repetitions](Stopwatch& watch) {
             return DeliverAll(CurlDeliver, size, repetitions, watch);
           }});
#endif
  AddCase({name, "netro", unit, units, name + "/libcurl", [size, repetitions](Stopwatch& watch) {
             return DeliverAll(NetroDeliver, size, repetitions, watch);
           }});
}

}  // namespace

void AddMailCases() {
#ifndef NETRO_HAVE_CURL
  std::fprintf(stderr, "left out: libcurl\n");
#endif
  constexpr int kSmall = 5000;
  constexpr int kLarge = 40;
  AddBesideCurl("mail of 1 KB", "messages", kSmall, 1000, kSmall);
  AddBesideCurl("mail of 25 MB", "MB", 25 * kLarge, 25'000'000, kLarge);
}

}  // namespace netro::bench

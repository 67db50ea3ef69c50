#include "Dig.h"

#include <algorithm>
#include <sstream>

#include "ServerProcess.h"

namespace netro::interop {
namespace {

// A line of an answer, "www.test. 300 IN TYPE1 \# 4 0A010203", without the last dot of the name;
// how data reads is in the tests of the command.
std::string Describe(const std::string& line) {
  std::istringstream stream(line);
  std::string name, ttl, dnsClass, type;
  stream >> name >> ttl >> dnsClass >> type;
  if (name.ends_with('.')) name.pop_back();
  return name + " " + ttl + " " + type;
}

// A record of the client in the same form.
std::string Describe(const DNSCLS& record) {
  return record.Query() + " " + std::to_string(static_cast<std::int64_t>(record.TTL())) + " TYPE" +
         std::to_string(record.DataType());
}

// ";; flags: qr aa rd; QUERY: 1, ..."
std::string Field(const std::string& line, const std::string& label, char end) {
  const std::size_t at = line.find(label) + label.size();
  return line.substr(at, line.find(end, at) - at);
}

void ReadComment(const std::string& line, std::vector<DigReply>& replies, std::size_t& section) {
  if (line.starts_with(";; ->>HEADER<<-")) {
    replies.emplace_back().status = Field(line, "status: ", ',');
    section = 0;
  }
  if (line.starts_with(";; flags:")) replies.back().flags = Field(line, ";; flags:", ';');
  if (line.starts_with(";; AUTHORITY SECTION")) section = 1;
  if (line.starts_with(";; ADDITIONAL SECTION")) section = 2;
}

}  // namespace

bool DigReply::HasFlag(const std::string& flag) const {
  return (flags + " ").find(" " + flag + " ") != std::string::npos;
}

std::vector<DigReply> Dig(int port, const std::vector<std::string>& words) {
  std::vector<std::string> command = {
      "dig",    "-r",       "@127.0.0.1",  "-p",       std::to_string(port), "+noedns",
      "+nocmd", "+nostats", "+noquestion", "+nosplit", "+unknownformat"};
  command.insert(command.end(), words.begin(), words.end());
  std::istringstream lines(Run(command));
  std::vector<DigReply> replies;
  std::size_t section = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(';')) ReadComment(line, replies, section);
    if (line.empty() || line.starts_with(';')) continue;
    if (replies.empty()) replies.emplace_back();
    replies.back().sections.at(section).push_back(Describe(line));
  }
  for (DigReply& reply : replies)
    for (Records& records : reply.sections) std::ranges::sort(records);
  return replies;
}

Sections SectionsOf(const QueryDNSCLS& dns) {
  Sections sections;
  for (std::int32_t i = 1; i <= dns.CountAN(); ++i)
    sections[0].push_back(Describe(*dns.EntryAN(i)));
  for (std::int32_t i = 1; i <= dns.CountNS(); ++i)
    sections[1].push_back(Describe(*dns.EntryNS(i)));
  for (std::int32_t i = 1; i <= dns.CountAR(); ++i)
    sections[2].push_back(Describe(*dns.EntryAR(i)));
  for (Records& records : sections) std::ranges::sort(records);
  return sections;
}

}  // namespace netro::interop

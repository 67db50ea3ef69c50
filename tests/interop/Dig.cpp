#include "Dig.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <sstream>

#include "ServerProcess.h"

namespace netro::interop {
namespace {

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

// One character of a zone file, which may be escaped as "\." or "\046".
char TakeCharacter(const std::string& text, std::size_t& at) {
  if (text[at] != '\\') return text[at++];
  if (std::isdigit(static_cast<unsigned char>(text.at(at + 1))) == 0) return at += 2, text[at - 1];
  at += 4;
  return static_cast<char>(std::stoi(text.substr(at - 3, 3)));
}

// A name without its last dot, as bytes.
std::string Name(const std::string& text) {
  std::string name;
  for (std::size_t at = 0; at < text.size();) name += TakeCharacter(text, at);
  if (name.ends_with('.')) name.pop_back();
  return name;
}

// A line of an answer, "www.test. 300 IN TYPE1 \# 4 0A010203"; how data reads is in the tests of
// the command.
std::string Describe(const std::string& line) {
  const auto words = Words(line);
  return Name(words.at(0)) + " " + words.at(1) + " " + words.at(3);
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

std::string RunDig(int port, const std::vector<std::string>& words) {
  std::vector<std::string> command = {
      "dig",     "-r",     "@127.0.0.1", "-p",          std::to_string(port),
      "+noedns", "+nocmd", "+nostats",   "+noquestion", "+nosplit"};
  command.insert(command.end(), words.begin(), words.end());
  return Run(command);
}

}  // namespace

bool DigReply::HasFlag(const std::string& flag) const {
  return (flags + " ").find(" " + flag + " ") != std::string::npos;
}

std::vector<DigReply> Dig(int port, const std::vector<std::string>& words) {
  std::vector<std::string> all = {"+unknownformat"};
  all.insert(all.end(), words.begin(), words.end());
  std::istringstream lines(RunDig(port, all));
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

Records DigLines(int port, const std::vector<std::string>& words) {
  return RecordLines(RunDig(port, words));
}

Records RecordLines(const std::string& output) {
  std::istringstream lines(output);
  Records records;
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line.starts_with(';')) continue;
    std::string& record = records.emplace_back();
    for (const std::string& word : Words(line)) record += (record.empty() ? "" : " ") + word;
  }
  std::ranges::sort(records);
  return records;
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

std::string Describe(const DNSCLS& record) {
  std::ostringstream text;
  text.precision(12);
  text << record.Query() << " " << record.TTL() << " TYPE" << record.DataType();
  return text.str();
}

}  // namespace netro::interop

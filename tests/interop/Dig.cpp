#include "Dig.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string_view>

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

// Quoted strings with blanks between.
std::vector<std::string> Strings(const std::string& text) {
  std::vector<std::string> strings;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '"') continue;
    std::string& string = strings.emplace_back();
    for (++at; text.at(at) != '"';) string += TakeCharacter(text, at);
  }
  return strings;
}

std::string Quoted(const std::vector<std::string>& strings) {
  std::string text;
  for (const std::string& string : strings) {
    text += text.empty() ? "\"" : " \"";
    for (const char c : string) text += (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
    text += '"';
  }
  return text;
}

std::int16_t Signed16(const std::string& number) {
  return static_cast<std::int16_t>(std::stoi(number));
}

std::int32_t Signed32(const std::string& number) {
  return static_cast<std::int32_t>(std::stoll(number));
}

// The readers of data by type: what dig prints, into the properties.

void ReadPlain(const std::string& data, DNSCLS& record) { record.Data(data); }

void ReadName(const std::string& data, DNSCLS& record) { record.Data(Name(data)); }

void ReadTwoNames(const std::string& data, DNSCLS& record) {
  const auto words = Words(data);
  record.Data(Name(words.at(0)) + " " + Name(words.at(1)));
}

void ReadPreference(const std::string& data, DNSCLS& record) {
  const auto words = Words(data);
  record.Pref(Signed16(words.at(0)));
  record.Data(Name(words.at(1)));
}

void ReadAfs(const std::string& data, DNSCLS& record) {
  ReadPreference(data, record);
  if (record.Pref() == 1) record.Data("[AFS] " + record.Data());
  if (record.Pref() == 2) record.Data("[DCE] " + record.Data());
}

void ReadService(const std::string& data, DNSCLS& record) {
  const auto words = Words(data);
  record.SVR_Pref(Signed16(words.at(0)));
  record.SVR_Weight(std::stoi(words.at(1)));
  record.SVR_Port(std::stoi(words.at(2)));
  record.Data(Name(words.at(3)));
}

void ReadStart(const std::string& data, DNSCLS& record) {
  const auto words = Words(data);
  record.Data(Name(words.at(0)));
  record.SOA_RName(Name(words.at(1)));
  record.SOA_Serial(std::stod(words.at(2)));
  record.SOA_Refresh(Signed32(words.at(3)));
  record.SOA_Retry(Signed32(words.at(4)));
  record.SOA_Expire(Signed32(words.at(5)));
  record.SOA_Minimum(Signed32(words.at(6)));
}

void ReadStrings(const std::string& data, DNSCLS& record) {
  const auto strings = Strings(data);
  record.Data(strings.size() == 1 ? strings[0] : Quoted(strings));
}

void ReadQuoted(const std::string& data, DNSCLS& record) { record.Data(Quoted(Strings(data))); }

void ReadAddress6(const std::string& data, DNSCLS& record) {
  in6_addr address{};
  inet_pton(AF_INET6, data.c_str(), &address);
  std::string text;
  for (int i = 0; i < 16; ++i) {
    text += i > 0 && i % 2 == 0 ? ":" : "";
    text += "0123456789abcdef"[address.s6_addr[i] >> 4];
    text += "0123456789abcdef"[address.s6_addr[i] & 15];
  }
  record.Data(text);
}

// "10.0.0.1 6 25 80": the ports are bits, the first one leftmost.
void ReadServices(const std::string& data, DNSCLS& record) {
  const auto words = Words(data);
  std::string bits;
  for (std::size_t i = 2; i < words.size(); ++i) {
    const auto port = static_cast<std::size_t>(std::stoi(words[i]));
    bits.resize(std::max(bits.size(), (port / 8 + 1) * 8), '0');
    bits[port] = '1';
  }
  std::string text = words.at(0) + " " + words.at(1);
  for (std::size_t i = 0; i < bits.size(); i += 8) text += " " + bits.substr(i, 8);
  record.Data(text);
}

void ReadAtm(const std::string& data, DNSCLS& record) {
  if (data[0] == '+') return record.Data("(E164) " + data.substr(1));
  std::string digits = data;
  for (char& c : digits) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  record.Data("(NSAP) " + digits);
}

// "20m" or "-2.50m" in centimetres.
std::int64_t Centimetres(const std::string& length) {
  std::string digits = length.substr(0, length.size() - 1);
  const std::size_t point = digits.find('.');
  if (point == std::string::npos) return std::stoll(digits) * 100;
  return std::stoll(digits.erase(point, 1));
}

std::int32_t MantissaAndExponent(std::int64_t centimetres) {
  std::int32_t exponent = 0;
  for (; centimetres >= 10; centimetres /= 10) ++exponent;
  return static_cast<std::int32_t>(centimetres << 4) | exponent;
}

double Angle(const std::string* words) {
  const double size = (std::stod(words[0]) * 60 + std::stod(words[1])) * 60 + std::stod(words[2]);
  const bool positive = words[3] == "N" || words[3] == "E";
  return 2147483648.0 + static_cast<double>(std::llround(size * 1000)) * (positive ? 1 : -1);
}

std::string Coordinate(const std::string* words) {
  return words[0] + " " + words[1] + " " + words[2] + " " + words[3];
}

// "52 22 23.000 N 4 53 32.000 E -2.00m 1m 10000m 10m"
void ReadLocation(const std::string& data, DNSCLS& record) {
  const auto words = Words(data);
  record.LOC_LATITUDE(Angle(&words.at(0)));
  record.LOC_LATITUDE_COORD(Coordinate(&words.at(0)));
  record.LOC_LONGITUDE(Angle(&words.at(4)));
  record.LOC_LONGITUDE_COORD(Coordinate(&words.at(4)));
  record.LOC_ALTITUDE(static_cast<std::int32_t>(Centimetres(words.at(8)) + 10'000'000));
  record.LOC_SIZE(MantissaAndExponent(Centimetres(words.at(9))));
  record.LOC_HORIZ_PRE(MantissaAndExponent(Centimetres(words.at(10))));
  record.LOC_VERT_PRE(MantissaAndExponent(Centimetres(words.at(11))));
  record.Data(data);
}

// "\# 4 0A00 0001", the form for data of any type (RFC 3597, section 5).
void ReadUnknown(const std::string& data, DNSCLS& record) {
  std::string dump;
  std::size_t digits = 0;
  for (const char c : data.substr(std::min(data.size(), data.find(' ', 3)))) {
    if (c == ' ') continue;
    if (digits > 0 && digits % 2 == 0) dump += ' ';
    dump += c;
    ++digits;
  }
  record.Data(dump);
}

struct TypeReader {
  const char* name;
  QueryEnum type;
  void (*read)(const std::string& data, DNSCLS& record);
};

constexpr TypeReader kReaders[] = {
    {"A", TYPE_A, ReadPlain},
    {"NS", TYPE_NS, ReadName},
    {"CNAME", TYPE_CNAME, ReadName},
    {"SOA", TYPE_SOA, ReadStart},
    {"MB", TYPE_MB, ReadName},
    {"MG", TYPE_MG, ReadName},
    {"MR", TYPE_MR, ReadName},
    {"WKS", TYPE_WKS, ReadServices},
    {"PTR", TYPE_PTR, ReadName},
    {"HINFO", TYPE_HINFO, ReadQuoted},
    {"MINFO", TYPE_MINFO, ReadTwoNames},
    {"MX", TYPE_MX, ReadPreference},
    {"TXT", TYPE_TXT, ReadStrings},
    {"RP", TYPE_RP, ReadTwoNames},
    {"AFSDB", TYPE_AFSDB, ReadAfs},
    {"X25", TYPE_X25, ReadStrings},
    {"ISDN", TYPE_ISDN, ReadStrings},
    {"RT", TYPE_RT, ReadPreference},
    {"AAAA", TYPE_AAAA, ReadAddress6},
    {"LOC", TYPE_LOC, ReadLocation},
    {"SRV", TYPE_SRV, ReadService},
    {"ATMA", TYPE_ATMA, ReadAtm},
};

// A line of an answer: owner, TTL, class, type, and the data up to the end.
DNSCLS ReadLine(const std::string& line) {
  std::istringstream stream(line);
  std::string owner, ttl, classText, type, data;
  stream >> owner >> ttl >> classText >> type >> std::ws;
  std::getline(stream, data);
  DNSCLS record;
  record.Query(Name(owner));
  record.TTL(std::stod(ttl));
  if (type.starts_with("TYPE")) {
    record.DataType(std::stoi(type.substr(4)));
    ReadUnknown(data, record);
    return record;
  }
  const auto* reader = std::ranges::find(kReaders, type, &TypeReader::name);
  if (reader == std::end(kReaders)) return record.Data("dig: " + line), record;
  record.DataType(reader->type);
  reader->read(data, record);
  return record;
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
  std::istringstream lines(RunDig(port, words));
  std::vector<DigReply> replies;
  std::size_t section = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(';')) ReadComment(line, replies, section);
    if (line.empty() || line.starts_with(';')) continue;
    if (replies.empty()) replies.emplace_back();
    replies.back().sections.at(section).push_back(Describe(ReadLine(line)));
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
  text << record.Query() << " | " << record.TTL() << " | type " << record.DataType() << " | "
       << record.Data() << " | " << record.Pref() << " | " << record.SVR_Pref() << " "
       << record.SVR_Weight() << " " << record.SVR_Port() << " | " << record.SOA_RName() << " "
       << record.SOA_Serial() << " " << record.SOA_Refresh() << " " << record.SOA_Retry() << " "
       << record.SOA_Expire() << " " << record.SOA_Minimum() << " | " << record.LOC_SIZE() << " "
       << record.LOC_HORIZ_PRE() << " " << record.LOC_VERT_PRE() << " " << record.LOC_LATITUDE()
       << " " << record.LOC_LATITUDE_COORD() << " " << record.LOC_LONGITUDE() << " "
       << record.LOC_LONGITUDE_COORD() << " " << record.LOC_ALTITUDE();
  return text.str();
}

}  // namespace netro::interop

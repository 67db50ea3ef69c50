// Records as zone files have them: data of every type, names, lines, a whole zone.
#include <netro/RecordText.h>

#include <fstream>
#include <sstream>

#include "DnsTestKit.h"

namespace netro {
namespace {

using namespace testkit::dns;

std::string FromHex(const std::string& digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

DNSCLS NameServer(const std::string& owner, const std::string& host) {
  DNSCLS record;
  record.Query(owner);
  record.DataType(TYPE_NS);
  record.TTL(4294967295.0);
  record.Data(host);
  return record;
}

TEST(RecordText, EveryType) {
  std::ifstream table(NETRO_DNS_RECORDS);
  int count = 0;
  for (std::string line; std::getline(table, line);) {
    if (line.starts_with('#')) continue;
    std::istringstream words(line);
    int number = 0;
    std::string name, digits, text;
    std::getline(words >> number >> name >> digits >> std::ws, text);
    EXPECT_EQ(RecordTypeText(number), name);
    EXPECT_EQ(RecordTypeNumber(name), number);
    EXPECT_EQ(RecordDataText(number, FromHex(digits)), text) << line;
    ++count;
  }
  EXPECT_GT(count, 100);
}

TEST(RecordText, BytesThatDoNotFitTheirType) {
  const std::pair<int, std::string> rows[] = {{TYPE_A, "C00002"},
                                              {TYPE_A, "C000020100"},
                                              {TYPE_MX, "000AC00C"},
                                              {TYPE_MX, "000A"},
                                              {TYPE_TXT, ""},
                                              {TYPE_ATMA, "0141"},
                                              {TYPE_ATMA, "00"},
                                              {TYPE_LOC, "0100"},
                                              {TYPE_SOA, "0000"},
                                              {257, "0005697373"},
                                              {64, "00000003000300"},
                                              {-1, "00"},
                                              {39, "3F" + std::string(126, '4') + "00" + "41"},
                                              {70000, "0102"}};
  for (const auto& [type, digits] : rows) {
    const std::string text = "\\# " + std::to_string(digits.size() / 2);
    EXPECT_EQ(RecordDataText(type, FromHex(digits)), text + (digits.empty() ? "" : " " + digits));
  }
  std::string longName;  // 256 bytes, of labels that are none too long
  for (int i = 0; i < 4; ++i) longName += '\x3e' + std::string(62, 'a');
  EXPECT_TRUE(RecordDataText(TYPE_NS, longName + "\2aa\0"s).starts_with("\\# 256 "));
  EXPECT_FALSE(RecordDataText(TYPE_NS, longName + "\1a\0"s).starts_with("\\#"));
}

TEST(RecordText, TypeNumbers) {
  for (const auto& [text, number] :
       std::initializer_list<std::pair<const char*, int>>{{"mx", 15},
                                                          {"TYPE15", 15},
                                                          {"type65535", 65535},
                                                          {"65", 65},
                                                          {"ANY", 255},
                                                          {"all", 255},
                                                          {"", 0},
                                                          {"TYPE", 0},
                                                          {"0", 0},
                                                          {"65536", 0},
                                                          {"TYPE1x", 0},
                                                          {"MX ", 0}}) {
    EXPECT_EQ(RecordTypeNumber(text).value_or(0), number) << text;
  }
  EXPECT_EQ(RecordTypeText(65280), "TYPE65280");
}

TEST(RecordText, Names) {
  const std::pair<std::string, std::string> rows[] = {{"", "."},
                                                      {".", "."},
                                                      {"a.test", "a.test."},
                                                      {"a.test.", "a.test."},
                                                      {"a b.test", R"(a\032b.test.)"},
                                                      {R"(a\.b.test)", R"(a\.b.test.)"},
                                                      {R"(a\.)", R"(a\..)"},
                                                      {R"(\065\200)", R"(A\200.)"},
                                                      {"a\nb;c\x1b", R"(a\010b\;c\027.)"},
                                                      {"a..test", "a..test."},
                                                      {"a. \xff..", R"(a.\032\255..)"},
                                                      {R"(a\256)", R"(a\256.)"}};
  for (const auto& [name, text] : rows) EXPECT_EQ(RecordNameText(name), text);
}

TEST(RecordText, LineOfARecordThatAProgramMade) {
  EXPECT_EQ(RecordLineText(NameServer("a.test", "n s.test")),
            R"(a.test. 4294967295 IN NS n\032s.test.)");
  DNSCLS record = NameServer("", "192.0.2.1\nb.test. 1 IN A 192.0.2.2");
  record.DataType(TYPE_A);
  EXPECT_EQ(RecordDataText(record), R"("192.0.2.1\010b.test. 1 IN A 192.0.2.2")");
}

TEST(RecordText, ZoneFile) {
  const auto transferred = [](const std::string& records) {
    const auto stream = [=](const std::string& query) {
      DnsReply reply(query);
      reply.Answer(SoaRecord()).Answer(HostRecord(1));
      if (!records.empty()) reply.Answer(records);
      return Framed(reply.Bytes());
    };
    const auto server = OverTcp(stream, StreamEnd::kClose);
    QueryDNSCLS dns;
    PointAt(dns, server.Port(), TYPE_AXFR, "test");
    dns.EscapeNames(true);
    dns.QueryZone();
    return ZoneFileText(dns);
  };
  const std::string zone = transferred(SoaRecord());
  EXPECT_TRUE(zone.starts_with("test. ") && zone.ends_with(" IN A 10.0.0.1\n")) << zone;
  EXPECT_EQ(std::ranges::count(zone, '\n'), 2);
  EXPECT_EQ(transferred(""), zone);  // which ended early
  EXPECT_EQ(ZoneFileText(QueryDNSCLS()), "");
}

}  // namespace
}  // namespace netro

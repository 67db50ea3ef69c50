// The DNS server of the tour: a table of records, and messages without compression.

#include "tour/TourDnsServer.h"

#include <arpa/inet.h>
#include <netro/QueryDNSCLS.h>
#include <netro/RecordText.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <vector>

#include "dns/QuestionName.h"

namespace netro::tool {
namespace {

using namespace std::string_literals;

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kTypeAndClass = 4;

struct TourRecord {
  std::string_view owner;
  std::int32_t type;
  std::string data;
};

std::string Number16(std::size_t number) {
  return {static_cast<char>(number >> 8 & 255), static_cast<char>(number & 255)};
}

std::size_t ReadNumber16(std::string_view bytes, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes[i]); };
  return byte(at) * std::size_t{256} + byte(at + 1);
}

/// "palace.agrabah.tour." as it goes over the wire.
std::string WireName(std::string_view name) {
  std::string wire;
  while (!name.empty()) {
    const std::string_view label = name.substr(0, name.find('.'));
    wire += static_cast<char>(label.size());
    wire += label;
    name.remove_prefix(label.size() + 1);
  }
  return wire + '\0';
}

/// The first one is the start of the zone.
const std::vector<TourRecord>& Records() {
  static const std::vector<TourRecord> records = {
      {"agrabah.tour.", TYPE_SOA,
       WireName("ns.agrabah.tour.") + WireName("genie.agrabah.tour.") +
           "\0\0\0\1\0\0\16\20\0\0\3\x84\0\1\x51\x80\0\0\1\x2c"s},
      {"agrabah.tour.", TYPE_MX, "\0\12"s + WireName("palace.agrabah.tour.")},
      {"agrabah.tour.", TYPE_TXT, "\14three wishes\7no more"s},
      {"palace.agrabah.tour.", TYPE_A, "\xC0\0\2\1"s},
      {"bazaar.tour.", TYPE_MX, "\0\12"s + WireName("post.bazaar.tour.")},
      {"post.bazaar.tour.", TYPE_A, "\x7F\0\0\1"s},
      {"1.2.0.192.in-addr.arpa.", TYPE_PTR, WireName("palace.agrabah.tour.")},
  };
  return records;
}

std::string WireRecord(const TourRecord& record) {
  constexpr std::string_view kClassAndTtl("\0\1\0\0\1\x2c", 6);
  return WireName(record.owner) + Number16(static_cast<std::size_t>(record.type)) +
         std::string(kClassAndTtl) + Number16(record.data.size()) + record.data;
}

/// A query taken apart; only its own client sends to this server, so that little can be wrong.
struct Query {
  explicit Query(const std::string& message) : bytes(message) {
    const std::size_t nameSize = QuestionNameBytes(bytes).size();
    questionSize = nameSize + kTypeAndClass;
    good = nameSize > 0 && bytes.size() >= kHeaderSize + questionSize;
    if (!good) return;
    name = QuestionNameText(bytes);
    // Lookups mix the case of the letters, and the reply must repeat it; an OPT record may follow.
    std::ranges::transform(name, name.begin(), [](char c) {
      return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    });
    type = static_cast<std::int32_t>(ReadNumber16(bytes, kHeaderSize + nameSize));
  }

  std::string Meaning() const { return name + " " + RecordTypeText(type) + "?"; }

  const std::string& bytes;
  std::string name;
  std::int32_t type = 0;
  std::size_t questionSize = 0;
  bool good = false;
};

struct Reply {
  std::string bytes;
  std::string meaning;
};

/// ID and question of the query, flags QR and AA, and the records.
Reply MakeReply(const Query& query, const std::vector<const TourRecord*>& records) {
  constexpr char kNameError = 3;
  Reply reply;
  reply.bytes = query.bytes.substr(0, 2) + '\x84' + (records.empty() ? kNameError : '\0') +
                Number16(1) + Number16(records.size()) + "\0\0\0\0"s +
                query.bytes.substr(kHeaderSize, query.questionSize);
  for (const TourRecord* record : records) reply.bytes += WireRecord(*record);
  reply.meaning = records.empty() ? "no such name" : std::to_string(records.size()) + " record";
  reply.meaning += records.size() > 1 ? "s" : "";
  return reply;
}

std::vector<Reply> Answer(const Query& query) {
  const std::vector<TourRecord>& all = Records();
  std::vector<const TourRecord*> found;
  for (const TourRecord& record : all) {
    const bool inZone = query.type == TYPE_AXFR && record.owner.ends_with(query.name);
    if (inZone || (record.owner == query.name && record.type == query.type)) {
      found.push_back(&record);
    }
  }
  if (query.type != TYPE_AXFR || found.empty()) return {MakeReply(query, found)};
  return {MakeReply(query, found), MakeReply(query, {&all.front()})};
}

/// Messages with their length in front.
class DnsPeer : public TourPeer {
 public:
  explicit DnsPeer(TourJournal& journal) : TourPeer("DNS over TCP", journal) {}

 private:
  void Receive() override {
    if (input_.size() < 2 || input_.size() < 2 + ReadNumber16(input_, 0)) return;
    const std::string message = input_.substr(2, ReadNumber16(input_, 0));
    const Query query(message);
    if (!query.good) return;
    Record(input_.substr(0, message.size() + 2), query.Meaning());
    input_.erase(0, message.size() + 2);
    for (const Reply& reply : Answer(query)) {
      Send(Number16(reply.bytes.size()) + reply.bytes, reply.meaning);
    }
  }
};

}  // namespace

TourDnsServer::TourDnsServer(TourJournal& journal)
    : journal_(journal), tcp_([&journal] { return std::make_unique<DnsPeer>(journal); }) {
  socket_.Events(this);
  socket_.UseUDP(true);
  socket_.Listen("127.0.0.1");
}

void TourDnsServer::DataArrival(const Bytes& BinData, const std::string&) {
  const std::string message(BinData.begin(), BinData.end());
  const Query query(message);
  if (!query.good) return;
  ++udpQueries_;
  journal_.Add({"DNS over UDP", true, message, query.Meaning()});
  const Reply reply = Answer(query).front();
  journal_.Add({"DNS over UDP", false, reply.bytes, reply.meaning});

  sockaddr_in client{};
  client.sin_family = AF_INET;
  client.sin_port = htons(static_cast<std::uint16_t>(socket_.RemotePort()));
  ::inet_pton(AF_INET, socket_.RemoteIP().c_str(), &client.sin_addr);
  // The listening socket itself answers, since a client takes replies from there only.
  (void)::sendto(socket_.SocketHandle(), reply.bytes.data(), static_cast<int>(reply.bytes.size()),
                 0, reinterpret_cast<const sockaddr*>(&client), sizeof client);
}

}  // namespace netro::tool

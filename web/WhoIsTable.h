// Which WHOIS server knows what, and how each wants to be asked: a table that the user gives, as
// text. Pure; any thread.
//
//   # what              server                  how it is asked
//   .example            whois.nic.example       domain NAME
//   192.0.2.0/24        whois.rir.example:4343  n + NAME
//   2001:db8::/32       whois.rir.example
//   AS64496-AS64511     whois.rir.example       a + NAME
//   -                   whois.rir.example       n + NAME    (asks there so; knows nothing itself)
//   *                   whois.start.example
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Address.h"
#include "web/WhoIsReferral.h"

namespace netro {

class WhoIsTable {
 public:
  /// Takes the place of what was there. Returns a text for each line that cannot be read, which is
  /// left out.
  std::vector<std::string> Read(std::string_view text);

  /// The server for what is asked, of the narrowest line that fits.
  std::optional<WhoIsServer> ServerFor(std::string_view query) const;
  /// The query as this server wants it: by the narrowest of its lines that fits, else its "-".
  std::string QueryFor(const WhoIsServer& server, const std::string& query) const;

 private:
  enum class Kind { Nothing, Domain, Network, Systems, All };
  struct Entry {
    Kind kind = Kind::Nothing;
    std::string domain;  // ".example"
    IpAddress network;
    std::size_t bits = 0;
    std::uint32_t firstSystem = 0;
    std::uint32_t lastSystem = 0;
    WhoIsServer server;
    std::string form;
  };

  static bool ReadPattern(std::string_view pattern, Entry& entry);
  static bool ReadNetwork(std::string_view pattern, Entry& entry);
  static bool ReadSystems(std::string_view pattern, Entry& entry);
  static std::string ReadLine(std::string_view line, Entry& entry);
  template <class Counts>
  const Entry* Best(std::string_view query, Counts counts, std::optional<Kind> other) const;
  static std::uint64_t Narrowness(const Entry& entry, std::string_view query);

  std::vector<Entry> entries_;
};

}  // namespace netro

#include "dns/RootServers.h"

#include <string>

namespace netro::tool {
namespace {

struct Addresses {
  const char* v4;
  const char* v6;
};

// From a.root-servers.net on.
constexpr Addresses kRoots[] = {
    {"198.41.0.4", "2001:503:ba3e::2:30"}, {"170.247.170.2", "2801:1b8:10::b"},
    {"192.33.4.12", "2001:500:2::c"},      {"199.7.91.13", "2001:500:2d::d"},
    {"192.203.230.10", "2001:500:a8::e"},  {"192.5.5.241", "2001:500:2f::f"},
    {"192.112.36.4", "2001:500:12::d0d"},  {"198.97.190.53", "2001:500:1::53"},
    {"192.36.148.17", "2001:7fe::53"},     {"192.58.128.30", "2001:503:c27::2:30"},
    {"193.0.14.129", "2001:7fd::1"},       {"199.7.83.42", "2001:500:9f::42"},
    {"202.12.27.33", "2001:dc3::35"},
};

}  // namespace

std::vector<NameServer> RootServers() {
  std::vector<NameServer> servers;
  char letter = 'a';
  for (const Addresses& root : kRoots) {
    servers.push_back({std::string(1, letter++) + ".root-servers.net.", {root.v4, root.v6}});
  }
  return servers;
}

}  // namespace netro::tool

// A cache is filled by restoring a file that was written for it. The time of a lookup may grow only
// by what the processor's caches no longer hold; saving and restoring must cost the same per entry.

#include "bench/LookupCases.h"

#include <netro/SocketCls.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <random>
#include <vector>

#include "bench/Cases.h"

namespace netro::bench {
namespace {

constexpr int kLookups = 2'000'000;

struct Cache {
  int entries;
  std::string file;
};

std::string Host(int number) { return "host" + std::to_string(number) + ".example.test"; }

std::string Address(int number) {
  return "10." + std::to_string(number >> 16) + "." + std::to_string(number >> 8 & 255) + "." +
         std::to_string(number & 255);
}

std::string InTenMinutes() {
  const std::time_t then = std::time(nullptr) + 600;
  std::tm parts{};
  gmtime_r(&then, &parts);
  std::array<char, 32> text;
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S.000Z", &parts);
  return text.data();
}

void WriteFile(const Cache& cache) {
  const std::string expiry = InTenMinutes();
  std::ofstream file(cache.file);
  file << "[DNS]\n";
  for (int i = 0; i < cache.entries; ++i) {
    file << Host(i) << '=' << expiry << '|' << Address(i) << '\n';
  }
}

/// The hosts that are looked up: all of them, over and over, in an order that no cache foresees.
std::vector<std::string> ShuffledHosts(int entries) {
  std::vector<int> order;
  for (int i = 0; i < entries; ++i) {
    order.push_back(i);
  }
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  std::vector<std::string> hosts;
  for (const int number : order) {
    hosts.push_back(Host(number));
  }
  return hosts;
}

/// Empty when the cache has its entries.
std::string CheckCount(std::int32_t count, const Cache& cache) {
  return count == cache.entries ? "" : std::to_string(count) + " entries";
}

std::string LookUp(const Cache& cache, Stopwatch& watch) {
  WriteFile(cache);
  SocketCls socket;
  socket.RestoreDNSCache(cache.file);
  const std::vector<std::string> hosts = ShuffledHosts(cache.entries);
  watch.Start();
  for (int left = kLookups; left > 0;) {
    for (const std::string& host : hosts) {
      if (!socket.DNSLookup(host).starts_with("10.")) {
        return "no address for " + host;
      }
      if (--left == 0) {
        break;
      }
    }
  }
  watch.Stop();
  return CheckCount(socket.GetDNSCacheCount(), cache);
}

std::string Restore(const Cache& cache, Stopwatch& watch) {
  WriteFile(cache);
  SocketCls socket;
  watch.Start();
  const std::int32_t restored = socket.RestoreDNSCache(cache.file);
  watch.Stop();
  return CheckCount(restored, cache);
}

std::string Save(const Cache& cache, Stopwatch& watch) {
  WriteFile(cache);
  SocketCls socket;
  socket.RestoreDNSCache(cache.file);
  std::remove(cache.file.c_str());
  watch.Start();
  const std::int32_t saved = socket.SaveDNSCache(cache.file);
  watch.Stop();
  return CheckCount(saved, cache);
}

using CacheFunction = std::string (*)(const Cache&, Stopwatch&);

/// A series of sizes; each is set against the first one. `units` 0: as many as there are entries.
void AddSeries(const std::string& name, const std::string& unit, int units,
               const std::string& folder, const std::vector<int>& sizes, CacheFunction function) {
  const auto label = [&](int entries) {
    return name + ", " + std::to_string(entries) + " entries";
  };
  for (const int entries : sizes) {
    const Cache cache{entries, folder + "/cache.ini"};
    const std::string against = entries == sizes.front() ? "" : label(sizes.front()) + "/netro";
    AddCase({label(entries), "netro", unit, static_cast<double>(units != 0 ? units : entries),
             against, [cache, function](Stopwatch& watch) {
               std::string error = function(cache, watch);
               std::remove(cache.file.c_str());
               return error;
             }});
  }
}

}  // namespace

void AddLookupCases(const std::string& folder) {
  AddSeries("cached lookup", "lookups", kLookups, folder, {10, 1'000'000}, LookUp);
  AddSeries("cache restored", "entries", 0, folder, {10'000, 100'000, 1'000'000}, Restore);
  AddSeries("cache saved", "entries", 0, folder, {10'000, 100'000, 1'000'000}, Save);
}

}  // namespace netro::bench

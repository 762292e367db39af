// The session with its cache beside two common HTTP clients with theirs: Qt 6 Network and libsoup
// 3, where their packages are installed. Storing 500 answers of 20 KB that arrive 8 at a time, hits
// from memory and from disk, and transfers without a cache, one at a time and 16 in flight.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bench/Cores.h"
#include "bench/LoopbackServer.h"
#include "bench/Ratios.h"
#include "bench/ScratchFolder.h"
#include "bench/peers/HTTPClient.h"

namespace paperloom::bench {
namespace {

constexpr std::size_t bodySize = 20 * 1024;
constexpr int urlCount = 500;
constexpr int rounds = 7;

struct Peer {
  const char* name;
  std::unique_ptr<HTTPClient> (*make)(const ClientOptions& options);
};

const Peer peers[] = {
    {"own", &makeOwnClient},
#ifdef PAPERLOOM_BENCH_QT
    {"qt", &makeQtClient},
#endif
#ifdef PAPERLOOM_BENCH_SOUP
    {"soup", &makeSoupClient},
#endif
};

// The best time of several rounds, in seconds a request, by what was done and by whom.
class Times {
 public:
  void measure(const std::string& what, const char* who, HTTPClient& client,
               const std::vector<std::string>& urls, int width) {
    const auto begun = std::chrono::steady_clock::now();
    if (client.get(urls, width) != urls.size() * bodySize) {
      std::printf("%s of %s failed\n", what.c_str(), who);
      std::exit(1);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
    const double each = taken.count() / static_cast<double>(urls.size());
    const auto entry = best_[what].emplace(who, each).first;
    entry->second = std::min(entry->second, each);
  }

  double own(const std::string& what) const { return best_.at(what).at("own"); }

  // The limit is for the faster of the peers.
  void ratiosToPeers(const std::string& what, const char* wanted) const {
    const std::map<std::string, double>& times = best_.at(what);
    std::string fastest;
    for (const auto& [who, time] : times) {
      if (who != "own" && (fastest.empty() || time < times.at(fastest))) fastest = who;
    }
    for (const auto& [who, time] : times) {
      if (who == "own") continue;
      printRatio((what + "/" + who).c_str(), own(what), time, "for information");
    }
    if (fastest.empty()) return;
    printRatio((what + "/faster-peer").c_str(), own(what), times.at(fastest), wanted);
  }

 private:
  std::map<std::string, std::map<std::string, double>> best_;
};

void runRound(const LoopbackServer& server, const std::vector<std::string>& urls, Times& times) {
  for (const Peer& peer : peers) {
    const ScratchFolder folder;
    const ClientOptions kept{folder.path / "cache", true};
    const auto asked = server.requests();
    {
      const auto client = peer.make(kept);
      times.measure("store", peer.name, *client, urls, 8);
      times.measure("hit-memory", peer.name, *client, urls, 1);
    }
    {
      const auto client = peer.make({folder.path / "cache", false});
      times.measure("hit-disk", peer.name, *client, urls, 1);
    }
    if (server.requests() - asked != urls.size()) {
      std::printf("%s asked again for what it had stored\n", peer.name);
      std::exit(1);
    }
    const auto bare = peer.make({});
    times.measure("transfer", peer.name, *bare, urls, 1);
    times.measure("transfer-8-in-flight", peer.name, *bare, urls, 8);
    times.measure("transfer-16-in-flight", peer.name, *bare, urls, 16);
  }
}

std::string dateNow() {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &utc);
  return text.data();
}

void run() {
  const LoopbackServer server(bodySize,
                              "Cache-Control: max-age=3600\r\nDate: " + dateNow() + "\r\n");
  std::vector<std::string> urls;
  for (int i = 0; i < urlCount; ++i) urls.push_back(server.url() + std::to_string(i));
  Times times;
  for (int i = 0; i < rounds; ++i) runRound(server, urls, times);
  if (std::size(peers) < 3) {
    std::printf("no comparison with every peer: it needs qt6-base-dev and libsoup-3.0-dev\n");
  }
  printRatio("store/own-transfer-8-in-flight", times.own("store"),
             times.own("transfer-8-in-flight"), "<= 1.5");
  times.ratiosToPeers("store", "<= 0.5");
  times.ratiosToPeers("hit-memory", "<= 0.3");
  times.ratiosToPeers("hit-disk", "<= 0.5");
  times.ratiosToPeers("transfer", "<= 0.4");
  times.ratiosToPeers("transfer-16-in-flight", "<= 0.4");
}

}  // namespace
}  // namespace paperloom::bench

int main() {
  paperloom::bench::leaveFirstCoreToServers();
  paperloom::bench::run();
}

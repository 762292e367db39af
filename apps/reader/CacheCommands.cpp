#include <fmt/format.h>

#include "apps/reader/Commands.h"
#include "apps/reader/RecordJSON.h"
#include "apps/reader/Text.h"
#include "paperloom/network/LatestDateStore.h"
#include "paperloom/platform/CacheExplanation.h"
#include "paperloom/platform/UserDefaults.h"

namespace paperloom::reader {
namespace {

// A LatestDateStore takes its own first use for a fetch; whether there has been one shows only
// before it is made.
bool hasEverFetched() {
  return UserDefaults::standard().doubleForKey("paperloom.lastRequestTime") > 0;
}

void elapsed(Host& host) {
  const bool ever = hasEverFetched();
  const double seconds = ever ? LatestDateStore::shared().timeElapsedSinceLastRequest() : 0;
  if (host.json()) {
    return host.output().line(
        dump({{"timeElapsedSinceLastRequest", seconds}, {"neverFetched", !ever}}));
  }
  if (!ever)
    return host.output().sentence("Never: no article has come fresh from the network yet.");
  host.output().sentence("The last article came fresh from the network " +
                         describeAge(std::chrono::seconds(static_cast<std::int64_t>(seconds))) +
                         ".");
}

void stats(Host& host) {
  const auto& cache = host.sessionManager()->contentSessionCache();
  const std::size_t entries = cache->entries().size();
  if (host.json()) {
    return host.output().line(dump({{"entries", entries},
                                    {"currentMemoryUsage", cache->currentMemoryUsage()},
                                    {"memoryCapacity", cache->memoryCapacity()},
                                    {"currentDiskUsage", cache->currentDiskUsage()},
                                    {"diskCapacity", cache->diskCapacity()},
                                    {"diskFile", cache->diskFile().string()}}));
  }
  const auto row = [&](std::string_view name, const std::string& value) {
    host.output().row(host.style().dim(name), 11, value);
  };
  row("documents", std::to_string(entries));
  row("on disk", fmt::format("{} of {}", byteSize(cache->currentDiskUsage()),
                             byteSize(cache->diskCapacity())));
  row("in memory", fmt::format("{} of {}", byteSize(cache->currentMemoryUsage()),
                               byteSize(cache->memoryCapacity())));
  row("file", printableText(cache->diskFile().string()));
}

// What the rules say of an entry, as a session would find it now.
struct EntryState {
  CacheExplanation explanation;
  std::string freshness;
};

EntryState stateOf(const URLCache::Entry& entry, Date now) {
  const CacheExplanation explanation =
      explainCaching(URLRequest(entry.response.response.url), entry.response, now);
  using Outcome = CacheExplanation::Outcome;
  std::string freshness = "sent again";
  if (explanation.outcome == Outcome::answeredFromCache) {
    freshness = explanation.stale ? "stale, served" : "fresh";
    if (!explanation.stale && explanation.age && explanation.freshnessLifetime) {
      const auto left = *explanation.freshnessLifetime - *explanation.age;
      freshness = "fresh for " + describeDuration(left);
    }
  } else if (explanation.outcome == Outcome::revalidated) {
    freshness = "to be confirmed";
  }
  return {explanation, freshness};
}

void list(Host& host) {
  const Date now = currentDate();
  JSON rows = JSON::array();
  host.output().beginPage();
  for (const URLCache::Entry& entry : host.sessionManager()->contentSessionCache()->entries()) {
    const EntryState state = stateOf(entry, now);
    const auto& age = state.explanation.age;
    if (host.json()) {
      rows.push_back({{"url", entry.response.response.url.absoluteString()},
                      {"statusCode", entry.response.response.statusCode},
                      {"size", entry.size},
                      {"age", age ? JSON(age->count()) : JSON()},
                      {"freshness", state.freshness},
                      {"fetchedAt", toJSON(entry.response.responseTime)},
                      {"onDisk", entry.onDisk}});
      continue;
    }
    host.output().row(fmt::format("{:>10}  {:<11} {}", byteSize(entry.size),
                                  age ? describeDuration(*age) : "", state.freshness),
                      48, printableLine(entry.response.response.url.absoluteString()));
  }
  if (host.json()) host.output().line(dump({{"entries", std::move(rows)}}));
}

void clear(Host& host) {
  const auto& cache = host.sessionManager()->contentSessionCache();
  const std::size_t entries = cache->entries().size();
  cache->removeAllCachedResponses();
  if (host.json()) return host.output().line(dump({{"removed", entries}}));
  host.output().line(count(entries, "document") + " removed.");
}

void explain(Host& host, const std::string& address) {
  const URLRequest request(host.resolve(address));
  const auto stored = host.sessionManager()->contentSessionCache()->cachedResponse(request);
  const CacheExplanation explanation = explainCaching(request, stored, currentDate());

  static constexpr std::string_view outcomes[] = {"answeredFromCache", "revalidated", "sent",
                                                  "refused"};
  static constexpr std::string_view sentences[] = {"would be answered from the cache",
                                                   "would be revalidated", "would be sent",
                                                   "would be refused"};
  const auto outcome = static_cast<std::size_t>(explanation.outcome);
  const auto seconds = [](const auto& value) { return value ? JSON(value->count()) : JSON(); };
  if (host.json()) {
    return host.output().line(
        dump({{"url", request.url.absoluteString()},
              {"outcome", outcomes[outcome]},
              {"stale", explanation.stale},
              {"reason", explanation.reason},
              {"where", explanation.where.empty() ? JSON() : JSON(explanation.where)},
              {"age", seconds(explanation.age)},
              {"freshnessLifetime", seconds(explanation.freshnessLifetime)}}));
  }
  host.output().sentence(
      fmt::format("A request for it now {}{}: {}{}.", host.style().bold(sentences[outcome]),
                  explanation.stale ? ", with a stale copy" : "", printableLine(explanation.reason),
                  explanation.where.empty() ? "" : " (" + explanation.where + ")"));
  if (explanation.age) {
    const auto words = [](std::chrono::seconds time) { return describeDuration(time); };
    host.output().sentence(fmt::format(
        "The stored copy is {} old{}.", words(*explanation.age),
        explanation.freshnessLifetime ? " and fresh for " + words(*explanation.freshnessLifetime)
                                      : ""));
  }
}

}  // namespace

void addCacheCommands(CLI::App& app, Action& action) {
  app.add_subcommand("elapsed", "How long ago an article last came fresh from the network")
      ->group(cacheGroup)
      ->callback([&action] { action = elapsed; });

  auto* cache = app.add_subcommand("cache", "What the URL cache holds");
  cache->group(cacheGroup);
  cache->require_subcommand(0, 1);
  cache->callback([&action, cache] {
    if (cache->get_subcommands().empty()) action = stats;
  });
  cache->add_subcommand("stats", "How much it holds (this is also what `cache` alone says)")
      ->callback([&action] { action = stats; });
  cache->add_subcommand("list", "Every document: size, age, freshness, URL")->callback([&action] {
    action = list;
  });
  cache->add_subcommand("clear", "Remove every document")->callback([&action] { action = clear; });
  auto* command = cache->add_subcommand(
      "explain", "Whether a request now would be answered from the cache, and why");
  auto address = std::make_shared<std::string>();
  command->add_option("url", *address, "URL, or path on the content service")->required();
  command->callback(
      [&action, address] { action = [address](Host& host) { explain(host, *address); }; });
}

}  // namespace paperloom::reader

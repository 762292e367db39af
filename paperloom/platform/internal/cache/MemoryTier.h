#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "paperloom/platform/Mutex.h"
#include "paperloom/platform/internal/cache/CacheEntryFormat.h"

namespace paperloom::internal {

// The answers of one cache that are in memory, least recently used out first. Safe from any thread.
//
// - The mutex guards every member. It is held for moments, never across disk work, and nothing is
//   called under it but what the entries' own matching needs; so the disk tier may call in here
//   with its write gate or the ledger's lock held.
// - Every entry of `nodes_` stands in `variants_` under its URL, and nothing else does; `usage_` is
//   the sum of their sizes, and above the capacity only within a call.
// - Of two that store and remove the same URL, the one whose change the file has later comes here
//   later: the disk tier brings changes while it holds the write gate.
// - What is here must not outlive what others do to the file. A generation stands for everything
//   that others had done when the contents were known to be current: a newer one empties the
//   memory. A copy that was read from the file comes with a ticket from before the reading, and is
//   taken only if nothing has happened to its URL, or to one in the same slot, since.
// - A crash loses what is here and nothing else.
class MemoryTier {
 public:
  explicit MemoryTier(std::int64_t capacity);

  using Entry = std::shared_ptr<const CacheEntry>;

  // Whether find() could give something.
  bool mayHold(const CacheKey& key) const;
  // The newest variant that fits the request; counts as a use.
  Entry find(const CacheKey& key, VaryMatcher& request);

  // Replaces the variants that fit the request. What is too large is not kept, and then replaces
  // them by nothing.
  void store(const CacheKey& key, VaryMatcher& request, CacheEntry entry);
  void removeMatching(const CacheKey& key, VaryMatcher& request);
  void remove(const CacheKey& key);
  void clear();

  // Empties the memory if it is of an older generation.
  void enterGeneration(std::uint64_t generation);
  // Taken before an entry is read from disk, shown when it is brought here.
  struct Ticket {
    std::uint64_t generation = 0;
    std::uint64_t changes = 0;
  };
  Ticket ticket(const CacheKey& key) const;
  void promote(const CacheKey& key, VaryMatcher& request, CacheEntry entry, Ticket ticket);

  std::int64_t capacity() const;
  void setCapacity(std::int64_t bytes);
  std::int64_t usage() const;
  // Most recently used first.
  std::vector<Entry> entries() const;

 private:
  struct Node {
    std::string url;
    Entry entry;
  };
  using Nodes = std::list<Node>;
  using Variants = std::vector<Nodes::iterator>;

  bool fits(const CacheEntry& entry) const PAPERLOOM_REQUIRES(mutex_) {
    return entry.size <= capacity_ / 20;
  }
  void insert(const CacheKey& key, CacheEntry entry) PAPERLOOM_REQUIRES(mutex_);
  void dropMatching(const CacheKey& key, VaryMatcher& request) PAPERLOOM_REQUIRES(mutex_);
  void drop(Nodes::iterator node) PAPERLOOM_REQUIRES(mutex_);
  void dropAll() PAPERLOOM_REQUIRES(mutex_);
  void shrink() PAPERLOOM_REQUIRES(mutex_);
  static std::size_t slot(const CacheKey& key);

  static constexpr std::size_t slots = 256;

  mutable Mutex mutex_;
  std::int64_t capacity_ PAPERLOOM_GUARDED_BY(mutex_);
  std::int64_t usage_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  std::uint64_t generation_ PAPERLOOM_GUARDED_BY(mutex_) = 0;
  // By the checksum of the URL.
  std::array<std::uint64_t, slots> changes_ PAPERLOOM_GUARDED_BY(mutex_){};
  Nodes nodes_ PAPERLOOM_GUARDED_BY(mutex_);  // most recently used first
  std::unordered_map<std::string, Variants> variants_ PAPERLOOM_GUARDED_BY(mutex_);
};

}  // namespace paperloom::internal

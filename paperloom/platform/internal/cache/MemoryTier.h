#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "paperloom/platform/internal/cache/CacheEntryFormat.h"

namespace paperloom::internal {

// The answers of one cache that are in memory, least recently used out first. Safe from any
// thread; every call is short.
//
// Where there is a disk under it, what is in memory must not outlive what others do to the disk:
// a generation stands for everything that others had done when the memory's contents were known to
// be current, and a copy read from disk is taken only if nothing happened to its URL meanwhile.
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

  bool fits(const CacheEntry& entry) const { return entry.size <= capacity_ / 20; }
  void insert(const CacheKey& key, CacheEntry entry);
  void dropMatching(const CacheKey& key, VaryMatcher& request);
  void drop(Nodes::iterator node);
  void shrink();
  static std::size_t slot(const CacheKey& key);

  static constexpr std::size_t slots = 256;

  mutable std::mutex mutex_;
  std::int64_t capacity_;
  std::int64_t usage_ = 0;
  std::uint64_t generation_ = 0;
  std::array<std::uint64_t, slots> changes_{};  // by the checksum of the URL
  Nodes nodes_;                                 // most recently used first
  std::unordered_map<std::string, Variants> variants_;
};

}  // namespace paperloom::internal

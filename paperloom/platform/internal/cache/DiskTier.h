#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "paperloom/platform/internal/cache/CacheConnection.h"
#include "paperloom/platform/internal/cache/CacheLedger.h"

namespace paperloom::internal {

class MemoryTier;

// One cache file, shared by every cache on its path in this process; tells the memories above it
// what is outdated. Safe from any thread; no call waits for locks beyond its deadline. What fails
// is a miss, and what should have been replaced or removed is not served any more.
//
// - It has no lock of its own. A change enters the connection's write gate and stays in it until
// the
//   memories have been told, so that they hear of changes in the order in which the file has them;
//   the ledger's lock and the memories' are taken within, in this order, for moments.
// - A look-up holds only the read gate, and so may see the file before a change that is under way;
//   the ticket of the memory above keeps such a copy out of it.
// - A change that fails is noted in the ledger before anybody is told of its end: from then on its
//   URL is a miss, in this process, until a later transaction has removed what was there.
// - A crash leaves the file as the last commit made it. Lost are the uses since it was opened, and
//   what the ledger knew to be outdated: that may be found again by the next process.
class DiskTier {
 public:
  using Deadline = CacheConnection::Deadline;

  // The tier of that folder in this process.
  static std::shared_ptr<DiskTier> shared(const std::filesystem::path& folder);

  explicit DiskTier(const std::filesystem::path& folder);
  // Writes the uses that were only noted so far.
  ~DiskTier();
  DiskTier(const DiskTier&) = delete;
  DiskTier& operator=(const DiskTier&) = delete;

  void attach(MemoryTier* memory) { ledger_.attach(memory); }
  void detach(MemoryTier* memory) { ledger_.detach(memory); }

  // Another number than before when another process may have changed something meanwhile.
  std::uint64_t generation(Deadline deadline) { return connection_.generation(deadline); }

  // The generation as it is known, where nothing can have changed it; nothing where only a look at
  // the file can tell. Touches no disk and waits for nobody.
  std::optional<std::uint64_t> generationAtOnce();
  // False: nothing is kept under that key, as far as the generation tells.
  bool mayHold(const CacheKey& key) const { return ledger_.mayHold(key); }

  std::optional<CacheEntry> find(const CacheKey& key, VaryMatcher& request, const URL& url,
                                 Deadline deadline);
  // Counts a use of the row. The file learns of it when the row would be evicted, or in the end.
  void noteUse(std::int64_t id) { ledger_.noteUse(id); }

  // Brings the memory of the cache that asks up to date: called exactly once a change, in the order
  // of the writes to disk, with the id of the row, 0 when nothing was stored.
  using Then = std::function<void(std::int64_t id)>;
  struct Change {
    enum class Kind {
      store,           // `entry`, in place of the variants that fit the request; evicts
      removeMatching,  // the variants that fit the request
      remove,          // every variant
    };
    Kind kind = Kind::remove;
    CacheKey key;
    VaryMatcher* request = nullptr;     // but with remove
    const CacheEntry* entry = nullptr;  // with store
    Then then;
  };
  // Makes them in one transaction, or, where that fails, one by one. `own` is the memory of the
  // cache that asks.
  void change(const std::vector<Change>& changes, std::int64_t capacity, const MemoryTier* own,
              Deadline deadline);
  // For quiet moments: they take as long as the disk does, while others read and write.
  void shortenLog() { connection_.shortenLog(); }
  void learnRows() { connection_.learnRows(); }
  void removeAll(const MemoryTier* own, const Then& then, Deadline deadline);
  // Evicts down to the capacity, and gives the room back to the file system if it is much.
  void trim(std::int64_t capacity, Deadline deadline);

  std::int64_t usage(Deadline deadline);
  std::vector<CacheEntry> entries(Deadline deadline);
  const std::filesystem::path& file() const { return connection_.file(); }

 private:
  using Room = CacheConnection::Room;

  bool changeTogether(const std::vector<Change>& changes, std::int64_t capacity,
                      const MemoryTier* own, Deadline deadline);
  void changeOne(const Change& change, std::int64_t capacity, const MemoryTier* own,
                 Deadline deadline);
  void tell(const Change& change, std::int64_t id, const MemoryTier* own);
  void dropDamaged(const std::vector<CacheReader::Damaged>& rows);

  CacheLedger ledger_;
  CacheConnection connection_;
};

}  // namespace paperloom::internal

#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace paperloom::test {

// The files below SQLite in this test program: passes everything on but syncs, which it takes to
// be done, counts, and fails or forgets when told to. One for the program; safe from any thread.
class FaultyFiles {
 public:
  static FaultyFiles& shared();

  enum class Fault {
    none,
    ioError,   // that one operation fails
    diskFull,  // that one and every later one that needs room fail
    powerCut,  // nothing happens from then on, until restart()
  };
  // Of the writes, truncations, syncs and removals from now on, the `number`-th meets the fault.
  void arm(Fault fault, int number);
  bool met() const;
  // After a power cut: of what was not synced only some is there.
  void restart(std::mt19937& random);

  // The system refuses every lock on the log's index: an error that SQLite takes for another
  // holder.
  void refuseLocks(bool refuse);

  // Makes whoever opens a file, or reads, writes or locks a part of one, wait until told otherwise.
  void block(bool blocks);
  // How many have had to wait so far.
  int held() const;

  // Forgets what was written so far, and counts from zero.
  void watch();
  std::int64_t bytesWritten() const;

  // For SQLite's calls.
  void pass();
  int operate(bool needsRoom);
  void noteWrite(const std::string& path, std::int64_t offset, std::string bytes);
  void noteTruncation(const std::string& path, std::int64_t size);
  void noteSync(const std::string& path);
  void noteRemoval(const std::string& path);
  bool refusesLocks() const;

 private:
  FaultyFiles();

  struct Change {
    std::int64_t offset = 0;  // a truncation to there when there are no bytes
    std::string bytes;
  };
  struct Kept {
    std::string synced;
    std::vector<Change> changes;
  };

  mutable std::mutex mutex_;
  Fault fault_ = Fault::none;
  int left_ = 0;
  bool met_ = false;
  bool refuseLocks_ = false;
  bool blocks_ = false;
  int held_ = 0;
  std::condition_variable unblocked_;
  std::int64_t bytes_ = 0;
  std::map<std::string, Kept> files_;
};

}  // namespace paperloom::test

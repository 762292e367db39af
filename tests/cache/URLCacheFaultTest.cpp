#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <fstream>
#include <iterator>
#include <random>
#include <set>

#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/internal/sqlite/SQLite.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "tests/cache/CacheTools.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/Soak.h"

namespace paperloom::test {
namespace {

using Fault = FaultyFiles::Fault;

constexpr std::int64_t capacity = 2 * megabyte;
constexpr int urls = 40;

std::size_t size(int i, int version) {
  return static_cast<std::size_t>((i + version) * 397 % 3000 + 50);
}

class URLCacheFaultTest : public testing::Test {
 protected:
  ~URLCacheFaultTest() override {
    faults_.arm(Fault::none, 0);
    faults_.refuseLocks(false);
  }

  static void store(URLCache& cache, int i, int version) {
    const std::string tag = url(i) + "," + std::to_string(version);
    cache.storeCachedResponse(answer(bodyFor(url(i), version, size(i, version)), {{"ETag", tag}}),
                              request(url(i)));
  }

  // The version that is kept; 0 for none. What is kept must be one that was stored, all of it.
  static int kept(const URLCache& cache, int i) {
    const auto found = cache.cachedResponse(request(url(i)));
    if (!found) return 0;
    const std::string tag(found->response.headers.first("ETag").value_or(""));
    const std::string prefix = url(i) + ",";
    EXPECT_TRUE(tag.starts_with(prefix)) << tag;
    const int version = std::atoi(tag.substr(std::min(tag.size(), prefix.size())).c_str());
    EXPECT_TRUE(found->data.view() == bodyFor(url(i), version, size(i, version))) << tag;
    EXPECT_EQ(found->response.statusCode, 200);
    return version;
  }

  FaultyFiles& faults_ = FaultyFiles::shared();
  TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_.path() / "url-cache";
};

// What may be found of each URL after the next start: one thing, if nothing has gone wrong.
class Model {
 public:
  void becomes(int i, int version) { states_[at(i)] = {version}; }
  void mayBecome(int i, int version) { states_[at(i)].insert(version); }
  void allMayGo() {
    for (auto& each : states_) each.insert(0);
  }
  void allGo() { states_.fill({0}); }
  bool allows(int i, int version) const { return states_[at(i)].contains(version); }
  std::string text(int i) const {
    std::string all;
    for (const int version : states_[at(i)]) all += std::to_string(version) + " ";
    return all;
  }

 private:
  static std::size_t at(int i) { return static_cast<std::size_t>(i); }
  std::array<std::set<int>, urls> states_ = [] {
    std::array<std::set<int>, urls> none;
    none.fill({0});
    return none;
  }();
};

// Somebody's hand in the file: another total, and another version in one entry's header.
void falsify(const std::filesystem::path& file, int i, Model& model) {
  {
    auto database = internal::SQLiteDatabase::open(file, {});
    ASSERT_TRUE(database && database->execute("UPDATE state SET bytes = bytes / 2 + 7"));
  }
  std::fstream bytes(file, std::ios::in | std::ios::out | std::ios::binary);
  const std::string all(std::istreambuf_iterator<char>(bytes), {});
  for (std::size_t at = 0; (at = all.find(url(i) + ",", at)) != std::string::npos; ++at) {
    bytes.seekp(static_cast<std::streamoff>(at + url(i).size() + 1));
    bytes.put(all[at + url(i).size() + 1] == '9' ? '8' : '9');
    model.mayBecome(i, 0);
  }
}

TEST_F(URLCacheFaultTest, whatMustBeThereIsThereWhateverFails) {
  std::mt19937 random(20'000);
  const auto oneOf = [&](int count) {
    return static_cast<int>(random() % static_cast<unsigned>(count));
  };
  Model model;
  int version = 0;
  int met = 0;
  for (int round = 0; round < soakTimes(120); ++round) {
    SCOPED_TRACE(round);
    constexpr std::array faults{Fault::none, Fault::ioError, Fault::diskFull, Fault::powerCut};
    const Fault fault = faults[random() % faults.size()];
    faults_.watch();
    faults_.arm(fault, 1 + oneOf(200));
    {
      URLCache cache(0, capacity, path_);
      // What could not be opened is left alone for a while.
      bool isOpen = true;
      for (int step = 0; step < 25; ++step) {
        const int i = oneOf(urls);
        const int deed = oneOf(20);
        const bool metBefore = faults_.met();
        if (deed < 14) store(cache, i, ++version);
        if (deed >= 14 && deed < 17) cache.removeCachedResponse(request(url(i)));
        if (deed == 17) cache.removeAllCachedResponses();
        if (deed > 17) cache.setDiskCapacity(capacity / 40), cache.setDiskCapacity(capacity);
        if (step == 0) isOpen = !faults_.met();
        const bool worked = !faults_.met() || (fault == Fault::ioError && metBefore && isOpen);
        const bool lasts = worked && fault != Fault::powerCut;
        if (deed < 17) {
          const int now = kept(cache, i);
          const int wanted = deed < 14 ? version : 0;
          EXPECT_TRUE(now == wanted || (now == 0 && !worked)) << now << ", not " << wanted;
          lasts ? model.becomes(i, wanted) : model.mayBecome(i, wanted);
          if (!lasts) model.mayBecome(i, 0);
        } else {
          EXPECT_TRUE(deed != 17 || cache.entries().empty());
          deed == 17 && lasts ? model.allGo() : model.allMayGo();
        }
      }
    }
    met += faults_.met() ? 1 : 0;
    faults_.arm(Fault::none, 0);
    if (fault == Fault::powerCut) faults_.restart(random);
    if (round % 3 == 0) falsify(path_ / "cache.sqlite", oneOf(urls), model);
    URLCache cache(0, capacity, path_);
    for (int i = 0; i < urls; ++i) {
      const int now = kept(cache, i);
      EXPECT_TRUE(model.allows(i, now)) << i << " is " << now << ", not " << model.text(i);
      model.becomes(i, now);
    }
    std::int64_t sum = 0;
    for (const auto& entry : cache.entries()) sum += entry.size;
    EXPECT_EQ(cache.currentDiskUsage(), sum);
  }
  EXPECT_GT(met, 20);
}

// More in one transaction than SQLite's own cache holds: its pages go to the log before it ends,
// some of them more than once.
TEST_F(URLCacheFaultTest, aLargeTransactionIsWhollyInTheLogOrNotAtAll) {
  const auto file = folder_.path() / "large.sqlite";
  const auto left = folder_.path() / "left.sqlite";
  auto writer = internal::SQLiteDatabase::open(file, {});
  ASSERT_TRUE(writer && writer->execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
                                        "PRAGMA cache_size=10; CREATE TABLE t(x, y)"));
  auto other = internal::SQLiteDatabase::open(file, {});
  const char* const fill =
      "BEGIN; WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n WHERE x < 500) "
      "INSERT INTO t SELECT x, zeroblob(900) FROM n";
  ASSERT_TRUE(writer->execute(fill) && writer->execute("UPDATE t SET y = randomblob(900); COMMIT"));
  EXPECT_EQ(other.value().integer("SELECT count(*) FROM t"), 500);
  // As a kill would leave them.
  std::filesystem::copy_file(file, left);
  std::filesystem::copy_file(file.string() + "-wal", left.string() + "-wal");
  EXPECT_EQ(internal::SQLiteDatabase::open(left, {})->integer("SELECT count(*) FROM t"), 500);
  ASSERT_TRUE(writer->execute("BEGIN; INSERT INTO t VALUES(0, randomblob(200000)); ROLLBACK"));
  ASSERT_TRUE(other->execute("INSERT INTO t VALUES(0, zeroblob(100000))"));
  *writer = {};
  auto late = internal::SQLiteDatabase::open(file, {});
  EXPECT_EQ(late.value().integer("SELECT count(*) FROM t"), 501);
  auto check = late->prepare("PRAGMA integrity_check");
  ASSERT_TRUE(check && check->step());
  EXPECT_EQ(check->text(0), "ok");
}

TEST_F(URLCacheFaultTest, locksThatTheSystemRefusesHoldNobodyUpForLong) {
  URLCache cache(0, capacity, path_);
  store(cache, 1, 1);
  faults_.refuseLocks(true);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(kept(cache, 1), 0);
  store(cache, 1, 2);
  cache.removeCachedResponse(request(url(2)));
  EXPECT_TRUE(cache.entries().empty());
  EXPECT_EQ(cache.currentDiskUsage(), 0);
  // SQLite by itself tries for ten seconds each time.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  faults_.refuseLocks(false);
  EXPECT_EQ(kept(cache, 1), 0);
  store(cache, 1, 3);
  EXPECT_EQ(kept(cache, 1), 3);
}

}  // namespace
}  // namespace paperloom::test

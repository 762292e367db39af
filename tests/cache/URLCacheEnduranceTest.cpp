#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include "paperloom/platform/URLCache.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "tests/cache/CacheTools.h"
#include "tests/support/ChildProcess.h"

namespace paperloom::test {
namespace {

using Files = std::map<std::string, std::string>;

std::size_t size(int i) { return static_cast<std::size_t>(i * 997 % 30'000 + 10); }

class URLCacheEnduranceTest : public testing::Test {
 protected:
  static void store(URLCache& cache, int i, int version = 0) {
    cache.storeCachedResponse(answer(bodyFor(url(i), version, size(i)), {{"ETag", url(i)}}),
                              request(url(i)));
  }

  Files readFiles() const {
    Files files;
    for (const auto& each : std::filesystem::directory_iterator(path_)) {
      std::ifstream in(each.path(), std::ios::binary);
      files[each.path().filename()].assign(std::istreambuf_iterator<char>(in), {});
    }
    return files;
  }

  void writeFiles(const Files& files) const {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    for (const auto& [name, bytes] : files) {
      std::ofstream(path_ / name, std::ios::binary) << bytes;
    }
  }

  TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_.path() / "url-cache";
};

// One damage of a random kind somewhere in the bytes.
void damage(std::string& bytes, std::mt19937& random) {
  const auto upTo = [&](std::size_t limit) { return random() % std::max<std::size_t>(limit, 1); };
  if (bytes.size() < 4096) return;
  const std::size_t at = upTo(4) == 0 ? upTo(4096) : upTo(bytes.size());
  const std::size_t count = std::min<std::size_t>(upTo(5000), bytes.size() - at);
  const std::size_t page = 2048;
  switch (upTo(7)) {
    case 0:
      for (std::size_t i = 0; i < count; ++i) bytes[at + i] = static_cast<char>(random());
      break;
    case 1:
      std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), count, '\0');
      break;
    case 2:
      bytes.resize(at);
      break;
    case 3:
      std::swap_ranges(bytes.begin(), bytes.begin() + page,
                       bytes.begin() + static_cast<std::ptrdiff_t>(at / page * page) -
                           (at + page > bytes.size() ? static_cast<std::ptrdiff_t>(page) : 0));
      break;
    default:
      bytes[at] = static_cast<char>(bytes[at] ^ (1 << upTo(8)));
  }
}

TEST_F(URLCacheEnduranceTest, noDamageMakesTheCacheServeWrongBytesOrStopsIt) {
  constexpr int entries = 50;
  Files closed;
  Files open;
  {
    URLCache cache(0, 20 * megabyte, path_);
    for (int i = 0; i < entries; ++i) store(cache, i);
    open = readFiles();
  }
  closed = readFiles();
  std::mt19937 random(4711);
  int served = 0;
  for (int round = 0; round < soakTimes(100); ++round) {
    SCOPED_TRACE(round);
    Files files = round % 3 == 0 ? open : closed;
    if (round % 3 == 0) files.erase("cache.sqlite-shm");
    for (auto& [name, bytes] : files) {
      for (int i = round % 2; i >= 0; --i) damage(bytes, random);
    }
    writeFiles(round % 3 == 1 ? closed : files);
    URLCache cache(0, 20 * megabyte, path_);
    if (round % 3 == 1) {  // under the open cache
      EXPECT_NE(bodyOf(cache, url(1)), "(none)");
      std::fstream(path_ / "cache.sqlite", std::ios::in | std::ios::out | std::ios::binary)
          << files["cache.sqlite"];
    }
    for (int i = 0; i < entries; ++i) {
      const std::string body = bodyOf(cache, url(i));
      if (body == "(none)") continue;
      ASSERT_TRUE(body == bodyFor(url(i), 0, size(i))) << i;
      ++served;
    }
    for (const auto& entry : cache.entries()) EXPECT_EQ(entry.response.response.statusCode, 200);
    // What is found to be damaged only now may cost what was stored before, once more at most.
    bool works = false;
    for (int i = 0; i < 3 && !works; ++i) {
      for (int j = 40; j < 60; ++j) store(cache, j, 1);
      works = true;
      for (int j = 40; j < 60; ++j) {
        const std::string body = bodyOf(cache, url(j));
        if (body == "(none)") works = false;
        ASSERT_TRUE(body == "(none)" || body == bodyFor(url(j), 1, size(j))) << j;
      }
    }
    EXPECT_TRUE(works);
    EXPECT_GE(cache.currentDiskUsage(), 0);
    EXPECT_LE(cache.currentDiskUsage(), 20 * megabyte);
  }
  EXPECT_GT(served, 0);
}

TEST_F(URLCacheEnduranceTest, noChangedBitKeepsLaterEntriesFromBeingFoundAtTheNextStart) {
  Files open;
  {
    URLCache cache(0, 20 * megabyte, path_);
    for (int i = 0; i < 6; ++i) store(cache, i);
    open = readFiles();
  }
  const Files closed = readFiles();
  const struct {
    const Files& files;
    const char* name;
    std::size_t from, to, step;  // in bits
  } cases[] = {
      {closed, "cache.sqlite", 0, 864, 37},        // how to read the file
      {closed, "cache.sqlite", 864, 928, 3},       // where the first page's rows are
      {closed, "cache.sqlite", 928, 32768, 1999},  // its schema, and the next page
      {open, "cache.sqlite-wal", 0, 448, 31},      // its head, and that of its first page
      {open, "cache.sqlite-shm", 0, 1088, 97},     // what it says about the log
  };
  for (const auto& each : cases) {
    for (std::size_t bit = each.from; bit < each.to; bit += each.step) {
      SCOPED_TRACE(testing::Message() << each.name << " byte " << bit / 8 << " bit " << bit % 8);
      Files files = each.files;
      char& byte = files[each.name][bit / 8];
      byte = static_cast<char>(byte ^ (1 << bit % 8));
      writeFiles(files);
      for (int start = 0; start < 3; ++start) {
        URLCache cache(0, 20 * megabyte, path_);
        for (int i = 0; i < 12; ++i) {
          const std::string body = bodyOf(cache, url(i));
          const std::string wanted = bodyFor(url(i), i < 6 ? 0 : start - 1, size(i));
          EXPECT_TRUE(body == wanted || (body == "(none)" && (i < 6 || start == 0))) << i;
        }
        for (int i = 6; i < 12; ++i) store(cache, i, start);
      }
    }
  }
}

TEST_F(URLCacheEnduranceTest, aFlippedBitInAnEntryIsAMissAndOnlyThat) {
  constexpr int entries = 20;
  {
    URLCache cache(0, 20 * megabyte, path_);
    for (int i = 0; i < entries; ++i) store(cache, i);
  }
  const std::string intact = readFiles()["cache.sqlite"];
  std::mt19937 random(99);
  for (int round = 0; round < soakTimes(100); ++round) {
    // In the middle of a body, where nothing of SQLite's own is.
    const int victim = static_cast<int>(random() % entries);
    const std::string body = bodyFor(url(victim), 0, size(victim));
    if (body.size() < 6000) continue;
    const std::string part = body.substr(body.size() / 2, 64);
    const std::size_t at = intact.find(part);
    if (at == std::string::npos) continue;
    std::string bytes = intact;
    char& byte = bytes[at + random() % part.size()];
    byte = static_cast<char>(byte ^ (1 << (random() % 8)));
    writeFiles({{"cache.sqlite", bytes}});
    const URLCache cache(0, 20 * megabyte, path_);
    for (int i = 0; i < entries; ++i) {
      EXPECT_EQ(bodyOf(cache, url(i)), i == victim ? "(none)" : bodyFor(url(i), 0, size(i)));
    }
    EXPECT_EQ(cache.entries().size(), static_cast<std::size_t>(entries - 1));
  }
}

TEST_F(URLCacheEnduranceTest, whatWasStoredBeforeAKillIsThereAndNothingIsTorn) {
  std::mt19937 random(7);
  for (int round = 0; round < soakTimes(5); ++round) {
    SCOPED_TRACE(round);
    std::filesystem::remove_all(path_);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ChildProcess child([&] {
      URLCache cache(megabyte, 100 * megabyte, path_);
      for (int i = 0;; ++i) {
        store(cache, i % 200, i);
        if (::write(ends[1], &i, sizeof i) != sizeof i) return;
      }
    });
    ::close(ends[1]);
    std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 150));
    child.kill();
    int last = -1;
    for (int i = 0; ::read(ends[0], &i, sizeof i) == sizeof i;) last = i;
    ::close(ends[0]);
    const URLCache cache(0, 100 * megabyte, path_);
    for (int i = std::max(0, last - 150); i <= last; ++i) {
      const std::string body = bodyOf(cache, url(i % 200));
      EXPECT_TRUE(body == bodyFor(url(i % 200), i, size(i % 200))) << i << " of " << last;
    }
    const int next = (last + 1) % 200;  // stored or not, but not acknowledged
    const std::string body = bodyOf(cache, url(next));
    EXPECT_TRUE(body == "(none)" || body == bodyFor(url(next), last + 1, size(next)) ||
                body == bodyFor(url(next), last - 199, size(next)));
  }
}

TEST_F(URLCacheEnduranceTest, manyWritersInManyProcessesKeepTheCapacityAndTheBytes) {
  constexpr std::int64_t capacity = 2 * megabyte;
  std::vector<ChildProcess> children;
  for (int process = 0; process < 4; ++process) {
    children.emplace_back([&] {
      URLCache one(megabyte, capacity, path_);
      URLCache two(0, capacity, path_);
      std::vector<std::thread> threads;
      for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&, thread] {
          URLCache& cache = thread == 0 ? two : one;
          std::mt19937 random(static_cast<unsigned>(process * 10 + thread));
          for (int i = 0; i < soakTimes(60); ++i) {
            const int which = static_cast<int>(random() % 300);
            store(cache, which);
            const int other = static_cast<int>(random() % 300);
            const std::string body = bodyOf(cache, url(other));
            EXPECT_TRUE(body == "(none)" || body == bodyFor(url(other), 0, size(other)));
            EXPECT_LE(cache.currentDiskUsage(), capacity);
          }
        });
      }
      for (auto& thread : threads) thread.join();
      EXPECT_LE(one.currentMemoryUsage(), megabyte);
    });
  }
  for (ChildProcess& child : children) EXPECT_EQ(child.wait(), 0);
  // A crowd can keep some from storing, and what they should have replaced goes.
  URLCache cache(0, capacity, path_);
  for (int i = 0; i < 300; ++i) store(cache, i);
  std::int64_t sum = 0;
  for (const auto& entry : cache.entries()) sum += entry.size;
  EXPECT_EQ(cache.currentDiskUsage(), sum);
  EXPECT_GE(sum, capacity * 9 / 10);
  EXPECT_LE(std::filesystem::file_size(path_ / "cache.sqlite"), capacity * 11 / 10 + 65536);
}

TEST_F(URLCacheEnduranceTest, aMemoryNeverServesWhatAnotherProcessHasReplacedOrRemoved) {
  int toChild[2];
  int toParent[2];
  ASSERT_EQ(::pipe(toChild), 0);
  ASSERT_EQ(::pipe(toParent), 0);
  const int rounds = soakTimes(20);
  char token = 0;
  ChildProcess child([&] {
    URLCache cache(megabyte, 10 * megabyte, path_);
    for (int i = 0; i < rounds; ++i) {
      if (i % 4 == 2) cache.removeCachedResponse(request(url(1)));
      if (i % 4 == 3) cache.removeAllCachedResponses();
      if (i % 4 < 2) store(cache, 1, i);
      EXPECT_EQ(::write(toParent[1], &token, 1), 1);
      EXPECT_EQ(::read(toChild[0], &token, 1), 1);
      if (i % 4 != 1) continue;
      EXPECT_EQ(bodyOf(cache, url(1)), bodyFor(url(1), -i, size(1)));
    }
  });
  ::close(toParent[1]);
  URLCache cache(megabyte, 10 * megabyte, path_);
  for (int i = 0; i < rounds; ++i) {
    ASSERT_EQ(::read(toParent[0], &token, 1), 1);
    const std::string expected = i % 4 < 2 ? bodyFor(url(1), i, size(1)) : "(none)";
    for (int look = 0; look < 2; ++look) {
      const std::string told = toldAtOnce(cache, url(1));
      EXPECT_TRUE(told == expected || told == "(unknown)") << i;
      EXPECT_EQ(bodyOf(cache, url(1)), expected) << i;
      cache.settle();
    }
    if (i % 4 == 1) store(cache, 1, -i);
    ASSERT_EQ(::write(toChild[1], &token, 1), 1);
  }
  EXPECT_EQ(child.wait(), 0);
}

TEST_F(URLCacheEnduranceTest, afterARaceEveryCacheHasTheSameAnswer) {
  const auto link = folder_.path() / "link";
  std::filesystem::create_directories(path_);
  std::filesystem::create_directory_symlink(path_, link);
  for (int round = 0; round < soakTimes(10); ++round) {
    URLCache first(megabyte, 10 * megabyte, path_);
    URLCache second(megabyte, 10 * megabyte, link);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&, thread] {
        URLCache& cache = thread % 2 == 0 ? first : second;
        for (int i = 0; i < 30; ++i) {
          store(cache, i % 3, round * 1'000 + thread * 100 + i);
          bodyOf(cache, url((i + 1) % 3));
          if (i % 7 == thread) cache.removeCachedResponse(request(url(i % 3)));
        }
      });
    }
    for (auto& thread : threads) thread.join();
    const URLCache disk(0, 10 * megabyte, path_);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(bodyOf(first, url(i)), bodyOf(disk, url(i)));
      EXPECT_EQ(bodyOf(second, url(i)), bodyOf(disk, url(i)));
    }
  }
}

}  // namespace
}  // namespace paperloom::test

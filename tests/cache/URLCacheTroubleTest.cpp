#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/internal/sqlite/SQLite.h"
#include "tests/cache/CacheTools.h"
#include "tests/support/TemporaryFolder.h"

namespace paperloom {
namespace {

using internal::SQLiteDatabase;
using namespace test;
using namespace std::chrono_literals;

class URLCacheTroubleTest : public testing::Test {
 protected:
  static void store(URLCache& cache, const std::string& url, const std::string& body) {
    cache.storeCachedResponse(answer(body), request(url));
  }

  // Whether it is on disk, where a fresh cache finds it.
  std::string onDisk(const std::string& url) const {
    return bodyOf(URLCache(0, 10 * megabyte, path_), url);
  }

  // The cache tries the disk again within a moment.
  bool comesBack(URLCache& cache) const {
    for (int i = 0; i < 200; ++i) {
      store(cache, "http://host/probe", "probe");
      if (onDisk("http://host/probe") == "probe") return true;
      std::this_thread::sleep_for(10ms);
    }
    return false;
  }

  test::TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_.path() / "caches" / "url-cache";
};

TEST_F(URLCacheTroubleTest, whileAnotherHoldsTheLockTheCacheAnswersAndForgetsNothing) {
  URLCache cache(megabyte, 10 * megabyte, path_);
  URLCache bare(0, 10 * megabyte, path_);
  store(cache, "http://host/old", "old");
  store(cache, "http://host/removed", "x");
  auto other = SQLiteDatabase::open(cache.diskFile(), 0ms);
  ASSERT_TRUE(other && other->execute("BEGIN IMMEDIATE"));
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      for (int j = 0; j < 5; ++j) store(cache, "http://host/" + std::to_string(i * 5 + j), "new");
    });
  }
  for (auto& thread : threads) thread.join();
  cache.removeCachedResponse(request("http://host/removed"));
  EXPECT_EQ(bodyOf(cache, "http://host/39"), "new");
  EXPECT_EQ(bodyOf(bare, "http://host/old"), "old");
  EXPECT_EQ(bodyOf(bare, "http://host/removed"), "(none)");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);  // 41 waits of 250 ms are 10 s
  ASSERT_TRUE(other->execute("COMMIT"));
  EXPECT_TRUE(comesBack(cache));
  EXPECT_EQ(onDisk("http://host/removed"), "(none)");
  EXPECT_EQ(onDisk("http://host/old"), "old");
}

TEST_F(URLCacheTroubleTest, whatAReaderKeepsFromBeingClearedIsClearedLater) {
  const std::string needle(300, 'N');
  URLCache cache(0, megabyte, path_);
  store(cache, "http://host/", needle);
  auto other = SQLiteDatabase::open(cache.diskFile(), 0ms);
  ASSERT_TRUE(other && other->execute("BEGIN; SELECT * FROM answers"));
  cache.removeAllCachedResponses();
  EXPECT_TRUE(cache.entries().empty());
  EXPECT_NE(test::bytesBelow(path_).find(needle), std::string::npos);
  ASSERT_TRUE(other->execute("COMMIT"));
  std::this_thread::sleep_for(120ms);
  store(cache, "http://host/", "new");
  EXPECT_EQ(test::bytesBelow(path_).find(needle), std::string::npos);
  EXPECT_EQ(bodyOf(cache, "http://host/"), "new");
}

TEST_F(URLCacheTroubleTest, aFullDiskLeavesTheMemoryAndComesBackWithoutReopening) {
  std::signal(SIGXFSZ, SIG_IGN);
  URLCache cache(megabyte, 10 * megabyte, path_);
  store(cache, "http://host/old", "old");
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full{100'000, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &full);
  for (int i = 0; i < 20; ++i) {
    store(cache, "http://host/" + std::to_string(i), std::string(20'000, 'x'));
    EXPECT_EQ(bodyOf(cache, "http://host/" + std::to_string(i)).size(), 20'000U);
  }
  EXPECT_EQ(onDisk("http://host/19"), "(none)");
  EXPECT_EQ(onDisk("http://host/old"), "old");
  ::setrlimit(RLIMIT_FSIZE, &before);
  store(cache, "http://host/19", std::string(20'000, 'y'));
  EXPECT_EQ(onDisk("http://host/19"), std::string(20'000, 'y'));
}

TEST_F(URLCacheTroubleTest, aFolderThatCannotBeUsedOrGoesAwayIsUsedAgainWhenItCan) {
  std::ofstream(folder_.path() / "caches") << "a file where the folder should be";
  URLCache cache(megabyte, 10 * megabyte, path_);
  store(cache, "http://host/", "1");
  EXPECT_EQ(bodyOf(cache, "http://host/"), "1");
  std::filesystem::remove(folder_.path() / "caches");
  EXPECT_TRUE(comesBack(cache));
  std::filesystem::remove_all(folder_.path() / "caches");
  store(cache, "http://host/", "2");
  EXPECT_EQ(onDisk("http://host/"), "2");
  // Another one puts a new file there: what is read comes from it in a moment.
  std::filesystem::remove_all(folder_.path() / "caches");
  std::this_thread::sleep_for(150ms);
  EXPECT_EQ(onDisk("http://host/"), "(none)");
}

TEST_F(URLCacheTroubleTest, aFileThatIsNoCacheOfThisFormatBecomesOne) {
  const auto prepare = [&](const char* sql) {
    auto database = SQLiteDatabase::open(path_ / "cache.sqlite", 0ms);
    ASSERT_TRUE(database && database->execute(sql));
  };
  const auto write = [&](const std::string& bytes) {
    std::ofstream(path_ / "cache.sqlite", std::ios::binary) << bytes;
  };
  const auto keepOne = [&] {
    URLCache cache(0, megabyte, path_);
    store(cache, "http://host/", "x");
  };
  const std::function<void()> cases[] = {
      [&] {
        write("plain text, longer than the hundred bytes of a header would be" +
              std::string(5000, '.'));
      },
      [&] { write(""); },
      [&] { write(std::string(100, '\0')); },
      [&] { prepare("CREATE TABLE answers(id); PRAGMA user_version=1"); },
      [&] { prepare("CREATE TABLE other(x); INSERT INTO other VALUES(1)"); },
      [&] {
        keepOne();
        prepare("PRAGMA user_version=1");
      },
      [&] {
        keepOne();
        prepare("CREATE TRIGGER t AFTER INSERT ON answers BEGIN DELETE FROM answers; END");
      },
      [&] {
        keepOne();
        std::fstream file(path_ / "cache.sqlite", std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(18);
        file << '\x03';  // declares itself read-only
      },
  };
  int number = 0;
  for (const auto& each : cases) {
    SCOPED_TRACE(number++);
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    each();
    URLCache cache(0, megabyte, path_);
    EXPECT_EQ(bodyOf(cache, "http://host/"), "(none)");
    store(cache, "http://host/", "works");
    EXPECT_EQ(bodyOf(cache, "http://host/"), "works");
  }
}

}  // namespace
}  // namespace paperloom

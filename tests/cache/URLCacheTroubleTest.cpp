#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <thread>
#include <vector>

#include "paperloom/platform/DebugLog.h"
#include "paperloom/platform/URLCache.h"
#include "paperloom/platform/internal/sqlite/SQLite.h"
#include "paperloom/testing/FullDisk.h"
#include "paperloom/testing/TemporaryFolder.h"
#include "tests/cache/CacheTools.h"
#include "tests/support/ChildProcess.h"

namespace paperloom::test {
namespace {

using internal::SQLiteDatabase;
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

  TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_.path() / "caches" / "url-cache";
};

TEST_F(URLCacheTroubleTest, whileAnotherHoldsTheLockTheCacheAnswersAndForgetsNothing) {
  URLCache cache(megabyte, 10 * megabyte, path_);
  URLCache bare(0, 10 * megabyte, path_);
  store(cache, "http://host/old", "old");
  store(cache, "http://host/removed", "x");
  auto other = SQLiteDatabase::open(cache.diskFile(), {});
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
  EXPECT_EQ(bare.entries().size(), 1U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);  // 41 waits of 250 ms are 10 s
  ASSERT_TRUE(other->execute("COMMIT"));
  EXPECT_TRUE(comesBack(cache));
  EXPECT_EQ(onDisk("http://host/removed"), "(none)");
  EXPECT_EQ(onDisk("http://host/old"), "old");
}

TEST_F(URLCacheTroubleTest, aLockThatIsHeldForAMomentIsWaitedFor) {
  URLCache cache(0, 10 * megabyte, path_);
  store(cache, "http://host/", "old");
  auto other = SQLiteDatabase::open(cache.diskFile(), {});
  ASSERT_TRUE(other && other->execute("BEGIN IMMEDIATE"));
  std::thread later([&] {
    std::this_thread::sleep_for(30ms);
    EXPECT_TRUE(other->execute("COMMIT"));
  });
  store(cache, "http://host/", "new");
  EXPECT_EQ(onDisk("http://host/"), "new");
  later.join();
}

TEST_F(URLCacheTroubleTest, whatCannotBeRemovedIsNotServedHoweverMuchItIs) {
  constexpr int many = 400;
  const auto url = [](int i) { return "http://host/" + std::to_string(i); };
  URLCache cache(0, 10 * megabyte, path_);
  std::vector<URLCache::Change> changes;
  for (int i = 0; i < many; ++i) changes.push_back({request(url(i)), answer("old")});
  cache.apply(changes);
  // In place of the folder lies a file for a while.
  const auto aside = folder_.path() / "aside";
  for (const int removed : {many - 1, 11'000}) {
    std::filesystem::rename(path_, aside);
    std::ofstream(path_) << "in the way";
    for (int i = 0; i < removed; ++i) cache.removeCachedResponse(request(url(i)));
    std::filesystem::remove(path_);
    std::filesystem::rename(aside, path_);
    EXPECT_TRUE(comesBack(cache));
    for (int i = 0; i < many; ++i) {
      EXPECT_EQ(bodyOf(cache, url(i)), i < removed ? "(none)" : "old") << i;
    }
  }
  EXPECT_EQ(onDisk(url(many - 1)), "(none)");
}

TEST_F(URLCacheTroubleTest, aDiskThatIsGivenUpWhileItIsLockedIsEmptyWhenItIsTakenUpAgain) {
  URLCache cache(0, 10 * megabyte, path_);
  store(cache, "http://host/", "old");
  auto other = SQLiteDatabase::open(cache.diskFile(), {});
  ASSERT_TRUE(other && other->execute("BEGIN IMMEDIATE"));
  cache.setDiskCapacity(0);
  store(cache, "http://host/", "new");  // which is kept nowhere
  ASSERT_TRUE(other->execute("COMMIT"));
  cache.setDiskCapacity(10 * megabyte);
  EXPECT_EQ(bodyOf(cache, "http://host/"), "(none)");
}

TEST_F(URLCacheTroubleTest, whatAReaderKeepsFromBeingClearedIsClearedLater) {
  const std::string needle(300, 'N');
  URLCache cache(0, megabyte, path_);
  store(cache, "http://host/", needle);
  auto other = SQLiteDatabase::open(cache.diskFile(), {});
  ASSERT_TRUE(other && other->execute("BEGIN; SELECT * FROM answers"));
  cache.removeAllCachedResponses();
  EXPECT_TRUE(cache.entries().empty());
  EXPECT_NE(bytesBelow(path_).find(needle), std::string::npos);
  ASSERT_TRUE(other->execute("COMMIT"));
  std::this_thread::sleep_for(120ms);
  store(cache, "http://host/", "new");
  EXPECT_EQ(bytesBelow(path_).find(needle), std::string::npos);
  EXPECT_EQ(bodyOf(cache, "http://host/"), "new");
}

TEST_F(URLCacheTroubleTest, aFullDiskLeavesTheMemoryAndComesBackWithoutReopening) {
  URLCache cache(megabyte, 10 * megabyte, path_);
  store(cache, "http://host/old", "old");
  auto full = std::make_unique<FullDisk>(100'000);
  for (int i = 0; i < 20; ++i) {
    store(cache, "http://host/" + std::to_string(i), std::string(20'000, 'x'));
    EXPECT_EQ(bodyOf(cache, "http://host/" + std::to_string(i)).size(), 20'000U);
  }
  EXPECT_EQ(onDisk("http://host/19"), "(none)");
  EXPECT_EQ(onDisk("http://host/old"), "old");
  full.reset();
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
  {
    URLCache other(0, megabyte, folder_.path() / "other");
    store(other, "http://host/", "3");
  }
  std::filesystem::remove_all(path_);
  std::filesystem::rename(folder_.path() / "other", path_);
  std::this_thread::sleep_for(150ms);
  EXPECT_EQ(bodyOf(cache, "http://host/"), "3");
}

TEST_F(URLCacheTroubleTest, aFileThatIsNoCacheOfThisFormatBecomesOne) {
  const auto prepare = [&](const char* sql) {
    auto database = SQLiteDatabase::open(path_ / "cache.sqlite", {});
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

TEST_F(URLCacheTroubleTest, theLogStaysSmallWhileSomebodyReadsAnOldState) {
  URLCache cache(0, 2 * megabyte, path_);
  const std::filesystem::path log = cache.diskFile().string() + "-wal";
  for (int i = 0; i < 60; ++i) {
    store(cache, url(i), std::string(20'000, 'x'));
    if (i > 20) continue;
    if (i % 5 == 0) std::this_thread::sleep_for(110ms);  // when it is looked at again
    EXPECT_LT(std::filesystem::file_size(log), 2 * megabyte / 10) << "twice its limit";
  }
  auto other = SQLiteDatabase::open(cache.diskFile(), {});
  ASSERT_TRUE(other && other->execute("BEGIN; SELECT * FROM state"));
  const std::function<void(int)> deeds[] = {
      [&](int i) { store(cache, url(i), std::string(20'000, 'y')); },
      [&](int i) { cache.removeCachedResponse(request(url(i))); },
      [&](int) { cache.removeAllCachedResponses(); },
      [&](int i) { cache.setDiskCapacity(2 * megabyte - i); },
  };
  for (const auto& deed : deeds) {
    for (int i = 0; i < 200; ++i) deed(i);
    EXPECT_LT(std::filesystem::file_size(log), megabyte);
  }
  EXPECT_TRUE(cache.entries().empty());
  EXPECT_EQ(onDisk(url(1)), "(none)");
  ASSERT_TRUE(other->execute("COMMIT"));
  EXPECT_TRUE(comesBack(cache));
}

// What is not this user's, or no file, is left as it is, and the cache lives in memory.
TEST_F(URLCacheTroubleTest, whatIsNoFileOfThisUsersIsLeftAlone) {
  const auto file = path_ / "cache.sqlite";
  const auto other = folder_.path() / "other.sqlite";
  {
    auto database = SQLiteDatabase::open(other, {});
    ASSERT_TRUE(database &&
                database->execute("CREATE TABLE theirs(x); INSERT INTO theirs VALUES(1)"));
  }
  const std::string theirs = bytesBelow(folder_.path());
  const auto keepOne = [&] {
    URLCache cache(0, megabyte, path_);
    store(cache, "http://host/", "x");
  };
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"a link", [&] { std::filesystem::create_symlink(other, file); }},
      {"a link to nothing", [&] { std::filesystem::create_symlink(other.string() + "?", file); }},
      {"a link in place of the log",
       [&] {
         keepOne();
         std::filesystem::create_symlink(other, file.string() + "-wal");
       }},
      {"a pipe", [&] { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); }},
      {"a device", [&] { std::filesystem::create_symlink("/dev/zero", file); }},
      {"a folder", [&] { std::filesystem::create_directory(file); }},
      {"another's file", [&] { keepOne(), ::chown(file.c_str(), 65534, 65534); }},
      {"another's folder", [&] { ::chown(path_.c_str(), 65534, 65534); }},
  };
  for (const auto& [name, prepare] : cases) {
    SCOPED_TRACE(name);
    // Only root can give files away.
    if (::geteuid() != 0 && std::string_view(name).starts_with("another")) continue;
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    prepare();
    std::vector<std::string> lines;
    DebugLog::setListener([&](std::string_view line) { lines.emplace_back(line); });
    URLCache cache(megabyte, megabyte, path_);
    store(cache, "http://host/new", "new");
    std::this_thread::sleep_for(120ms);
    store(cache, "http://host/new", "newer");
    EXPECT_EQ(bodyOf(cache, "http://host/new"), "newer");
    EXPECT_EQ(onDisk("http://host/new"), "(none)");
    DebugLog::setListener(nullptr);
    EXPECT_EQ(std::count_if(
                  lines.begin(), lines.end(),
                  [](const auto& line) { return line.starts_with("the cache stays in memory"); }),
              1);
    std::ifstream in(other, std::ios::binary);
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(in), {}) == theirs);
    EXPECT_FALSE(std::filesystem::exists(other.string() + "?"));
  }
}

TEST_F(URLCacheTroubleTest, aFileThatCannotBeWrittenIsRead) {
  // In a process of its own, since the modes of files mean nothing to root.
  ChildProcess child([&] {
    ::chmod(folder_.path().c_str(), 0777);
    if (::geteuid() == 0 && ::setuid(65534) != 0) ::_exit(2);
    for (const mode_t folderMode : {0700U, 0500U}) {
      std::filesystem::remove_all(path_);
      {
        URLCache cache(0, megabyte, path_);
        store(cache, "http://host/old", "old");
        store(cache, "http://host/outdated", "outdated");
      }
      ::chmod((path_ / "cache.sqlite").c_str(), 0400);
      ::chmod(path_.c_str(), folderMode);
      {
        URLCache cache(0, megabyte, path_);
        EXPECT_EQ(bodyOf(cache, "http://host/old"), "old") << folderMode;
        store(cache, "http://host/outdated", "new");
        cache.removeCachedResponse(request("http://host/old"));
        EXPECT_EQ(bodyOf(cache, "http://host/outdated"), "(none)");
        EXPECT_EQ(bodyOf(cache, "http://host/old"), "(none)");
        ::chmod(path_.c_str(), 0700);
        ::chmod((path_ / "cache.sqlite").c_str(), 0600);
        EXPECT_TRUE(comesBack(cache));
      }
      EXPECT_EQ(onDisk("http://host/old"), "(none)");
    }
  });
  EXPECT_EQ(child.wait(), 0);
}

}  // namespace
}  // namespace paperloom::test
